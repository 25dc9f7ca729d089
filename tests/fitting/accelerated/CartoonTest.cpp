#include "support/MeshFactory.h"

#include "fitting/accelerated/CartoonDeformer.h"
#include "fitting/accelerated/CartoonProblem.h"
#include "fitting/accelerated/CartoonWelkingWorker.h"
#include "fitting/accelerated/EmbeddedGraphSampler.h"

#include "geometry/GeomStackTriangulated.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace EmbeddedGraphDeformer;
using WelkingAcceleratedVersion::EmbeddedGraphLevel;

namespace {

/// A UV sphere of radius 5, `rings` x `segments`, scaled per axis.
GeometryStack2::GeomStackTriangulated sphere(int rings, int segments, const QVector3D& scale = {1, 1, 1})
{
    QVector<QVector3D> vertices;
    QVector<QVector<int>> polygons;
    const float pi = 3.14159265f;
    vertices.append(QVector3D(0, 0, 5) * scale);
    for (int r = 1; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const float theta = pi * float(r) / float(rings), phi = 2 * pi * float(s) / float(segments);
            vertices.append(QVector3D(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta)) *
                            5.0f * scale);
        }
    vertices.append(QVector3D(0, 0, -5) * scale);
    const int south = vertices.size() - 1;
    const auto at = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    for (int s = 0; s < segments; ++s)
        polygons.append({0, at(1, s), at(1, s + 1)});
    for (int r = 1; r + 1 < rings; ++r)
        for (int s = 0; s < segments; ++s)
            polygons.append({at(r, s), at(r + 1, s), at(r + 1, s + 1), at(r, s + 1)});
    for (int s = 0; s < segments; ++s)
        polygons.append({south, at(rings - 1, s + 1), at(rings - 1, s)});
    return GeometryStack2::GeomStackTriangulated(TestSupport::polygonSoup(vertices, polygons));
}

std::vector<WelkingAcceleratedVersion::EmbeddedGraphLevel> levelsFor(const GeometryStack2::GeomStackTriangulated& mesh,
                                                                      float radiusPercent, int levels)
{
    std::vector<WelkingAcceleratedVersion::Vertex> vertices;
    for (const QVector3D& v : mesh.vertices())
        vertices.emplace_back(v.x(), v.y(), v.z());
    const std::vector<long long> triangles(mesh.triangleVertexIndices().begin(), mesh.triangleVertexIndices().end());
    WelkingAcceleratedVersion::GraphSamplingParameters p;
    p.levels = levels;
    p.samplingFinal = radiusPercent;
    p.samplingInitial = radiusPercent * 2;
    return WelkingAcceleratedVersion::buildEmbeddedGraph(p, vertices, triangles);
}

std::vector<Vec3> toVec(const QVector<QVector3D>& points)
{
    std::vector<Vec3> result;
    for (const QVector3D& p : points)
        result.emplace_back(p.x(), p.y(), p.z());
    return result;
}

/// One graph level over a small sphere, with a control point on it.
struct SmallLevel
{
    GeometryStack2::GeomStackTriangulated mesh = sphere(8, 10);
    std::vector<WelkingAcceleratedVersion::EmbeddedGraphLevel> levels = levelsFor(mesh, 25.0f, 1);
    std::vector<Vec3> rest = toVec(mesh.vertices());
    std::vector<Vec3> nodes;

    SmallLevel()
    {
        for (long long n : levels[0].nodes)
            nodes.push_back(rest[size_t(n)]);
    }
    static ControlPoint control()
    {
        ControlPoint c;
        c.corners[0] = 3;
        c.corners[1] = 4;
        c.corners[2] = 14;
        c.weights[0] = 0.2f;
        c.weights[1] = 0.3f;
        c.weights[2] = 0.5f;
        c.target = Vec3(1, 2, 3);
        return c;
    }
};

