#pragma once

#include "DeformerTypes.h"
#include "RowGroups.h"

#include <utility>
#include <vector>

namespace CartoonWelking {
namespace Iterative {

using EmbeddedGraphDeformer::EnergyWeights;
using EmbeddedGraphDeformer::Vec3;

/// The cartoon fit's Jacobian by its structure, for J^T J v and the 12x12
/// node blocks of J^T J. A node's twelve unknowns are its matrix A by
/// columns, then its translation t. Every row group moves with a node as
/// sum_c a_c dA_c + w dt for a 3-vector a and a factor w (the deformation
/// is linear in A and t), so a block is four floats where the sparse matrix
/// held 48 entries and their column indices:
/// - a pair has, per influencing node, a = w (v - n_k) and w; its rows are
///   alpha d and beta n.d;
/// - an edge (j, k) has a = n_k - n_j and w = 1 at j, and -dt_k at k; its
///   rows are gamma d;
/// - a control point has, per node it depends on, the weighted sums of its
///   corners' offsets and weights; its rows are kappa d.
/// The rigidity rows (nine per node, A^T A - I) touch one node each and
/// are added as that node's own 9x9 J^T J block, when their weight is not 0.
///
/// Products gather per node (see `NodeIncidence`): same result whatever the
/// scheduling, no per-thread copies of the output.
class AffineBlockJacobian
{
public:
    using Vector = Eigen::VectorXf;
    using Block = Eigen::Matrix<float, 12, 12>;
    using RigidityBlock = Eigen::Matrix<float, 9, 9>;

    /// The groups: pairs (their slots by `pairOffsets`), edges, control
    /// points (their slots by `controlOffsets`); slots name their node.
    void setPattern(long long nodes, std::vector<long long> pairOffsets, std::vector<int> pairNodes,
                    const std::vector<std::pair<long long, long long>>& edges, std::vector<long long> controlOffsets,
                    std::vector<int> controlNodes);
    void setWeights(const EnergyWeights& weights) { m_weights = weights; }

    long long nodes() const { return m_groups.nodes; }
    long long pairs() const { return m_groups.pairs(); }
    long long edges() const { return m_groups.edges(); }
    long long controls() const { return m_groups.controls(); }

    // Slot values: pair slots, then edges, then control slots.
    Vec3& pairOffset(long long slot) { return m_offsets[size_t(slot)]; }
    float& pairWeight(long long slot) { return m_translations[size_t(slot)]; }
    Vec3& pairNormal(long long pair) { return m_pairNormals[size_t(pair)]; }
    Vec3& edgeOffset(long long edge) { return m_offsets[size_t(m_groups.edgeBlock + edge)]; }
    Vec3& controlOffset(long long slot) { return m_offsets[size_t(m_groups.controlBlock + slot)]; }
    float& controlWeight(long long slot) { return m_translations[size_t(m_groups.controlBlock + slot)]; }
    /// The rigidity rows' J^T J per node (9x9 over A), or none at all.
    void setRigidity(std::vector<RigidityBlock> blocks) { m_rigidity = std::move(blocks); }

    /// out = J^T (J v).
    void multiplyNormal(const Vector& v, Vector& out, bool parallel) const;
    /// The 12x12 diagonal blocks of J^T J, one per node.
    void nodeBlocks(std::vector<Block>& blocks, bool parallel) const;

private:
    EmbeddedGraphDeformer::RowGroups m_groups;
    EnergyWeights m_weights;
    std::vector<Vec3> m_pairNormals;
    std::vector<Vec3> m_offsets;       ///< a per block
    std::vector<float> m_translations; ///< w per block
    std::vector<RigidityBlock> m_rigidity;
    mutable std::vector<float> m_reduced; ///< 3 per row group
};

} // namespace Iterative
} // namespace CartoonWelking
