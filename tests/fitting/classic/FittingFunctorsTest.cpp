#include "fitting/classic/FittingFunctors.h"
#include "fitting/classic/ModifiedRodrigues.h"

#include "optimisation/BlockTypeAutoDiff.h"

#include <gtest/gtest.h>

#include <Eigen/LU>

#include <QQuaternion>

#include <random>

namespace {

constexpr int K = 3;

/// Constants of one vertex moved by K nodes, weights summing to 1.
std::vector<double> vertexConstants()
{
    return {0.4, -0.2, 1.1,        // vertex
            0.0, 0.0, 1.0, 0.5,    // node 0, weight
            1.0, -0.5, 0.8, 0.3,   // node 1
            -0.6, 0.4, 1.5, 0.2};  // node 2
}

Block::Vector randomVariables(int count, unsigned seed, double scale = 0.4)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-scale, scale);
    Block::Vector x(count);
    for (int i = 0; i < count; ++i)
        x[i] = u(rng);
    return x;
}

/// Central differences of the residuals against the dual-number Jacobian.
void expectJacobianMatches(const Block::BlockTypeBase& type, const std::vector<double>& constants, const Block::Vector& x)
{
    const int rows = type.residualCount(), cols = type.variableCount();
    ASSERT_EQ(int(constants.size()), type.constantCount());
    std::vector<double> J(size_t(rows * cols));
    type.jacobian(constants.data(), x, J.data(), cols, cols);
    std::vector<double> rp(static_cast<size_t>(rows)), rm(static_cast<size_t>(rows));
    for (int c = 0; c < cols; ++c) {
        const double h = 1e-6;
        Block::Vector plus = x, minus = x;
        plus[c] += h;
        minus[c] -= h;
        type.residuals(constants.data(), plus, rp.data());
        type.residuals(constants.data(), minus, rm.data());
        for (int r = 0; r < rows; ++r)
            EXPECT_NEAR(J[size_t(r * cols + c)], (rp[size_t(r)] - rm[size_t(r)]) / (2 * h), 1e-6)
                << "row " << r << " column " << c;
    }
}

} // namespace

TEST(ModifiedRodrigues, IsARotationMatchingTheQuaternion)
{
    const QQuaternion q = QQuaternion::fromAxisAndAngle(QVector3D(0.3f, -0.8f, 0.5f), 130.0f);
    for (const QQuaternion& quaternion : {q, -q}) {
        const Eigen::Vector3d s = EmbeddedDeformation::parametersFromQuaternion(
            quaternion.scalar(), Eigen::Vector3d(quaternion.x(), quaternion.y(), quaternion.z()));
        const Eigen::Matrix3d R = EmbeddedDeformation::rotationFromParameters(s[0], s[1], s[2]);
        EXPECT_NEAR((R * R.transpose() - Eigen::Matrix3d::Identity()).norm(), 0.0, 1e-6);
        EXPECT_NEAR(R.determinant(), 1.0, 1e-6);
        const QVector3D p(1.0f, 2.0f, -0.5f);
        const QVector3D expected = q.rotatedVector(p);
        const Eigen::Vector3d got = R * Eigen::Vector3d(p.x(), p.y(), p.z());
        EXPECT_NEAR(got.x(), expected.x(), 1e-5);
        EXPECT_NEAR(got.y(), expected.y(), 1e-5);
        EXPECT_NEAR(got.z(), expected.z(), 1e-5);
    }
    EXPECT_TRUE(EmbeddedDeformation::rotationFromParameters(0.0, 0.0, 0.0).isIdentity());
}

TEST(ModifiedRodrigues, DerivativesMatchFiniteDifferences)
{
    const Eigen::Vector3d s(0.3, -0.7, 0.45);
    Eigen::Matrix3d d[3];
    EmbeddedDeformation::rotationDerivatives(s, d);
    for (int i = 0; i < 3; ++i) {
        const double h = 1e-6;
        Eigen::Vector3d plus = s, minus = s;
        plus[i] += h;
        minus[i] -= h;
        const Eigen::Matrix3d fd = (EmbeddedDeformation::rotationFromParameters(plus[0], plus[1], plus[2]) -
                                    EmbeddedDeformation::rotationFromParameters(minus[0], minus[1], minus[2])) /
                                   (2 * h);
        EXPECT_NEAR((fd - d[i]).norm(), 0.0, 1e-8) << i;
    }
}

