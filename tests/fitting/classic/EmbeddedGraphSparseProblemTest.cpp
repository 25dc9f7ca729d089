#include "ClassicMeshes.h"

#include "fitting/classic/DeformationGraphRoutine.h"
#include "fitting/classic/EmbeddedGraphSparseProblem.h"
#include "fitting/classic/FittingFunctors.h"

#include "optimisation/BlockTypeAutoDiff.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <random>

using namespace EmbeddedDeformationManual;
using namespace DeformationGraphRoutine;

namespace {

struct Fixture
{
    ClassicMeshes::Mesh mesh;
    NodeLevel level;
    std::vector<Vector3> nodes;
    std::vector<Vector3> vertices;

    explicit Fixture(float radius = 1.6f, int k = 4)
        : mesh(ClassicMeshes::grid(9, 6.0f, [](float x, float y) { return 0.3f * std::sin(x) + 0.1f * y; }))
    {
        auto connectivity = std::make_shared<MeshConnectivity>(mesh.vertices.size(), mesh.triangles);
        DeformationGraphUniversalNodesCreator creator(k, mesh.vertices, mesh.triangles, connectivity,
                                                      std::make_unique<FastMarching2NodesSamplerAndInfluenceSearcher>());
        creator.createLevel(radius, level.nodeVertices, level.nodes, level.influences, level.neighbours, nullptr,
                            nullptr);
        for (const QVector3D& g : level.nodes)
            nodes.emplace_back(g.x(), g.y(), g.z());
        for (const QVector3D& v : mesh.vertices)
            vertices.emplace_back(v.x(), v.y(), v.z());
    }

    EmbeddedGraphSparseProblem problem(float wPoint = 0.1f, float wPlane = 1.0f, float wSmooth = 0.7f,
                                       float wControl = 3.0f) const
    {
        ControlData controls;
        controls.triangles = {{0, 1, 10}, {40, 41, 50}};
        controls.barycentrics = {Vector3(0.2, 0.3, 0.5), Vector3(0.6, 0.3, 0.1)};
        controls.targets = {Vector3(0.5, 0.2, 1.0), Vector3(3.0, 3.5, -0.5)};
        return EmbeddedGraphSparseProblem(nodes, vertices, level.influences, level.neighbours, controls, wPoint,
                                          wPlane, wSmooth, wControl);
    }

    void setMatches(EmbeddedGraphSparseProblem& problem) const
    {
        std::mt19937 rng(3);
        std::uniform_real_distribution<double> u(-0.5, 0.5);
        std::vector<int> sources;
        std::vector<Vector3> targets, normals;
        // Every other vertex, with one vertex matched twice.
        for (int v = 0; v < int(vertices.size()); v += 2) {
            sources.push_back(v);
            targets.push_back(vertices[size_t(v)] + Vector3(u(rng), u(rng), u(rng)));
            normals.push_back(Vector3(u(rng), u(rng), 1.0).normalized());
        }
        sources.push_back(4);
        targets.push_back(Vector3(1, 1, 1));
        normals.push_back(Vector3(0, 0, 1));
        problem.setCorrespondences(sources, targets, normals);
    }
};

Eigen::VectorXd randomX(int size, unsigned seed, double scale)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-scale, scale);
    Eigen::VectorXd x(size);
    for (int i = 0; i < size; ++i)
        x[i] = u(rng);
    return x;
}

} // namespace

TEST(EmbeddedGraphSparseProblem, IdentityLeavesVerticesAndGraphAtRest)
{
    const Fixture s;
    EmbeddedGraphSparseProblem problem = s.problem();
    const Eigen::VectorXd zero = Eigen::VectorXd::Zero(problem.variableCount());
    const std::vector<Vector3>& deformed = problem.deform(zero);
    for (size_t v = 0; v < deformed.size(); ++v)
        EXPECT_NEAR((deformed[v] - s.vertices[v]).norm(), 0.0, 1e-6);
    // No correspondences: the residual is smoothness (all zero) then control.
    const Eigen::VectorXd r = problem.residuals(zero);
    const int smooth = 3 * int(s.level.neighbours.indices.size());
    ASSERT_EQ(r.size(), smooth + 6);
    EXPECT_NEAR(r.head(smooth).norm(), 0.0, 1e-6);
    EXPECT_GT(r.tail(6).norm(), 1.0);
}

