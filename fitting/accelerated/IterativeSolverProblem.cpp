#include "IterativeSolverProblem.h"

#include <Eigen/Cholesky>

#include "ParallelRange.h"

#include <algorithm>
#include <chrono>

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

using WelkingAcceleratedVersion::EmbeddedGraphLevel;

Problem::Problem(const EmbeddedGraphLevel& level, std::vector<Vec3> restVertices, std::vector<Vec3> nodePositions,
                 std::vector<ControlPoint> controls, const EnergyWeights& weights, bool parallel)
    : m_level(level), m_rest(std::move(restVertices)), m_nodes(std::move(nodePositions)),
      m_controls(std::move(controls)), m_weights(weights), m_parallel(parallel), m_product(m_jacobian, m_parallel, m_counters)
{
    for (size_t j = 0; j + 1 < level.neighbourOffsets.size(); ++j)
        for (long long e = level.neighbourOffsets[j]; e < level.neighbourOffsets[j + 1]; ++e)
            m_edges.emplace_back((long long)j, level.neighbours[size_t(e)]);
    for (const ControlPoint& c : m_controls) {
        std::vector<long long> nodes;
        for (long long corner : c.corners)
            for (long long i = level.influenceOffsets[size_t(corner)]; i < level.influenceOffsets[size_t(corner) + 1]; ++i)
                nodes.push_back(level.influences[size_t(i)]);
        std::sort(nodes.begin(), nodes.end());
        nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
        m_controlNodes.push_back(std::move(nodes));
    }
    m_jacobian.setWeights(m_weights);
    setPairs({}, {}, {});
}

void Problem::reserveSparseForm()
{
    // Every vertex matched is the largest pattern of the level. Reserved
    // at the form's first use only: the products never read it, and on a
    // small fit these lists (tens of megabytes, never written) spread the
    // heap over fresh pages that each cost a fault and a clearing.
    const long long vertices = m_level.influenceOffsets.empty() ? 0 : (long long)m_level.influenceOffsets.size() - 1;
    const long long rows = 4 * vertices + 3 * (long long)(m_edges.size() + m_controlNodes.size());
    long long entries = 15 * (long long)m_edges.size() + 18 * (long long)m_level.influences.size();
    for (const auto& nodes : m_controlNodes)
        entries += 12 * (long long)nodes.size();
    m_patternOffsets.reserve(size_t(rows) + 1);
    m_patternColumns.reserve(size_t(entries));
    m_storage.reserve(rows, entries, variableCount());
    m_sparseFormReserved = true;
}

void Problem::setConjugateGradient(long long iterations, double tolerance)
{
    m_cgIterations = iterations;
    m_cgTolerance = tolerance;
}

void Problem::setDirectSolve(bool direct)
{
    if (direct == m_direct)
        return;
    m_direct = direct;
    if (!direct)
        return;
    if (!m_choleskyPattern)
        setCholeskyPattern();
    if (!m_sparsePatternCurrent)
        setSparsePattern();
    setCholeskyRows();
}

void Problem::setCholeskyPattern()
{
    std::vector<long long> offsets{0}, nodes;
    const size_t vertices = m_level.influenceOffsets.empty() ? 0 : m_level.influenceOffsets.size() - 1;
    for (size_t v = 0; v < vertices; ++v) {
        for (long long i = m_level.influenceOffsets[v]; i < m_level.influenceOffsets[v + 1]; ++i)
            nodes.push_back(m_level.influences[size_t(i)]);
        offsets.push_back((long long)nodes.size());
    }
    for (const auto& edge : m_edges) {
        nodes.push_back(edge.first);
        nodes.push_back(edge.second);
        offsets.push_back((long long)nodes.size());
    }
    for (const auto& controlNodes : m_controlNodes) {
        nodes.insert(nodes.end(), controlNodes.begin(), controlNodes.end());
        offsets.push_back((long long)nodes.size());
    }
    m_cholesky.setPattern((long long)m_nodes.size(), offsets, nodes);
    m_cholesky.setJacobian(&m_storage, m_parallel);
    m_cholesky.setRenewAfter(10);
    m_choleskyPattern = true;
}

