#pragma once

#include "geometry/ProgressInterface.h"

#include <atomic>

namespace WelkPlugin {

/// Passes progress through to the caller's interface and adds a worker's
/// own stop request to its cancellation.
class StoppableProgress : public Welk::ProgressInterface
{
public:
    StoppableProgress(Welk::ProgressInterface* inner, const std::atomic<bool>& stop) : m_inner(inner), m_stop(stop) {}
    void start(const QString& label, long long maximum) override
    {
        if (m_inner)
            m_inner->start(label, maximum);
    }
    void setValue(long long value, const QString& label) override
    {
        if (m_inner)
            m_inner->setValue(value, label);
    }
    void end() override
    {
        if (m_inner)
            m_inner->end();
    }
    bool isCancelled() const override { return m_stop || (m_inner && m_inner->isCancelled()); }

private:
    Welk::ProgressInterface* m_inner;
    const std::atomic<bool>& m_stop;
};

} // namespace WelkPlugin
