#pragma once

#include "DeformerTypes.h"
#include "RowGroups.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

/// The fast fit's Jacobian kept by its structure rather than entry by entry.
/// Every row group moves with a node's rotation through a 3x3 block and with
/// its translation through a multiple of the identity:
/// - a pair (a matched vertex) has, per influencing node i, the block
///   D_i = w_i dR_i/ds (v - n_i) and the weight w_i; its four rows are
///   alpha d and beta n.d with d = sum_i (D_i ds_i + w_i dt_i);
/// - a directed edge (j, k) has D = dR_j/ds (n_k - n_j); its three rows are
///   gamma (D ds_j + dt_j - dt_k);
/// - a control point has, per node it depends on, a block B and a
///   translation factor c; its three rows are kappa sum (B ds + c dt).
/// Rows are in that order: pairs, edges, control points.
///
/// Every block is a cross product after the node's own 3x3: a change ds of a
/// node's parameters turns it by the angle W ds (W, the node's rates, being
/// the three angular velocities dR/ds_i R^T), so dR/ds a = [-R a]x W. A
/// block is therefore kept as its arm q = -w R a (summed over corners for a
/// control point) and D = [q]x W: three floats and a weight per influence,
/// where the full blocks took nine and the entry-by-entry form eighteen
/// values and eighteen column indices. The fit spends nearly all its time in
/// J^T J v, bound by memory traffic.
///
/// Products run in passes: each node's W ds first (y, once per node); each
/// row group then reduces its rows to one 3-vector g (in parallel, one group
/// a task); then each node gathers W^T sum (g x q) and sum w g from the
/// groups that touch it, in a fixed order. No node is written by two tasks,
/// so there are no per-thread copies of the output to clear and add (on the
/// finest level they cost more than the arithmetic), and the result is the
/// same whatever the scheduling.
class NodeBlockJacobian
{
public:
    using Vector = Eigen::VectorXf;
    using Matrix3 = Eigen::Matrix3f;
    using Block = Eigen::Matrix<float, 6, 6>;
    /// A block's arm q and translation factor w, in one 16-byte record: the
    /// products read both for every block.
    struct alignas(16) Arm
    {
        Vec3 q;
        float w;
    };

    /// `pairOffsets` (pairs + 1 entries) cut `pairNodes` into each pair's
    /// influencing nodes; every control point lists its nodes.
    void setPattern(long long nodes, std::vector<long long> pairOffsets, std::vector<int> pairNodes,
                    const std::vector<std::pair<long long, long long>>& edges,
                    const std::vector<std::vector<long long>>& controlNodes);
    void setWeights(const EnergyWeights& weights) { m_weights = weights; }

    long long nodes() const { return m_groups.nodes; }
    long long pairs() const { return m_groups.pairs(); }
    long long edges() const { return m_groups.edges(); }
    long long controls() const { return m_groups.controls(); }
    long long rows() const { return 4 * pairs() + 3 * (edges() + controls()); }
    long long columns() const { return 6 * m_groups.nodes; }
    /// Stored floats, for the debug log.
    long long storedValues() const
    {
        // An arm and a weight per block (an edge's weight is 1), a normal
        // per pair, the rates per node.
        return 4 * (long long)m_groups.pairNodes.size() + 3 * pairs() + 3 * edges() +
               4 * (long long)m_groups.controlNodes.size() + 9 * m_groups.nodes;
    }

    // The values, filled by the problem at every Jacobian.
    const std::vector<long long>& pairOffsets() const { return m_groups.pairOffsets; }
    const std::vector<int>& pairNodes() const { return m_groups.pairNodes; }
    /// A node's rates W (see above).
    Matrix3& nodeRates(long long node) { return m_rates[size_t(node)]; }
    Vec3& pairArm(long long slot) { return m_arms[size_t(slot)].q; }
    float& pairWeight(long long slot) { return m_arms[size_t(slot)].w; }
    /// The blocks of the pair slots from `slot` on.
    Arm* pairArms(long long slot) { return m_arms.data() + slot; }
    Vec3& pairNormal(long long pair) { return m_pairNormals[size_t(pair)]; }
    Vec3& edgeArm(long long edge) { return m_arms[size_t(m_groups.edgeBlock + edge)].q; }
    const std::vector<long long>& controlOffsets() const { return m_groups.controlOffsets; }
    const std::vector<int>& controlNodes() const { return m_groups.controlNodes; }
    Vec3& controlArm(long long slot) { return m_arms[size_t(m_groups.controlBlock + slot)].q; }
    float& controlTranslation(long long slot) { return m_arms[size_t(m_groups.controlBlock + slot)].w; }
    Arm* controlArms(long long slot) { return m_arms.data() + m_groups.controlBlock + slot; }

    // The full 3x3 blocks [q]x W, for the entry-by-entry form and checks.
    Matrix3 pairBlock(long long slot) const { return block(slot, m_groups.pairNodes[size_t(slot)]); }
    Matrix3 edgeBlock(long long edge) const
    {
        return block(m_groups.edgeBlock + edge, m_groups.edgeNodes[size_t(2 * edge)]);
    }
    Matrix3 controlBlock(long long slot) const
    {
        return block(m_groups.controlBlock + slot, m_groups.controlNodes[size_t(slot)]);
    }

    /// out = J v, rows in the order above.
    void multiply(const Vector& v, Vector& out, bool parallel) const;
    /// out = J^T u.
    void multiplyTransposed(const Vector& u, Vector& out, bool parallel) const;
    /// out = J^T (J v) in one pass over the row groups.
    void multiplyNormal(const Vector& v, Vector& out, bool parallel) const;
    /// The 6x6 diagonal blocks of J^T J, one per node.
    void nodeBlocks(std::vector<Block>& blocks, bool parallel) const;
    /// The dense Jacobian, for checks.
    Eigen::MatrixXd dense() const;

private:
    Matrix3 block(long long index, long long node) const;
    /// The first pass of a product: y = W ds per node, from v.
    void rateNodes(const Vector& v, bool parallel) const;
    /// The last pass of a product: out = sum over the groups touching each
    /// node of (W^T (g x q), w g), from the groups' vectors in m_reduced.
    void gather(Vector& out, bool parallel) const;

    RowGroups m_groups;
    EnergyWeights m_weights;
    std::vector<Vec3> m_pairNormals;
    std::vector<Matrix3> m_rates; ///< W per node
    // Every block's arm with its translation factor, by block index (factor
    // 1 at an edge's j).
    std::vector<Arm> m_arms;
    // The products' intermediate vectors, four floats per 3-vector so that
    // each is one aligned load.
    mutable std::vector<float, Eigen::aligned_allocator<float>> m_reduced; ///< per row group
    /// Per node y = W ds, then the node's translation part of the vector.
    mutable std::vector<float, Eigen::aligned_allocator<float>> m_rated;
};

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
