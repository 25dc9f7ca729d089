#include "fitting/accelerated/Deformer.h"
#include "fitting/accelerated/EmbeddedGraphSampler.h"
#include "fitting/accelerated/IterativeSolverProblem.h"

#include "WavyPatch.h"

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>

using namespace EmbeddedGraphDeformer;
using WelkingAcceleratedVersion::EmbeddedGraphLevel;

namespace {

using Patch = TestSupport::WavyPatch;

/// A wavy 8 x 8 grid with one graph level of radius 2.5.
Patch patch()
{
    return Patch(8);
}

std::vector<std::vector<std::pair<long long, float>>> nodeVertices(const EmbeddedGraphLevel& level)
{
    std::vector<std::vector<std::pair<long long, float>>> lists(level.nodes.size());
    for (size_t v = 0; v + 1 < level.influenceOffsets.size(); ++v)
        for (long long i = level.influenceOffsets[v]; i < level.influenceOffsets[v + 1]; ++i)
            lists[size_t(level.influences[size_t(i)])].emplace_back((long long)v, level.weights[size_t(i)]);
    return lists;
}

} // namespace

TEST(ModifiedRodrigues, RotationAndItsDerivative)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<float> u(-0.6f, 0.6f);
    for (int trial = 0; trial < 20; ++trial) {
        const Vec3 s(u(random), u(random), u(random)), a(u(random) * 3, u(random) * 3, u(random) * 3);
        const Eigen::Matrix3f R = rotationFromMRP(s);
        EXPECT_LT((R.transpose() * R - Eigen::Matrix3f::Identity()).norm(), 1e-5f);
        EXPECT_NEAR(R.determinant(), 1.0f, 1e-5f);
        // s = axis * tan(angle / 4).
        const float angle = 4.0f * std::atan(s.norm());
        EXPECT_LT((R - Eigen::AngleAxisf(angle, s.normalized()).toRotationMatrix()).norm(), 1e-5f);
        Eigen::Matrix3f D;
        EXPECT_LT((rotateMRP(s, a, &D) - R * a).norm(), 1e-5f);
        const double h = 1e-3;
        for (int c = 0; c < 3; ++c) {
            Eigen::Vector3d plus = s.cast<double>(), minus = s.cast<double>();
            plus[c] += h;
            minus[c] -= h;
            const Eigen::Vector3d numeric = (rotationFromMRP(plus.cast<float>()).cast<double>() * a.cast<double>() -
                                             rotationFromMRP(minus.cast<float>()).cast<double>() * a.cast<double>()) /
                                            (2 * h);
            EXPECT_LT((numeric - D.col(c).cast<double>()).norm(), 2e-3 * (1 + numeric.norm())) << "column " << c;
        }
        // The products take the derivative as a cross product after the
        // node's rates: d(R a)/ds = [-R a]x W.
        const Eigen::Matrix3f W = ratesOfMRP(s);
        EXPECT_LT((D - (-(R * a)).cross(W.col(0)) * Eigen::RowVector3f::Unit(0) -
                   (-(R * a)).cross(W.col(1)) * Eigen::RowVector3f::Unit(1) -
                   (-(R * a)).cross(W.col(2)) * Eigen::RowVector3f::Unit(2))
                      .norm(),
                  1e-5f * (1 + D.norm()));
    }
}