TEST(FittingFunctors, AutoDiffJacobiansMatchFiniteDifferences)
{
    const Block::Vector x = randomVariables(6 * K, 7);
    std::vector<double> point = vertexConstants();
    point.insert(point.end(), {1.0, 0.2, 0.9, 0.7});
    expectJacobianMatches(Block::BlockTypeAutoDiff<EmbeddedDeformation::FittingPointToPointFunctor<K>>(), point, x);

    std::vector<double> plane = vertexConstants();
    plane.insert(plane.end(), {1.0, 0.2, 0.9, 0.0, 0.6, 0.8, 1.3});
    expectJacobianMatches(Block::BlockTypeAutoDiff<EmbeddedDeformation::FittingPointToPlaneFunctor<K>>(), plane, x);

    std::vector<double> both = vertexConstants();
    both.insert(both.end(), {1.0, 0.2, 0.9, 0.0, 0.6, 0.8, 0.1, 1.0});
    expectJacobianMatches(Block::BlockTypeAutoDiff<Welking::FittingPointToPointPointToPlaneFunctor<K>>(), both, x);

    // A triangle whose corners share two of four node slots.
    using Triangle = Welking::FittingPointToPointOnTriangleFunctor<4, 2>;
    std::vector<double> triangle = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0.5}; // slot positions
    triangle.insert(triangle.end(), {0.1, 0.1, 0.0, 0.2, /*slot, w*/ 0, 0.7, 1, 0.3});
    triangle.insert(triangle.end(), {0.9, 0.2, 0.1, 0.5, 1, 0.6, 3, 0.4});
    triangle.insert(triangle.end(), {0.3, 0.8, 0.2, 0.3, 2, 0.5, 0, 0.5});
    triangle.insert(triangle.end(), {0.5, 0.4, 0.3, 10.0});
    expectJacobianMatches(Block::BlockTypeAutoDiff<Triangle>(), triangle, randomVariables(24, 11));
}

TEST(FittingFunctors, ResidualsFollowTheirFormulas)
{
    // At x = 0 every node leaves the vertex where it is.
    const Block::Vector zero = Block::Vector::Zero(6 * K);
    std::vector<double> both = vertexConstants();
    both.insert(both.end(), {1.0, 0.2, 0.9, 0.0, 0.6, 0.8, 0.1, 2.0});
    double r[4];
    Block::BlockTypeAutoDiff<Welking::FittingPointToPointPointToPlaneFunctor<K>>().residuals(both.data(), zero, r);
    const Eigen::Vector3d d(0.4 - 1.0, -0.2 - 0.2, 1.1 - 0.9);
    EXPECT_NEAR(r[0], 0.1 * d.x(), 1e-12);
    EXPECT_NEAR(r[1], 0.1 * d.y(), 1e-12);
    EXPECT_NEAR(r[2], 0.1 * d.z(), 1e-12);
    EXPECT_NEAR(r[3], 2.0 * (0.6 * d.y() + 0.8 * d.z()), 1e-12);

    // A common translation moves the vertex by it, whatever the weights.
    Block::Vector shift = zero;
    for (int j = 0; j < K; ++j)
        shift.segment<3>(6 * j + 3) = Eigen::Vector3d(0.5, -1.0, 2.0);
    std::vector<double> point = vertexConstants();
    point.insert(point.end(), {0.0, 0.0, 0.0, 1.0});
    Block::BlockTypeAutoDiff<EmbeddedDeformation::FittingPointToPointFunctor<K>>().residuals(point.data(), shift, r);
    EXPECT_NEAR(r[0], 0.9, 1e-12);
    EXPECT_NEAR(r[1], -1.2, 1e-12);
    EXPECT_NEAR(r[2], 3.1, 1e-12);
}
