#include "NodeBlockJacobian.h"

#include "Float4.h"
#include "ParallelRange.h"

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

namespace {

// The products' inner steps on plain floats or `Float4`: GCC leaves
// Eigen's small fixed-size products as calls, which cost more than the
// arithmetic. Matrices are Eigen's column-major 3x3.

/// s += k u u^T for a symmetric 3x3 kept as its six upper entries (row by row).
inline void addOuter(float* s, float k, const float* u)
{
    s[0] += k * u[0] * u[0];
    s[1] += k * u[0] * u[1];
    s[2] += k * u[0] * u[2];
    s[3] += k * u[1] * u[1];
    s[4] += k * u[1] * u[2];
    s[5] += k * u[2] * u[2];
}

} // namespace

void NodeBlockJacobian::setPattern(long long nodes, std::vector<long long> pairOffsets, std::vector<int> pairNodes,
                                   const std::vector<std::pair<long long, long long>>& edges,
                                   const std::vector<std::vector<long long>>& controlNodes)
{
    std::vector<long long> controlOffsets{0};
    std::vector<int> controlList;
    for (const auto& list : controlNodes) {
        for (long long node : list)
            controlList.push_back(int(node));
        controlOffsets.push_back((long long)controlList.size());
    }
    m_groups.set(nodes, std::move(pairOffsets), std::move(pairNodes), edges, std::move(controlOffsets),
                 std::move(controlList));
    m_pairNormals.resize(size_t(pairs()));
    m_rates.resize(size_t(nodes), Matrix3::Identity());
    m_arms.resize(size_t(m_groups.blocks()));
    for (long long b = m_groups.edgeBlock; b < m_groups.controlBlock; ++b)
        m_arms[size_t(b)].w = 1.0f;
    m_reduced.assign(4 * size_t(m_groups.groups()), 0.0f);
    m_rated.assign(8 * size_t(nodes), 0.0f);
}

NodeBlockJacobian::Matrix3 NodeBlockJacobian::block(long long index, long long node) const
{
    return crossMatrix(m_arms[size_t(index)].q) * m_rates[size_t(node)];
}

void NodeBlockJacobian::rateNodes(const Vector& v, bool parallel) const
{
    float* y = m_rated.data();
    const float* x = v.data();
    forRange(m_groups.nodes, parallel, [&](long long begin, long long end) {
        for (long long k = begin; k < end; ++k) {
            const float* W = m_rates[size_t(k)].data();
            const float* s = x + 6 * k;
            for (int r = 0; r < 3; ++r) {
                y[8 * k + r] = W[r] * s[0] + W[r + 3] * s[1] + W[r + 6] * s[2];
                y[8 * k + 4 + r] = s[3 + r];
            }
        }
    }, 2048);
}

void NodeBlockJacobian::gather(Vector& out, bool parallel) const
{
    out.resize(6 * m_groups.nodes);
    const float* reduced = m_reduced.data();
    const NodeIncidence& in = m_groups.incidence;
    forRange(m_groups.nodes, parallel, [&](long long begin, long long end) {
        for (long long k = begin; k < end; ++k) {
            // a = sum g x q, t = sum w g - the far ends' g
            Float4 sumA = Float4::zero(), sumT = Float4::zero();
            const long long split = in.split[size_t(k)];
            for (long long e = in.offsets[size_t(k)]; e < split; ++e) {
                const Float4 q = Float4::load(m_arms[size_t(in.block[size_t(e)])].q.data());
                const Float4 g = Float4::load(reduced + 4 * (long long)in.group[size_t(e)]);
                sumA = sumA + cross(g, q);
                sumT = sumT + q.wwww() * g;
            }
            for (long long e = split; e < in.offsets[size_t(k) + 1]; ++e)
                sumT = sumT - Float4::load(reduced + 4 * (long long)in.group[size_t(e)]);
            alignas(16) float a[4], t[4];
            sumA.store(a);
            sumT.store(t);
            const float* W = m_rates[size_t(k)].data();
            float* o = out.data() + 6 * k;
            for (int r = 0; r < 3; ++r) {
                o[r] = W[3 * r] * a[0] + W[3 * r + 1] * a[1] + W[3 * r + 2] * a[2];
                o[3 + r] = t[r];
            }
        }
    }, in.grain(m_groups.nodes, 4096));
}

