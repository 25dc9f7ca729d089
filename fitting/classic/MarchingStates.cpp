#include "NodesSamplerAndInfluenceSearcher.h"

#include "search/IndexedHeap.h"

#include <QDebug>

#include <Eigen/Core>

#include <cmath>
#include <limits>

namespace DeformationGraphRoutine {

namespace {

constexpr float Infinity = std::numeric_limits<float>::infinity();

/// Arrays and front shared by both marchings. The heap is a max-heap, so
/// distances go in negated.
class MarchingBase : public MarchingState
{
public:
    MarchingBase(const QVector<QVector3D>& vertices, const MeshConnectivity& connectivity)
        : m_vertices(vertices), m_mesh(connectivity), m_distances(vertices.size(), Infinity),
          m_final(vertices.size(), false), m_heap(vertices.size())
    {
    }

    void begin(int source) override
    {
        for (int v : m_touched) {
            m_distances[v] = Infinity;
            m_final[v] = false;
        }
        m_touched.clear();
        m_heap.clear();
        propose(source, 0.0f);
    }

    int next(float& distance) override
    {
        if (m_heap.isEmpty())
            return -1;
        const int v = m_heap.root().id;
        m_heap.removeRoot();
        m_final[v] = true;
        distance = m_distances[v];
        relax(v);
        return v;
    }

protected:
    virtual void relax(int v) = 0;

    /// A candidate replaces the tentative distance only if not larger.
    void propose(int v, float d)
    {
        if (m_final[v] || !(d <= m_distances[v]))
            return;
        if (m_distances[v] == Infinity)
            m_touched.append(v);
        m_distances[v] = d;
        m_heap.insertOrUpdate(v, -double(d));
    }

    float length(int a, int b) const { return (m_vertices[a] - m_vertices[b]).length(); }

    const QVector<QVector3D>& m_vertices;
    const MeshConnectivity& m_mesh;
    QVector<float> m_distances;
    QVector<bool> m_final;
    Welk::IndexedHeap m_heap;
    QVector<int> m_touched;
};

class DijkstraState : public MarchingBase
{
public:
    using MarchingBase::MarchingBase;

protected:
    void relax(int v) override
    {
        for (int k = m_mesh.neighbourOffsets[size_t(v)]; k < m_mesh.neighbourOffsets[size_t(v) + 1]; ++k) {
            const int u = m_mesh.vertexNeighbours[size_t(k)];
            propose(u, m_distances[v] + length(v, u));
        }
    }
};

/// Squared edge lengths at or below this count as coincident corners.
constexpr float ZeroEdgeSq = 1e-20f;
/// Triangles crossed at most when unfolding towards an obtuse corner.
constexpr int UnfoldDepth = 8;

class FastMarchingState : public MarchingBase
{
public:
    using MarchingBase::MarchingBase;

protected:
    void relax(int p) override
    {
        for (int k = m_mesh.triangleOffsets[size_t(p)]; k < m_mesh.triangleOffsets[size_t(p) + 1]; ++k) {
            const int t = m_mesh.vertexTriangles[size_t(k)];
            const int* corners = m_mesh.triangleCorners(t);
            for (int i = 0; i < 3; ++i) {
                const int c = corners[i];
                if (c == p || m_final[c])
                    continue;
                const int a = corners[(i + 1) % 3], b = corners[(i + 2) % 3];
                propose(c, update(t, c, a, b));
            }
        }
    }

private:
    float known(int v) const { return m_final[v] ? m_distances[v] : Infinity; }

    void reportZeroEdge()
    {
        if (!m_zeroEdgeReported)
            qDebug() << "Triangle contains zero-length edge";
        m_zeroEdgeReported = true;
    }

    /// The distance at c through the triangle (c, a, b), from whatever of a
    /// and b is final.
    float update(int t, int c, int a, int b)
    {
        const float da = known(a), db = known(b);
        if (da == Infinity && db == Infinity)
            return Infinity;
        const float lca = length(c, a), lcb = length(c, b);
        if (da == Infinity)
            return db + lcb;
        if (db == Infinity)
            return da + lca;
        const float edgeMin = std::min(da + lca, db + lcb);
        if (lca * lca <= ZeroEdgeSq || lcb * lcb <= ZeroEdgeSq) {
            reportZeroEdge();
            return edgeMin;
        }
        const float lab2 = (m_vertices[a] - m_vertices[b]).lengthSquared();
        const float cosT = (lca * lca + lcb * lcb - lab2) / (2.0f * lca * lcb);
        if (cosT >= 0.0f)
            return std::min(edgeMin, acuteUpdate(da, db, lca, lcb, lab2, cosT));
        return std::min(edgeMin, unfoldedUpdate(t, c, a, b));
    }

