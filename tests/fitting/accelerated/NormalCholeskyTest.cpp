#include "fitting/accelerated/EmbeddedGraphSampler.h"
#include "fitting/accelerated/IterativeSolverProblem.h"
#include "fitting/accelerated/NormalCholesky.h"

#include "WavyPatch.h"

#include "optimisation/LinearSystemsSolvers.h"

#include <Eigen/Cholesky>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace EmbeddedGraphDeformer;
using namespace EmbeddedGraphDeformer::IterativeSolverDeformer;
using WelkingAcceleratedVersion::EmbeddedGraphLevel;

namespace {

/// A wavy 9 x 9 grid with one graph level of radius 2.5 and a control
/// point, matched to targets a little above it: every row kind of the fit.
struct Level : TestSupport::WavyPatch
{
    std::vector<long long> sources;
    std::vector<Vec3> targets, normals;
    ControlPoint control;

    Level() : WavyPatch(9)
    {
        // Every third vertex is matched, so that some nodes see few pairs.
        for (long long v = 0; v < (long long)vertices.size(); v += 3) {
            sources.push_back(v);
            targets.push_back(vertices[size_t(v)] + Vec3(0.1f, -0.2f, 0.5f + 0.05f * float(v % 7)));
            normals.push_back(Vec3(0.2f, 0.1f, 1.0f).normalized());
        }
        control.corners[0] = 10;
        control.corners[1] = 11;
        control.corners[2] = 19;
        control.weights[0] = 0.2f;
        control.weights[1] = 0.5f;
        control.weights[2] = 0.3f;
        control.target = Vec3(2.0f, 1.5f, 1.0f);
    }

    std::unique_ptr<Problem> problem(bool direct) const
    {
        EnergyWeights weights;
        weights.smoothness = 0.3f;
        auto p = std::make_unique<Problem>(level, vertices, nodes, std::vector<ControlPoint>{control}, weights, true);
        // Turned on before the pairs arrive: the pairs must set its rows.
        p->setDirectSolve(direct);
        p->setPairs(sources, targets, normals);
        return p;
    }
};

Eigen::VectorXf randomState(long long size, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> u(-0.15f, 0.15f);
    Eigen::VectorXf x(size);
    for (long long i = 0; i < size; ++i)
        x[i] = u(random);
    return x;
}

/// The Jacobian as a dense matrix, column by column through J e_i.
Eigen::MatrixXd denseJacobian(const JacobianSparseStorage& J)
{
    Eigen::MatrixXd dense(J.rows(), J.columns());
    Eigen::VectorXf unit = Eigen::VectorXf::Zero(J.columns()), column;
    for (long long c = 0; c < J.columns(); ++c) {
        unit[c] = 1.0f;
        J.multiply(unit, column, false);
        dense.col(c) = column.cast<double>();
        unit[c] = 0.0f;
    }
    return dense;
}

double relative(const Eigen::MatrixXd& a, const Eigen::MatrixXd& b)
{
    return (a - b).norm() / b.norm();
}

/// Two nodes coupled by six rows that see only their difference, in both
/// orders of the nodes: J^T J = [I -I; -I I] times 2, singular.
struct TwoNodes
{
    JacobianSparseStorage J;
    NormalCholesky cholesky;

    TwoNodes()
    {
        std::vector<long long> offsets{0}, columns;
        std::vector<long long> rowSequence;
        for (int c = 0; c < 6; ++c) {
            columns.insert(columns.end(), {c, 6 + c}); // sequence (0, 1)
            offsets.push_back((long long)columns.size());
            rowSequence.push_back(0);
            columns.insert(columns.end(), {6 + c, c}); // sequence (1, 0): stored transposed
            offsets.push_back((long long)columns.size());
            rowSequence.push_back(1);
        }
        J.setPattern(offsets, columns, 12);
        for (size_t e = 0; e < J.values().size(); ++e)
            J.values()[e] = (e % 2 == 0) ? 1.0f : -1.0f;
        J.syncColumns(false);
        cholesky.setPattern(2, {0, 2, 4}, {0, 1, 1, 0});
        cholesky.setRowSequences(rowSequence);
        cholesky.setJacobian(&J, false);
    }
};

} // namespace

