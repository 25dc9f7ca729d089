#pragma once

#include "WContext.h"

#include <QPoint>
#include <QRectF>

#include <memory>

namespace Welk {

class WCamera2D;

/// Navigation of a flat image view: right drag (with or without Alt) pans,
/// Ctrl + right drag zooms about the press point, the wheel zooms about
/// the cursor, F shows the whole image.
class WContextNavigation2DZBrush : public WContext
{
    Q_OBJECT
public:
    WContextNavigation2DZBrush(QWidget* viewport, std::shared_ptr<WCamera2D> camera);

    WCamera2D& camera() const { return *m_camera; }
    /// What F shows.
    void setContentRect(const QRectF& rect) { m_content = rect; }
    void fitToView();

signals:
    void cameraMoved();

protected:
    bool onMousePress(QMouseEvent* event) override;
    bool onMouseMove(QMouseEvent* event) override;
    bool onMouseRelease(QMouseEvent* event) override;
    bool onWheel(QWheelEvent* event) override;
    bool onKeyPress(QKeyEvent* event) override;
    bool onEnter(QEvent* event) override;

private:
    void moved();

    std::shared_ptr<WCamera2D> m_camera;
    QRectF m_content = QRectF(0, 0, 1, 1);
    enum
    {
        None,
        Pan,
        Zoom
    } m_mode = None;
    QPoint m_press;
    QPoint m_last;
};

} // namespace Welk