    /// The planar wave front through a corner of an acute (or right) angle.
    static float acuteUpdate(float da, float db, float lca, float lcb, float lab2, float cosT)
    {
        const float edgeMin = std::min(da + lca, db + lcb);
        // B is the edge towards the smaller known distance.
        const bool aFirst = da <= db;
        const float dS = aFirst ? da : db, dL = aFirst ? db : da;
        const float B = aFirst ? lca : lcb, A = aFirst ? lcb : lca;
        const float C2 = lab2;
        const float u = dL - dS;
        const float q = 2.0f * B * u * (A * cosT - B);
        const float disc = q * q - 4.0f * C2 * B * B * (u * u - (1.0f - cosT * cosT) * A * A);
        if (C2 == 0.0f || disc < 0.0f)
            return edgeMin;
        const float root = std::sqrt(disc);
        const float t = std::max((root - q) / (2.0f * C2), (-q - root) / (2.0f * C2));
        if (t == 0.0f || t <= u)
            return edgeMin;
        const float ratio = (t - u) * B / t;
        if (ratio <= A * cosT || ratio >= A / cosT)
            return edgeMin;
        return dS + t;
    }

    /// An obtuse corner c: unfold the triangles across the opposite edge
    /// into the plane of (c, a, b) until a final vertex lies inside the
    /// angle at c, and update from the two virtual triangles it makes.
    float unfoldedUpdate(int t, int c, int a, int b)
    {
        using V2 = Eigen::Vector2f;
        const float lca = length(c, a), lcb = length(c, b);
        const float cosT = std::max(-1.0f, (lca * lca + lcb * lcb - (m_vertices[a] - m_vertices[b]).lengthSquared()) /
                                               (2.0f * lca * lcb));
        const V2 pc(0, 0), pa(lca, 0);
        const V2 pb(lcb * cosT, lcb * std::sqrt(std::max(0.0f, 1.0f - cosT * cosT)));
        auto cross = [](const V2& x, const V2& y) { return x.x() * y.y() - x.y() * y.x(); };

        // The edge (e0, e1) to cross, its 2D ends, and the vertex behind it.
        int e0 = a, e1 = b, behind = c, triangle = t;
        V2 q0 = pa, q1 = pb, qBehind = pc;
        for (int depth = 0; depth < UnfoldDepth; ++depth) {
            const int across = m_mesh.triangleAcross(triangle, e0, e1);
            if (across < 0)
                return Infinity;
            const int* corners = m_mesh.triangleCorners(across);
            int x = -1;
            for (int i = 0; i < 3; ++i)
                if (corners[i] != e0 && corners[i] != e1)
                    x = corners[i];
            if (x < 0 || x == behind)
                return Infinity;
            // Place x from its distances to the edge's ends, on the far side.
            const float l01 = (q1 - q0).norm();
            if (l01 <= 0.0f)
                return Infinity;
            const float l0x = length(e0, x), l1x = length(e1, x);
            const float along = (l0x * l0x - l1x * l1x + l01 * l01) / (2.0f * l01);
            const float height = std::sqrt(std::max(0.0f, l0x * l0x - along * along));
            const V2 dir = (q1 - q0) / l01;
            V2 normal(-dir.y(), dir.x());
            if (normal.dot(qBehind - q0) > 0.0f)
                normal = -normal;
            const V2 px = q0 + along * dir + height * normal;

            const bool pastA = cross(pa, px) < 0.0f; // outside the angle on a's side
            const bool pastB = cross(px, pb) < 0.0f; // outside on b's side
            if (!pastA && !pastB) {
                const float dx = known(x);
                if (dx == Infinity)
                    return Infinity;
                const float lcx = px.norm();
                float best = dx + lcx;
                const float da = known(a), db = known(b);
                for (const auto& side : {std::make_pair(pa, da), std::make_pair(pb, db)}) {
                    const float l = side.first.norm();
                    const float lab2 = (side.first - px).squaredNorm();
                    const float cosSub = side.first.dot(px) / (l * lcx);
                    if (side.second != Infinity && cosSub >= 0.0f && lcx > 0.0f)
                        best = std::min(best, acuteUpdate(side.second, dx, l, lcx, lab2, cosSub));
                }
                return best;
            }
            // The angle at c leaves the unfolded triangle through one of its
            // two other edges: go on across that one.
            triangle = across;
            if (pastA) {
                behind = e0;
                qBehind = q0;
                e0 = x;
                q0 = px;
            } else {
                behind = e1;
                qBehind = q1;
                e1 = x;
                q1 = px;
            }
        }
        return Infinity;
    }

    bool m_zeroEdgeReported = false;
};

} // namespace

std::unique_ptr<MarchingState>
FastMarching2NodesSamplerAndInfluenceSearcher::createState(const QVector<QVector3D>& vertices,
                                                           const MeshConnectivity& connectivity) const
{
    return std::make_unique<FastMarchingState>(vertices, connectivity);
}

std::unique_ptr<MarchingState>
DijkstraNodesSamplerAndInfluenceSearcherOld::createState(const QVector<QVector3D>& vertices,
                                                         const MeshConnectivity& connectivity) const
{
    return std::make_unique<DijkstraState>(vertices, connectivity);
}

} // namespace DeformationGraphRoutine
