#include "WelkingCallback.h"

#include "geometry/ProgressInterface.h"

#include <algorithm>

namespace Welking {

WelkingCallback::WelkingCallback(Welk::ProgressInterface* progress, QObject* parent)
    : QObject(parent), m_progress(progress)
{
}

void WelkingCallback::reportUpdate(const QVector<QVector3D>& vertices, const QVector<QVector3D>& nodes)
{
    Q_EMIT updated(vertices, nodes);
}

void WelkingCallback::begin(int nSubdivisions)
{
    m_subdivisions = std::max(1, nSubdivisions);
    if (m_progress)
        m_progress->start(QStringLiteral("Welking"), m_maximum);
}

void WelkingCallback::subdivisionStarted(int index)
{
    m_subdivision = index;
    m_icp = 0;
    m_levMarDone = 0;
}

void WelkingCallback::beginIcp(int nIterations) { m_icpIterations = std::max(1, nIterations); }

void WelkingCallback::icpIterationStarted(int index)
{
    m_icp = index;
    m_levMarDone = 0;
    showProgress();
}

void WelkingCallback::levMarStarted(int maxIterations)
{
    m_levMarIterations = std::max(1, maxIterations);
    m_levMarDone = 0;
}

void WelkingCallback::levMarFinished()
{
    showProgress();
}

void WelkingCallback::finish()
{
    if (m_progress)
        m_progress->end();
}

bool WelkingCallback::isInterrupted()
{
    return m_interrupted.load() || (m_progress && m_progress->isCancelled());
}

int WelkingCallback::progressValue() const
{
    const double step = double(m_maximum) / double(m_subdivisions * m_icpIterations) / double(m_levMarIterations);
    const double value =
        step * double((m_icpIterations * m_subdivision + m_icp + 1) * m_levMarIterations + m_levMarDone);
    return std::min(int(value), m_maximum);
}

void WelkingCallback::showProgress()
{
    const int value = progressValue();
    if (m_progress && value != m_lastValue)
        m_progress->setValue(value,
                             QStringLiteral("Welking (subdivision %1 of %2)").arg(m_subdivision + 1).arg(m_subdivisions));
    m_lastValue = value;
}

WelkingCallbackGraphCreation::WelkingCallbackGraphCreation(Welk::ProgressInterface* progress, QObject* parent)
    : QObject(parent), m_progress(progress)
{
}

void WelkingCallbackGraphCreation::begin(int maxValue)
{
    m_maximum = maxValue;
    if (m_progress)
        m_progress->start(QStringLiteral("Building nodes"), maxValue);
}

void WelkingCallbackGraphCreation::setValue(int value)
{
    if (m_progress)
        m_progress->setValue(std::min<long long>((long long)m_level * m_levelSize + value, m_maximum));
}

void WelkingCallbackGraphCreation::levelStarted(int index) { m_level = index; }

void WelkingCallbackGraphCreation::finish()
{
    if (m_progress)
        m_progress->end();
}

bool WelkingCallbackGraphCreation::isInterrupted()
{
    return m_interrupted.load() || (m_progress && m_progress->isCancelled());
}

} // namespace Welking
