#include "fitting/accelerated/IterativeSolverProblem.h"
#include "fitting/accelerated/NodeBlockJacobian.h"
#include "fitting/accelerated/NodeBlocks.h"

#include "WavyPatch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>

using namespace EmbeddedGraphDeformer;
using EmbeddedGraphDeformer::IterativeSolverDeformer::NodeBlockJacobian;

namespace {

/// A problem on the wavy patch with pairs, both edge directions and two
/// control points, its Jacobian filled at a random state.
struct Filled
{
    TestSupport::WavyPatch patch;
    std::unique_ptr<IterativeSolverDeformer::Problem> problem;

    Filled(int size, unsigned seed) : patch(size)
    {
        std::vector<ControlPoint> controls(2);
        controls[0].corners[0] = 9;
        controls[0].corners[1] = 10;
        controls[0].corners[2] = 18;
        controls[0].weights[0] = 0.2f;
        controls[0].weights[1] = 0.5f;
        controls[0].weights[2] = 0.3f;
        controls[1].corners[0] = 40;
        controls[1].corners[1] = 41;
        controls[1].corners[2] = 49;
        EnergyWeights weights;
        weights.smoothness = 0.7f;
        problem = std::make_unique<IterativeSolverDeformer::Problem>(patch.level, patch.vertices, patch.nodes, controls,
                                                                     weights, true);
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> u(-0.4f, 0.4f);
        std::vector<long long> sources;
        std::vector<Vec3> targets, normals;
        for (long long v = 0; v < (long long)patch.vertices.size(); v += 3) {
            sources.push_back(v);
            targets.push_back(patch.vertices[size_t(v)] + Vec3(u(random), u(random), u(random)));
            normals.push_back(Vec3(u(random), u(random), 1.0f).normalized());
        }
        problem->setPairs(sources, targets, normals);
        Eigen::VectorXf x(problem->variableCount()), r;
        for (Eigen::Index i = 0; i < x.size(); ++i)
            x[i] = u(random);
        problem->computeResidualsAndJacobian(x, r);
    }
    const NodeBlockJacobian& J() const { return problem->nodeBlockJacobian(); }
};

Eigen::MatrixXd denseFromSparse(const IterativeSolverDeformer::JacobianSparseStorage& J)
{
    Eigen::MatrixXd dense = Eigen::MatrixXd::Zero(J.rows(), J.columns());
    for (long long row = 0; row < J.rows(); ++row)
        for (long long e = J.rowOffsets()[size_t(row)]; e < J.rowOffsets()[size_t(row) + 1]; ++e)
            dense(row, J.rowColumns()[size_t(e)]) += double(J.storedValues()[size_t(e)]);
    return dense;
}

double relative(const Eigen::VectorXd& got, const Eigen::VectorXd& expected)
{
    return (got - expected).norm() / std::max(1e-12, expected.norm());
}

} // namespace

