#pragma once

#include "WContext.h"

#include <QPoint>
#include <QQuaternion>
#include <QVector3D>
#include <QVector>

#include <memory>

namespace Welk {

class WCamera3D;

/// ZBrush-style navigation of a 3D viewport: right drag rotates, Alt +
/// right drag pans, Ctrl + right drag zooms (dragging down moves away),
/// Shift + right drag rotates and snaps to the nearest axis view on
/// release. The wheel zooms, F asks for a fit, S snaps to the nearest axis
/// view.
class WContextNavigation2 : public WContext
{
    Q_OBJECT
public:
    enum Mode
    {
        ModeNone = 0,
        ModePan = 1,
        ModeZoom = 2,
        ModeRotate = 3,
        ModeRoll = 4,
        ModeRotateSnap = 5,
    };

    struct ModeRecord
    {
        int mode;
        Qt::KeyboardModifiers modifiers;
        Qt::MouseButton button;
        /// Modifiers outside the mask (keypad, group switch) do not count.
        int modifierMask = Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
    };

    WContextNavigation2(QWidget* viewport, std::shared_ptr<WCamera3D> camera);

    WCamera3D& camera() const { return *m_camera; }
    int mode() const { return m_mode; }
    int rotationStyle() const { return m_rotationStyle; }
    void setRotationStyle(int style) { m_rotationStyle = style; }
    /// Pan moves the rotation centre instead of the view's translation.
    void setPanMovesCenter(bool moves) { m_panMovesCenter = moves; }

    /// Camera state as the view synchronisation copies it. The setters write
    /// the camera and emit nothing, so two synchronised views cannot loop.
    QVector3D translation() const;
    QVector3D rotationCenter() const;
    QQuaternion orientation() const;
    void setTranslation(const QVector3D& t);
    void setRotationCenter(const QVector3D& c);
    void setOrientation(const QQuaternion& q);

    /// The mode a press of `button` with `modifiers` starts (0 for none).
    int modeFor(Qt::MouseButton button, Qt::KeyboardModifiers modifiers) const;

signals:
    void cameraMoved();
    void cameraFinishedMovement();
    void fitToViewPressed();

protected:
    bool onMousePress(QMouseEvent* event) override;
    bool onMouseMove(QMouseEvent* event) override;
    bool onMouseRelease(QMouseEvent* event) override;
    bool onWheel(QWheelEvent* event) override;
    bool onKeyPress(QKeyEvent* event) override;
    bool onEnter(QEvent* event) override;

    void moved();

private:
    QPointF normalised(const QPoint& p) const;
    QVector3D trackballPoint(const QPoint& p) const;
    void pan(const QPoint& from, const QPoint& to);
    void zoom(const QPoint& from, const QPoint& to);
    void rotate(const QPoint& from, const QPoint& to);
    void roll(const QPoint& from, const QPoint& to);

    std::shared_ptr<WCamera3D> m_camera;
    int m_mode = ModeNone;
    int m_rotationStyle = 2;
    QVector<ModeRecord> m_modes;
    QQuaternion m_storedOrientation;
    QQuaternion m_targetOrientation;
    QPoint m_pressPosition;
    QPoint m_lastPosition;
    bool m_panMovesCenter = false;
    bool m_enabled = true;
};

} // namespace Welk
