#pragma once

#include <QObject>

class QEvent;
class QKeyEvent;
class QMouseEvent;
class QTabletEvent;
class QWheelEvent;
class QWidget;

namespace Welk {

/// A tool or navigation mode on a viewport: an event filter that hands
/// each input event to a virtual operation. Returning true from an
/// operation consumes the event. Installs itself on construction and
/// removes itself on destruction.
class WContext : public QObject
{
    Q_OBJECT
public:
    explicit WContext(QWidget* viewport);
    ~WContext() override;

    QWidget* viewport() const { return m_viewport; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

    virtual bool onMousePress(QMouseEvent* event) { return false; }
    virtual bool onMouseMove(QMouseEvent* event) { return false; }
    virtual bool onMouseRelease(QMouseEvent* event) { return false; }
    virtual bool onEnter(QEvent* event) { return false; }
    virtual bool onLeave(QEvent* event) { return false; }
    virtual bool onFocusAboutToChange(QEvent* event) { return false; }
    virtual bool onFocusIn(QEvent* event) { return false; }
    virtual bool onFocusOut(QEvent* event) { return false; }
    virtual bool onWheel(QWheelEvent* event) { return false; }
    virtual bool onMouseDoubleClick(QMouseEvent* event) { return false; }
    virtual bool onKeyPress(QKeyEvent* event) { return false; }
    virtual bool onKeyPressOver(QKeyEvent* event) { return false; }
    virtual bool onKeyRelease(QKeyEvent* event) { return false; }
    virtual bool onTabletPress(QTabletEvent* event) { return false; }
    virtual bool onTabletMove(QTabletEvent* event) { return false; }
    virtual bool onTabletRelease(QTabletEvent* event) { return false; }
    virtual bool onShortcutOverride(QKeyEvent* event) { return false; }

private:
    QWidget* m_viewport;
};

} // namespace Welk
