#pragma once

#include "DeformationGraphTypes.h"

#include <QObject>
#include <QVector3D>
#include <QVector>

#include <atomic>

namespace Welk {
class ProgressInterface;
}

namespace Welking {

/// What the classic fit reports while it runs; every slot but
/// `reportUpdate` defaults to doing nothing.
class OFNRRCallback
{
public:
    virtual ~OFNRRCallback() = default;
    virtual void reportUpdate(const QVector<QVector3D>& vertices, const QVector<QVector3D>& nodes) = 0;
    virtual void begin(int nSubdivisions) { (void)nSubdivisions; }
    virtual void subdivisionStarted(int index) { (void)index; }
    virtual void beginIcp(int nIterations) { (void)nIterations; }
    virtual void icpIterationStarted(int index) { (void)index; }
    virtual void levMarStarted(int maxIterations) { (void)maxIterations; }
    virtual void levMarFinished() {}
    virtual void finish() {}
    virtual bool isInterrupted() { return false; }
};

/// The classic fit's progress ("Welking", then "Welking (subdivision i of
/// n)" on a 0 to 100 scale) and its intermediate shapes as a signal. The
/// interruption flag is raised by `interrupt` from any thread, or by the
/// progress object's own cancel.
class WelkingCallback : public QObject, public OFNRRCallback
{
    Q_OBJECT
public:
    explicit WelkingCallback(Welk::ProgressInterface* progress, QObject* parent = nullptr);

    void reportUpdate(const QVector<QVector3D>& vertices, const QVector<QVector3D>& nodes) override;
    void begin(int nSubdivisions) override;
    void subdivisionStarted(int index) override;
    void beginIcp(int nIterations) override;
    void icpIterationStarted(int index) override;
    void levMarStarted(int maxIterations) override;
    void levMarFinished() override;
    void finish() override;
    bool isInterrupted() override;

    /// The percent the fit reached.
    int progressValue() const;

public slots:
    void interrupt() { m_interrupted = true; }

signals:
    void updated(QVector<QVector3D> vertices, QVector<QVector3D> nodes);

private:
    void showProgress();

    Welk::ProgressInterface* m_progress;
    std::atomic<bool> m_interrupted{false};
    int m_maximum = 100;
    int m_subdivisions = 1;
    int m_subdivision = 0;
    int m_icpIterations = 1;
    int m_icp = 0;
    int m_levMarIterations = 1;
    int m_levMarDone = 0;
    int m_lastValue = -1;
};

/// Progress of the graph build ("Building nodes") and its interruption.
class WelkingCallbackGraphCreation : public QObject, public DeformationGraphRoutine::DeformationGraphCreatorUpdateCallback
{
    Q_OBJECT
public:
    explicit WelkingCallbackGraphCreation(Welk::ProgressInterface* progress, QObject* parent = nullptr);

    void begin(int maxValue) override;
    void setValue(int value) override;
    void levelStarted(int index) override;
    void finish() override;
    bool isInterrupted() override;
    /// The count one level runs through, so that levels follow each other
    /// on one bar.
    void setLevelSize(int size) { m_levelSize = size; }

public slots:
    void interrupt() { m_interrupted = true; }

private:
    Welk::ProgressInterface* m_progress;
    std::atomic<bool> m_interrupted{false};
    int m_maximum = 0;
    int m_levelSize = 0;
    int m_level = 0;
};

} // namespace Welking