TEST(NormalCholesky, SumsTheNormalMatrixOfTheFitsJacobian)
{
    const Level level;
    auto problem = level.problem(true);
    ASSERT_TRUE(problem->directSolve());
    const Eigen::VectorXf x = randomState(problem->variableCount(), 5);
    float value = 0;
    Eigen::VectorXf gradient;
    problem->evaluateAll(x, value, gradient, problem->product(), nullptr);
    problem->preconditioner().refresh(1e-3);
    EXPECT_EQ(problem->cholesky().assemblies(), 1);
    EXPECT_TRUE(problem->cholesky().factorised());

    const Eigen::MatrixXd J = denseJacobian(problem->jacobian());
    Eigen::MatrixXd reference = J.transpose() * J;
    reference.diagonal().array() += 1e-3;
    EXPECT_LT(relative(problem->cholesky().dense(1e-3), reference), 1e-6);

    // New pairs change the rows (fewer pairs than before): the sum follows.
    Level fewer = level;
    fewer.sources.resize(5);
    fewer.targets.resize(5);
    fewer.normals.resize(5);
    problem->setPairs(fewer.sources, fewer.targets, fewer.normals);
    problem->evaluateAll(x, value, gradient, problem->product(), nullptr);
    const Eigen::VectorXf probe = Eigen::VectorXf::Ones(problem->variableCount());
    Eigen::VectorXf out;
    for (int i = 0; i < 20; ++i) // a slow solve: the next refresh renews the sum
        problem->preconditioner().apply(probe, out);
    problem->preconditioner().refresh(1e-3);
    EXPECT_EQ(problem->cholesky().assemblies(), 2);
    const Eigen::MatrixXd J2 = denseJacobian(problem->jacobian());
    Eigen::MatrixXd reference2 = J2.transpose() * J2;
    EXPECT_LT(relative(problem->cholesky().dense(0.0), reference2), 1e-6);
}

TEST(NormalCholesky, OneConjugateGradientStepGivesTheReferenceStep)
{
    const Level level;
    const double damping = 1e-4;
    Eigen::VectorXd reference;
    for (bool direct : {true, false}) {
        auto problem = level.problem(direct);
        const Eigen::VectorXf x = randomState(problem->variableCount(), 9);
        float value = 0;
        Eigen::VectorXf gradient;
        problem->evaluateAll(x, value, gradient, problem->product(), nullptr);
        if (direct) {
            const Eigen::MatrixXd J = denseJacobian(problem->jacobian());
            Eigen::MatrixXd H = J.transpose() * J;
            H.diagonal().array() += damping;
            reference = H.ldlt().solve(-gradient.cast<double>());
        }
        problem->product().setDamping(damping);
        problem->preconditioner().refresh(damping);
        Eigen::VectorXf h;
        const auto info = LinearSystemsSolvers::conjugateGradient<float, long long>(
            problem->product(), problem->preconditioner(), Eigen::VectorXf(-gradient), h, direct ? 30 : 2000,
            direct ? 5e-4 : 1e-6);
        EXPECT_LT((h.cast<double>() - reference).norm() / reference.norm(), 2e-3) << (direct ? "direct" : "blocks");
        // The exact inverse needs one iteration where the node blocks need many.
        if (direct)
            EXPECT_LE(info.iterations, 2);
        else
            EXPECT_GT(info.iterations, 2);
    }
}

