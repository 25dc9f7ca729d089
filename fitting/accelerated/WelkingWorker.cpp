#include "WelkingWorker.h"

#include "Deformer.h"
#include "FoldOvers.h"
#include "FoldRepair.h"
#include "VertexNormals.h"
#include "IterativeSolverProblem.h"

#include "search/ClosestPointOnTriangle.h"
#include "search/IndexedHeap.h"
#include "search/KDTreeEigen.h"

#include <Eigen/Geometry>

#include <QDebug>
#include <QElapsedTimer>

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <limits>

namespace WelkingAcceleratedVersion {

namespace {

/// Basemesh vertices a coverage sample looks among for one facing its way.
constexpr int CoverageCandidates = 8;

using Vec3 = EmbeddedGraphDeformer::Vec3;

Vec3 toVec(const QVector3D& v)
{
    return Vec3(v.x(), v.y(), v.z());
}

QVector<QVector3D> toQt(const std::vector<Vec3>& points, const QMatrix4x4* transform = nullptr)
{
    QVector<QVector3D> result(int(points.size()));
    for (size_t i = 0; i < points.size(); ++i) {
        const QVector3D p(points[i].x(), points[i].y(), points[i].z());
        result[int(i)] = transform ? transform->map(p) : p;
    }
    return result;
}


/// The nearest point to `query` on the triangles of a vertex's ring
/// (`ring` holds triangle numbers, `corners` three vertex indices per
/// triangle): the point, its triangle's corners and its weights a, b and
/// 1 - a - b on them. False when the ring is empty.
template <typename Index, typename RingIndex>
bool nearestOnRing(const std::vector<Vec3>& points, const Index* corners, const RingIndex* ring, const RingIndex* ringEnd,
                   const Vec3& query, Vec3& nearest, const Index*& triangle, float& a, float& b)
{
    const QVector3D p(query.x(), query.y(), query.z());
    float best = std::numeric_limits<float>::max();
    for (; ring != ringEnd; ++ring) {
        const Index* candidate = corners + 3 * size_t(*ring);
        const auto at = [&](int c) {
            const Vec3& q = points[size_t(candidate[c])];
            return QVector3D(q.x(), q.y(), q.z());
        };
        float ca = 0, cb = 0;
        const QVector3D q = ClosestTriangleSearch::closestPointOnTriangle(at(0), at(1), at(2), p, ca, cb);
        const float distance = (q - p).lengthSquared();
        if (distance < best) {
            best = distance;
            nearest = Vec3(q.x(), q.y(), q.z());
            triangle = candidate;
            a = ca;
            b = cb;
        }
    }
    return best < std::numeric_limits<float>::max();
}

/// A flag per vertex: on an edge that only one triangle uses. Only the
/// vertices `asked` flags are judged (all when it is empty), and only their
/// edges are sorted: on a dense scan that is a few thousandths of them.
template <typename Triangles>
std::vector<char> boundaryVertices(size_t vertexCount, const Triangles& triangles, const std::vector<char>& asked = {})
{
    const auto wanted = [&](long long v) { return v >= 0 && size_t(v) < vertexCount && (asked.empty() || asked[size_t(v)]); };
    std::vector<std::pair<long long, long long>> edges;
    for (size_t t = 0; t + 2 < size_t(triangles.size()); t += 3)
        for (int c = 0; c < 3; ++c) {
            const long long a = triangles[t + size_t(c)], b = triangles[t + size_t((c + 1) % 3)];
            if (wanted(a) || wanted(b))
                edges.emplace_back(std::min(a, b), std::max(a, b));
        }
    std::sort(edges.begin(), edges.end());
    std::vector<char> boundary(vertexCount, 0);
    for (size_t i = 0; i < edges.size();) {
        size_t j = i + 1;
        while (j < edges.size() && edges[j] == edges[i])
            ++j;
        if (j - i == 1 && edges[i].first >= 0 && size_t(edges[i].second) < vertexCount)
            boundary[size_t(edges[i].first)] = boundary[size_t(edges[i].second)] = 1;
        i = j;
    }
    return boundary;
}

/// The root mean square of the vertices' moves from `before` to `after`.
double rmsMove(const std::vector<Vec3>& before, const std::vector<Vec3>& after)
{
    double sum = 0.0;
    for (size_t v = 0; v < after.size(); ++v)
        sum += double((after[v] - before[v]).squaredNorm());
    return after.empty() ? 0.0 : std::sqrt(sum / double(after.size()));
}

} // namespace

WelkingWorker::WelkingWorker(const QVector<QVector3D>& sourceVertices, const QVector<int>& sourceTriangles,
                             const QMatrix4x4& sourceTransform, const QVector<QVector3D>& targetVertices,
                             const QVector<QVector3D>& targetNormals, const QMatrix4x4& targetTransform,
                             const QVector<int>& targetTriangles, const QVector<Welk::WPointOnTriangle>& sourcePoints,
                             const QVector<Welk::WPointOnTriangle>& targetPoints, const QVector<quint8>& excluded,
                             std::vector<EmbeddedGraphLevel> levels, const AcceleratedParameters& parameters,
                             float normalisedSize, Welk::ProgressInterface* progress, QObject* parent)
    : QObject(parent), m_levels(std::move(levels)), m_parameters(parameters), m_callback(progress)
{
    m_sourceTriangles.assign(sourceTriangles.begin(), sourceTriangles.end());

    // One scale for both models: the basemesh's largest extent becomes
    // `normalisedSize`, so every distance setting is unit-free.
    QVector3D lo(std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                 std::numeric_limits<float>::max());
    QVector3D hi = -lo;
    for (const QVector3D& v : sourceVertices) {
        const QVector3D p = sourceTransform.map(v);
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    }
    const float extent = std::max({hi.x() - lo.x(), hi.y() - lo.y(), hi.z() - lo.z(), 1e-12f});
    QMatrix4x4 scale;
    m_normalisedSize = normalisedSize;
    m_scale = normalisedSize / extent;
    scale.scale(m_scale);
    m_normalisation = scale * sourceTransform;
    m_normalisationInverse = m_normalisation.inverted();
    m_targetNormalisation = scale * targetTransform;

    for (const QVector3D& v : sourceVertices)
        m_source.push_back(toVec(m_normalisation.map(v)));
    for (const QVector3D& v : targetVertices)
        m_target.push_back(toVec(m_targetNormalisation.map(v)));
    const QMatrix3x3 normalMatrix = m_targetNormalisation.normalMatrix();
    for (const QVector3D& n : targetNormals) {
        const Vec3 m(normalMatrix(0, 0) * n.x() + normalMatrix(0, 1) * n.y() + normalMatrix(0, 2) * n.z(),
                     normalMatrix(1, 0) * n.x() + normalMatrix(1, 1) * n.y() + normalMatrix(1, 2) * n.z(),
                     normalMatrix(2, 0) * n.x() + normalMatrix(2, 1) * n.y() + normalMatrix(2, 2) * n.z());
        m_targetNormals.push_back(m.norm() > 0 ? Vec3(m.normalized()) : m);
    }

    for (const EmbeddedGraphLevel& level : m_levels) {
        std::vector<Vec3> nodes;
        for (long long n : level.nodes)
            nodes.push_back(m_source[size_t(n)]);
        m_levelNodes.push_back(std::move(nodes));
    }

    m_tree.reset(KDTreeAcceleratedVersion::build<float, long long>(m_target, 128));

    if (m_parameters.surfacePairs || m_parameters.borderPairs) {
        // Shared with the caller's list, not copied; the rings are counted
        // out once, in 32-bit indices (a dense scan has millions of corners).
        m_targetTriangles = targetTriangles;
        const int cornerCount = int(targetTriangles.size() / 3 * 3);
        m_targetVertexTriangleOffsets.assign(m_target.size() + 1, 0);
        for (int c = 0; c < cornerCount; ++c)
            if (targetTriangles[c] >= 0 && size_t(targetTriangles[c]) < m_target.size())
                ++m_targetVertexTriangleOffsets[size_t(targetTriangles[c]) + 1];
        for (size_t v = 0; v < m_target.size(); ++v)
            m_targetVertexTriangleOffsets[v + 1] += m_targetVertexTriangleOffsets[v];
        m_targetVertexTriangles.resize(size_t(m_targetVertexTriangleOffsets.back()));
        std::vector<int> fill(m_targetVertexTriangleOffsets.begin(), m_targetVertexTriangleOffsets.end() - 1);
        for (int c = 0; c < cornerCount; ++c)
            if (targetTriangles[c] >= 0 && size_t(targetTriangles[c]) < m_target.size())
                m_targetVertexTriangles[size_t(fill[size_t(targetTriangles[c])]++)] = c / 3;
    }

    if (m_parameters.coveragePairs || m_parameters.borderPairs)
        m_sourceBoundary = boundaryVertices(m_source.size(), m_sourceTriangles);
    if (m_parameters.coveragePairs) {
        // About one sample per basemesh vertex, so a dense scan costs no
        // more per round than the basemesh's own matching; none on the
        // scan's open borders, whose nearest basemesh vertex says nothing
        // about where the basemesh should go.
        m_vertexTriangleOffsets.assign(m_source.size() + 1, 0);
        for (long long corner : m_sourceTriangles)
            if (corner >= 0 && size_t(corner) < m_source.size())
                ++m_vertexTriangleOffsets[size_t(corner) + 1];
        for (size_t v = 0; v < m_source.size(); ++v)
            m_vertexTriangleOffsets[v + 1] += m_vertexTriangleOffsets[v];
        m_vertexTriangles.resize(size_t(m_vertexTriangleOffsets.back()));
        std::vector<long long> fill(m_vertexTriangleOffsets.begin(), m_vertexTriangleOffsets.end() - 1);
        for (size_t c = 0; c < m_sourceTriangles.size(); ++c) {
            const long long corner = m_sourceTriangles[c];
            if (corner >= 0 && size_t(corner) < m_source.size())
                m_vertexTriangles[size_t(fill[size_t(corner)]++)] = (long long)(c / 3);
        }
        const size_t stride = std::max<size_t>(1, (m_target.size() + m_source.size() - 1) / std::max<size_t>(1, m_source.size()));
        std::vector<char> sampled(m_target.size(), 0);
        for (size_t t = 0; t < m_target.size(); t += stride)
            sampled[t] = 1;
        const std::vector<char> targetBoundary = boundaryVertices(m_target.size(), targetTriangles, sampled);
        for (size_t t = 0; t < m_target.size(); t += stride)
            if (!targetBoundary[t])
                m_coverageSamples.push_back((long long)t);
    }

    const int controlCount = std::min(sourcePoints.size(), targetPoints.size());
    for (int i = 0; i < controlCount; ++i) {
        const Welk::WPointOnTriangle& s = sourcePoints[i];
        const Welk::WPointOnTriangle& t = targetPoints[i];
        if (!s.isValid() || !t.isValid() || 3 * s.triangle + 2 >= sourceTriangles.size() ||
            3 * t.triangle + 2 >= targetTriangles.size())
            continue;
        EmbeddedGraphDeformer::ControlPoint control;
        const float weights[3] = {s.u, s.v, 1.0f - s.u - s.v};
        for (int c = 0; c < 3; ++c) {
            control.corners[c] = sourceTriangles[3 * s.triangle + c];
            control.weights[c] = weights[c];
        }
        control.target = toVec(m_targetNormalisation.map(t.position(targetVertices, targetTriangles)));
        m_controls.push_back(control);
    }

    m_excluded.assign(m_source.size(), 0);
    for (int i = 0; i < excluded.size() && size_t(i) < m_excluded.size(); ++i)
        m_excluded[size_t(i)] = excluded[i] != 0;
    m_current = m_source;
    m_previousMatch.assign(m_source.size(), -1);
    // A vertex more than a box diagonal outside the box around both models
    // has left any shape a fit could mean.
    Vec3 boxLo = Vec3::Constant(std::numeric_limits<float>::max()), boxHi = -boxLo;
    for (const std::vector<Vec3>* points : {&m_source, &m_target})
        for (const Vec3& p : *points) {
            boxLo = boxLo.cwiseMin(p);
            boxHi = boxHi.cwiseMax(p);
        }
    const float diagonal = m_source.empty() ? 0.0f : (boxHi - boxLo).norm();
    m_farLo = boxLo - Vec3::Constant(diagonal);
    m_farHi = boxHi + Vec3::Constant(diagonal);
    connect(&m_callback, &WelkingCallback::updated, this, &WelkingWorker::onUpdate, Qt::DirectConnection);
}

WelkingWorker::~WelkingWorker() = default;

void WelkingWorker::terminate()
{
    m_callback.interrupt();
    Q_EMIT interruptionRequested();
}

void WelkingWorker::onUpdate(QVector<QVector3D> vertices, QVector<QVector3D> nodes)
{
    for (QVector3D& v : vertices)
        v = m_normalisationInverse.map(v);
    for (QVector3D& n : nodes)
        n = m_normalisationInverse.map(n);
    Q_EMIT updated(vertices, nodes);
}

void WelkingWorker::findPairs(std::vector<long long>& sources, std::vector<Vec3>& targets,
                              std::vector<Vec3>& normals) const
{
    findPairs(sources, targets, normals, nullptr);
}

WelkingWorker::ShapeDistance WelkingWorker::measureCurrent() const
{
    ShapeDistance measured;
    std::vector<long long> sources;
    std::vector<Vec3> targets, normals;
    findPairs(sources, targets, normals, &measured);
    return measured;
}

void WelkingWorker::nearestOnTargetSurface(const Vec3& p, long long vertex, Vec3& point, Vec3& normal) const
{
    point = m_target[size_t(vertex)];
    normal = m_targetNormals[size_t(vertex)];
    const int* corners = nullptr;
    float a = 0, b = 0;
    if (!nearestOnRing(m_target, m_targetTriangles.constData(),
                       m_targetVertexTriangles.data() + m_targetVertexTriangleOffsets[size_t(vertex)],
                       m_targetVertexTriangles.data() + m_targetVertexTriangleOffsets[size_t(vertex) + 1], p, point,
                       corners, a, b))
        return;
    const float c = 1.0f - a - b;
    const Vec3 sum = a * m_targetNormals[size_t(corners[0])] + b * m_targetNormals[size_t(corners[1])] +
                     c * m_targetNormals[size_t(corners[2])];
    if (sum.norm() > 0)
        normal = sum.normalized();
}

bool WelkingWorker::nearestOnTargetBorder(const Vec3& p, long long vertex, Vec3& point) const
{
    // Around an inner vertex every neighbour is shared by two of its
    // triangles; around a border vertex the far ends of its two border
    // edges are not. A ring has a few triangles, so pairing them up costs
    // less than listing every edge of a dense scan once.
    std::array<int, 64> seen;
    int count = 0;
    const int* corners = m_targetTriangles.constData();
    for (int k = m_targetVertexTriangleOffsets[size_t(vertex)]; k < m_targetVertexTriangleOffsets[size_t(vertex) + 1];
         ++k) {
        const int* triangle = corners + 3 * size_t(m_targetVertexTriangles[size_t(k)]);
        for (int c = 0; c < 3; ++c) {
            if (triangle[c] == int(vertex))
                continue;
            if (count == int(seen.size()))
                return false; // a fan this large is a hub, not a border
            seen[size_t(count++)] = triangle[c];
        }
    }
    std::sort(seen.begin(), seen.begin() + count);
    const Vec3& a = m_target[size_t(vertex)];
    bool onBorder = false;
    float best = std::numeric_limits<float>::max();
    for (int i = 0; i < count;) {
        int j = i + 1;
        while (j < count && seen[size_t(j)] == seen[size_t(i)])
            ++j;
        if (j - i == 1) {
            // The nearest point of this border edge: the pull slides along
            // the border continuously instead of snapping vertex to vertex.
            const Vec3 edge = m_target[size_t(seen[size_t(i)])] - a;
            const float length = edge.squaredNorm();
            const float t = length > 0 ? std::clamp((p - a).dot(edge) / length, 0.0f, 1.0f) : 0.0f;
            const Vec3 q = a + t * edge;
            if ((q - p).squaredNorm() < best) {
                best = (q - p).squaredNorm();
                point = q;
            }
            onBorder = true;
        }
        i = j;
    }
    return onBorder;
}

void WelkingWorker::findPairs(std::vector<long long>& sources, std::vector<Vec3>& targets, std::vector<Vec3>& normals,
                              ShapeDistance* measured) const
{
    std::vector<long long> match(m_current.size(), -1);
    // With surface pairs, where on the target each matched vertex goes.
    const bool onSurface = m_parameters.surfacePairs && !m_targetVertexTriangleOffsets.empty();
    std::vector<Vec3> surfacePoints(onSurface ? m_current.size() : 0), surfaceNormals(surfacePoints.size());
    const std::vector<Vec3> currentNormals = vertexNormals(m_current, m_sourceTriangles);
    struct Sum
    {
        double squares = 0;
        long long count = 0;
        int flownOff = 0;
    };
    tbb::enumerable_thread_specific<Sum> sums;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, m_current.size(), 512), [&](const tbb::blocked_range<size_t>& r) {
        Sum& sum = sums.local();
        for (size_t v = r.begin(); v < r.end(); ++v) {
            if (m_excluded[v])
                continue;
            const Vec3& p = m_current[v];
            if (!p.allFinite()) {
                sum.squares = std::numeric_limits<double>::infinity();
                ++sum.flownOff;
                continue;
            }
            // The previous round's match bounds the search from the start:
            // vertices move little between rounds, and on a dense scan most
            // of a query's time went to descending towards that same region.
            long long nearest = m_previousMatch[v];
            float distanceSq = nearest >= 0 ? (m_target[size_t(nearest)] - p).squaredNorm()
                                            : std::numeric_limits<float>::max();
            m_tree->findNearestPoint(p, m_target, nearest, distanceSq);
            m_previousMatch[v] = nearest;
            sum.squares += double(distanceSq);
            ++sum.count;
            if ((p.array() < m_farLo.array()).any() || (p.array() > m_farHi.array()).any())
                ++sum.flownOff;
            // Back-facing and sideways matches are dropped; distance alone never is.
            if (nearest >= 0 && currentNormals[v].dot(m_targetNormals[size_t(nearest)]) >= m_parameters.normalsThreshold) {
                match[v] = nearest;
                if (onSurface) {
                    // The plane row goes through the nearest surface point,
                    // along the normal there; the point row still pulls
                    // towards the nearest vertex across the surface (which
                    // holds the vertices from sliding), so the pair's target
                    // is that vertex moved along the normal onto the plane.
                    Vec3 point;
                    nearestOnTargetSurface(p, nearest, point, surfaceNormals[v]);
                    const Vec3& n = surfaceNormals[v];
                    const Vec3& vertex = m_target[size_t(nearest)];
                    surfacePoints[v] = vertex + n * n.dot(point - vertex);
                }
            }
        }
    });
    if (measured) {
        Sum total;
        for (const Sum& sum : sums) {
            total.squares += sum.squares;
            total.count += sum.count;
            total.flownOff += sum.flownOff;
        }
        measured->rms = total.count > 0 ? std::sqrt(total.squares / double(total.count)) : total.squares;
        measured->flownOff = total.flownOff;
    }
    sources.clear();
    targets.clear();
    normals.clear();
    for (size_t v = 0; v < match.size(); ++v)
        if (match[v] >= 0) {
            sources.push_back((long long)v);
            Vec3 borderPoint;
            if (m_parameters.borderPairs && m_sourceBoundary[v] &&
                nearestOnTargetBorder(m_current[v], match[v], borderPoint) && borderPoint != m_current[v]) {
                targets.push_back(borderPoint);
                normals.push_back((borderPoint - m_current[v]).normalized());
                continue;
            }
            targets.push_back(onSurface ? surfacePoints[v] : m_target[size_t(match[v])]);
            normals.push_back(onSurface ? surfaceNormals[v] : m_targetNormals[size_t(match[v])]);
        }
    m_surfacePairs.clear();
    if (m_coverageSamples.empty() || !m_coverageActive)
        return;
    // Coverage: target samples pull the nearest point of the basemesh's
    // surface, so that parts of the target that no basemesh vertex has near
    // it are reached. The point is found among the triangles around the
    // nearest vertex; unlike the vertex itself it slides continuously as
    // the shape changes, so the fit stays continuous in its input.
    std::unique_ptr<KDTreeAcceleratedVersion::Node<float, long long>> tree(
        KDTreeAcceleratedVersion::build<float, long long>(m_current, 128));
    std::unique_ptr<KDTreeEigen::NodeBaseEigen<float, long long>> nearTree(
        KDTreeEigen::build<float, long long>(m_current, 32));
    tbb::enumerable_thread_specific<Welk::IndexedHeap> heaps([&] { return Welk::IndexedHeap(int(m_current.size())); });
    std::vector<EmbeddedGraphDeformer::SurfacePair> found(m_coverageSamples.size());
    std::vector<char> kept(m_coverageSamples.size(), 0);
    const auto facing = [&](long long v, long long t) {
        return currentNormals[size_t(v)].dot(m_targetNormals[size_t(t)]) >= m_parameters.normalsThreshold;
    };
    tbb::parallel_for(tbb::blocked_range<size_t>(0, m_coverageSamples.size(), 256), [&](const tbb::blocked_range<size_t>& r) {
        std::vector<std::pair<double, long long>> near;
        for (size_t i = r.begin(); i < r.end(); ++i) {
            const long long t = m_coverageSamples[i];
            const Vec3& point = m_target[size_t(t)];
            long long v = tree->findNearestPointInd(point, m_current);
            // Near an open border or a left-out part, no pair at all.
            if (v < 0 || m_excluded[size_t(v)] || m_sourceBoundary[size_t(v)] || !m_current[size_t(v)].allFinite())
                continue;
            if (!facing(v, t)) {
                // At a thin part of the target (an ear's tip) the nearest
                // vertex may lie on the far side: the nearest of a few that
                // faces the same way takes its place.
                Welk::IndexedHeap& heap = heaps.local();
                heap.clear();
                nearTree->findKNearestPointsInds(point, m_current, CoverageCandidates, heap);
                near.clear();
                for (int e = 0; e < heap.count(); ++e)
                    near.emplace_back(heap.entry(e).key, (long long)heap.entry(e).id);
                std::sort(near.begin(), near.end());
                v = -1;
                for (const auto& [d, candidate] : near)
                    if (!m_excluded[size_t(candidate)] && !m_sourceBoundary[size_t(candidate)] && facing(candidate, t)) {
                        v = candidate;
                        break;
                    }
                if (v < 0)
                    continue;
            }
            EmbeddedGraphDeformer::SurfacePair pair;
            const long long* corners = nullptr;
            Vec3 onSurface;
            float a = 0, b = 0;
            if (!nearestOnRing(m_current, m_sourceTriangles.data(), m_vertexTriangles.data() + m_vertexTriangleOffsets[size_t(v)],
                               m_vertexTriangles.data() + m_vertexTriangleOffsets[size_t(v) + 1], point, onSurface, corners,
                               a, b))
                continue;
            for (int c = 0; c < 3; ++c)
                pair.corners[c] = corners[c];
            pair.weights[0] = a;
            pair.weights[1] = b;
            pair.weights[2] = 1.0f - a - b;
            Vec3 normal = Vec3::Zero();
            bool usable = true;
            for (int c = 0; c < 3; ++c) {
                usable = usable && !m_excluded[size_t(pair.corners[c])];
                normal += pair.weights[c] * currentNormals[size_t(pair.corners[c])];
            }
            if (!usable || normal.normalized().dot(m_targetNormals[size_t(t)]) < m_parameters.normalsThreshold)
                continue;
            pair.target = point;
            pair.normal = m_targetNormals[size_t(t)];
            found[i] = pair;
            kept[i] = 1;
        }
    });
    for (size_t i = 0; i < found.size(); ++i)
        if (kept[i])
            m_surfacePairs.push_back(found[i]);
}

