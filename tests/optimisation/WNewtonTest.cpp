#include "support/GraphProblem.h"

#include "optimisation/LambdaJacobianProblem.h"
#include "optimisation/WNewton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>

using namespace WNewton;

namespace {

/// Rosenbrock as least squares: r = (10 (x1 - x0^2), 1 - x0), minimum (1, 1).
template <typename Scalar> ResidualFunction<Scalar> rosenbrock()
{
    return [](const Eigen::Matrix<Scalar, -1, 1>& x, Eigen::Matrix<Scalar, -1, 1>& r,
              Eigen::SparseMatrix<Scalar, Eigen::RowMajor, int>* J) {
        r.resize(2);
        r << Scalar(10) * (x[1] - x[0] * x[0]), Scalar(1) - x[0];
        if (J) {
            J->resize(2, 2);
            std::vector<Eigen::Triplet<Scalar>> t = {
                {0, 0, Scalar(-20) * x[0]}, {0, 1, Scalar(10)}, {1, 0, Scalar(-1)}};
            J->setFromTriplets(t.begin(), t.end());
        }
    };
}

/// Counts the calls of a problem it wraps.
template <typename Scalar> class Counting : public Problem<Scalar, SparseHessian<Scalar>>
{
public:
    using Vector = Eigen::Matrix<Scalar, -1, 1>;
    explicit Counting(Problem<Scalar, SparseHessian<Scalar>>& inner) : m_inner(inner) {}
    void evaluateValue(const Vector& x, Scalar& value, Timings* t) override
    {
        ++values;
        m_inner.evaluateValue(x, value, t);
        if (poisonValues)
            value = std::numeric_limits<Scalar>::quiet_NaN();
    }
    void evaluateAll(const Vector& x, Scalar& value, Vector& g, SparseHessian<Scalar>& H, Timings* t) override
    {
        ++alls;
        m_inner.evaluateAll(x, value, g, H, t);
    }
    int values = 0;
    int alls = 0;
    bool poisonValues = false;

private:
    Problem<Scalar, SparseHessian<Scalar>>& m_inner;
};

/// Counts the Hessian products of a matrix-free problem it wraps, per
/// solve, and can make its first trial step fail (an infinite value).
class CountingMatrixFree : public MatrixFreeProblem<float>
{
public:
    explicit CountingMatrixFree(MatrixFreeProblem<float>& inner) : m_inner(inner), m_product(*this) {}
    void evaluateValue(const Vector& x, float& value, Timings* t) override
    {
        productsPerSolve.push_back(m_products - m_productsBefore);
        m_productsBefore = m_products;
        m_inner.evaluateValue(x, value, t);
        if (rejectFirst && productsPerSolve.size() == 1)
            value = std::numeric_limits<float>::infinity();
    }
    void evaluateAll(const Vector& x, float& value, Vector& g, LinearSystemsSolvers::ProductHolder<float>&,
                     Timings* t) override
    {
        m_inner.evaluateAll(x, value, g, m_inner.product(), t);
    }
    LinearSystemsSolvers::ProductHolder<float>& product() override { return m_product; }
    LinearSystemsSolvers::Preconditioner<float, long long>& preconditioner() override
    {
        return m_inner.preconditioner();
    }
    long long conjugateGradientIterations() const override { return m_inner.conjugateGradientIterations(); }
    double conjugateGradientTolerance() const override { return m_inner.conjugateGradientTolerance(); }
    double hessianScale() const override { return scale; }

    bool rejectFirst = false;
    double scale = 0.0;
    std::vector<long long> productsPerSolve;
    std::vector<double> dampingPerSolve;

private:
    class Product : public LinearSystemsSolvers::ProductHolder<float>
    {
    public:
        explicit Product(CountingMatrixFree& owner) : m_owner(owner) {}
        void multiply(const Eigen::VectorXf& v, Eigen::VectorXf& y) const override
        {
            ++m_owner.m_products;
            if (m_owner.m_products == m_owner.m_productsBefore + 1)
                m_owner.dampingPerSolve.push_back(m_damping);
            m_owner.m_inner.product().setDamping(m_damping);
            m_owner.m_inner.product().multiply(v, y);
        }

    private:
        CountingMatrixFree& m_owner;
    };

    MatrixFreeProblem<float>& m_inner;
    Product m_product;
    long long m_products = 0, m_productsBefore = 0;
};

} // namespace