TEST(IterativeDeformer, JacobianMatchesFiniteDifferences)
{
    const Patch p = patch();
    ControlPoint control;
    control.corners[0] = 9;
    control.corners[1] = 10;
    control.corners[2] = 18;
    control.weights[0] = 0.2f;
    control.weights[1] = 0.5f;
    control.weights[2] = 0.3f;
    control.target = Vec3(2, 1.5f, 1);
    EnergyWeights weights;
    weights.smoothness = 0.7f;
    IterativeSolverDeformer::Problem problem(p.level, p.vertices, p.nodes, {control}, weights, true);
    // Surface pairs too: points on triangles whose corners share some
    // nodes and not others.
    std::vector<SurfacePair> surface(2);
    const long long corners[2][3] = {{11, 12, 20}, {40, 41, 52}};
    for (int s = 0; s < 2; ++s) {
        for (int c = 0; c < 3; ++c)
            surface[size_t(s)].corners[c] = corners[s][c];
        surface[size_t(s)].weights[0] = 0.6f;
        surface[size_t(s)].weights[1] = 0.1f;
        surface[size_t(s)].weights[2] = 0.3f;
        surface[size_t(s)].target = Vec3(2.5f * float(s + 1), 1, 0.5f);
        surface[size_t(s)].normal = Vec3(0, 0.8f, 0.6f);
    }
    problem.setPairs({3, 20, 41, 63}, {Vec3(3, 0, 1), Vec3(4, 2.5f, -1), Vec3(1, 5, 0.5f), Vec3(7.5f, 7, 0)},
                     {Vec3(0, 0, 1), Vec3(0, 0.6f, 0.8f), Vec3(1, 0, 0), Vec3(0, 1, 0)}, surface);
    std::mt19937 random(5);
    std::uniform_real_distribution<float> u(-0.3f, 0.3f);
    Eigen::VectorXf x(problem.variableCount());
    for (Eigen::Index i = 0; i < x.size(); ++i)
        x[i] = u(random);

    Eigen::VectorXf r;
    problem.computeResidualsAndJacobian(x, r);
    const auto& J = problem.jacobian();
    ASSERT_EQ(J.rows(), r.size());
    Eigen::MatrixXd dense = Eigen::MatrixXd::Zero(J.rows(), J.columns());
    for (long long row = 0; row < J.rows(); ++row)
        for (long long e = J.rowOffsets()[size_t(row)]; e < J.rowOffsets()[size_t(row) + 1]; ++e)
            dense(row, J.rowColumns()[size_t(e)]) += double(const_cast<IterativeSolverDeformer::JacobianSparseStorage&>(J).values()[size_t(e)]);

    const float h = 1e-2f;
    for (Eigen::Index c = 0; c < x.size(); ++c) {
        Eigen::VectorXf plus = x, minus = x, rPlus, rMinus;
        plus[c] += h;
        minus[c] -= h;
        problem.computeResiduals(plus, rPlus);
        problem.computeResiduals(minus, rMinus);
        const Eigen::VectorXd numeric = (rPlus - rMinus).cast<double>() / (2.0 * double(h));
        ASSERT_LT((numeric - dense.col(c)).cwiseAbs().maxCoeff(), 5e-3 * (1 + numeric.cwiseAbs().maxCoeff()))
            << "column " << c;
    }

    // The products agree with the dense matrix.
    Eigen::VectorXf v = Eigen::VectorXf::Random(x.size()), y;
    problem.product().setDamping(0.5);
    problem.product().multiply(v, y);
    const Eigen::VectorXd expected = dense.transpose() * (dense * v.cast<double>()) + 0.5 * v.cast<double>();
    EXPECT_LT((expected - y.cast<double>()).norm(), 1e-3 * expected.norm());

    // The scale a rejected step's damping is measured against: the mean
    // diagonal of J^T J.
    float value = 0;
    Eigen::VectorXf gradient;
    problem.evaluateAll(x, value, gradient, problem.product(), nullptr);
    const double meanDiagonal = (dense.transpose() * dense).diagonal().mean();
    EXPECT_NEAR(problem.hessianScale(), meanDiagonal, 1e-4 * meanDiagonal);
}

TEST(IterativeDeformer, IdentityStaysIdentityWithoutPairsOrControls)
{
    const Patch p = patch();
    IterativeSolverDeformer::Deformer deformer;
    deformer.setProblem(p.level, p.vertices, p.nodes, {}, EnergyWeights(), true);
    Eigen::VectorXf state = Eigen::VectorXf::Zero(6 * (long long)p.nodes.size());
    std::vector<Vec3> vertices, nodes;
    deformer.solve({}, {}, {}, vertices, nodes, state, SolveBudget());
    EXPECT_EQ(state.cwiseAbs().maxCoeff(), 0.0f);
    ASSERT_EQ(vertices.size(), p.vertices.size());
    for (size_t v = 0; v < vertices.size(); ++v)
        ASSERT_LT((vertices[v] - p.vertices[v]).norm(), 1e-5f);
}

