#include "SolverTypes.h"

#include <fmt/format.h>

namespace WNewton {

std::string formatIteration(int iteration, int maxIterations, double value, double gradientNorm, double stepNorm,
                            double damping, const CGInfo& cgInfo, const Timings& timings)
{
    fmt::memory_buffer out;
    auto add = std::back_inserter(out);
    if (iteration >= 0) {
        fmt::format_to(add, "{}/{} f(x)={:g} |∇f(x)|={:g} |Δx|={:g} μ={:g} ", iteration + 1, maxIterations, value,
                       gradientNorm, stepNorm, damping);
    } else {
        fmt::format_to(add, "f(x)={:g} |∇f(x)|={:g} μ={:g} ", value, gradientNorm, damping);
    }
    if (cgInfo.valid)
        fmt::format_to(add, "CG err={:g} CG itrs={} ", cgInfo.error, cgInfo.iterations);
    for (const auto& timing : timings)
        fmt::format_to(add, "{}={:g} ", timing.first, timing.second);
    return fmt::to_string(out);
}

} // namespace WNewton