/// A state near the identity and a direction, drawn in turns from `seed`.
void randomStateAndDirection(const CartoonWelking::Iterative::Problem& problem, unsigned seed, Eigen::VectorXf& x,
                             Eigen::VectorXf& v)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> u(-0.3f, 0.3f);
    x = problem.identity();
    v.resize(problem.variableCount());
    for (Eigen::Index i = 0; i < x.size(); ++i) {
        x[i] += u(random);
        v[i] = u(random);
    }
}

} // namespace

TEST(CartoonDeformer, JacobianMatchesFiniteDifferences)
{
    const SmallLevel small;
    EnergyWeights weights;
    weights.smoothness = 0.6f;
    CartoonWelking::Iterative::Problem problem(small.levels[0], small.rest, small.nodes, {small.control()}, weights, 0.7f);
    problem.setPairs({1, 7, 30, 44}, {Vec3(0, 0, 6), Vec3(1, 5, 2), Vec3(-3, 2, 1), Vec3(2, -4, -2)},
                     {Vec3(0, 0, 1), Vec3(0, 1, 0), Vec3(-1, 0, 0), Vec3(0.6f, -0.8f, 0)});
    std::mt19937 random(9);
    std::uniform_real_distribution<float> u(-0.3f, 0.3f);
    Eigen::VectorXf x = problem.identity();
    for (Eigen::Index i = 0; i < x.size(); ++i)
        x[i] += u(random);
    Eigen::VectorXf r;
    problem.computeJacobian(x);
    const Eigen::MatrixXd J = Eigen::MatrixXd(problem.jacobian().cast<double>());
    const float h = 1e-2f;
    for (Eigen::Index c = 0; c < x.size(); ++c) {
        Eigen::VectorXf plus = x, minus = x, rPlus, rMinus;
        plus[c] += h;
        minus[c] -= h;
        problem.computeResiduals(plus, rPlus);
        problem.computeResiduals(minus, rMinus);
        const Eigen::VectorXd numeric = (rPlus - rMinus).cast<double>() / (2.0 * double(h));
        ASSERT_LT((numeric - J.col(c)).cwiseAbs().maxCoeff(), 5e-3 * (1 + numeric.cwiseAbs().maxCoeff())) << c;
    }
}

TEST(CartoonDeformer, BlockProductsAndPreconditionerAgreeWithTheSparseJacobian)
{
    // The conjugate gradients see J^T J through the Jacobian's blocks, the
    // gradient through the sparse matrix: both must be the same matrix,
    // with and without the rigidity rows.
    const SmallLevel small;
    const std::vector<Vec3>& nodes = small.nodes;
    EnergyWeights weights;
    weights.smoothness = 0.6f;
    for (float rigidity : {0.0f, 0.7f}) {
        CartoonWelking::Iterative::Problem problem(small.levels[0], small.rest, nodes, {small.control()}, weights,
                                                   rigidity);
        problem.setPairs({1, 7, 30, 44, 45}, {Vec3(0, 0, 6), Vec3(1, 5, 2), Vec3(-3, 2, 1), Vec3(2, -4, -2), Vec3(1, 1, 1)},
                         {Vec3(0, 0, 1), Vec3(0, 1, 0), Vec3(-1, 0, 0), Vec3(0.6f, -0.8f, 0), Vec3(0, 0.6f, 0.8f)});
        Eigen::VectorXf x, v, gradient, y, z;
        randomStateAndDirection(problem, 19, x, v);
        float value = 0;
        problem.evaluateAll(x, value, gradient, problem.product(), nullptr);
        const Eigen::MatrixXd J = Eigen::MatrixXd(problem.jacobian().cast<double>());
        const Eigen::MatrixXd H = J.transpose() * J + 0.3 * Eigen::MatrixXd::Identity(J.cols(), J.cols());
        problem.product().setDamping(0.3);
        problem.product().multiply(v, y);
        const Eigen::VectorXd expected = H * v.cast<double>();
        EXPECT_LT((y.cast<double>() - expected).norm(), 1e-5 * expected.norm()) << "rigidity " << rigidity;

        problem.preconditioner().refresh(0.3);
        problem.preconditioner().apply(v, z);
        for (long long k = 0; k < (long long)nodes.size(); ++k) {
            const Eigen::VectorXd block = H.block(12 * k, 12 * k, 12, 12).ldlt().solve(v.segment<12>(12 * k).cast<double>());
            ASSERT_LT((z.segment<12>(12 * k).cast<double>() - block).norm(), 1e-3 * (1 + block.norm()))
                << "node " << k << ", rigidity " << rigidity;
        }
    }
}