TEST(EmbeddedGraphSparseProblem, GradientAndHessianAreJtrAndJtJ)
{
    const Fixture s;
    EmbeddedGraphSparseProblem problem = s.problem();
    s.setMatches(problem);
    const Eigen::VectorXd x = randomX(problem.variableCount(), 5, 0.3);
    double value = 0;
    Eigen::VectorXd g;
    EmbeddedGraphSparseProblem::Hessian H;
    WNewton::Timings timings;
    problem.evaluateAll(x, value, g, H, &timings);

    // The Jacobian by central differences of the residual vector.
    const Eigen::VectorXd r = problem.residuals(x);
    EXPECT_NEAR(value, 0.5 * r.squaredNorm(), 1e-9);
    Eigen::MatrixXd J(r.size(), x.size());
    for (int c = 0; c < x.size(); ++c) {
        const double h = 1e-6;
        Eigen::VectorXd plus = x, minus = x;
        plus[c] += h;
        minus[c] -= h;
        J.col(c) = (problem.residuals(plus) - problem.residuals(minus)) / (2 * h);
    }
    EXPECT_LT((g - J.transpose() * r).norm(), 1e-6 * std::max(1.0, g.norm()));
    const Eigen::MatrixXd dense = Eigen::MatrixXd(H);
    const Eigen::MatrixXd JtJ = J.transpose() * J;
    EXPECT_LT((dense - JtJ).norm(), 1e-6 * JtJ.norm());
    EXPECT_LT((dense - dense.transpose()).norm(), 1e-12 * JtJ.norm());
    // The labels of the passes reach the report.
    ASSERT_EQ(timings.size(), 3u);
    EXPECT_EQ(timings[0].first, "t(f)");

    // A second pass reuses the pattern in place.
    const int* innerBefore = H.innerIndexPtr();
    problem.evaluateAll(x, value, g, H, nullptr);
    EXPECT_EQ(H.innerIndexPtr(), innerBefore);
    EXPECT_LT((Eigen::MatrixXd(H) - dense).norm(), 1e-12 * JtJ.norm());
}