TEST(WNewton, AllThreeFormsFindTheRosenbrockMinimum)
{
    SolverParameters parameters;
    parameters.maxIterations = 200;
    Tolerances tolerances;
    tolerances.gradientTolerance = 1e-7;
    tolerances.stepTolerance = 1e-9;
    {
        LambdaJacobianSparseProblem<double> problem(rosenbrock<double>());
        Eigen::VectorXd x(2);
        x << -1.2, 1.0;
        minimize(problem, x, parameters, tolerances);
        EXPECT_NEAR(x[0], 1.0, 1e-6);
        EXPECT_NEAR(x[1], 1.0, 1e-6);
    }
    tolerances.gradientTolerance = 1e-4;
    tolerances.stepTolerance = 1e-6;
    {
        LambdaJacobianSparseProblem<float> problem(rosenbrock<float>());
        Eigen::VectorXf x(2);
        x << -1.2f, 1.0f;
        minimize(problem, x, parameters, tolerances);
        EXPECT_NEAR(x[0], 1.0f, 1e-3f);
        EXPECT_NEAR(x[1], 1.0f, 1e-3f);
    }
    {
        LambdaJacobianMatrixFreeProblem<float> problem(rosenbrock<float>(), 2, 50, 1e-6);
        Eigen::VectorXf x(2);
        x << -1.2f, 1.0f;
        minimize(problem, x, parameters, tolerances);
        EXPECT_NEAR(x[0], 1.0f, 1e-3f);
        EXPECT_NEAR(x[1], 1.0f, 1e-3f);
    }
}

TEST(WNewton, StartsAtTheMinimumOrWithNoBudgetWithoutMoving)
{
    LambdaJacobianSparseProblem<double> inner(rosenbrock<double>());
    Counting<double> problem(inner);
    Eigen::VectorXd x(2);
    x << 1.0, 1.0;
    minimize(problem, x, SolverParameters(), Tolerances());
    EXPECT_EQ(problem.alls, 1);
    EXPECT_EQ(problem.values, 0);
    EXPECT_EQ(x, Eigen::Vector2d(1.0, 1.0));

    SolverParameters none;
    none.maxIterations = 0;
    x << -1.2, 1.0;
    problem.alls = 0;
    minimize(problem, x, none, Tolerances());
    EXPECT_EQ(problem.alls, 1);
    EXPECT_EQ(problem.values, 0);
    EXPECT_EQ(x, Eigen::Vector2d(-1.2, 1.0));
}

TEST(WNewton, RejectedStepsDoNotCountAndEndOnTheStepTest)
{
    // Every trial value is NaN: rho is NaN, every step is rejected, the
    // damping grows until the step test ends the loop - not the budget.
    LambdaJacobianSparseProblem<double> inner(rosenbrock<double>());
    Counting<double> problem(inner);
    problem.poisonValues = true;
    SolverParameters parameters;
    parameters.maxIterations = 1;
    Eigen::VectorXd x(2);
    x << -1.2, 1.0;
    minimize(problem, x, parameters, Tolerances());
    EXPECT_EQ(x, Eigen::Vector2d(-1.2, 1.0));
    EXPECT_EQ(problem.alls, 1);
    EXPECT_GT(problem.values, 10);

    // With the damping switched off every step is taken, even one whose
    // value is NaN; Gauss-Newton then reaches the minimum in two steps.
    parameters.dampingMode = 0;
    parameters.maxIterations = 5;
    problem.values = 0;
    problem.alls = 0;
    minimize(problem, x, parameters, Tolerances());
    EXPECT_EQ(problem.values, 2);
    EXPECT_EQ(problem.alls, 3);
    EXPECT_NEAR(x[0], 1.0, 1e-6);
    EXPECT_NEAR(x[1], 1.0, 1e-6);
}

TEST(WNewton, ObserverCanStopTheRun)
{
    struct StopAfterOne : OptimizationFramework::OptimizationUpdateFunctor<double>
    {
        int calls = 0;
        bool onUpdate(const Vector&) override { return ++calls < 1; }
    } observer;
    LambdaJacobianSparseProblem<double> inner(rosenbrock<double>());
    Counting<double> problem(inner);
    Eigen::VectorXd x(2);
    x << -1.2, 1.0;
    SolverParameters parameters;
    parameters.maxIterations = 50;
    minimize(problem, x, parameters, Tolerances(), &observer);
    EXPECT_EQ(observer.calls, 1);
    // Stopped before the accepted point was evaluated in full.
    EXPECT_EQ(problem.alls, 1);
    EXPECT_NE(x, Eigen::Vector2d(-1.2, 1.0));
}