void WelkingWorker::run(EmbeddedGraphDeformer::Abstract::Deformer* deformer)
{
    runLevels([deformer](int, const std::vector<EmbeddedGraphDeformer::ControlPoint>&,
                         const EmbeddedGraphDeformer::EnergyWeights&) -> EmbeddedGraphDeformer::Abstract::Deformer& {
        return *deformer;
    });
}

void WelkingWorker::runLevels(const DeformerForLevel& deformerFor)
{
    QElapsedTimer timer;
    timer.start();
    const int subdivisions = std::min<int>(m_parameters.subdivisions, int(m_levels.size()));
    m_callback.start();
    m_callback.setLevels(subdivisions);
    m_callback.setIterations(m_parameters.icpIterations);
    m_course = FitCourse();

    std::vector<long long> sources;
    std::vector<Vec3> targets, normals, nodes;
    QElapsedTimer stage;
    ShapeDistance distance = measureCurrent();
    m_course.startDistance = distance.rms / double(m_scale);
    // A round is worse when vertices flew off, or when its shape lies far
    // farther from the target than the level's best: three times as far and
    // a hundredth of the model's size more. Sound rounds move this measure
    // by a half at most (closest-vertex matching lets it drift within a
    // level); a diverging fit moves it by orders of magnitude.
    const auto worse = [this](const ShapeDistance& measured, const ShapeDistance& best) {
        return !std::isfinite(measured.rms) || measured.flownOff > best.flownOff ||
               measured.rms > 3.0 * best.rms + 1e-2 * double(m_normalisedSize);
    };
    for (int i = 1; i <= subdivisions; ++i) {
        double pairSeconds = 0, solveSeconds = 0, solveCpuSeconds = 0;
        m_callback.setLevel(i - 1);
        if (m_callback.isInterrupted())
            break;
        const EmbeddedGraphLevel& level = m_levels[size_t(i - 1)];
        const float t = float(subdivisions - i) / float(subdivisions);
        // Coverage pairs on the finest level and, unless turned off, on the
        // coarsest (see `AcceleratedParameters::coverageCoarsestLevel`).
        // Between them a pair reaches over many nodes and doubles the cost
        // of every product, for less coverage (spare-bear's ears).
        m_coverageActive = i == subdivisions || (i == 1 && m_parameters.coverageCoarsestLevel);

        std::vector<std::vector<std::pair<long long, float>>> nodeVertices(level.nodes.size());
        for (size_t v = 0; v + 1 < level.influenceOffsets.size(); ++v)
            for (long long k = level.influenceOffsets[v]; k < level.influenceOffsets[v + 1]; ++k)
                nodeVertices[size_t(level.influences[size_t(k)])].emplace_back((long long)v, level.weights[size_t(k)]);

        EmbeddedGraphDeformer::EnergyWeights weights;
        weights.smoothness = (m_parameters.smoothnessInitial - m_parameters.smoothnessFinal) * t + m_parameters.smoothnessFinal;
        weights.controlPoints = (m_parameters.controlPointsWeightInitial - m_parameters.controlPointsWeightFinal) * t +
                                m_parameters.controlPointsWeightFinal;
        weights.pointToPoint = m_parameters.pointToPointWeight;
        weights.pointToPlane = m_parameters.pointToPlaneWeight;
        EmbeddedGraphDeformer::Abstract::Deformer* deformer = &deformerFor(i - 1, m_controls, weights);
        Eigen::VectorXf state;
        deformer->initializeVariables(m_source, m_current, nodeVertices, m_levelNodes[size_t(i - 1)], state);
        deformer->setProblem(level, m_source, m_levelNodes[size_t(i - 1)], m_controls, weights, true);

        // The level's best shape so far, and the state that gives it.
        std::vector<Vec3> bestCurrent = m_current;
        Eigen::VectorXf bestState = state;
        std::vector<Vec3> bestNodes; // the level's node positions are known after its first solve
        ShapeDistance best = distance;
        bool rejected = false;
        const auto judge = [&](const ShapeDistance& measured) {
            if (m_parameters.rejectWorseRounds && worse(measured, best)) {
                m_current = bestCurrent;
                state = bestState;
                nodes = bestNodes;
                ++m_course.rejectedRounds;
                rejected = true;
                distance = best;
                qDebug().noquote() << QStringLiteral("Level %1: a round moved the shape away from the target "
                                                     "(RMS %2 against %3); back to the best shape")
                                          .arg(i)
                                          .arg(measured.rms)
                                          .arg(best.rms);
                m_callback.update(toQt(m_current), toQt(nodes));
                return;
            }
            distance = measured;
            if (measured.rms < best.rms) {
                best = measured;
                bestCurrent = m_current;
                bestState = state;
                bestNodes = nodes;
            }
        };

        int solved = 0, stiffened = 0;
        std::vector<Vec3> beforeSolve;
        int smallMoves = 0;
        for (int j = 0; j < m_parameters.icpIterations; ++j) {
            m_callback.setIteration(j);
            if (m_callback.isInterrupted())
                break;
            const float u = m_parameters.icpIterations == 1 ? 1.0f : 1.0f - float(j) / float(m_parameters.icpIterations - 1);
            stage.start();
            ShapeDistance measured;
            findPairs(sources, targets, normals, &measured);
            pairSeconds += double(stage.nsecsElapsed()) / 1e9;
            bool stiffenedNow = false;
            if (solved > 0) {
                judge(measured);
                stiffenedNow = rejected;
                if (rejected) {
                    // Go on from the best shape, stiffer, so that the round
                    // does not repeat itself; give up after a few tries.
                    if (++stiffened > 3)
                        break;
                    rejected = false;
                    weights.smoothness *= 4.0f;
                    deformer->setProblem(level, m_source, m_levelNodes[size_t(i - 1)], m_controls, weights, true);
                    findPairs(sources, targets, normals);
                }
            }
            // Setting up a solve over a large mesh takes a while; a stop
            // request that came meanwhile is not held up by it.
            if (m_callback.isInterrupted())
                break;
            stage.start();
            const std::clock_t solveCpu = std::clock();
            EmbeddedGraphDeformer::SolveBudget budget;
            budget.iterations = j + 1 == m_parameters.icpIterations ? m_parameters.maxOptimizationIterations
                                                                    : m_parameters.optimizationIterations;
            budget.stepTolerance = double((m_parameters.dpInitial - m_parameters.dpFinal) * u + m_parameters.dpFinal);
            budget.conjugateGradientIterations = m_parameters.conjugateGradientIterations;
            budget.directSolveNodes = m_parameters.directSolveNodes;
            budget.interrupted = &m_callback.interruptedFlag();
            budget.dampingFloor = m_parameters.dampingFloor;
            budget.solveTolerance = i == subdivisions ? m_parameters.finestSolveTolerance : m_parameters.coarseSolveTolerance;
            budget.anchor = m_parameters.cartoonAnchor;
            deformer->setSurfacePairs(m_surfacePairs);
            beforeSolve = m_current;
            deformer->solve(sources, targets, normals, m_current, nodes, state, budget);
            ++solved;
            ++m_course.rounds;
            solveSeconds += double(stage.nsecsElapsed()) / 1e9;
            solveCpuSeconds += double(std::clock() - solveCpu) / CLOCKS_PER_SEC;
            m_callback.update(toQt(m_current), toQt(nodes));
            // Two small moves in a row: a single one may come from a round
            // whose looser step tolerance stopped its solve early (a level's
            // first round). A round right after an undone one starts from a
            // stiffer problem and says nothing about convergence; nor does a
            // solve that did not move at all, which a smaller step tolerance
            // or the last round's larger budget may still move.
            const double moved = rmsMove(beforeSolve, m_current) / double(m_normalisedSize);
            const bool small = !stiffenedNow && moved > 0.0 && moved < double(m_parameters.convergedMove);
            smallMoves = small ? smallMoves + 1 : 0;
            if (smallMoves >= 2 && j + 1 < m_parameters.icpIterations)
                break;
        }
        // The level's last round is judged too, before the next level starts from it.
        if (!rejected && stiffened <= 3 && solved > 0)
            judge(measureCurrent());
        QString work;
        if (auto* fast = dynamic_cast<EmbeddedGraphDeformer::IterativeSolverDeformer::Deformer*>(deformer)) {
            const auto& c = fast->problem()->counters();
            work = QStringLiteral(", %1 values, %2 Jacobians, %3 products (%8 us each), %4 factorisations of %5 sums "
                                  "of J^T J, Jacobian %6 rows, %7 stored values")
                       .arg(c.values)
                       .arg(c.jacobians)
                       .arg(c.products)
                       .arg(fast->problem()->cholesky().factorisations())
                       .arg(fast->problem()->cholesky().assemblies())
                       .arg(fast->problem()->nodeBlockJacobian().rows())
                       .arg(fast->problem()->nodeBlockJacobian().storedValues())
                       .arg(c.products > 0 ? 1e6 * c.productSeconds / double(c.products) : 0.0, 0, 'f', 1);
        }
        qDebug().noquote() << QStringLiteral("Level %1: %2 nodes, %8 rounds, pairs %3 s, solves %4 s (process CPU %7 s)%5, RMS to "
                                             "the nearest target vertex %6")
                                  .arg(i)
                                  .arg(level.nodes.size())
                                  .arg(pairSeconds)
                                  .arg(solveSeconds)
                                  .arg(work)
                                  .arg(distance.rms / double(m_scale))
                                  .arg(solveCpuSeconds)
                                  .arg(solved);
    }
    if (m_parameters.repairFolds && !m_callback.isInterrupted())
        repairFolds();
    distance = measureCurrent();
    m_course.endDistance = distance.rms / double(m_scale);
    m_course.flownOffVertices = distance.flownOff;
    m_callback.end();
    qDebug() << "Welking time:" << double(timer.elapsed()) / 1000.0;
    Q_EMIT finished(toQt(m_current, &m_normalisationInverse));
}