TEST(NodeBlockJacobian, ProductsAndDiagonalBlocksAgreeWithTheEntryByEntryJacobian)
{
    Filled filled(8, 11);
    const NodeBlockJacobian& J = filled.J();
    ASSERT_GT(J.pairs(), 0);
    ASSERT_GT(J.edges(), 0);
    ASSERT_EQ(J.controls(), 2);
    // The entry-by-entry form is written by other code from the same blocks,
    // and is what the finite-difference test of the deformer checks.
    const Eigen::MatrixXd dense = denseFromSparse(filled.problem->jacobian());
    ASSERT_EQ(dense.rows(), J.rows());
    EXPECT_LT((J.dense() - dense).cwiseAbs().maxCoeff(), 1e-6 * (1.0 + dense.cwiseAbs().maxCoeff()));

    std::mt19937 random(4);
    std::normal_distribution<float> n;
    Eigen::VectorXf v(J.columns()), u(J.rows());
    for (Eigen::Index i = 0; i < v.size(); ++i)
        v[i] = n(random);
    for (Eigen::Index i = 0; i < u.size(); ++i)
        u[i] = n(random);
    for (bool parallel : {false, true}) {
        Eigen::VectorXf Jv, JTu, JTJv;
        J.multiply(v, Jv, parallel);
        J.multiplyTransposed(u, JTu, parallel);
        J.multiplyNormal(v, JTJv, parallel);
        EXPECT_LT(relative(Jv.cast<double>(), dense * v.cast<double>()), 1e-5);
        EXPECT_LT(relative(JTu.cast<double>(), dense.transpose() * u.cast<double>()), 1e-5);
        EXPECT_LT(relative(JTJv.cast<double>(), dense.transpose() * (dense * v.cast<double>())), 1e-5);

        std::vector<NodeBlockJacobian::Block> blocks;
        J.nodeBlocks(blocks, parallel);
        ASSERT_EQ((long long)blocks.size(), J.nodes());
        const Eigen::MatrixXd H = dense.transpose() * dense;
        for (long long k = 0; k < J.nodes(); ++k)
            ASSERT_LT((blocks[size_t(k)].cast<double>() - H.block<6, 6>(6 * k, 6 * k)).cwiseAbs().maxCoeff(),
                      1e-4 * (1.0 + H.block<6, 6>(6 * k, 6 * k).cwiseAbs().maxCoeff()))
                << "node " << k;
    }
}

TEST(NodeBlockJacobian, ParallelProductsEqualSerialOnesBitForBit)
{
    // Each node sums its own entries in a fixed order, so the threads that
    // happen to run a product cannot change a fit. The patch is large
    // enough for both passes to be cut into several tasks.
    Filled filled(70, 12);
    ASSERT_GT(filled.J().pairs(), 1024);
    const NodeBlockJacobian& J = filled.J();
    Eigen::VectorXf v = Eigen::VectorXf::Random(J.columns()), u = Eigen::VectorXf::Random(J.rows());
    Eigen::VectorXf serial, parallel;
    J.multiplyNormal(v, serial, false);
    for (int run = 0; run < 5; ++run) {
        J.multiplyNormal(v, parallel, true);
        ASSERT_EQ(serial.size(), parallel.size());
        ASSERT_TRUE((serial.array() == parallel.array()).all()) << "normal product, run " << run;
    }
    J.multiplyTransposed(u, serial, false);
    J.multiplyTransposed(u, parallel, true);
    EXPECT_TRUE((serial.array() == parallel.array()).all());
}

TEST(NodeBlockJacobian, NoPairsLeavesSmoothnessAlone)
{
    // Every vertex excluded from matching: only the edges act, and a common
    // translation of all nodes costs nothing.
    TestSupport::WavyPatch patch(6);
    IterativeSolverDeformer::Problem problem(patch.level, patch.vertices, patch.nodes, {}, EnergyWeights(), true);
    problem.setPairs({}, {}, {});
    Eigen::VectorXf x = Eigen::VectorXf::Zero(problem.variableCount()), r;
    problem.computeResidualsAndJacobian(x, r);
    const NodeBlockJacobian& J = problem.nodeBlockJacobian();
    EXPECT_EQ(J.pairs(), 0);
    EXPECT_EQ(J.rows(), r.size());
    Eigen::VectorXf shift = Eigen::VectorXf::Zero(J.columns()), out;
    for (long long k = 0; k < J.nodes(); ++k)
        shift.segment<3>(6 * k + 3) = Eigen::Vector3f(1.0f, -2.0f, 0.5f);
    J.multiplyNormal(shift, out, true);
    EXPECT_LT(out.cwiseAbs().maxCoeff(), 1e-5f);
    // A single node moved alone stretches its edges.
    shift.setZero();
    shift[3] = 1.0f;
    J.multiplyNormal(shift, out, true);
    EXPECT_GT(out[3], 0.0f);
}