void NodeBlockJacobian::multiplyNormal(const Vector& v, Vector& out, bool parallel) const
{
    rateNodes(v, parallel);
    // Per node, y = W ds at 8 k and the translation t at 8 k + 4.
    const float* y = m_rated.data();
    float* reduced = m_reduced.data();
    // d += q x y + w t
    reducePairsAndControls<Float4>(m_groups, m_pairNormals, m_weights, reduced, 4, parallel,
                                   [&](long long block, long long k, Float4& d) {
                                       const Float4 q = Float4::load(m_arms[size_t(block)].q.data());
                                       d = d + (cross(q, Float4::load(y + 8 * k)) +
                                                q.wwww() * Float4::load(y + 8 * k + 4));
                                   });
    const Float4 g2 = Float4::splat(m_weights.smoothness * m_weights.smoothness);
    const long long edgeGroup = pairs();
    forRange(edges(), parallel, [&](long long begin, long long end) {
        for (long long e = begin; e < end; ++e) {
            const long long j = m_groups.edgeNodes[size_t(2 * e)], k = m_groups.edgeNodes[size_t(2 * e + 1)];
            const Float4 q = Float4::load(m_arms[size_t(m_groups.edgeBlock + e)].q.data());
            // g2 (tj - tk + q x yj)
            const Float4 d = (Float4::load(y + 8 * j + 4) - Float4::load(y + 8 * k + 4)) +
                             cross(q, Float4::load(y + 8 * j));
            (g2 * d).store(reduced + 4 * (edgeGroup + e));
        }
    }, 1024);
    gather(out, parallel);
}

void NodeBlockJacobian::multiplyTransposed(const Vector& u, Vector& out, bool parallel) const
{
    // Each group's rows of u, times their row weights, reduced to one
    // 3-vector as in the normal product.
    float* reduced = m_reduced.data();
    const float alpha = m_weights.pointToPoint, beta = m_weights.pointToPlane;
    forRange(pairs(), parallel, [&](long long begin, long long end) {
        for (long long p = begin; p < end; ++p) {
            const float* n = m_pairNormals[size_t(p)].data();
            const float plane = beta * u[4 * p + 3];
            for (int r = 0; r < 3; ++r)
                reduced[4 * p + r] = alpha * u[4 * p + r] + plane * n[r];
        }
    }, 1024);
    const long long groups = pairs() + edges() + controls();
    const float gamma = m_weights.smoothness, kappa = m_weights.controlPoints;
    for (long long g = pairs(); g < groups; ++g) {
        const float weight = g < pairs() + edges() ? gamma : kappa;
        for (int r = 0; r < 3; ++r)
            reduced[4 * g + r] = weight * u[pairs() + 3 * g + r];
    }
    gather(out, parallel);
}