TEST(CartoonDeformer, SurfacePairsEnterTheValueGradientAndProductsAlike)
{
    // Surface pairs live outside the sparse matrix: their rows reach the
    // value and gradient directly and the products through the blocks, and
    // all three must describe the same energy.
    const SmallLevel small;
    EnergyWeights weights;
    weights.smoothness = 0.6f;
    const std::vector<long long> sources = {1, 7};
    const std::vector<Vec3> targets = {Vec3(0, 0, 6), Vec3(1, 5, 2)}, normals = {Vec3(0, 0, 1), Vec3(0, 1, 0)};
    std::vector<SurfacePair> surface(2);
    const long long corners[2][3] = {{3, 4, 14}, {20, 21, 31}};
    const float barycentric[2][3] = {{0.2f, 0.3f, 0.5f}, {0.6f, 0.0f, 0.4f}};
    for (int i = 0; i < 2; ++i) {
        for (int c = 0; c < 3; ++c) {
            surface[size_t(i)].corners[c] = corners[i][c];
            surface[size_t(i)].weights[c] = barycentric[i][c];
        }
    }
    surface[0].target = Vec3(2, 1, 4);
    surface[0].normal = Vec3(0, 0.6f, 0.8f);
    surface[1].target = Vec3(-1, 3, -2);
    surface[1].normal = Vec3(1, 0, 0);
    using CartoonWelking::Iterative::Problem;
    Problem withSurface(small.levels[0], small.rest, small.nodes, {small.control()}, weights, 0.0f);
    Problem without(small.levels[0], small.rest, small.nodes, {small.control()}, weights, 0.0f);
    withSurface.setPairs(sources, targets, normals, surface);
    without.setPairs(sources, targets, normals);

    Eigen::VectorXf x, v;
    randomStateAndDirection(withSurface, 23, x, v);
    float value = 0, plainValue = 0;
    Eigen::VectorXf gradient, plainGradient;
    withSurface.evaluateAll(x, value, gradient, withSurface.product(), nullptr);
    without.evaluateAll(x, plainValue, plainGradient, without.product(), nullptr);
    std::vector<Vec3> deformed;
    withSurface.currentVertices(x, deformed);
    double surfaceValue = 0;
    for (const SurfacePair& pair : surface) {
        Vec3 point = Vec3::Zero();
        for (int c = 0; c < 3; ++c)
            point += pair.weights[c] * deformed[size_t(pair.corners[c])];
        const Vec3 d = point - pair.target;
        surfaceValue += 0.5 * (double(weights.pointToPoint * weights.pointToPoint) * d.squaredNorm() +
                               std::pow(double(weights.pointToPlane * d.dot(pair.normal)), 2));
    }
    ASSERT_GT(surfaceValue, 0.01);
    EXPECT_NEAR(value, plainValue + surfaceValue, 1e-5 * value);
    float valueOnly = 0;
    withSurface.evaluateValue(x, valueOnly, nullptr);
    EXPECT_FLOAT_EQ(valueOnly, value);

    // The residuals are linear in the unknowns (no rigidity rows), so the
    // value is a quadratic: its change along v is the gradient's, and the
    // gradient's change is J^T J v, the conjugate gradients' product.
    const float h = 1e-2f;
    float plus = 0, minus = 0;
    withSurface.evaluateValue(x + h * v, plus, nullptr);
    withSurface.evaluateValue(x - h * v, minus, nullptr);
    const double slope = (double(plus) - double(minus)) / (2.0 * double(h));
    EXPECT_NEAR(slope, double(gradient.dot(v)), 2e-3 * (1 + std::abs(slope)));
    Eigen::VectorXf moved, product;
    float movedValue = 0;
    withSurface.evaluateAll(x + v, movedValue, moved, withSurface.product(), nullptr);
    withSurface.product().setDamping(0.0);
    withSurface.product().multiply(v, product);
    EXPECT_LT((product - (moved - gradient)).norm(), 1e-3 * product.norm());
    // And without the surface rows the product differs: they are in it.
    Eigen::VectorXf plainProduct;
    without.product().setDamping(0.0);
    without.product().multiply(v, plainProduct);
    EXPECT_GT((product - plainProduct).norm(), 1e-3 * product.norm());
}

