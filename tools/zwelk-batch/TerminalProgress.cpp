#include "TerminalProgress.h"

#include <cstdio>
#include <unistd.h>

namespace ZWelkBatch {

TerminalProgress::TerminalProgress() : m_terminal(isatty(STDERR_FILENO) != 0)
{
    m_clock.start();
}

void TerminalProgress::switchLabel(const QString& label)
{
    if (label.isEmpty() || label == m_label)
        return;
    const double now = double(m_clock.nsecsElapsed()) / 1e9;
    if (!m_label.isEmpty()) {
        bool found = false;
        for (auto& stage : m_stages)
            if (stage.first == m_label) {
                stage.second += now - m_labelStart;
                found = true;
            }
        if (!found)
            m_stages.append({m_label, now - m_labelStart});
        if (!m_terminal)
            std::fprintf(stderr, "%s: %s\n", m_label.toLocal8Bit().constData(), m_cancelled ? "interrupted" : "done");
    }
    m_label = label;
    m_labelStart = now;
    m_drawn = -1;
    // In a log, each stage shows when it starts as well as how it ended.
    if (!m_terminal && label != QLatin1String("\x01"))
        std::fprintf(stderr, "%s...\n", label.toLocal8Bit().constData());
}

void TerminalProgress::start(const QString& label, long long maximum)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    switchLabel(label);
    m_maximum = maximum;
    m_value = 0;
    draw();
}

void TerminalProgress::setValue(long long value, const QString& label)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    switchLabel(label);
    m_value = value;
    draw();
}

void TerminalProgress::end()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_value = m_maximum;
    draw();
    switchLabel(QStringLiteral("\x01"));
    m_label.clear();
    if (m_terminal)
        std::fprintf(stderr, m_cancelled ? " interrupted\n" : "\n");
}

void TerminalProgress::draw()
{
    if (!m_terminal || m_maximum <= 0)
        return;
    const int percent = int(100 * std::min(m_value, m_maximum) / m_maximum);
    if (percent == m_drawn)
        return;
    m_drawn = percent;
    const int filled = percent * 30 / 100;
    std::fprintf(stderr, "\r%-40.40s [%.*s%*s] %3d%%", m_label.toLocal8Bit().constData(), filled,
                 "##############################", 30 - filled, "", percent);
    std::fflush(stderr);
}

QVector<QPair<QString, double>> TerminalProgress::stages() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QVector<QPair<QString, double>> result;
    for (const auto& stage : m_stages)
        if (stage.first != QLatin1String("\x01"))
            result.append(stage);
    return result;
}

} // namespace ZWelkBatch