void Problem::setCholeskyRows()
{
    const long long vertices = m_level.influenceOffsets.empty() ? 0 : (long long)m_level.influenceOffsets.size() - 1;
    std::vector<long long> rows;
    rows.reserve(size_t(m_storage.rows()));
    for (long long v : m_sources)
        rows.insert(rows.end(), 4, v);
    for (long long e = 0; e < (long long)m_edges.size(); ++e)
        rows.insert(rows.end(), 3, vertices + e);
    for (long long c = 0; c < (long long)m_controlNodes.size(); ++c)
        rows.insert(rows.end(), 3, vertices + (long long)m_edges.size() + c);
    m_cholesky.setRowSequences(std::move(rows));
}

void Problem::orderPairsByNode()
{
    // Pairs in the order of their nearest nodes: the products read each
    // node's pairs right after its neighbours', so pairs of nearby nodes
    // should lie together. A counting sort, stable, linear in the pairs.
    const long long nodes = (long long)m_nodes.size();
    const auto nearest = [&](long long v) {
        const long long first = m_level.influenceOffsets[size_t(v)];
        return first < m_level.influenceOffsets[size_t(v) + 1] ? m_level.influences[size_t(first)] : 0LL;
    };
    const auto permutation = [&](long long count, const auto& key) {
        std::vector<long long> start(static_cast<size_t>(nodes) + 1, 0), order(static_cast<size_t>(count));
        for (long long p = 0; p < count; ++p)
            ++start[size_t(key(p)) + 1];
        for (long long n = 0; n < nodes; ++n)
            start[size_t(n) + 1] += start[size_t(n)];
        for (long long p = 0; p < count; ++p)
            order[size_t(start[size_t(key(p))]++)] = p;
        return order;
    };
    const auto apply = [](const std::vector<long long>& order, auto& list) {
        auto sorted = list;
        for (size_t i = 0; i < order.size(); ++i)
            sorted[i] = list[size_t(order[i])];
        list = std::move(sorted);
    };
    if (nodes == 0)
        return;
    const std::vector<long long> vertexOrder =
        permutation((long long)m_sources.size(), [&](long long p) { return nearest(m_sources[size_t(p)]); });
    apply(vertexOrder, m_sources);
    apply(vertexOrder, m_targets);
    apply(vertexOrder, m_normals);
    const std::vector<long long> surfaceOrder =
        permutation((long long)m_surface.size(), [&](long long s) { return nearest(m_surface[size_t(s)].corners[0]); });
    apply(surfaceOrder, m_surface);
}

void Problem::setPairs(std::vector<long long> sources, std::vector<Vec3> targets, std::vector<Vec3> normals,
                       std::vector<SurfacePair> surface)
{
    m_surface = std::move(surface);
    m_sources = std::move(sources);
    m_targets = std::move(targets);
    m_normals = std::move(normals);
    orderPairsByNode();

    std::vector<long long> pairOffsets{0};
    std::vector<int> pairNodes;
    for (long long v : m_sources) {
        for (long long i = m_level.influenceOffsets[size_t(v)]; i < m_level.influenceOffsets[size_t(v) + 1]; ++i)
            pairNodes.push_back(int(m_level.influences[size_t(i)]));
        pairOffsets.push_back((long long)pairNodes.size());
    }
    // A surface pair moves with every node of its corners, each once; its
    // slots say where each (corner, influence) entry's node lies among them.
    m_surfaceSlots.clear();
    m_surfaceSlotOffsets.assign(1, 0);
    for (const SurfacePair& pair : m_surface) {
        const size_t first = pairNodes.size();
        for (long long corner : pair.corners)
            for (long long i = m_level.influenceOffsets[size_t(corner)]; i < m_level.influenceOffsets[size_t(corner) + 1]; ++i)
                pairNodes.push_back(int(m_level.influences[size_t(i)]));
        std::sort(pairNodes.begin() + long(first), pairNodes.end());
        pairNodes.erase(std::unique(pairNodes.begin() + long(first), pairNodes.end()), pairNodes.end());
        pairOffsets.push_back((long long)pairNodes.size());
        for (long long corner : pair.corners)
            for (long long i = m_level.influenceOffsets[size_t(corner)]; i < m_level.influenceOffsets[size_t(corner) + 1]; ++i)
                m_surfaceSlots.push_back(int(std::lower_bound(pairNodes.begin() + long(first), pairNodes.end(),
                                                              int(m_level.influences[size_t(i)])) -
                                             (pairNodes.begin() + long(first))));
        m_surfaceSlotOffsets.push_back((long long)m_surfaceSlots.size());
    }
    m_jacobian.setPattern((long long)m_nodes.size(), std::move(pairOffsets), std::move(pairNodes), m_edges, m_controlNodes);
    for (size_t p = 0; p < m_normals.size(); ++p)
        m_jacobian.pairNormal((long long)p) = m_normals[p];
    for (size_t s = 0; s < m_surface.size(); ++s)
        m_jacobian.pairNormal((long long)(m_normals.size() + s)) = m_surface[s].normal;
    m_sparsePatternCurrent = false;
    m_sparseValuesCurrent = false;
    // The Cholesky's rows follow vertex pairs only.
    if (!m_surface.empty())
        setDirectSolve(false);
    if (m_direct) {
        setSparsePattern();
        setCholeskyRows();
    }
}