TEST(WNewton, DirectAndConjugateGradientFormsAgree)
{
    const TestSupport::GraphProblem graph(150, 6, 1.5f);
    SolverParameters parameters;
    parameters.maxIterations = 30;
    Tolerances tolerances;
    tolerances.gradientTolerance = 1e-6;
    tolerances.stepTolerance = 1e-7;

    LambdaJacobianSparseProblem<double> direct(std::cref(graph));
    Eigen::VectorXd xd = Eigen::VectorXd::Zero(graph.variableCount());
    minimize(direct, xd, parameters, tolerances);

    LambdaJacobianMatrixFreeProblem<float> iterative(std::cref(graph), 6, 300, 1e-6);
    Eigen::VectorXf xf = Eigen::VectorXf::Zero(graph.variableCount());
    tolerances.gradientTolerance = 1e-4;
    minimize(iterative, xf, parameters, tolerances);

    double value = 0, valueF = 0;
    Eigen::VectorXd r;
    graph(xd, r, static_cast<Eigen::SparseMatrix<double, Eigen::RowMajor, int>*>(nullptr));
    value = 0.5 * r.squaredNorm();
    graph(Eigen::VectorXd(xf.cast<double>()), r, static_cast<Eigen::SparseMatrix<double, Eigen::RowMajor, int>*>(nullptr));
    valueF = 0.5 * r.squaredNorm();
    Eigen::VectorXd r0;
    graph(Eigen::VectorXd::Zero(graph.variableCount()).eval(), r0,
          static_cast<Eigen::SparseMatrix<double, Eigen::RowMajor, int>*>(nullptr));
    EXPECT_LT(value, 0.2 * 0.5 * r0.squaredNorm());
    EXPECT_NEAR(valueF, value, 1e-3 * value + 1e-6);
    EXPECT_LT((xd - xf.cast<double>()).cwiseAbs().maxCoeff(), 1e-2);
}

TEST(WNewton, ARejectedStepIsSolvedAgainFromTheLastSolution)
{
    // After a rejection only the damping changes, by a factor of two on a
    // damping far below J^T J: the last solution already solves the new
    // system to the tolerance, where a solve from zero repeats every
    // iteration. The loop must end where it ends without the rejection.
    const TestSupport::GraphProblem graph(150, 6, 1.5f);
    SolverParameters parameters;
    parameters.maxIterations = 30;
    Tolerances tolerances;
    tolerances.stepTolerance = 1e-7;
    Eigen::VectorXf plain = Eigen::VectorXf::Zero(graph.variableCount()), retried = plain;
    {
        LambdaJacobianMatrixFreeProblem<float> inner(std::cref(graph), 6, 300, 1e-4);
        CountingMatrixFree problem(inner);
        minimize(problem, plain, parameters, tolerances);
    }
    LambdaJacobianMatrixFreeProblem<float> inner(std::cref(graph), 6, 300, 1e-4);
    CountingMatrixFree problem(inner);
    problem.rejectFirst = true;
    minimize(problem, retried, parameters, tolerances);
    ASSERT_GE(problem.productsPerSolve.size(), 3u);
    EXPECT_GE(problem.productsPerSolve[0], 5);
    EXPECT_LE(problem.productsPerSolve[1], 2);
    EXPECT_LT((plain - retried).cwiseAbs().maxCoeff(), 1e-3f * (1.0f + plain.cwiseAbs().maxCoeff()));
}

TEST(WNewton, AStepThatFellShortLiftsTheDampingToTheFloor)
{
    // From 1e-9, the doubling after a rejection leaves a damping that J^T J
    // does not notice; with a floor the retry starts from a damping measured
    // against the problem's own scale. Without one the schedule is unchanged.
    const TestSupport::GraphProblem graph(60, 6, 1.5f);
    Tolerances tolerances;
    tolerances.stepTolerance = 1e-7;
    for (const double floor : {0.0, 1e-3}) {
        LambdaJacobianMatrixFreeProblem<float> inner(std::cref(graph), 6, 300, 1e-4);
        CountingMatrixFree problem(inner);
        problem.rejectFirst = true;
        problem.scale = 2.0;
        SolverParameters parameters;
        parameters.dampingFloor = floor;
        Eigen::VectorXf x = Eigen::VectorXf::Zero(graph.variableCount());
        minimize(problem, x, parameters, tolerances);
        ASSERT_GE(problem.dampingPerSolve.size(), 2u);
        EXPECT_DOUBLE_EQ(problem.dampingPerSolve[0], 1e-9);
        EXPECT_DOUBLE_EQ(problem.dampingPerSolve[1], floor > 0 ? 2e-3 : 2e-9);
    }

    // The floor fades with the gain ratio rho (twice the textbook ratio):
    // whole at rho <= 0, half at 0.5, gone from 1 on, so that a step whose
    // acceptance rounding decides moves the damping alike either way.
    LambdaJacobianMatrixFreeProblem<float> inner(std::cref(graph), 6);
    CountingMatrixFree problem(inner);
    problem.scale = 2.0;
    SolverParameters parameters;
    parameters.dampingFloor = 1e-3;
    EXPECT_DOUBLE_EQ(detail::dampingFloor(parameters, problem, -5.0), 2e-3);
    EXPECT_NEAR(detail::dampingFloor(parameters, problem, -1e-12), detail::dampingFloor(parameters, problem, 1e-12), 1e-14);
    EXPECT_NEAR(detail::dampingFloor(parameters, problem, 0.5), 1e-3, 1e-15);
    EXPECT_EQ(detail::dampingFloor(parameters, problem, 1.0), 0.0);
    EXPECT_EQ(detail::dampingFloor(parameters, problem, 2.0), 0.0);
    EXPECT_EQ(detail::dampingFloor(parameters, problem, std::nan("")), 0.0);
    parameters.dampingFloor = 0.0;
    EXPECT_EQ(detail::dampingFloor(parameters, problem, -5.0), 0.0);
}

