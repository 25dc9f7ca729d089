#pragma once

#include <QObject>
#include <QVector3D>
#include <QVector>

#include <atomic>

namespace Welk {
class ProgressInterface;
}

namespace WelkingAcceleratedVersion {

/// The fit's progress and interruption: "Welking (subdivision i of n)" on
/// a 0 to 100 scale, an `updated` signal with every intermediate shape, and
/// a flag that any thread may raise to stop at the next level or
/// iteration boundary.
class WelkingCallback : public QObject
{
    Q_OBJECT
public:
    explicit WelkingCallback(Welk::ProgressInterface* progress, QObject* parent = nullptr);

    void start();
    void setLevels(int levels);
    void setLevel(int level);
    void setIterations(int iterations);
    void setIteration(int iteration);
    /// Reports progress and emits `updated` with the shape.
    void update(const QVector<QVector3D>& vertices, const QVector<QVector3D>& nodes);
    void end();

    bool isInterrupted() const { return m_interrupted.load(); }
    /// The flag itself, for loops below the callback's boundaries.
    const std::atomic<bool>& interruptedFlag() const { return m_interrupted; }
    int progressValue() const;

public slots:
    /// Safe from any thread.
    void interrupt() { m_interrupted = true; }

signals:
    void updated(QVector<QVector3D> vertices, QVector<QVector3D> nodes);

private:
    Welk::ProgressInterface* m_progress;
    int m_levels = 1;
    int m_currentLevel = 0;
    int m_iterations = 1;
    int m_currentIteration = 0;
    int m_progressScale = 100;
    std::atomic<bool> m_interrupted{false};
    int m_lastProgress = -1;
};

} // namespace WelkingAcceleratedVersion