void Problem::setSparsePattern()
{
    // Only structurally non-zero entries: a row of component i reads a
    // node's rotation and the i-th component of its translation.
    // Sized exactly first: grown by doubling, these lists (about a million
    // columns on a 10k-vertex basemesh) cost more in copies and fresh pages
    // than in filling, once per round.
    if (!m_sparseFormReserved)
        reserveSparseForm();
    const std::vector<long long>& pairOffsets = m_jacobian.pairOffsets();
    const std::vector<int>& pairNodes = m_jacobian.pairNodes();
    long long rowCount = 4 * pairCount() + 3 * (long long)(m_edges.size() + m_controlNodes.size());
    long long columnCount = 15 * (long long)m_edges.size() + 18 * (long long)pairNodes.size();
    for (const auto& nodes : m_controlNodes)
        columnCount += 12 * (long long)nodes.size();
    std::vector<long long>& offsets = m_patternOffsets;
    std::vector<int>& columns = m_patternColumns;
    offsets.resize(size_t(rowCount) + 1);
    columns.resize(size_t(columnCount));
    int* column = columns.data();
    long long* offset = offsets.data();
    *offset++ = 0;
    const auto rotationAnd = [&](long long node, int component) {
        for (int c = 0; c < 3; ++c)
            *column++ = int(6 * node + c);
        *column++ = int(6 * node + 3 + component);
    };
    const auto endRow = [&] { *offset++ = column - columns.data(); };
    for (long long p = 0; p < pairCount(); ++p) {
        for (int row = 0; row < 3; ++row) {
            for (long long i = pairOffsets[size_t(p)]; i < pairOffsets[size_t(p) + 1]; ++i)
                rotationAnd(pairNodes[size_t(i)], row);
            endRow();
        }
        for (long long i = pairOffsets[size_t(p)]; i < pairOffsets[size_t(p) + 1]; ++i)
            for (int c = 0; c < 6; ++c)
                *column++ = int(6 * pairNodes[size_t(i)] + c);
        endRow();
    }
    for (const auto& edge : m_edges)
        for (int row = 0; row < 3; ++row) {
            rotationAnd(edge.first, row);
            *column++ = int(6 * edge.second + 3 + row);
            endRow();
        }
    for (const auto& nodes : m_controlNodes)
        for (int row = 0; row < 3; ++row) {
            for (long long node : nodes)
                rotationAnd(node, row);
            endRow();
        }
    m_storage.setPattern(offsets, columns, variableCount());
    m_sparsePatternCurrent = true;
    m_sparseValuesCurrent = false;
}

void Problem::updateRotations(const Vector& x)
{
    m_rotations.resize(m_nodes.size());
    forRange((long long)m_nodes.size(), m_parallel, [&](long long begin, long long end) {
        for (long long n = begin; n < end; ++n)
            m_rotations[size_t(n)] = rotationFromMRP(x.segment<3>(6 * n));
    });
}

Vec3 Problem::deformedVertex(long long v, const Vector& x, const std::vector<Eigen::Matrix3f>& rotations) const
{
    Vec3 result = Vec3::Zero();
    for (long long i = m_level.influenceOffsets[size_t(v)]; i < m_level.influenceOffsets[size_t(v) + 1]; ++i) {
        const long long k = m_level.influences[size_t(i)];
        const float w = m_level.weights[size_t(i)];
        result += w * (rotations[size_t(k)] * (m_rest[size_t(v)] - m_nodes[size_t(k)]) + m_nodes[size_t(k)] +
                       x.segment<3>(6 * k + 3));
    }
    return result;
}