void WelkingWorker::repairFolds()
{
    // The corners of the point pairs stay where the fit put them: the user
    // placed those points, and the fit honoured them.
    std::vector<char> pinned(m_current.size(), 0);
    for (const EmbeddedGraphDeformer::ControlPoint& control : m_controls)
        for (long long corner : control.corners)
            if (corner >= 0 && size_t(corner) < pinned.size())
                pinned[size_t(corner)] = 1;
    // A sliver whose normal a shift of its corners by a millionth of the
    // model's size (or by the last of the six decimals a result file keeps)
    // could turn over is repaired as a fold, so that the written result has
    // no added fold when the fit's own shape has none.
    const double tolerance = std::max(1e-6 * double(m_normalisedSize), 5e-7 * double(m_scale));
    const FoldRepair::Counts counts = FoldRepair(m_source, m_sourceTriangles, tolerance)
                                          .run(m_current, pinned, m_excluded,
                                               {*m_tree, m_target, m_targetNormals, m_parameters.normalsThreshold});
    m_course.foldsBeforeRepair = counts.before;
    m_course.foldsAfterRepair = counts.after;
}

void FastWelkingWorker::start()
{
    EmbeddedGraphDeformer::IterativeSolverDeformer::Deformer deformer;
    run(&deformer);
}

} // namespace WelkingAcceleratedVersion