TEST(CartoonDeformer, IdentityStaysAndInitialisationFitsAffineMotion)
{
    const auto mesh = sphere(8, 10);
    const auto levels = levelsFor(mesh, 25.0f, 1);
    const std::vector<Vec3> rest = toVec(mesh.vertices());
    std::vector<Vec3> nodes;
    for (long long n : levels[0].nodes)
        nodes.push_back(rest[size_t(n)]);
    CartoonWelking::Iterative::Deformer deformer;
    deformer.setProblem(levels[0], rest, nodes, {}, EnergyWeights(), true);
    Eigen::VectorXf state = deformer.problem()->identity();
    std::vector<Vec3> vertices, outNodes;
    deformer.solve({}, {}, {}, vertices, outNodes, state, SolveBudget());
    EXPECT_EQ((state - deformer.problem()->identity()).cwiseAbs().maxCoeff(), 0.0f);

    std::vector<std::vector<std::pair<long long, float>>> lists(nodes.size());
    for (size_t v = 0; v + 1 < levels[0].influenceOffsets.size(); ++v)
        for (long long i = levels[0].influenceOffsets[v]; i < levels[0].influenceOffsets[v + 1]; ++i)
            lists[size_t(levels[0].influences[size_t(i)])].emplace_back((long long)v, levels[0].weights[size_t(i)]);
    Eigen::Matrix3f shear;
    shear << 1.4f, 0.3f, 0, 0, 0.8f, 0, 0.1f, 0, 1.1f;
    std::vector<Vec3> moved;
    for (const Vec3& v : rest)
        moved.push_back(shear * v + Vec3(2, -1, 0.5f));
    deformer.initializeVariables(rest, moved, lists, nodes, state);
    deformer.problem()->currentVertices(state, vertices);
    for (size_t v = 0; v < vertices.size(); ++v)
        ASSERT_LT((vertices[v] - moved[v]).norm(), 1e-3f) << v;
}

