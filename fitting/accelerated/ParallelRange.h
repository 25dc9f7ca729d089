#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

namespace EmbeddedGraphDeformer {

/// Runs body(begin, end) over [0, count): in parallel blocks of at least
/// `grain` when `parallel` is set, else in one serial call.
template <typename Body> void forRange(long long count, bool parallel, Body body, long long grain = 64)
{
    if (!parallel) {
        body(0LL, count);
        return;
    }
    tbb::parallel_for(tbb::blocked_range<long long>(0, count, grain),
                      [&](const tbb::blocked_range<long long>& r) { body(r.begin(), r.end()); });
}

} // namespace EmbeddedGraphDeformer