TEST(WNewton, ReportLineFormat)
{
    CGInfo none;
    EXPECT_EQ(formatIteration(0, 20, 2.0, 0.5, 0.25, 1e-9, none, {{"t(Δx)", 0.5}}),
              "1/20 f(x)=2 |∇f(x)|=0.5 |Δx|=0.25 μ=1e-09 t(Δx)=0.5 ");
    CGInfo cg;
    cg.valid = true;
    cg.error = 0.001;
    cg.iterations = 12;
    EXPECT_EQ(formatIteration(4, 10, 1.5, 2.0, 0.1, 0.33, cg, {}),
              "5/10 f(x)=1.5 |∇f(x)|=2 |Δx|=0.1 μ=0.33 CG err=0.001 CG itrs=12 ");
    EXPECT_EQ(formatIteration(-1, 10, 3.0, 4.0, 0.0, 1e-9, none, {}), "f(x)=3 |∇f(x)|=4 μ=1e-09 ");
}

TEST(WNewton, BrokenProblemsEndWithAReasonInsteadOfSpinning)
{
    // A value of infinity at the start (a model with an overflowing
    // coordinate): nothing can be compared, so no step is tried at all.
    LambdaJacobianSparseProblem<double> overflowing([](const Eigen::VectorXd& x, Eigen::VectorXd& r,
                                                       Eigen::SparseMatrix<double, Eigen::RowMajor, int>* J) {
        r = Eigen::VectorXd::Constant(1, std::numeric_limits<double>::infinity());
        if (J) {
            J->resize(1, x.size());
            J->insert(0, 0) = 1.0;
        }
    });
    Counting<double> problem(overflowing);
    Eigen::VectorXd x = Eigen::VectorXd::Zero(2);
    EXPECT_EQ(minimize(problem, x, SolverParameters(), Tolerances()), StopReason::NonFinite);
    EXPECT_EQ(problem.values, 0);
    EXPECT_EQ(x, Eigen::VectorXd::Zero(2));

    // Every trial rejected and a step tolerance of zero, which the step
    // test alone never meets: the damping limit ends the loop.
    LambdaJacobianSparseProblem<double> inner(rosenbrock<double>());
    Counting<double> rejecting(inner);
    rejecting.poisonValues = true;
    Tolerances tolerances;
    tolerances.stepTolerance = 0.0;
    x = Eigen::Vector2d(-1.2, 1.0);
    EXPECT_EQ(minimize(rejecting, x, SolverParameters(), tolerances), StopReason::DampingLimit);
    EXPECT_EQ(x, Eigen::Vector2d(-1.2, 1.0));
    EXPECT_LT(rejecting.values, 40);
}

TEST(WNewton, RaisedInterruptFlagEndsBeforeAnyWork)
{
    LambdaJacobianSparseProblem<double> inner(rosenbrock<double>());
    Counting<double> problem(inner);
    std::atomic<bool> stop{true};
    SolverParameters parameters;
    parameters.interrupted = &stop;
    Eigen::VectorXd x(2);
    x << -1.2, 1.0;
    EXPECT_EQ(minimize(problem, x, parameters, Tolerances()), StopReason::Interrupted);
    EXPECT_EQ(problem.alls, 0);
    stop = false;
    parameters.maxIterations = 200;
    EXPECT_NE(minimize(problem, x, parameters, Tolerances()), StopReason::Interrupted);
    EXPECT_NEAR(x[0], 1.0, 1e-3);
}