TEST(CartoonWorker, RecoversAnAnisotropicScalingThatTheFastFitCannot)
{
    const auto source = sphere(14, 18);
    const QVector3D stretch(1.6f, 0.7f, 1.0f);
    const auto target = sphere(40, 48, stretch);
    WelkingAcceleratedVersion::AcceleratedParameters parameters;
    parameters.subdivisions = 1;
    // The vertices are measured against the exact map. Coverage pairs pull
    // the flat triangles of the coarse sphere out onto the curved target, so
    // their corners end a little outside it, and surface pairs put them on
    // the target's facets, a little inside: right for the surface, off for
    // this measure.
    parameters.coveragePairs = false;
    parameters.surfacePairs = false;
    const auto run = [&](bool cartoon, float rigidity) {
        // One coarse level: a handful of nodes, each of which must carry the stretch.
        auto levels = levelsFor(source, 40.0f, 1);
        std::unique_ptr<WelkingAcceleratedVersion::WelkingWorker> worker;
        const QVector<Welk::WPointOnTriangle> none;
        if (cartoon)
            worker = std::make_unique<CartoonWelking::CartoonWelkingWorker>(
                source.vertices(), source.triangleVertexIndices(), QMatrix4x4(), target.vertices(), target.normals(),
                QMatrix4x4(), target.triangleVertexIndices(), none, none, QVector<quint8>(), std::move(levels),
                parameters, rigidity, 100.0f, nullptr);
        else
            worker = std::make_unique<WelkingAcceleratedVersion::FastWelkingWorker>(
                source.vertices(), source.triangleVertexIndices(), QMatrix4x4(), target.vertices(), target.normals(),
                QMatrix4x4(), target.triangleVertexIndices(), none, none, QVector<quint8>(), std::move(levels),
                parameters, 100.0f, nullptr);
        QVector<QVector3D> result;
        QObject::connect(worker.get(), &WelkingAcceleratedVersion::WelkingWorker::finished,
                         [&](QVector<QVector3D> v) { result = v; });
        worker->start();
        return result;
    };
    const auto error = [&](const QVector<QVector3D>& result) {
        double sum = 0;
        for (int i = 0; i < result.size(); ++i)
            sum += double((result[i] - source.vertices()[i] * stretch).length());
        return sum / result.size();
    };
    const QVector<QVector3D> cartoon = run(true, 0.0f);
    const QVector<QVector3D> fast = run(false, 0.0f);
    ASSERT_EQ(cartoon.size(), source.vertexCount());
    EXPECT_LT(error(cartoon), 0.1);
    EXPECT_GT(error(fast), 3 * error(cartoon));
    // The stored rigidity does not act.
    EXPECT_EQ(run(true, 5.0f), cartoon);
}

namespace {

/// A nearly flat n x n grid over [0, 10]^2, or the same grid raised into a bump.
GeometryStack2::GeomStackTriangulated sheet(int n, bool bumped)
{
    return GeometryStack2::GeomStackTriangulated(TestSupport::heightField(n, 10.0f, [bumped](float x, float y) {
        return bumped ? 1.2f * std::sin(0.35f * x) * std::cos(0.25f * y) : 0.002f * x * y;
    }));
}

} // namespace

TEST(CartoonWorker, MatrixDirectionsThatNothingSeesStayPut)
{
    // A node over a nearly flat patch has a matrix column (along the
    // patch's normal) that pairs and neighbours hardly see, and a node whose
    // vertices are all left out of matching is seen by its neighbours
    // alone. Held at their start, those directions stay put; left free, the
    // block preconditioner sends them off, and the vertices without a pair
    // (the left-out corner) go with them.
    const auto source = sheet(14, false);
    const auto target = sheet(60, true);
    const auto run = [&](float anchor) {
        WelkingAcceleratedVersion::AcceleratedParameters parameters;
        parameters.cartoonAnchor = anchor;
        std::vector<WelkingAcceleratedVersion::Vertex> vertices;
        for (const QVector3D& v : source.vertices())
            vertices.emplace_back(v.x(), v.y(), v.z());
        const std::vector<long long> triangles(source.triangleVertexIndices().begin(),
                                               source.triangleVertexIndices().end());
        WelkingAcceleratedVersion::GraphSamplingParameters sampling;
        sampling.levels = parameters.subdivisions;
        sampling.samplingFinal = 8.0f;
        sampling.samplingInitial = 40.0f;
        const QVector<Welk::WPointOnTriangle> none;
        QVector<quint8> excluded(source.vertexCount(), 0);
        for (int v = 0; v < source.vertexCount(); ++v)
            excluded[v] = source.vertices()[v].x() > 6.0f && source.vertices()[v].y() > 6.0f;
        CartoonWelking::CartoonWelkingWorker worker(
            source.vertices(), source.triangleVertexIndices(), QMatrix4x4(), target.vertices(), target.normals(),
            QMatrix4x4(), target.triangleVertexIndices(), none, none, excluded,
            WelkingAcceleratedVersion::buildEmbeddedGraph(sampling, vertices, triangles), parameters, 0.0f, 100.0f,
            nullptr);
        QVector<QVector3D> result;
        QObject::connect(&worker, &WelkingAcceleratedVersion::WelkingWorker::finished,
                         [&](QVector<QVector3D> v) { result = v; });
        worker.start();
        EXPECT_EQ(result.size(), source.vertexCount());
        EXPECT_EQ(worker.course().rejectedRounds, 0) << "anchor " << anchor;
        double error = 0;
        for (const QVector3D& p : result)
            error += std::abs(p.z() - 1.2f * std::sin(0.35f * p.x()) * std::cos(0.25f * p.y()));
        return error / std::max(1, result.size());
    };
    const double held = run(1e-3f);
    const double plain = run(0.0f);
    EXPECT_LT(held, 0.01);
    EXPECT_GT(plain, 2 * held);
}

