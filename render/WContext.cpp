#include "WContext.h"

#include <QEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QTabletEvent>
#include <QWheelEvent>
#include <QWidget>

namespace Welk {

WContext::WContext(QWidget* viewport) : QObject(viewport), m_viewport(viewport)
{
    m_viewport->installEventFilter(this);
}

WContext::~WContext()
{
    m_viewport->removeEventFilter(this);
}

bool WContext::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != m_viewport)
        return false;
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        return onMousePress(static_cast<QMouseEvent*>(event));
    case QEvent::MouseMove:
        return onMouseMove(static_cast<QMouseEvent*>(event));
    case QEvent::MouseButtonRelease:
        return onMouseRelease(static_cast<QMouseEvent*>(event));
    case QEvent::MouseButtonDblClick:
        return onMouseDoubleClick(static_cast<QMouseEvent*>(event));
    case QEvent::Enter:
        return onEnter(event);
    case QEvent::Leave:
        return onLeave(event);
    case QEvent::FocusAboutToChange:
        return onFocusAboutToChange(event);
    case QEvent::FocusIn:
        return onFocusIn(event);
    case QEvent::FocusOut:
        return onFocusOut(event);
    case QEvent::Wheel:
        return onWheel(static_cast<QWheelEvent*>(event));
    case QEvent::KeyPress:
        return onKeyPress(static_cast<QKeyEvent*>(event));
    case QEvent::KeyRelease:
        return onKeyRelease(static_cast<QKeyEvent*>(event));
    case QEvent::ShortcutOverride:
        return onShortcutOverride(static_cast<QKeyEvent*>(event));
    case QEvent::TabletPress:
        return onTabletPress(static_cast<QTabletEvent*>(event));
    case QEvent::TabletMove:
        return onTabletMove(static_cast<QTabletEvent*>(event));
    case QEvent::TabletRelease:
        return onTabletRelease(static_cast<QTabletEvent*>(event));
    default:
        return false;
    }
}

} // namespace Welk