TEST(IterativeDeformer, InitialisationCarriesARigidMotion)
{
    const Patch p = patch();
    IterativeSolverDeformer::Deformer deformer;
    deformer.setProblem(p.level, p.vertices, p.nodes, {}, EnergyWeights(), false);
    Eigen::VectorXf state;
    deformer.initializeVariables(p.vertices, p.vertices, nodeVertices(p.level), p.nodes, state);
    EXPECT_EQ(state.cwiseAbs().maxCoeff(), 0.0f);

    const Eigen::Matrix3f turn = Eigen::AngleAxisf(0.4f, Vec3(0.2f, 1, 0.3f).normalized()).toRotationMatrix();
    std::vector<Vec3> moved;
    for (const Vec3& v : p.vertices)
        moved.push_back(turn * v + Vec3(1, -2, 0.5f));
    deformer.initializeVariables(p.vertices, moved, nodeVertices(p.level), p.nodes, state);
    std::vector<Vec3> deformed;
    deformer.problem()->currentVertices(state, deformed);
    for (size_t v = 0; v < moved.size(); ++v)
        ASSERT_LT((deformed[v] - moved[v]).norm(), 1e-3f) << v;
}

TEST(IterativeDeformer, ALooserSolveToleranceTakesFewerProductsToTheSameFit)
{
    const Patch p = patch();
    // The patch bent into an arc: rotations as well as translations.
    std::vector<long long> sources;
    std::vector<Vec3> targets, normals;
    for (size_t v = 0; v < p.vertices.size(); ++v) {
        const Vec3& a = p.vertices[v];
        const float angle = 0.1f * a.x();
        sources.push_back((long long)v);
        targets.emplace_back(std::sin(angle) / 0.1f, a.y(), a.z() + (1.0f - std::cos(angle)) / 0.1f);
        normals.emplace_back(-std::sin(angle), 0.0f, std::cos(angle));
    }
    const auto fit = [&](double tolerance, std::vector<Vec3>& vertices) {
        IterativeSolverDeformer::Deformer deformer;
        EnergyWeights weights;
        weights.smoothness = 0.1f;
        deformer.setProblem(p.level, p.vertices, p.nodes, {}, weights, true);
        Eigen::VectorXf state = Eigen::VectorXf::Zero(6 * (long long)p.nodes.size());
        std::vector<Vec3> nodes;
        SolveBudget budget;
        budget.stepTolerance = 1e-6;
        budget.solveTolerance = tolerance;
        deformer.solve(sources, targets, normals, vertices, nodes, state, budget);
        return deformer.problem()->counters().products;
    };
    std::vector<Vec3> tight, loose;
    const long long tightProducts = fit(0.0005, tight), looseProducts = fit(0.1, loose);
    EXPECT_LT(looseProducts, tightProducts);
    // Both end as close to the arc, and close to each other.
    const auto meanDistance = [&](const std::vector<Vec3>& shape) {
        double sum = 0;
        for (size_t v = 0; v < targets.size(); ++v)
            sum += double((shape[v] - targets[v]).norm());
        return sum / double(targets.size());
    };
    const double start = meanDistance(p.vertices), reached = meanDistance(tight);
    EXPECT_LT(reached, 0.1 * start);
    EXPECT_LT(meanDistance(loose), 1.1 * reached);
    for (size_t v = 0; v < targets.size(); ++v)
        ASSERT_LT((loose[v] - tight[v]).norm(), 0.02f) << v;
}

