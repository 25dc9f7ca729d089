#pragma once

#include "geometry/ProgressInterface.h"

#include <QElapsedTimer>
#include <QString>
#include <QVector>

#include <atomic>
#include <mutex>

namespace ZWelkBatch {

/// A one-line progress bar on standard error, and the time spent under
/// each label, for the run's report.
class TerminalProgress : public Welk::ProgressInterface
{
public:
    TerminalProgress();
    void start(const QString& label, long long maximum) override;
    void setValue(long long value, const QString& label = QString()) override;
    void end() override;
    bool isCancelled() const override { return m_cancelled; }
    void cancel() { m_cancelled = true; }

    /// (label, seconds) in order of first appearance.
    QVector<QPair<QString, double>> stages() const;

private:
    void switchLabel(const QString& label);
    void draw();

    mutable std::mutex m_mutex;
    QString m_label;
    long long m_maximum = 0;
    long long m_value = 0;
    int m_drawn = -1;
    QElapsedTimer m_clock;
    double m_labelStart = 0;
    QVector<QPair<QString, double>> m_stages;
    std::atomic<bool> m_cancelled{false};
    bool m_terminal = false;
};

} // namespace ZWelkBatch