void Problem::computeResiduals(const Vector& x, Vector& r)
{
    updateRotations(x);
    const long long pairs = (long long)m_sources.size(), surfacePairs = (long long)m_surface.size();
    const long long edges = (long long)m_edges.size();
    r.resize(4 * pairCount() + 3 * edges + 3 * (long long)m_controls.size());
    // With surface pairs, every vertex is deformed once here: each is a
    // corner of several pairs besides its own vertex pair.
    const bool shared = surfacePairs > 0;
    if (shared) {
        m_deformed.resize(m_rest.size());
        forRange((long long)m_rest.size(), m_parallel, [&](long long begin, long long end) {
            for (long long v = begin; v < end; ++v)
                m_deformed[size_t(v)] = deformedVertex(v, x, m_rotations);
        });
    }
    forRange(pairs, m_parallel, [&](long long begin, long long end) {
        for (long long p = begin; p < end; ++p) {
            const long long v = m_sources[size_t(p)];
            const Vec3 d = (shared ? m_deformed[size_t(v)] : deformedVertex(v, x, m_rotations)) - m_targets[size_t(p)];
            r.segment<3>(4 * p) = m_weights.pointToPoint * d;
            r[4 * p + 3] = m_weights.pointToPlane * d.dot(m_normals[size_t(p)]);
        }
    });
    forRange(surfacePairs, m_parallel, [&](long long begin, long long end) {
        for (long long s = begin; s < end; ++s) {
            const SurfacePair& pair = m_surface[size_t(s)];
            Vec3 point = Vec3::Zero();
            for (int c = 0; c < 3; ++c)
                point += pair.weights[c] * m_deformed[size_t(pair.corners[c])];
            const Vec3 d = point - pair.target;
            r.segment<3>(4 * (pairs + s)) = m_weights.pointToPoint * d;
            r[4 * (pairs + s) + 3] = m_weights.pointToPlane * d.dot(pair.normal);
        }
    });
    const long long edgeRow = 4 * pairCount();
    forRange(edges, m_parallel, [&](long long begin, long long end) {
        for (long long e = begin; e < end; ++e) {
            const long long j = m_edges[size_t(e)].first, k = m_edges[size_t(e)].second;
            const Vec3 value = m_rotations[size_t(j)] * (m_nodes[size_t(k)] - m_nodes[size_t(j)]) + m_nodes[size_t(j)] +
                               x.segment<3>(6 * j + 3) - m_nodes[size_t(k)] - x.segment<3>(6 * k + 3);
            r.segment<3>(edgeRow + 3 * e) = m_weights.smoothness * value;
        }
    });
    const long long controlRow = edgeRow + 3 * edges;
    for (size_t c = 0; c < m_controls.size(); ++c) {
        const ControlPoint& control = m_controls[c];
        Vec3 point = Vec3::Zero();
        for (int corner = 0; corner < 3; ++corner)
            point += control.weights[corner] * deformedVertex(control.corners[corner], x, m_rotations);
        r.segment<3>(controlRow + 3 * (long long)c) = m_weights.controlPoints * (point - control.target);
    }
}

