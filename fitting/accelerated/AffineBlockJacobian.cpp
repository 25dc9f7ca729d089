#include "AffineBlockJacobian.h"

#include "ParallelRange.h"

namespace CartoonWelking {
namespace Iterative {

using EmbeddedGraphDeformer::forRange;

namespace {

/// d += sum_c a_c x[3c .. 3c + 2] + w x[9 .. 11] for one node's unknowns x.
inline void addMoved(const float* a, float w, const float* x, float* d)
{
    for (int r = 0; r < 3; ++r)
        d[r] += a[0] * x[r] + a[1] * x[3 + r] + a[2] * x[6 + r] + w * x[9 + r];
}

} // namespace

void AffineBlockJacobian::setPattern(long long nodes, std::vector<long long> pairOffsets, std::vector<int> pairNodes,
                                     const std::vector<std::pair<long long, long long>>& edges,
                                     std::vector<long long> controlOffsets, std::vector<int> controlNodes)
{
    m_groups.set(nodes, std::move(pairOffsets), std::move(pairNodes), edges, std::move(controlOffsets),
                 std::move(controlNodes));
    m_pairNormals.resize(size_t(pairs()));
    m_offsets.resize(size_t(m_groups.blocks()));
    m_translations.resize(size_t(m_groups.blocks()));
    std::fill(m_translations.begin() + m_groups.edgeBlock, m_translations.begin() + m_groups.controlBlock, 1.0f);
    m_reduced.resize(3 * size_t(m_groups.groups()));
}

void AffineBlockJacobian::multiplyNormal(const Vector& v, Vector& out, bool parallel) const
{
    const float* x = v.data();
    float* reduced = m_reduced.data();
    // First pass: every group's rows of J v, weighted once more by their
    // row weight, as one 3-vector.
    EmbeddedGraphDeformer::reducePairsAndControls<EmbeddedGraphDeformer::PlainSum>(
        m_groups, m_pairNormals, m_weights, reduced, 3, parallel,
        [&](long long block, long long k, EmbeddedGraphDeformer::PlainSum& d) {
            addMoved(m_offsets[size_t(block)].data(), m_translations[size_t(block)], x + 12 * k, d.v);
        });
    const float g2 = m_weights.smoothness * m_weights.smoothness;
    const long long edgeGroup = pairs();
    forRange(edges(), parallel, [&](long long begin, long long end) {
        for (long long e = begin; e < end; ++e) {
            const long long j = m_groups.edgeNodes[size_t(2 * e)], k = m_groups.edgeNodes[size_t(2 * e + 1)];
            float d[3] = {0.0f, 0.0f, 0.0f};
            addMoved(m_offsets[size_t(m_groups.edgeBlock + e)].data(), 1.0f, x + 12 * j, d);
            for (int r = 0; r < 3; ++r)
                reduced[3 * (edgeGroup + e) + r] = g2 * (d[r] - x[12 * k + 9 + r]);
        }
    }, 1024);

    // Second pass: each node gathers a_c g and w g from its groups.
    out.resize(12 * m_groups.nodes);
    const EmbeddedGraphDeformer::NodeIncidence& in = m_groups.incidence;
    forRange(m_groups.nodes, parallel, [&](long long begin, long long end) {
        for (long long k = begin; k < end; ++k) {
            float sum[12] = {};
            for (long long e = in.offsets[size_t(k)]; e < in.split[size_t(k)]; ++e) {
                const float* g = reduced + 3 * (long long)in.group[size_t(e)];
                const float* a = m_offsets[size_t(in.block[size_t(e)])].data();
                const float w = m_translations[size_t(in.block[size_t(e)])];
                for (int r = 0; r < 3; ++r) {
                    sum[r] += a[0] * g[r];
                    sum[3 + r] += a[1] * g[r];
                    sum[6 + r] += a[2] * g[r];
                    sum[9 + r] += w * g[r];
                }
            }
            for (long long e = in.split[size_t(k)]; e < in.offsets[size_t(k) + 1]; ++e) {
                const float* g = reduced + 3 * (long long)in.group[size_t(e)];
                for (int r = 0; r < 3; ++r)
                    sum[9 + r] -= g[r];
            }
            float* o = out.data() + 12 * k;
            for (int i = 0; i < 12; ++i)
                o[i] = sum[i];
            if (!m_rigidity.empty())
                Eigen::Map<Eigen::Matrix<float, 9, 1>>(o) +=
                    m_rigidity[size_t(k)] * Eigen::Map<const Eigen::Matrix<float, 9, 1>>(x + 12 * k);
        }
    }, in.grain(m_groups.nodes, 4096));
}

void AffineBlockJacobian::nodeBlocks(std::vector<Block>& blocks, bool parallel) const
{
    // A group reaching a node through (a, w) with row weights S adds
    // kron(u u^T, S) for u = (a, w): the unknowns are three columns of A
    // and t, three values each.
    const float a2 = m_weights.pointToPoint * m_weights.pointToPoint;
    const float b2 = m_weights.pointToPlane * m_weights.pointToPlane;
    const float g2 = m_weights.smoothness * m_weights.smoothness;
    const float k2 = m_weights.controlPoints * m_weights.controlPoints;
    const long long edgeGroup = pairs(), controlGroup = edgeGroup + edges();
    const EmbeddedGraphDeformer::NodeIncidence& in = m_groups.incidence;
    blocks.resize(size_t(m_groups.nodes));
    forRange(m_groups.nodes, parallel, [&](long long begin, long long end) {
        for (long long k = begin; k < end; ++k) {
            Block& block = blocks[size_t(k)];
            block.setZero();
            for (long long e = in.offsets[size_t(k)]; e < in.offsets[size_t(k) + 1]; ++e) {
                const long long group = in.group[size_t(e)];
                const int b = in.block[size_t(e)];
                Eigen::Matrix3f S;
                if (group < edgeGroup) {
                    const Vec3& n = m_pairNormals[size_t(group)];
                    S = a2 * Eigen::Matrix3f::Identity() + b2 * n * n.transpose();
                } else {
                    S = (group < controlGroup ? g2 : k2) * Eigen::Matrix3f::Identity();
                }
                Eigen::Vector4f u(0.0f, 0.0f, 0.0f, -1.0f);
                if (b >= 0)
                    u << m_offsets[size_t(b)], m_translations[size_t(b)];
                // The blocks on and below the diagonal; the upper ones are
                // their mirror (the factorisations read the lower triangle).
                for (int p = 0; p < 4; ++p)
                    for (int q = 0; q <= p; ++q)
                        block.block<3, 3>(3 * p, 3 * q) += (u[p] * u[q]) * S;
            }
            for (int p = 0; p < 4; ++p)
                for (int q = p + 1; q < 4; ++q)
                    block.block<3, 3>(3 * p, 3 * q) = block.block<3, 3>(3 * q, 3 * p).transpose();
            if (!m_rigidity.empty())
                block.topLeftCorner<9, 9>() += m_rigidity[size_t(k)];
        }
    }, in.grain(m_groups.nodes, 1024));
}

} // namespace Iterative
} // namespace CartoonWelking
