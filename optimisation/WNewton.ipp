// Implementation of WNewton.h; included by it.
#include <Eigen/CholmodSupport>
#include <Eigen/SparseCholesky>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>
#include <cstdio>
#include <limits>

namespace WNewton {
namespace detail {

inline double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <typename Scalar> struct DirectSolverFor
{
    using Type = Eigen::SimplicialLLT<SparseHessian<Scalar>>;
};
template <> struct DirectSolverFor<double>
{
    using Type = Eigen::CholmodSupernodalLLT<SparseHessian<double>>;
};

/// Solves (H + damping I) h = -g by a sparse factorisation whose pattern is
/// analysed on the first pass only.
template <typename Scalar, typename Solver> class DirectStep
{
public:
    using Vector = Eigen::Matrix<Scalar, Eigen::Dynamic, 1>;

    Vector solve(const SparseHessian<Scalar>& H, double damping, const Vector& g, CGInfo&, const std::atomic<bool>*)
    {
        if (!refillInPlace(H, damping)) {
            if (m_identity.rows() != H.rows()) {
                m_identity.resize(H.rows(), H.cols());
                m_identity.setIdentity();
            }
            m_work = H + Scalar(damping) * m_identity;
        }
        if (!m_analysed) {
            m_solver.analyzePattern(m_work);
            m_analysed = true;
        }
        m_solver.factorize(m_work);
        return m_solver.solve(Vector(-g));
    }

    void rejected() {}
    void accepted() {}

private:
    /// When H stores its whole diagonal, the damped matrix has H's pattern:
    /// its values are copied into the work matrix kept from the last pass
    /// instead of building a new one. Large Hessians spend more time in
    /// fresh allocations (page faults) than in the copy.
    bool refillInPlace(const SparseHessian<Scalar>& H, double damping)
    {
        if (!H.isCompressed())
            return false;
        if (m_work.rows() != H.rows() || m_work.nonZeros() != H.nonZeros() || m_diagonal.size() != size_t(H.rows()) ||
            !m_work.isCompressed()) {
            m_diagonal.clear();
            for (Eigen::Index c = 0; c < H.outerSize(); ++c) {
                const int* begin = H.innerIndexPtr() + H.outerIndexPtr()[c];
                const int* end = H.innerIndexPtr() + H.outerIndexPtr()[c + 1];
                const int* at = std::lower_bound(begin, end, int(c));
                if (at == end || *at != int(c))
                    return false;
                m_diagonal.push_back(at - H.innerIndexPtr());
            }
            m_work = H;
        } else {
            std::copy(H.valuePtr(), H.valuePtr() + H.nonZeros(), m_work.valuePtr());
        }
        for (const Eigen::Index i : m_diagonal)
            m_work.valuePtr()[i] += Scalar(damping);
        return true;
    }

    SparseHessian<Scalar> m_identity;
    SparseHessian<Scalar> m_work;
    std::vector<Eigen::Index> m_diagonal;
    Solver m_solver;
    bool m_analysed = false;
};

/// Solves (H + damping I) h = -g by preconditioned conjugate gradients.
template <typename Scalar> class ConjugateGradientStep
{
public:
    using Vector = Eigen::Matrix<Scalar, Eigen::Dynamic, 1>;

    explicit ConjugateGradientStep(MatrixFreeProblem<Scalar>& problem) : m_problem(problem) {}

    Vector solve(LinearSystemsSolvers::ProductHolder<Scalar>& product, double damping, const Vector& g, CGInfo& info,
                 const std::atomic<bool>* interrupted)
    {
        product.setDamping(damping);
        m_problem.preconditioner().refresh(damping);
        // After a rejected step the system differs from the last one only by
        // its damping: the last solution is a far better start than zero,
        // and while the damping is still small against J^T J the solve ends
        // at once instead of repeating the whole iteration.
        info = LinearSystemsSolvers::conjugateGradient<Scalar, long long>(
            product, m_problem.preconditioner(), Vector(-g), m_h, m_problem.conjugateGradientIterations(),
            m_problem.conjugateGradientTolerance(), interrupted, m_retry);
        return m_h;
    }

    /// The next solve has the same right-hand side as the last one.
    void rejected() { m_retry = true; }
    void accepted() { m_retry = false; }

private:
    MatrixFreeProblem<Scalar>& m_problem;
    Vector m_h;
    bool m_retry = false;
};

/// The least damping after a step of gain ratio `rho` (as the loop computes
/// it, twice the textbook ratio): the whole floor after a step that made
/// things worse, none after one that did at least half what the model
/// promised, and in between in proportion. Continuous in rho, so that a
/// rejection decided by the value's rounding moves the damping no more
/// than the acceptance it replaces.
template <typename Scalar, typename HessianType>
double dampingFloor(const SolverParameters& parameters, const Problem<Scalar, HessianType>& problem, double rho)
{
    if (!(parameters.dampingFloor > 0.0) || std::isnan(rho))
        return 0.0;
    return std::clamp(1.0 - rho, 0.0, 1.0) * parameters.dampingFloor * problem.hessianScale();
}

/// The loop shared by every form; `Step` solves the damped system.
template <typename Vector> bool allFinite(const Vector& v)
{
    return v.allFinite();
}

template <typename Scalar, typename HessianType, typename Step>
StopReason levenbergMarquardt(Problem<Scalar, HessianType>& problem, HessianType& H,
                        Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& x, const SolverParameters& parameters,
                        const Tolerances& tolerances, OptimizationFramework::OptimizationUpdateFunctor<Scalar>* observer,
                        Step& step)
{
    using Vector = Eigen::Matrix<Scalar, Eigen::Dynamic, 1>;
    Scalar f = 0;
    Vector g;
    Timings timings;
    const auto interrupted = [&parameters] { return parameters.interrupted && parameters.interrupted->load(); };
    if (interrupted())
        return StopReason::Interrupted;
    problem.evaluateAll(x, f, g, H, &timings);
    double damping = parameters.initialDamping;
    double nu = 2.0;
    int iteration = 0;
    CGInfo cgInfo;
    if (parameters.verbose)
        std::printf("%s\n", formatIteration(-1, parameters.maxIterations, double(f), double(g.norm()), 0.0, damping,
                                            cgInfo, timings)
                                .c_str());
    if (!std::isfinite(double(f)) || !allFinite(g))
        return StopReason::NonFinite;
    if (double(g.norm()) < tolerances.gradientTolerance)
        return StopReason::Gradient;
    if (parameters.maxIterations < 1)
        return StopReason::Iterations;

    while (iteration < parameters.maxIterations) {
        if (interrupted())
            return StopReason::Interrupted;
        const auto passStart = std::chrono::steady_clock::now();
        timings.clear();
        const Vector h = step.solve(H, damping, g, cgInfo, parameters.interrupted);
        // A solve cut short is no step to take.
        if (interrupted())
            return StopReason::Interrupted;
        timings.emplace_back("t(Δx)", secondsSince(passStart));
        const double hNorm = double(h.norm());
        if (!(hNorm <= std::numeric_limits<double>::max()))
            return StopReason::NonFinite;
        const double e = tolerances.stepTolerance;
        if (hNorm <= (double(x.norm()) + e) * e)
            return StopReason::Step;

        const Vector xNew = x + h;
        Scalar fNew = 0;
        problem.evaluateValue(xNew, fNew, &timings);
        // Four times the decrease: twice the textbook gain ratio for
        // f = |r|^2 / 2, which moves the damping update below.
        double predicted = 0.0;
        for (Eigen::Index i = 0; i < h.size(); ++i)
            predicted += (damping * double(h[i]) - double(g[i])) * double(h[i]);
        const double rho = (4.0 * double(f) - 4.0 * double(fNew)) / predicted;

        if (rho > 0.0 || parameters.dampingMode < 1) {
            x = xNew;
            step.accepted();
            if (observer && !observer->onUpdate(x))
                return StopReason::Observer;
            problem.evaluateAll(x, f, g, H, &timings);
            if (!std::isfinite(double(f)) || !allFinite(g))
                return StopReason::NonFinite;
            timings.emplace_back("t(i)", secondsSince(passStart));
            if (parameters.verbose)
                std::printf("%s\n", formatIteration(iteration, parameters.maxIterations, double(f), double(g.norm()),
                                                    hNorm, damping, cgInfo, timings)
                                        .c_str());
            ++iteration;
            if (double(g.norm()) < tolerances.gradientTolerance)
                return StopReason::Gradient;
            if (parameters.dampingMode > 0) {
                const double t = 2.0 * rho - 1.0;
                damping *= std::max(0.33, 1.0 - t * t * t);
                nu = 2.0;
                damping = std::max(damping, dampingFloor(parameters, problem, rho));
            }
        } else {
            damping *= nu;
            nu *= 2.0;
            damping = std::max(damping, dampingFloor(parameters, problem, rho));
            step.rejected();
            // A step that stays rejected whatever the damping cannot be
            // taken; growing it further only spins.
            if (!(damping <= MaxDamping))
                return StopReason::DampingLimit;
        }
    }
    return StopReason::Iterations;
}

} // namespace detail

template <typename Scalar, typename Solver>
StopReason minimize(Problem<Scalar, SparseHessian<Scalar>>& problem, Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& x,
              const SolverParameters& parameters, const Tolerances& tolerances,
              OptimizationFramework::OptimizationUpdateFunctor<Scalar>* updateFunctor)
{
    SparseHessian<Scalar> H;
    detail::DirectStep<Scalar, Solver> step;
    return detail::levenbergMarquardt(problem, H, x, parameters, tolerances, updateFunctor, step);
}

template <typename Scalar>
StopReason minimize(MatrixFreeProblem<Scalar>& problem, Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& x,
              const SolverParameters& parameters, const Tolerances& tolerances,
              OptimizationFramework::OptimizationUpdateFunctor<Scalar>* updateFunctor)
{
    detail::ConjugateGradientStep<Scalar> step(problem);
    return detail::levenbergMarquardt<Scalar, LinearSystemsSolvers::ProductHolder<Scalar>>(
        problem, problem.product(), x, parameters, tolerances, updateFunctor, step);
}

} // namespace WNewton