TEST(EmbeddedGraphSparseProblem, FittingRowsAgreeWithTheAutoDiffFunctor)
{
    const Fixture s(1.6f, 4);
    EmbeddedGraphSparseProblem problem = s.problem(0.3f, 2.0f, 0.0f, 0.0f);
    const int vertex = 31;
    const Vector3 target(1.0, 2.0, 0.5), normal = Vector3(0.2, 0.3, 1.0).normalized();
    problem.setCorrespondences({vertex}, {target}, {normal});
    const int n = problem.nodeCount();
    const Eigen::VectorXd x = randomX(problem.variableCount(), 9, 0.4);

    // The same residual through the functor, over the vertex's four nodes.
    const auto& inf = s.level.influences;
    std::vector<double> constants = {s.vertices[vertex].x(), s.vertices[vertex].y(), s.vertices[vertex].z()};
    Block::Vector local(24);
    std::vector<int> columns;
    for (long long k = inf.offsets[vertex], j = 0; k < inf.offsets[vertex + 1]; ++k, ++j) {
        const int node = inf.nodeIndices[size_t(k)];
        constants.insert(constants.end(), {s.nodes[size_t(node)].x(), s.nodes[size_t(node)].y(),
                                           s.nodes[size_t(node)].z(), double(inf.weights[size_t(k)])});
        for (int a = 0; a < 3; ++a) {
            local[6 * j + a] = x[3 * node + a];
            local[6 * j + 3 + a] = x[3 * n + 3 * node + a];
            columns.push_back(3 * node + a);
        }
        for (int a = 0; a < 3; ++a)
            columns.push_back(3 * n + 3 * node + a);
    }
    ASSERT_EQ(local.size(), 24);
    constants.insert(constants.end(), {target.x(), target.y(), target.z(), normal.x(), normal.y(), normal.z(), double(0.3f), 2.0});
    const Block::BlockTypeAutoDiff<Welking::FittingPointToPointPointToPlaneFunctor<4>> type;
    double r[4];
    type.residuals(constants.data(), local, r);
    const Eigen::VectorXd residuals = problem.residuals(x);
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(residuals[i], r[i], 1e-10);

    double J[4 * 24];
    type.jacobian(constants.data(), local, J, 24, 24);
    double value;
    Eigen::VectorXd g;
    EmbeddedGraphSparseProblem::Hessian H;
    problem.evaluateAll(x, value, g, H, nullptr);
    // With smoothness and control at weight 0, g is this block's J^T r.
    for (int c = 0; c < 24; ++c) {
        double expected = 0;
        for (int i = 0; i < 4; ++i)
            expected += J[i * 24 + c] * r[i];
        EXPECT_NEAR(g[columns[size_t(c)]], expected, 1e-9);
    }
}

TEST(EmbeddedGraphSparseProblem, SolveRecoversAKnownGraphDeformation)
{
    const Fixture s(1.6f, 6);
    EmbeddedGraphSparseProblem truth = s.problem(1.0f, 1.0f, 0.0f, 0.0f);
    Eigen::VectorXd xTrue = randomX(truth.variableCount(), 21, 0.15);
    const std::vector<Vector3> targets = truth.deform(xTrue);

    EmbeddedGraphSparseProblem problem = s.problem(1.0f, 1.0f, 0.01f, 0.0f);
    std::vector<int> sources;
    std::vector<Vector3> normals;
    for (int v = 0; v < int(s.vertices.size()); ++v) {
        sources.push_back(v);
        normals.push_back(Vector3(0, 0, 1));
    }
    Eigen::VectorXd x = Eigen::VectorXd::Zero(problem.variableCount());
    QVector<QVector3D> vertices, nodes;
    deform(problem, x, sources, targets, normals, vertices, nodes, 50, 1e-9);
    double worst = 0;
    for (int v = 0; v < vertices.size(); ++v)
        worst = std::max(worst, (Vector3(vertices[v].x(), vertices[v].y(), vertices[v].z()) - targets[size_t(v)]).norm());
    // Small smoothness pulls a little against the random motion.
    EXPECT_LT(worst, 0.05);
    ASSERT_EQ(nodes.size(), problem.nodeCount());
    const int n = problem.nodeCount();
    EXPECT_NEAR(nodes[0].x(), s.nodes[0].x() + x[3 * n], 1e-5);
}

TEST(EmbeddedGraphSparseProblem, NonFiniteTargetsEndTheSolve)
{
    const Fixture s;
    EmbeddedGraphSparseProblem problem = s.problem();
    std::vector<Vector3> targets(s.vertices.begin(), s.vertices.end());
    targets[3] = Vector3(std::nan(""), 0.0, 0.0);
    std::vector<int> sources;
    for (int v = 0; v < int(targets.size()); ++v)
        sources.push_back(v);
    Eigen::VectorXd x = Eigen::VectorXd::Zero(problem.variableCount());
    QVector<QVector3D> vertices, nodes;
    // Returns (no endless damping loop), with whatever the solve left.
    deform(problem, x, sources, targets, std::vector<Vector3>(targets.size(), Vector3(0, 0, 1)), vertices, nodes,
           1000, std::nan(""));
    EXPECT_EQ(vertices.size(), int(s.vertices.size()));
}