TEST(IterativeDeformer, PairsPullTheSurfaceToTheirTargets)
{
    const Patch p = patch();
    IterativeSolverDeformer::Deformer deformer;
    EnergyWeights weights;
    weights.smoothness = 0.1f;
    deformer.setProblem(p.level, p.vertices, p.nodes, {}, weights, true);
    // Every vertex matched to itself lifted by 0.5 along z.
    std::vector<long long> sources;
    std::vector<Vec3> targets, normals;
    for (size_t v = 0; v < p.vertices.size(); ++v) {
        sources.push_back((long long)v);
        targets.push_back(p.vertices[v] + Vec3(0, 0, 0.5f));
        normals.emplace_back(0, 0, 1);
    }
    Eigen::VectorXf state = Eigen::VectorXf::Zero(6 * (long long)p.nodes.size());
    std::vector<Vec3> vertices, nodes;
    SolveBudget budget;
    budget.stepTolerance = 1e-6;
    deformer.solve(sources, targets, normals, vertices, nodes, state, budget);
    for (size_t v = 0; v < vertices.size(); ++v)
        ASSERT_LT((vertices[v] - targets[v]).norm(), 0.02f) << v;
}

TEST(IterativeDeformer, PairsInAnyOrderGiveTheSameEnergyGradientAndProducts)
{
    // The problem keeps its pairs in its own order (by node, for the
    // products' memory reads); the pairs' order as given must not matter,
    // nor may a pair lose its target or normal on the way.
    const Patch p = patch();
    std::mt19937 random(9);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    std::vector<long long> sources;
    std::vector<Vec3> targets, normals;
    for (long long v = (long long)p.vertices.size() - 1; v >= 0; v -= 2) {
        sources.push_back(v);
        targets.push_back(p.vertices[size_t(v)] + Vec3(u(random), u(random), u(random)));
        normals.push_back(Vec3(u(random), u(random), 1.0f).normalized());
    }
    std::vector<SurfacePair> surface;
    for (size_t t = 0; t < p.triangles.size(); t += 3 * 11) {
        SurfacePair pair;
        for (int c = 0; c < 3; ++c)
            pair.corners[c] = p.triangles[t + size_t(c)];
        pair.weights[0] = 0.2f;
        pair.weights[1] = 0.3f;
        pair.weights[2] = 0.5f;
        pair.target = p.vertices[size_t(pair.corners[0])] + Vec3(u(random), u(random), u(random));
        pair.normal = Vec3(0, 0, 1);
        surface.push_back(pair);
    }
    ASSERT_GE(surface.size(), 4u);

    std::vector<size_t> shuffle(sources.size());
    std::iota(shuffle.begin(), shuffle.end(), size_t(0));
    std::shuffle(shuffle.begin(), shuffle.end(), random);
    std::vector<long long> shuffledSources;
    std::vector<Vec3> shuffledTargets, shuffledNormals;
    for (size_t i : shuffle) {
        shuffledSources.push_back(sources[i]);
        shuffledTargets.push_back(targets[i]);
        shuffledNormals.push_back(normals[i]);
    }
    std::vector<SurfacePair> shuffledSurface(surface.rbegin(), surface.rend());

    EnergyWeights weights;
    weights.smoothness = 0.7f;
    IterativeSolverDeformer::Problem given(p.level, p.vertices, p.nodes, {}, weights, true);
    IterativeSolverDeformer::Problem shuffled(p.level, p.vertices, p.nodes, {}, weights, true);
    given.setPairs(sources, targets, normals, surface);
    shuffled.setPairs(shuffledSources, shuffledTargets, shuffledNormals, shuffledSurface);

    Eigen::VectorXf x(given.variableCount());
    for (Eigen::Index i = 0; i < x.size(); ++i)
        x[i] = 0.3f * u(random);
    float value = 0, shuffledValue = 0;
    Eigen::VectorXf gradient, shuffledGradient;
    given.evaluateAll(x, value, gradient, given.product(), nullptr);
    shuffled.evaluateAll(x, shuffledValue, shuffledGradient, shuffled.product(), nullptr);
    EXPECT_NEAR(shuffledValue, value, 1e-5f * value);
    EXPECT_LT((shuffledGradient - gradient).norm(), 1e-5f * gradient.norm());

    const Eigen::VectorXf v = Eigen::VectorXf::Random(x.size());
    Eigen::VectorXf y, shuffledY;
    given.product().setDamping(0.0);
    shuffled.product().setDamping(0.0);
    given.product().multiply(v, y);
    shuffled.product().multiply(v, shuffledY);
    EXPECT_LT((shuffledY - y).norm(), 1e-5f * y.norm());
}