namespace {

template <int n> void expectInverse(const Eigen::Matrix<float, n, n>& block, float damping, double tolerance)
{
    Eigen::Matrix<float, n, n> inverse;
    invertDamped(block, damping, inverse);
    Eigen::Matrix<double, n, n> damped = block.template cast<double>();
    damped.diagonal().array() += double(damping);
    const Eigen::Matrix<double, n, n> product = damped * inverse.template cast<double>();
    EXPECT_LT((product - Eigen::Matrix<double, n, n>::Identity()).norm(), tolerance) << block;
    EXPECT_TRUE(inverse.isApprox(inverse.transpose()));
}

template <int n> Eigen::Matrix<float, n, n> gram(int rank, std::mt19937& random)
{
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    Eigen::Matrix<float, Eigen::Dynamic, n> rows(rank, n);
    for (int r = 0; r < rank; ++r)
        for (int c = 0; c < n; ++c)
            rows(r, c) = u(random);
    return rows.transpose() * rows;
}

} // namespace

TEST(NodeBlocks, DampedInverseOfSixAndTwelveRowBlocks)
{
    std::mt19937 random(7);
    for (int i = 0; i < 50; ++i) {
        expectInverse<6>(gram<6>(20, random), 1e-3f, 1e-4);
        expectInverse<12>(gram<12>(40, random), 1e-3f, 1e-3);
    }
    // Rank-deficient blocks (a node that only its edges hold) are inverted
    // through the damping alone.
    for (int i = 0; i < 20; ++i) {
        expectInverse<6>(gram<6>(3, random), 0.05f, 1e-3);
        expectInverse<12>(gram<12>(6, random), 0.05f, 1e-3);
    }
    // The fit's blocks mix rotation entries of order |q|^2 with translation
    // entries of order 1.
    Eigen::Matrix<float, 6, 6> scaled = gram<6>(20, random);
    scaled.topLeftCorner<3, 3>() *= 1e-4f;
    scaled.topRightCorner<3, 3>() *= 1e-2f;
    scaled.bottomLeftCorner<3, 3>() *= 1e-2f;
    expectInverse<6>(scaled, 1e-6f, 1e-3);
}

TEST(NodeBlocks, BlockWithoutAPositivePivotFallsBackToThePivotedFactorisation)
{
    // Indefinite with a zero first entry: the unpivoted factorisation would
    // divide by it, the pivoted one still inverts the block.
    Eigen::Matrix<float, 6, 6> block = Eigen::Matrix<float, 6, 6>::Identity();
    block(0, 0) = 0.0f;
    block(0, 1) = block(1, 0) = 1.0f;
    expectInverse<6>(block, 0.0f, 1e-3);
}

namespace {

template <int n> void expectBlocksLikeOneByOne(std::mt19937& random)
{
    using Block = Eigen::Matrix<float, n, n>;
    // Eleven blocks: two groups of four and three left over; the second
    // group holds a block without a positive pivot, a NaN block ends it.
    std::vector<Block> blocks;
    for (int i = 0; i < 11; ++i)
        blocks.push_back(gram<n>(i % 3 == 0 ? 2 : 3 * n, random));
    blocks[5] = Block::Identity();
    blocks[5](0, 0) = 0.0f;
    blocks[5](0, 1) = blocks[5](1, 0) = 1.0f;
    blocks[7](2, 2) = std::numeric_limits<float>::quiet_NaN();
    for (float damping : {0.0f, 1e-3f, 0.05f}) {
        std::vector<Block> together(blocks.size()), alone(blocks.size());
        invertDampedBlocks(blocks, damping, together, 1, 11);
        for (size_t i = 1; i < blocks.size(); ++i)
            invertDamped(blocks[i], damping, alone[i]);
        for (size_t i = 1; i < blocks.size(); ++i)
            EXPECT_EQ(std::memcmp(together[i].data(), alone[i].data(), sizeof(Block)), 0)
                << "block " << i << ", damping " << damping;
    }
}

} // namespace

// Blocks go four at a time, as the lanes of one factorisation; each must
// get the bits it gets alone, or a fit would depend on where its nodes
// fall among the groups of four.
TEST(NodeBlocks, InvertingFourAtATimeGivesEachBlockItsOwnBits)
{
    std::mt19937 random(11);
    expectBlocksLikeOneByOne<6>(random);
    expectBlocksLikeOneByOne<12>(random);
}
