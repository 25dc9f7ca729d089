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
/// A product reads nine floats and a weight per influence where the general
/// sparse form read eighteen values and eighteen column indices, twice: the
/// fit spends nearly all its time in J^T J v, bound by memory traffic.
///
/// Products run in two passes: each row group first reduces its rows to
/// one 3-vector g (in parallel, one group a task), then each node gathers
/// M^T g and w g from the groups that touch it, in a fixed order. No node is
/// written by two tasks, so there are no per-thread copies of the output to
/// clear and add (on the finest level they cost more than the arithmetic),
/// and the result is the same whatever the scheduling.
class NodeBlockJacobian
{
public:
    using Vector = Eigen::VectorXf;
    using Matrix3 = Eigen::Matrix3f;
    using Block = Eigen::Matrix<float, 6, 6>;

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
        return 10 * (long long)m_groups.pairNodes.size() + 3 * pairs() + 9 * edges() + 10 * (long long)m_groups.controlNodes.size();
    }

    // The values, filled by the problem at every Jacobian.
    const std::vector<long long>& pairOffsets() const { return m_groups.pairOffsets; }
    const std::vector<int>& pairNodes() const { return m_groups.pairNodes; }
    Matrix3& pairRotation(long long slot) { return m_rotations[size_t(slot)]; }
    float& pairWeight(long long slot) { return m_translations[size_t(slot)]; }
    Vec3& pairNormal(long long pair) { return m_pairNormals[size_t(pair)]; }
    Matrix3& edgeRotation(long long edge) { return m_rotations[size_t(m_groups.edgeBlock + edge)]; }
    const std::vector<long long>& controlOffsets() const { return m_groups.controlOffsets; }
    const std::vector<int>& controlNodes() const { return m_groups.controlNodes; }
    Matrix3& controlRotation(long long slot) { return m_rotations[size_t(m_groups.controlBlock + slot)]; }
    float& controlTranslation(long long slot) { return m_translations[size_t(m_groups.controlBlock + slot)]; }

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
    /// The second pass of a product: out = sum over the groups touching
    /// each node of (M^T g, w g), from the groups' vectors in m_reduced.
    void gather(Vector& out, bool parallel) const;

    RowGroups m_groups;
    EnergyWeights m_weights;
    std::vector<Vec3> m_pairNormals;
    // Every 3x3 rotation block with its translation factor, by block index
    // (factor 1 at an edge's j).
    std::vector<Matrix3> m_rotations;
    std::vector<float> m_translations;
    mutable std::vector<float> m_reduced; ///< 3 per row group
};

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