void NodeBlockJacobian::multiply(const Vector& v, Vector& out, bool parallel) const
{
    out.resize(rows());
    const long long edgeRow = 4 * pairs(), controlRow = edgeRow + 3 * edges();
    forRange(pairs(), parallel, [&](long long begin, long long end) {
        for (long long p = begin; p < end; ++p) {
            Vec3 d = Vec3::Zero();
            for (long long i = m_groups.pairOffsets[size_t(p)]; i < m_groups.pairOffsets[size_t(p) + 1]; ++i) {
                const long long k = m_groups.pairNodes[size_t(i)];
                d += pairBlock(i) * v.segment<3>(6 * k) + m_arms[size_t(i)].w * v.segment<3>(6 * k + 3);
            }
            out.segment<3>(4 * p) = m_weights.pointToPoint * d;
            out[4 * p + 3] = m_weights.pointToPlane * m_pairNormals[size_t(p)].dot(d);
        }
    });
    forRange(edges(), parallel, [&](long long begin, long long end) {
        for (long long e = begin; e < end; ++e) {
            const long long j = m_groups.edgeNodes[size_t(2 * e)], k = m_groups.edgeNodes[size_t(2 * e + 1)];
            out.segment<3>(edgeRow + 3 * e) =
                m_weights.smoothness *
                (edgeBlock(e) * v.segment<3>(6 * j) + v.segment<3>(6 * j + 3) - v.segment<3>(6 * k + 3));
        }
    });
    for (long long c = 0; c < controls(); ++c) {
        Vec3 d = Vec3::Zero();
        for (long long i = m_groups.controlOffsets[size_t(c)]; i < m_groups.controlOffsets[size_t(c) + 1]; ++i) {
            const long long k = m_groups.controlNodes[size_t(i)];
            d += controlBlock(i) * v.segment<3>(6 * k) +
                 m_arms[size_t(m_groups.controlBlock + i)].w * v.segment<3>(6 * k + 3);
        }
        out.segment<3>(controlRow + 3 * c) = m_weights.controlPoints * d;
    }
}

void NodeBlockJacobian::nodeBlocks(std::vector<Block>& blocks, bool parallel) const
{
    const float a2 = m_weights.pointToPoint * m_weights.pointToPoint;
    const float b2 = m_weights.pointToPlane * m_weights.pointToPlane;
    const float g2 = m_weights.smoothness * m_weights.smoothness;
    const float k2 = m_weights.controlPoints * m_weights.controlPoints;
    const long long edgeGroup = pairs(), controlGroup = edgeGroup + edges();
    blocks.resize(size_t(m_groups.nodes));
    forRange(m_groups.nodes, parallel, [&](long long begin, long long end) {
        for (long long k = begin; k < end; ++k) {
            // [M^T S M, w M^T S; w S M, w^2 S] for rows that reach the node
            // through M = Q W (Q = [q]x) and w and are weighted by S (3x3).
            // S is a multiple c of I, plus b2 n n^T for a pair: M^T S M =
            // W^T (c Q^T Q + b2 m m^T) W and S M = (c Q + b2 n m^T) W with
            // m = Q^T n = n x q; Q^T Q = |q|^2 I - q q^T. The node's W is
            // applied once, after the sums.
            // Plain floats, the symmetric sums by their upper triangles
            // (xx, xy, xz, yy, yz, zz).
            float qsq[6] = {}, ssym[6] = {}, sq[9] = {}; // sq column-major
            float cq2 = 0.0f, wwc = 0.0f;
            const long long split = m_groups.incidence.split[size_t(k)];
            for (long long e = m_groups.incidence.offsets[size_t(k)]; e < split; ++e) {
                const long long group = m_groups.incidence.group[size_t(e)];
                const int block = m_groups.incidence.block[size_t(e)];
                const bool pair = group < edgeGroup;
                const float c = pair ? a2 : (group < controlGroup ? g2 : k2);
                const float w = m_arms[size_t(block)].w;
                const float* q = m_arms[size_t(block)].q.data();
                // c (|q|^2 I - q q^T), c w [q]x
                cq2 += c * (q[0] * q[0] + q[1] * q[1] + q[2] * q[2]);
                addOuter(qsq, -c, q);
                const float wc = w * c;
                wwc += w * wc;
                sq[1] += wc * q[2];
                sq[2] -= wc * q[1];
                sq[3] -= wc * q[2];
                sq[5] += wc * q[0];
                sq[6] += wc * q[1];
                sq[7] -= wc * q[0];
                if (pair) {
                    // b2 m m^T, w b2 n m^T, w^2 b2 n n^T with m = n x q
                    const float* n = m_pairNormals[size_t(group)].data();
                    const float m[3] = {n[1] * q[2] - n[2] * q[1], n[2] * q[0] - n[0] * q[2], n[0] * q[1] - n[1] * q[0]};
                    addOuter(qsq, b2, m);
                    const float wb = w * b2, wwb = w * wb;
                    for (int col = 0; col < 3; ++col)
                        for (int row = 0; row < 3; ++row)
                            sq[3 * col + row] += wb * n[row] * m[col];
                    addOuter(ssym, wwb, n);
                }
            }
            // The far ends of edges: the translation only, with -1.
            wwc += g2 * float(m_groups.incidence.offsets[size_t(k) + 1] - split);
            const auto symmetric = [](const float* u, float diagonal) {
                Matrix3 M;
                M << u[0] + diagonal, u[1], u[2], u[1], u[3] + diagonal, u[4], u[2], u[4], u[5] + diagonal;
                return M;
            };
            const Matrix3 QSQ = symmetric(qsq, cq2), wwS = symmetric(ssym, wwc);
            const Matrix3 SQ = Eigen::Map<const Matrix3>(sq);
            const Matrix3& W = m_rates[size_t(k)];
            const Matrix3 MSM = W.transpose() * QSQ * W;
            const Matrix3 SM = SQ * W;
            Block& block = blocks[size_t(k)];
            block.topLeftCorner<3, 3>() = MSM;
            block.topRightCorner<3, 3>() = SM.transpose();
            block.bottomLeftCorner<3, 3>() = SM;
            block.bottomRightCorner<3, 3>() = wwS;
        }
    }, m_groups.incidence.grain(m_groups.nodes, 1024));
}

