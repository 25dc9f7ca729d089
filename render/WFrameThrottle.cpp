#include "WFrameThrottle.h"

#include <QTimer>

namespace Welk {

WFrameThrottle::WFrameThrottle(int intervalMs, QObject* parent) : QObject(parent), m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    m_timer->setInterval(intervalMs);
    connect(m_timer, &QTimer::timeout, this, [this] {
        if (m_hasWaiting) {
            pass();
            m_timer->start();
        }
    });
}

int WFrameThrottle::interval() const
{
    return m_timer->interval();
}

void WFrameThrottle::push(const QVector<QVector3D>& vertices)
{
    m_waiting = vertices;
    m_hasWaiting = true;
    if (!m_timer->isActive()) {
        pass();
        m_timer->start();
    }
}

void WFrameThrottle::flush()
{
    m_timer->stop();
    if (m_hasWaiting)
        pass();
}

void WFrameThrottle::clear()
{
    m_timer->stop();
    m_hasWaiting = false;
    m_waiting.clear();
}

void WFrameThrottle::pass()
{
    m_hasWaiting = false;
    ++m_passed;
    const QVector<QVector3D> shape = std::move(m_waiting);
    m_waiting.clear();
    Q_EMIT ready(shape);
}

} // namespace Welk
