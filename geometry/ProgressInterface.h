#pragma once

#include <QString>

namespace Welk {

/// Progress and cancellation for long work. Loops call `setValue` at natural
/// boundaries and stop early when `isCancelled` answers true. The GUI adapts
/// it to a progress bar, the command line to a terminal bar.
class ProgressInterface
{
public:
    virtual ~ProgressInterface() = default;

    /// Starts a new task with `label` and values from 0 to `maximum`.
    virtual void start(const QString& label, long long maximum) = 0;
    /// Reports the current value and, where not empty, a new label.
    virtual void setValue(long long value, const QString& label = QString()) = 0;
    /// Ends the task started last.
    virtual void end() = 0;
    /// True once the user asked to stop.
    virtual bool isCancelled() const { return false; }
};

} // namespace Welk
