#include "ParentChangeListener.h"

#include <QEvent>
#include <QWidget>

namespace Welk {

ParentChangeListener::ParentChangeListener(QWidget* widget) : QObject(widget), m_widget(widget)
{
    watchChain();
}

void ParentChangeListener::watchChain()
{
    for (const QPointer<QWidget>& w : m_watched)
        if (w)
            w->removeEventFilter(this);
    m_watched.clear();
    for (QWidget* w = m_widget; w; w = w->parentWidget()) {
        w->installEventFilter(this);
        m_watched.append(w);
    }
}

bool ParentChangeListener::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::ParentAboutToChange) {
        Q_EMIT parentAboutToChange();
    } else if (event->type() == QEvent::ParentChange) {
        watchChain();
        Q_EMIT parentChange(m_widget->window());
    }
    return QObject::eventFilter(watched, event);
}

} // namespace Welk