void Problem::computeResidualsAndJacobian(const Vector& x, Vector& r)
{
    computeResiduals(x, r);
    forRange((long long)m_nodes.size(), m_parallel, [&](long long begin, long long end) {
        for (long long n = begin; n < end; ++n)
            m_jacobian.nodeRates(n) = ratesOfMRP(x.segment<3>(6 * n));
    });
    const long long pairs = (long long)m_sources.size();
    const std::vector<long long>& pairOffsets = m_jacobian.pairOffsets();
    // With surface pairs (or control points), every influence's arm once;
    // the pairs then only weigh and sum them.
    const bool shared = !m_surface.empty() || !m_controls.empty();
    if (shared) {
        m_influenceArms.resize(m_level.influences.size());
        forRange((long long)m_rest.size(), m_parallel, [&](long long begin, long long end) {
            for (long long v = begin; v < end; ++v)
                for (long long i = m_level.influenceOffsets[size_t(v)];
                     i < m_level.influenceOffsets[size_t(v) + 1]; ++i) {
                    const long long k = m_level.influences[size_t(i)];
                    m_influenceArms[size_t(i)] = arm(k, m_rest[size_t(v)] - m_nodes[size_t(k)]);
                }
        });
    }
    forRange(pairs, m_parallel, [&](long long begin, long long end) {
        for (long long p = begin; p < end; ++p) {
            const long long v = m_sources[size_t(p)];
            long long slot = pairOffsets[size_t(p)];
            for (long long i = m_level.influenceOffsets[size_t(v)]; i < m_level.influenceOffsets[size_t(v) + 1]; ++i, ++slot) {
                const long long k = m_level.influences[size_t(i)];
                const float w = m_level.weights[size_t(i)];
                m_jacobian.pairArm(slot) = w * (shared ? m_influenceArms[size_t(i)]
                                                       : arm(k, m_rest[size_t(v)] - m_nodes[size_t(k)]));
                m_jacobian.pairWeight(slot) = w;
            }
        }
    });
    const std::vector<int>& pairNodes = m_jacobian.pairNodes();
    forRange((long long)m_surface.size(), m_parallel, [&](long long begin, long long end) {
        for (long long s = begin; s < end; ++s) {
            const long long first = pairOffsets[size_t(pairs + s)], last = pairOffsets[size_t(pairs + s) + 1];
            fillPointBlocks(m_surface[size_t(s)].corners, m_surface[size_t(s)].weights,
                            pairNodes.data() + first, last - first, m_jacobian.pairArms(first),
                            m_surfaceSlots.data() + m_surfaceSlotOffsets[size_t(s)]);
        }
    });

    forRange((long long)m_edges.size(), m_parallel, [&](long long begin, long long end) {
        for (long long e = begin; e < end; ++e) {
            const long long j = m_edges[size_t(e)].first, k = m_edges[size_t(e)].second;
            m_jacobian.edgeArm(e) = arm(j, m_nodes[size_t(k)] - m_nodes[size_t(j)]);
        }
    });

    const std::vector<long long>& controlOffsets = m_jacobian.controlOffsets();
    const std::vector<int>& controlNodes = m_jacobian.controlNodes();
    for (size_t c = 0; c < m_controls.size(); ++c) {
        const long long first = controlOffsets[c], last = controlOffsets[c + 1];
        fillPointBlocks(m_controls[c].corners, m_controls[c].weights, controlNodes.data() + first,
                        last - first, m_jacobian.controlArms(first));
    }
    m_sparseValuesCurrent = false;
}

void Problem::fillPointBlocks(const long long* corners, const float* weights, const int* nodes,
                              long long count, NodeBlockJacobian::Arm* arms, const int* slots) const
{
    std::fill(arms, arms + count, NodeBlockJacobian::Arm{Vec3::Zero(), 0.0f});
    for (int c = 0; c < 3; ++c) {
        const long long v = corners[c];
        for (long long i = m_level.influenceOffsets[size_t(v)]; i < m_level.influenceOffsets[size_t(v) + 1]; ++i) {
            const long long k = m_level.influences[size_t(i)];
            const float w = weights[c] * m_level.weights[size_t(i)];
            const long long slot = slots ? *slots++ : std::lower_bound(nodes, nodes + count, int(k)) - nodes;
            arms[slot].q += w * m_influenceArms[size_t(i)];
            arms[slot].w += w;
        }
    }
}

const JacobianSparseStorage& Problem::jacobian()
{
    if (!m_sparsePatternCurrent)
        setSparsePattern();
    if (!m_sparseValuesCurrent)
        fillSparseValues();
    return m_storage;
}