TEST(NormalCholesky, TransposedPairsAndASingularMatrix)
{
    TwoNodes two;
    two.cholesky.refresh(0.5);
    ASSERT_TRUE(two.cholesky.factorised());
    const Eigen::MatrixXd J = denseJacobian(two.J);
    Eigen::MatrixXd H = J.transpose() * J;
    EXPECT_NEAR(H(0, 6), -2.0, 1e-12); // both row orders reach the coupling block
    H.diagonal().array() += 0.5;
    EXPECT_LT(relative(two.cholesky.dense(0.5), H), 1e-12);

    Eigen::VectorXf in(12), out;
    for (int i = 0; i < 12; ++i)
        in[i] = float(i) - 4.5f;
    two.cholesky.apply(in, out);
    const Eigen::VectorXd expected = H.ldlt().solve(in.cast<double>());
    EXPECT_LT((out.cast<double>() - expected).norm() / expected.norm(), 1e-5);

    // Undamped, the difference-only rows leave the common motion free. The
    // factor still serves: conjugate gradients on the singular system with
    // a right-hand side it can meet converge in a step or two, without the
    // huge components an exact factor of a singular matrix would give.
    two.cholesky.refresh(0.0);
    EXPECT_TRUE(two.cholesky.factorised());
    struct Product : LinearSystemsSolvers::ProductHolder<float>
    {
        const JacobianSparseStorage* J;
        void multiply(const Eigen::VectorXf& v, Eigen::VectorXf& y) const override { J->multiplyNormal(v, y, false); }
    } product;
    product.J = &two.J;
    Eigen::VectorXf b;
    two.J.multiplyNormal(in, b, false);
    Eigen::VectorXf x;
    const auto info = LinearSystemsSolvers::conjugateGradient<float, long long>(product, two.cholesky, b, x, 30, 1e-5);
    EXPECT_LE(info.iterations, 3);
    ASSERT_TRUE(x.allFinite());
    Eigen::VectorXf Hx;
    two.J.multiplyNormal(x, Hx, false);
    EXPECT_LT((Hx - b).norm(), 1e-4f * b.norm());
    EXPECT_LT(x.norm(), 2.0f * in.norm());
}

TEST(NormalCholesky, RenewsTheSumOnlyWhenASolveNeedsIt)
{
    TwoNodes two;
    two.cholesky.setRenewAfter(3);
    Eigen::VectorXf in = Eigen::VectorXf::Ones(12), out;
    two.cholesky.refresh(1.0);
    EXPECT_EQ(two.cholesky.assemblies(), 1);

    // New values, but the last solve converged quickly: the old sum stays.
    for (float& v : two.J.values())
        v *= 2.0f;
    two.cholesky.jacobianChanged();
    for (int i = 0; i < 2; ++i)
        two.cholesky.apply(in, out);
    two.cholesky.refresh(1.0);
    EXPECT_EQ(two.cholesky.assemblies(), 1);
    EXPECT_NEAR(two.cholesky.dense(0.0)(0, 0), 2.0, 1e-12);

    // A slow solve renews it from the current values.
    for (int i = 0; i < 4; ++i)
        two.cholesky.apply(in, out);
    two.cholesky.refresh(1.0);
    EXPECT_EQ(two.cholesky.assemblies(), 2);
    EXPECT_NEAR(two.cholesky.dense(0.0)(0, 0), 8.0, 1e-12);

    // Slow again, but nothing changed since: no new sum.
    for (int i = 0; i < 10; ++i)
        two.cholesky.apply(in, out);
    two.cholesky.refresh(1.0);
    EXPECT_EQ(two.cholesky.assemblies(), 2);

    // A damping that matters against the diagonal is factorised anew.
    const long long factorisations = two.cholesky.factorisations();
    two.cholesky.refresh(1.0 + 1e-12);
    EXPECT_EQ(two.cholesky.factorisations(), factorisations);
    two.cholesky.refresh(3.0);
    EXPECT_EQ(two.cholesky.factorisations(), factorisations + 1);
    two.cholesky.apply(in, out);
    Eigen::MatrixXd H = two.cholesky.dense(3.0);
    const Eigen::VectorXd expected = H.ldlt().solve(in.cast<double>());
    EXPECT_LT((out.cast<double>() - expected).norm() / expected.norm(), 1e-5);
}