Eigen::MatrixXd NodeBlockJacobian::dense() const
{
    Eigen::MatrixXd J = Eigen::MatrixXd::Zero(rows(), columns());
    const auto put = [&](long long row, long long k, const Matrix3& D, double translation, double scale) {
        J.block<3, 3>(row, 6 * k) += scale * D.cast<double>();
        J.block<3, 3>(row, 6 * k + 3).diagonal().array() += scale * translation;
    };
    for (long long p = 0; p < pairs(); ++p) {
        Eigen::MatrixXd d = Eigen::MatrixXd::Zero(3, columns());
        for (long long i = m_groups.pairOffsets[size_t(p)]; i < m_groups.pairOffsets[size_t(p) + 1]; ++i) {
            const long long k = m_groups.pairNodes[size_t(i)];
            d.block<3, 3>(0, 6 * k) += pairBlock(i).cast<double>();
            d.block<3, 3>(0, 6 * k + 3).diagonal().array() += double(m_arms[size_t(i)].w);
        }
        J.middleRows(4 * p, 3) = double(m_weights.pointToPoint) * d;
        J.row(4 * p + 3) = double(m_weights.pointToPlane) * m_pairNormals[size_t(p)].cast<double>().transpose() * d;
    }
    const long long edgeRow = 4 * pairs(), controlRow = edgeRow + 3 * edges();
    for (long long e = 0; e < edges(); ++e) {
        const long long j = m_groups.edgeNodes[size_t(2 * e)], k = m_groups.edgeNodes[size_t(2 * e + 1)];
        put(edgeRow + 3 * e, j, edgeBlock(e), 1.0, m_weights.smoothness);
        J.block<3, 3>(edgeRow + 3 * e, 6 * k + 3).diagonal().array() -= double(m_weights.smoothness);
    }
    for (long long c = 0; c < controls(); ++c)
        for (long long i = m_groups.controlOffsets[size_t(c)]; i < m_groups.controlOffsets[size_t(c) + 1]; ++i)
            put(controlRow + 3 * c, m_groups.controlNodes[size_t(i)], controlBlock(i),
                m_arms[size_t(m_groups.controlBlock + i)].w, m_weights.controlPoints);
    return J;
}

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
