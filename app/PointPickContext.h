#pragma once

#include "WContext.h"

#include "geometry/WPointOnTriangle.h"

#include <QVector3D>

namespace WelkPlugin {

class PointSelectionModel;
class ZModelView;

/// Point editing on one model's view: a left click on the surface adds a
/// point, dragging a point slides it over the surface, Ctrl + click
/// deletes the point under the cursor. The right button is left to
/// navigation.
class PointPickContext : public Welk::WContext
{
    Q_OBJECT
public:
    PointPickContext(ZModelView* view, int side, PointSelectionModel* model);

    void setEnabled(bool enabled) { m_enabled = enabled; }
    bool isEnabled() const { return m_enabled; }

    /// The ray under view pixel `p` (y down), in model space.
    void rayAt(const QPointF& p, QVector3D& origin, QVector3D& direction) const;
    /// The surface point under view pixel `p`; invalid for none.
    Welk::WPointOnTriangle pickAt(const QPointF& p) const;
    /// The point whose marker is within `radius` pixels of `p`, or -1.
    int markerAt(const QPointF& p, float radius = 12.0f) const;

signals:
    /// An edit was refused; `message` says why.
    void refused(QString message);

protected:
    bool onMousePress(QMouseEvent* event) override;
    bool onMouseMove(QMouseEvent* event) override;
    bool onMouseRelease(QMouseEvent* event) override;

private:
    ZModelView* m_view;
    int m_side;
    PointSelectionModel* m_model;
    bool m_enabled = true;
    bool m_pressed = false;
};

} // namespace WelkPlugin