void Problem::fillSparseValues()
{
    // The entries in the pattern's order (see setSparsePattern).
    std::vector<float>& values = m_storage.values();
    const std::vector<long long>& offsets = m_storage.rowOffsets();
    const std::vector<long long>& pairOffsets = m_jacobian.pairOffsets();
    const long long pairs = pairCount();
    const float alpha = m_weights.pointToPoint, beta = m_weights.pointToPlane;
    NodeBlockJacobian& J = m_jacobian;
    forRange(pairs, m_parallel, [&](long long begin, long long end) {
        for (long long p = begin; p < end; ++p) {
            const Vec3& n = J.pairNormal(p);
            long long at[4];
            for (int row = 0; row < 4; ++row)
                at[row] = offsets[size_t(4 * p + row)];
            for (long long slot = pairOffsets[size_t(p)]; slot < pairOffsets[size_t(p) + 1]; ++slot) {
                const Eigen::Matrix3f D = J.pairBlock(slot);
                const float w = J.pairWeight(slot);
                const Eigen::RowVector3f nD = n.transpose() * D;
                for (int row = 0; row < 3; ++row) {
                    float* out = &values[size_t(at[row])];
                    for (int c = 0; c < 3; ++c)
                        out[c] = alpha * D(row, c);
                    out[3] = alpha * w;
                    at[row] += 4;
                }
                float* out = &values[size_t(at[3])];
                for (int c = 0; c < 3; ++c) {
                    out[c] = beta * nD[c];
                    out[3 + c] = beta * w * n[c];
                }
                at[3] += 6;
            }
        }
    });
    const long long edgeRow = 4 * pairs;
    const float gamma = m_weights.smoothness;
    forRange((long long)m_edges.size(), m_parallel, [&](long long begin, long long end) {
        for (long long e = begin; e < end; ++e) {
            const Eigen::Matrix3f D = J.edgeBlock(e);
            for (int row = 0; row < 3; ++row) {
                float* out = &values[size_t(offsets[size_t(edgeRow + 3 * e + row)])];
                for (int c = 0; c < 3; ++c)
                    out[c] = gamma * D(row, c);
                out[3] = gamma;
                out[4] = -gamma;
            }
        }
    });
    const long long controlRow = edgeRow + 3 * (long long)m_edges.size();
    const float kappa = m_weights.controlPoints;
    const std::vector<long long>& controlOffsets = J.controlOffsets();
    for (long long c = 0; c < (long long)m_controls.size(); ++c)
        for (int row = 0; row < 3; ++row) {
            float* out = &values[size_t(offsets[size_t(controlRow + 3 * c + row)])];
            for (long long slot = controlOffsets[size_t(c)]; slot < controlOffsets[size_t(c) + 1]; ++slot, out += 4) {
                const Eigen::Matrix3f D = J.controlBlock(slot);
                for (int col = 0; col < 3; ++col)
                    out[col] = kappa * D(row, col);
                out[3] = kappa * J.controlTranslation(slot);
            }
        }
    m_storage.syncColumns(m_parallel);
    m_sparseValuesCurrent = true;
}

void Problem::evaluateValue(const Vector& x, float& value, WNewton::Timings*)
{
    ++m_counters.values;
    computeResiduals(x, m_r);
    value = float(0.5 * double(m_r.squaredNorm()));
}

void Problem::evaluateAll(const Vector& x, float& value, Vector& gradient, LinearSystemsSolvers::ProductHolder<float>&,
                          WNewton::Timings*)
{
    ++m_counters.jacobians;
    computeResidualsAndJacobian(x, m_r);
    value = float(0.5 * double(m_r.squaredNorm()));
    m_jacobian.multiplyTransposed(m_r, gradient, m_parallel);
    // The node blocks also give the damping's scale (`hessianScale`), so
    // they are collected with the Cholesky too.
    m_preconditioner.collect(m_jacobian, m_parallel);
    if (m_direct) {
        fillSparseValues();
        m_cholesky.jacobianChanged();
    }
}

void Problem::currentVertices(const Vector& x, std::vector<Vec3>& out) const
{
    std::vector<Eigen::Matrix3f> rotations(m_nodes.size());
    for (size_t n = 0; n < m_nodes.size(); ++n)
        rotations[n] = rotationFromMRP(x.segment<3>(6 * (long long)n));
    out.resize(m_rest.size());
    forRange((long long)m_rest.size(), m_parallel, [&](long long begin, long long end) {
        for (long long v = begin; v < end; ++v)
            out[size_t(v)] = deformedVertex(v, x, rotations);
    });
}

void Problem::currentNodes(const Vector& x, std::vector<Vec3>& out) const
{
    out.resize(m_nodes.size());
    for (size_t n = 0; n < m_nodes.size(); ++n)
        out[n] = m_nodes[n] + x.segment<3>(6 * (long long)n + 3);
}

void Problem::Product::multiply(const Vector& v, Vector& y) const
{
    const auto start = std::chrono::steady_clock::now();
    m_jacobian.multiplyNormal(v, y, m_parallel);
    y += float(m_damping) * v;
    ++m_counters.products;
    m_counters.productSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Problem::BlockDiagonalPreconditioner::refresh(double damping)
{
    // Once per damping, thousands of 6x6 factorisations: worth both cores.
    m_inverse.resize(m_blocks.size());
    forRange((long long)m_blocks.size(), m_parallel, [&](long long begin, long long end) {
        invertDampedBlocks(m_blocks, float(damping), m_inverse, begin, end);
    }, 256);
}

void Problem::BlockDiagonalPreconditioner::apply(const Vector& in, Vector& out) const
{
    applyNodeBlocks(m_inverse, in, out, m_parallel);
}

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
