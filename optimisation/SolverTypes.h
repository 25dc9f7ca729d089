#pragma once

#include <atomic>
#include <string>
#include <utility>
#include <vector>

namespace WNewton {

/// How the Levenberg-Marquardt loop runs.
struct SolverParameters
{
    int maxIterations = 20;      ///< accepted steps at most
    double initialDamping = 1e-9;
    bool verbose = false;        ///< print one report line per step
    int dampingMode = 10;        ///< above 0: damped loop; else every step is taken
    /// When set and raised, the loop ends before its next step and a
    /// conjugate-gradient solve in progress ends early; `x` keeps the last
    /// accepted iterate.
    const std::atomic<bool>* interrupted = nullptr;
    /// Above 0: after a step, accepted or rejected, the damping is at least
    /// this times the problem's `hessianScale()` times (1 - rho) clamped to
    /// [0, 1], rho being the loop's gain ratio (twice the textbook one): a
    /// step that went wrong lifts a damping the Hessian does not notice to
    /// one it does, a good step leaves the update alone. A floor applied by
    /// rejections alone would let a rejection decided by the value's
    /// rounding raise the damping by orders of magnitude where the
    /// acceptance it replaces does not, and the fit would no longer be
    /// continuous in its input.
    double dampingFloor = 0.0;
};

struct Tolerances
{
    double gradientTolerance = 1e-4;
    double stepTolerance = 1e-6;
};

/// Why a minimisation ended. The last two leave `x` at the last accepted
/// iterate and tell the caller that the problem itself is broken.
enum class StopReason
{
    Gradient,       ///< the gradient fell below its tolerance
    Step,           ///< the step fell below its tolerance
    Iterations,     ///< the budget of accepted steps is spent
    Observer,       ///< the observer asked to stop
    Interrupted,    ///< `SolverParameters::interrupted` was raised
    NonFinite,      ///< the value, gradient or step is not a finite number
    DampingLimit,   ///< steps kept being rejected until the damping overflowed
};

/// Damping above this means that no step can be taken any more; the loop
/// ends there instead of growing it without bound.
constexpr double MaxDamping = 1e30;

/// (label, seconds) pairs that the report prints as label=value.
using Timings = std::vector<std::pair<std::string, double>>;

/// What a conjugate-gradient solve reports.
struct CGInfo
{
    long long iterations = 0;
    double error = 0.0; ///< final residual norm relative to the right-hand side
    bool valid = false;
};

/// One report line: "k/n f(x)=... |∇f(x)|=... |Δx|=... μ=... [CG err=... CG itrs=...] label=value ...",
/// each field followed by a blank, the iteration one-based. A negative
/// `iteration` gives the form before the first step, without |Δx|.
std::string formatIteration(int iteration, int maxIterations, double value, double gradientNorm, double stepNorm,
                            double damping, const CGInfo& cgInfo, const Timings& timings);

} // namespace WNewton
