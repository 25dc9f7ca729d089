#include "WelkingCallback.h"

#include "geometry/ProgressInterface.h"

#include <algorithm>

namespace WelkingAcceleratedVersion {

WelkingCallback::WelkingCallback(Welk::ProgressInterface* progress, QObject* parent)
    : QObject(parent), m_progress(progress)
{
}

void WelkingCallback::start()
{
    if (m_progress)
        m_progress->start(QStringLiteral("Welking"), m_progressScale);
}

void WelkingCallback::setLevels(int levels) { m_levels = std::max(1, levels); }
void WelkingCallback::setLevel(int level) { m_currentLevel = level; }
void WelkingCallback::setIterations(int iterations) { m_iterations = std::max(1, iterations); }
void WelkingCallback::setIteration(int iteration) { m_currentIteration = iteration; }

int WelkingCallback::progressValue() const
{
    const double step = double(m_progressScale) / double(m_levels * m_iterations);
    const int value = int(step * double(m_iterations * m_currentLevel + m_currentIteration + 1));
    return std::min(value, m_progressScale);
}

void WelkingCallback::update(const QVector<QVector3D>& vertices, const QVector<QVector3D>& nodes)
{
    const int value = progressValue();
    if (m_progress && (value != m_lastProgress || m_interrupted)) {
        m_progress->setValue(value, QStringLiteral("Welking (subdivision %1 of %2)").arg(m_currentLevel + 1).arg(m_levels));
        m_lastProgress = value;
    }
    Q_EMIT updated(vertices, nodes);
}

void WelkingCallback::end()
{
    if (m_progress)
        m_progress->end();
}

} // namespace WelkingAcceleratedVersion
