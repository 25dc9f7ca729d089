#include "CartoonProblem.h"

#include "ParallelRange.h"

#include <Eigen/Cholesky>

#include <algorithm>
#include <map>
#include <tuple>

namespace CartoonWelking {
namespace Iterative {

using WelkingAcceleratedVersion::EmbeddedGraphLevel;

namespace {

inline long long aColumn(long long node, int row, int column)
{
    return 12 * node + 3 * column + row;
}

inline long long tColumn(long long node, int row)
{
    return 12 * node + 9 + row;
}

/// A control point's terms for one node, (corner weight times influence
/// weight, rest offset from the node), summed: the offset that multiplies
/// the node's A, and the factor of its t.
std::pair<Vec3, float> controlSum(const std::vector<std::pair<float, Vec3>>& terms)
{
    Vec3 a = Vec3::Zero();
    float w = 0.0f;
    for (const auto& [weight, offset] : terms) {
        a += weight * offset;
        w += weight;
    }
    return {a, w};
}

inline Eigen::Matrix3f matrixOf(const Eigen::VectorXf& x, long long node)
{
    return Eigen::Map<const Eigen::Matrix3f>(x.data() + 12 * node);
}

} // namespace

Problem::Problem(const EmbeddedGraphLevel& level, std::vector<Vec3> restVertices, std::vector<Vec3> nodePositions,
                 std::vector<ControlPoint> controls, const EnergyWeights& weights, float rigidity)
    : m_level(level), m_rest(std::move(restVertices)), m_nodes(std::move(nodePositions)),
      m_controls(std::move(controls)), m_weights(weights), m_rigidity(rigidity), m_product(m_blocks)
{
    for (size_t j = 0; j + 1 < level.neighbourOffsets.size(); ++j)
        for (long long e = level.neighbourOffsets[j]; e < level.neighbourOffsets[j + 1]; ++e)
            m_edges.emplace_back((long long)j, level.neighbours[size_t(e)]);
    m_influences.resize(m_rest.size());
    for (size_t v = 0; v < m_rest.size(); ++v) {
        for (long long i = level.influenceOffsets[v]; i < level.influenceOffsets[v + 1]; ++i)
            m_influences[v].emplace_back(level.influences[size_t(i)], level.weights[size_t(i)]);
        std::sort(m_influences[v].begin(), m_influences[v].end());
    }
    for (const ControlPoint& c : m_controls)
        m_controlTerms.push_back(pointTerms(c.corners, c.weights));
    m_paired.assign(m_rest.size(), 0);
    m_pairTargets.assign(m_rest.size(), Vec3::Zero());
    m_pairNormals.assign(m_rest.size(), Vec3::Zero());

    // The structure, once: every entry the visit can emit, straight into
    // compressed rows. No row emits a column twice; a few rows (an edge
    // towards a lower node, the rigidity's cross terms) emit theirs out of
    // order and are sorted with their entries' positions.
    const long long rows = 3 * (long long)m_edges.size() + 4 * (long long)m_rest.size() +
                           3 * (long long)m_controls.size() + 9 * (long long)m_nodes.size();
    const Vector x = identity();
    m_J.resize(int(rows), int(variableCount()));
    int* offsets = m_J.outerIndexPtr();
    visitJacobian(x, [&](long long row, long long, float) { ++offsets[row + 1]; });
    for (long long row = 0; row < rows; ++row)
        offsets[row + 1] += offsets[row];
    const int entries = offsets[rows];
    m_J.resizeNonZeros(entries);
    int* columns = m_J.innerIndexPtr();
    std::fill(m_J.valuePtr(), m_J.valuePtr() + entries, 0.0f);
    std::vector<int> emitted(static_cast<size_t>(entries));
    std::vector<int> next(offsets, offsets + rows);
    int entry = 0;
    visitJacobian(x, [&](long long row, long long column, float) {
        const int at = next[size_t(row)]++;
        columns[at] = int(column);
        emitted[size_t(at)] = entry++;
    });
    m_positions.resize(size_t(entries));
    std::vector<std::pair<int, int>> sorted;
    for (long long row = 0; row < rows; ++row) {
        const int begin = offsets[row], end = offsets[row + 1];
        if (!std::is_sorted(columns + begin, columns + end)) {
            sorted.clear();
            for (int at = begin; at < end; ++at)
                sorted.emplace_back(columns[at], emitted[size_t(at)]);
            std::sort(sorted.begin(), sorted.end());
            for (int at = begin; at < end; ++at)
                std::tie(columns[at], emitted[size_t(at)]) = sorted[size_t(at - begin)];
        }
        for (int at = begin; at < end; ++at)
            m_positions[size_t(emitted[size_t(at)])] = at;
    }
    m_blocks.setWeights(m_weights);
    setPairs({}, {}, {});
}

Eigen::VectorXf Problem::identity() const
{
    Vector x = Vector::Zero(variableCount());
    for (long long n = 0; n < (long long)m_nodes.size(); ++n)
        for (int i = 0; i < 3; ++i)
            x[aColumn(n, i, i)] = 1.0f;
    return x;
}

std::vector<std::pair<long long, std::vector<std::pair<float, Vec3>>>> Problem::pointTerms(const long long* corners,
                                                                                           const float* weights) const
{
    std::map<long long, std::vector<std::pair<float, Vec3>>> terms;
    for (int corner = 0; corner < 3; ++corner) {
        const long long v = corners[corner];
        for (const auto& [node, w] : m_influences[size_t(v)])
            terms[node].emplace_back(weights[corner] * w, m_rest[size_t(v)] - m_nodes[size_t(node)]);
    }
    return {terms.begin(), terms.end()};
}

void Problem::setPairs(const std::vector<long long>& sources, const std::vector<Vec3>& targets,
                       const std::vector<Vec3>& normals, std::vector<SurfacePair> surface)
{
    std::fill(m_paired.begin(), m_paired.end(), 0);
    for (size_t p = 0; p < sources.size(); ++p) {
        m_paired[size_t(sources[p])] = 1;
        m_pairTargets[size_t(sources[p])] = targets[p];
        m_pairNormals[size_t(sources[p])] = normals[p];
    }
    m_surface = std::move(surface);
    m_surfaceTerms.clear();
    for (const SurfacePair& pair : m_surface)
        m_surfaceTerms.push_back(pointTerms(pair.corners, pair.weights));
    fillBlocks();
}

double Problem::surfaceValue(const std::vector<Vec3>& deformed, Vector* gradient) const
{
    const float alpha = m_weights.pointToPoint, beta = m_weights.pointToPlane;
    double total = 0.0;
    for (size_t i = 0; i < m_surface.size(); ++i) {
        const SurfacePair& pair = m_surface[i];
        Vec3 point = Vec3::Zero();
        for (int corner = 0; corner < 3; ++corner)
            point += pair.weights[corner] * deformed[size_t(pair.corners[corner])];
        const Vec3 d = point - pair.target;
        const Vec3 r = alpha * d;
        const float plane = beta * d.dot(pair.normal);
        total += double(r.squaredNorm()) + double(plane) * double(plane);
        if (!gradient)
            continue;
        // The point moves with node k as A_k a + w t_k: J^T r over A_k's
        // entries is q a^T, over t_k it is w q.
        const Vec3 q = alpha * r + beta * plane * pair.normal;
        for (const auto& [k, list] : m_surfaceTerms[i]) {
            const auto [a, w] = controlSum(list);
            for (int row = 0; row < 3; ++row) {
                for (int c = 0; c < 3; ++c)
                    (*gradient)[aColumn(k, row, c)] += q[row] * a[c];
                (*gradient)[tColumn(k, row)] += w * q[row];
            }
        }
    }
    return 0.5 * total;
}

void Problem::fillBlocks()
{
    std::vector<long long> pairOffsets{0};
    std::vector<int> pairNodes;
    for (size_t v = 0; v < m_rest.size(); ++v)
        if (m_paired[v]) {
            for (const auto& influence : m_influences[v])
                pairNodes.push_back(int(influence.first));
            pairOffsets.push_back((long long)pairNodes.size());
        }
    for (const auto& terms : m_surfaceTerms) {
        for (const auto& term : terms)
            pairNodes.push_back(int(term.first));
        pairOffsets.push_back((long long)pairNodes.size());
    }
    std::vector<long long> controlOffsets{0};
    std::vector<int> controlNodes;
    for (const auto& terms : m_controlTerms) {
        for (const auto& term : terms)
            controlNodes.push_back(int(term.first));
        controlOffsets.push_back((long long)controlNodes.size());
    }
    m_blocks.setPattern((long long)m_nodes.size(), std::move(pairOffsets), std::move(pairNodes), m_edges,
                        std::move(controlOffsets), std::move(controlNodes));
    long long pair = 0, slot = 0;
    for (size_t v = 0; v < m_rest.size(); ++v)
        if (m_paired[v]) {
            m_blocks.pairNormal(pair++) = m_pairNormals[v];
            for (const auto& [k, w] : m_influences[v]) {
                m_blocks.pairOffset(slot) = w * (m_rest[v] - m_nodes[size_t(k)]);
                m_blocks.pairWeight(slot++) = w;
            }
        }
    for (size_t i = 0; i < m_surface.size(); ++i) {
        m_blocks.pairNormal(pair++) = m_surface[i].normal;
        for (const auto& term : m_surfaceTerms[i]) {
            const auto [a, w] = controlSum(term.second);
            m_blocks.pairOffset(slot) = a;
            m_blocks.pairWeight(slot++) = w;
        }
    }
    for (size_t e = 0; e < m_edges.size(); ++e)
        m_blocks.edgeOffset((long long)e) = m_nodes[size_t(m_edges[e].second)] - m_nodes[size_t(m_edges[e].first)];
    slot = 0;
    for (const auto& terms : m_controlTerms)
        for (const auto& term : terms) {
            const auto [a, w] = controlSum(term.second);
            m_blocks.controlOffset(slot) = a;
            m_blocks.controlWeight(slot++) = w;
        }
}

void Problem::fillRigidity(const Vector& x)
{
    if (m_rigidity == 0.0f && m_anchorWeights.empty()) {
        m_blocks.setRigidity({});
        return;
    }
    std::vector<AffineBlockJacobian::RigidityBlock> blocks(m_nodes.size());
    for (long long k = 0; k < (long long)m_nodes.size(); ++k) {
        const float hold = m_anchorWeights.empty() ? 0.0f : m_anchorWeights[size_t(k)];
        if (m_rigidity == 0.0f) {
            blocks[size_t(k)] = hold * AffineBlockJacobian::RigidityBlock::Identity();
            continue;
        }
        // The nine rows' derivatives by A's entries (column-major, as the
        // unknowns), as in visitJacobian.
        Eigen::Matrix<float, 9, 9> J = Eigen::Matrix<float, 9, 9>::Zero();
        const Eigen::Matrix3f A = matrixOf(x, k);
        for (int p = 0; p < 3; ++p)
            for (int q = 0; q < 3; ++q)
                for (int i = 0; i < 3; ++i) {
                    if (p == q) {
                        J(3 * p + q, 3 * p + i) += m_rigidity * 2.0f * A(i, p);
                    } else {
                        J(3 * p + q, 3 * p + i) += m_rigidity * A(i, q);
                        J(3 * p + q, 3 * q + i) += m_rigidity * A(i, p);
                    }
                }
        blocks[size_t(k)] = J.transpose() * J;
        blocks[size_t(k)].diagonal().array() += hold;
    }
    m_blocks.setRigidity(std::move(blocks));
}

void Problem::setConjugateGradient(long long iterations, double tolerance)
{
    m_cgIterations = iterations;
    m_cgTolerance = tolerance;
}

template <typename Emit> void Problem::visitJacobian(const Vector& x, Emit emit) const
{
    long long row = 0;
    const float gamma = m_weights.smoothness;
    for (const auto& [j, k] : m_edges) {
        const Vec3 a = m_nodes[size_t(k)] - m_nodes[size_t(j)];
        for (int i = 0; i < 3; ++i, ++row) {
            for (int c = 0; c < 3; ++c)
                emit(row, aColumn(j, i, c), gamma * a[c]);
            emit(row, tColumn(j, i), gamma);
            emit(row, tColumn(k, i), -gamma);
        }
    }
    const float alpha = m_weights.pointToPoint, beta = m_weights.pointToPlane;
    for (size_t v = 0; v < m_rest.size(); ++v, row += 4) {
        const float on = m_paired[v] ? 1.0f : 0.0f;
        const Vec3& n = m_pairNormals[v];
        for (const auto& [k, w] : m_influences[v]) {
            const Vec3 a = m_rest[v] - m_nodes[size_t(k)];
            for (int i = 0; i < 3; ++i) {
                for (int c = 0; c < 3; ++c)
                    emit(row + i, aColumn(k, i, c), on * alpha * w * a[c]);
                emit(row + i, tColumn(k, i), on * alpha * w);
            }
            for (int c = 0; c < 3; ++c)
                for (int i = 0; i < 3; ++i)
                    emit(row + 3, aColumn(k, i, c), on * beta * w * n[i] * a[c]);
            for (int i = 0; i < 3; ++i)
                emit(row + 3, tColumn(k, i), on * beta * w * n[i]);
        }
    }
    const float kappa = m_weights.controlPoints;
    for (const auto& terms : m_controlTerms) {
        for (const auto& [k, list] : terms) {
            const auto [a, w] = controlSum(list);
            for (int i = 0; i < 3; ++i) {
                for (int c = 0; c < 3; ++c)
                    emit(row + i, aColumn(k, i, c), kappa * a[c]);
                emit(row + i, tColumn(k, i), kappa * w);
            }
        }
        row += 3;
    }
    const float rho = m_rigidity;
    for (long long k = 0; k < (long long)m_nodes.size(); ++k) {
        const Eigen::Matrix3f A = matrixOf(x, k);
        for (int p = 0; p < 3; ++p)
            for (int q = 0; q < 3; ++q, ++row)
                for (int i = 0; i < 3; ++i) {
                    // d(c_p . c_q) / d c_p = c_q and / d c_q = c_p.
                    if (p == q) {
                        emit(row, aColumn(k, i, p), rho * 2.0f * A(i, p));
                    } else {
                        emit(row, aColumn(k, i, p), rho * A(i, q));
                        emit(row, aColumn(k, i, q), rho * A(i, p));
                    }
                }
    }
}

void Problem::computeResiduals(const Vector& x, Vector& r) const
{
    r.resize(m_J.rows() > 0 ? m_J.rows() : 0);
    long long row = 0;
    for (const auto& [j, k] : m_edges) {
        const Vec3 value = matrixOf(x, j) * (m_nodes[size_t(k)] - m_nodes[size_t(j)]) + m_nodes[size_t(j)] +
                           x.segment<3>(tColumn(j, 0)) - m_nodes[size_t(k)] - x.segment<3>(tColumn(k, 0));
        r.segment<3>(row) = m_weights.smoothness * value;
        row += 3;
    }
    std::vector<Vec3> deformed;
    currentVertices(x, deformed);
    for (size_t v = 0; v < m_rest.size(); ++v, row += 4) {
        if (!m_paired[v]) {
            r.segment<4>(row).setZero();
            continue;
        }
        const Vec3 d = deformed[v] - m_pairTargets[v];
        r.segment<3>(row) = m_weights.pointToPoint * d;
        r[row + 3] = m_weights.pointToPlane * d.dot(m_pairNormals[v]);
    }
    for (const ControlPoint& c : m_controls) {
        Vec3 point = Vec3::Zero();
        for (int corner = 0; corner < 3; ++corner)
            point += c.weights[corner] * deformed[size_t(c.corners[corner])];
        r.segment<3>(row) = m_weights.controlPoints * (point - c.target);
        row += 3;
    }
    for (long long k = 0; k < (long long)m_nodes.size(); ++k) {
        const Eigen::Matrix3f gram = matrixOf(x, k).transpose() * matrixOf(x, k) - Eigen::Matrix3f::Identity();
        for (int p = 0; p < 3; ++p)
            for (int q = 0; q < 3; ++q)
                r[row++] = m_rigidity * gram(p, q);
    }
}

void Problem::computeJacobian(const Vector& x)
{
    float* values = m_J.valuePtr();
    std::fill(values, values + m_J.nonZeros(), 0.0f);
    size_t entry = 0;
    visitJacobian(x, [&](long long, long long, float value) { values[m_positions[entry++]] += value; });
}

void Problem::evaluateValue(const Vector& x, float& value, WNewton::Timings*)
{
    computeResiduals(x, m_r);
    double total = 0.5 * double(m_r.squaredNorm());
    if (!m_surface.empty()) {
        std::vector<Vec3> deformed;
        currentVertices(x, deformed);
        total += surfaceValue(deformed, nullptr);
    }
    total += anchorValue(x, nullptr);
    value = float(total);
}

void Problem::setAnchor(const Vector& x, float strength)
{
    m_anchorWeights.clear();
    if (strength <= 0.0f)
        return;
    m_anchor = x;
    std::vector<AffineBlockJacobian::Block> blocks;
    m_blocks.setRigidity({});
    m_blocks.nodeBlocks(blocks, true);
    m_anchorWeights.resize(m_nodes.size());
    double sum = 0.0;
    for (size_t k = 0; k < m_nodes.size(); ++k) {
        m_anchorWeights[k] = strength * blocks[k].topLeftCorner<9, 9>().trace() / 9.0f;
        sum += double(m_anchorWeights[k]);
    }
    // A node that no pair and no edge reaches still gets a hold, a
    // thousandth of the mean one.
    const float least = float(1e-3 * sum / double(m_nodes.size()));
    for (float& h : m_anchorWeights)
        h = std::max(h, least > 0.0f ? least : strength);
}

double Problem::anchorValue(const Vector& x, Vector* gradient) const
{
    double total = 0.0;
    for (size_t k = 0; k < m_anchorWeights.size(); ++k) {
        const auto d = x.segment<9>(12 * (long long)k) - m_anchor.segment<9>(12 * (long long)k);
        total += double(m_anchorWeights[k]) * double(d.squaredNorm());
        if (gradient)
            gradient->segment<9>(12 * (long long)k) += m_anchorWeights[k] * d;
    }
    return 0.5 * total;
}

void Problem::evaluateAll(const Vector& x, float& value, Vector& gradient, LinearSystemsSolvers::ProductHolder<float>&,
                          WNewton::Timings*)
{
    computeResiduals(x, m_r);
    double total = 0.5 * double(m_r.squaredNorm());
    computeJacobian(x);
    gradient = m_J.transpose() * m_r;
    if (!m_surface.empty()) {
        std::vector<Vec3> deformed;
        currentVertices(x, deformed);
        total += surfaceValue(deformed, &gradient);
    }
    total += anchorValue(x, &gradient);
    value = float(total);
    fillRigidity(x);
    m_preconditioner.collect(m_blocks);
}

void Problem::currentVertices(const Vector& x, std::vector<Vec3>& out) const
{
    out.resize(m_rest.size());
    for (size_t v = 0; v < m_rest.size(); ++v) {
        Vec3 p = Vec3::Zero();
        for (const auto& [k, w] : m_influences[v])
            p += w * (matrixOf(x, k) * (m_rest[v] - m_nodes[size_t(k)]) + m_nodes[size_t(k)] +
                      x.segment<3>(tColumn(k, 0)));
        out[v] = p;
    }
}

void Problem::currentNodes(const Vector& x, std::vector<Vec3>& out) const
{
    out.resize(m_nodes.size());
    for (size_t k = 0; k < m_nodes.size(); ++k)
        out[k] = m_nodes[k] + x.segment<3>(tColumn((long long)k, 0));
}

void Problem::Product::multiply(const Vector& v, Vector& y) const
{
    m_J.multiplyNormal(v, y, true);
    y += float(m_damping) * v;
}

void Problem::BlockDiagonalPreconditioner::refresh(double damping)
{
    m_inverse.resize(m_blocks.size());
    EmbeddedGraphDeformer::forRange((long long)m_blocks.size(), true, [&](long long begin, long long end) {
        EmbeddedGraphDeformer::invertDampedBlocks(m_blocks, float(damping), m_inverse, begin, end);
    }, 64);
}

void Problem::BlockDiagonalPreconditioner::apply(const Vector& in, Vector& out) const
{
    EmbeddedGraphDeformer::applyNodeBlocks(m_inverse, in, out, true);
}

} // namespace Iterative
} // namespace CartoonWelking