TEST(CartoonDeformer, TheAnchorEntersTheValueGradientAndProductsAlike)
{
    // Without rigidity the cartoon energy is quadratic, so the gradient's
    // change along v is exactly J^T J v: the anchor rows must be in the
    // value, the gradient and the product alike, and must hold the state at
    // which they were set.
    const SmallLevel small;
    CartoonWelking::Iterative::Problem problem(small.levels[0], small.rest, small.nodes, {small.control()},
                                               EnergyWeights(), 0.0f);
    problem.setPairs({1, 7, 30, 44}, {Vec3(0, 0, 6), Vec3(1, 5, 2), Vec3(-3, 2, 1), Vec3(2, -4, -2)},
                     {Vec3(0, 0, 1), Vec3(0, 1, 0), Vec3(-1, 0, 0), Vec3(0.6f, -0.8f, 0)});
    Eigen::VectorXf x, v;
    randomStateAndDirection(problem, 7, x, v);
    const auto gradientAt = [&](const Eigen::VectorXf& at, float& value) {
        Eigen::VectorXf g;
        problem.evaluateAll(at, value, g, problem.product(), nullptr);
        return g;
    };
    float plainValue = 0, heldValue = 0, movedValue = 0;
    const Eigen::VectorXf plainGradient = gradientAt(x, plainValue);
    problem.setAnchor(x, 0.5f);
    const Eigen::VectorXf heldGradient = gradientAt(x, heldValue);
    // Rows that vanish at x change neither the value nor the gradient there.
    EXPECT_NEAR(heldValue, plainValue, 1e-4f * plainValue);
    EXPECT_LT((heldGradient - plainGradient).norm(), 1e-4f * plainGradient.norm());

    Eigen::VectorXf product;
    problem.product().setDamping(0.0);
    problem.product().multiply(v, product);
    const Eigen::VectorXf moved = gradientAt(x + v, movedValue) - heldGradient;
    EXPECT_LT((product - moved).norm(), 1e-3f * moved.norm());
    // The value grows along v by g.v + v^T H v / 2.
    const double expected = double(heldValue) + double(heldGradient.dot(v)) + 0.5 * double(v.dot(product));
    EXPECT_NEAR(double(movedValue), expected, 1e-3 * std::abs(expected));

    // The hold adds to the matrix part of the product, and nothing else.
    problem.setAnchor(x, 0.0f);
    Eigen::VectorXf unheld;
    float unused = 0;
    gradientAt(x, unused);
    problem.product().multiply(v, unheld);
    EXPECT_GT((product - unheld).norm(), 1e-3f * unheld.norm());
    for (long long k = 0; k < (long long)small.nodes.size(); ++k)
        EXPECT_LT((product - unheld).segment<3>(12 * k + 9).norm(), 1e-4f * (1 + unheld.norm())) << k;
}
