#include "DijkstraPathFinders.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <queue>
#include <vector>

namespace WSpline {

PathFinder::PathFinder(const GeometryStack2::GeomStackTriangulated& mesh) : m_mesh(mesh)
{
    const QVector<int>& triangles = mesh.triangleVertexIndices();
    const int n = mesh.vertexCount();
    m_vertexTriangle.fill(-1, n);
    std::vector<std::vector<int>> rows(static_cast<size_t>(n));
    double total = 0;
    long long edges = 0;
    for (int t = 0; t < triangles.size() / 3; ++t)
        for (int k = 0; k < 3; ++k) {
            const int a = triangles[3 * t + k], b = triangles[3 * t + (k + 1) % 3];
            if (a < 0 || b < 0 || a >= n || b >= n)
                continue;
            if (m_vertexTriangle[a] < 0)
                m_vertexTriangle[a] = t;
            rows[size_t(a)].push_back(b);
            rows[size_t(b)].push_back(a);
        }
    m_neighbourStart.resize(n + 1);
    m_neighbourStart[0] = 0;
    for (int v = 0; v < n; ++v) {
        std::vector<int>& row = rows[size_t(v)];
        std::sort(row.begin(), row.end());
        row.erase(std::unique(row.begin(), row.end()), row.end());
        for (int w : row) {
            m_neighbours.append(w);
            if (w > v) {
                total += double((mesh.vertices()[v] - mesh.vertices()[w]).length());
                ++edges;
            }
        }
        m_neighbourStart[v + 1] = m_neighbours.size();
    }
    if (edges > 0 && total > 0)
        m_meanEdge = total / double(edges);
}

PathFinder::~PathFinder() = default;

QVector3D PathFinder::position(const Welk::WPointOnTriangle& p) const
{
    return p.position(m_mesh.vertices(), m_mesh.triangleVertexIndices());
}

Welk::WPointOnTriangle PathFinder::vertexPoint(int vertex) const
{
    if (vertex < 0 || vertex >= m_vertexTriangle.size() || m_vertexTriangle[vertex] < 0)
        return Welk::WPointOnTriangle();
    const int t = m_vertexTriangle[vertex];
    const QVector<int>& triangles = m_mesh.triangleVertexIndices();
    if (triangles[3 * t] == vertex)
        return Welk::WPointOnTriangle{t, 1.0f, 0.0f};
    if (triangles[3 * t + 1] == vertex)
        return Welk::WPointOnTriangle{t, 0.0f, 1.0f};
    return Welk::WPointOnTriangle{t, 0.0f, 0.0f};
}

QVector<Welk::WPointOnTriangle> PathFinder::findPath(const Welk::WPointOnTriangle& from,
                                                     const Welk::WPointOnTriangle& to) const
{
    const int triangles = m_mesh.triangleCount();
    if (!from.isValid() || !to.isValid() || from.triangle >= triangles || to.triangle >= triangles)
        return {};
    if (from.triangle == to.triangle)
        return {from, to};
    QVector<int> vertices;
    if (!search(from, to, vertices))
        return {};
    QVector<Welk::WPointOnTriangle> path{from};
    for (int v : vertices)
        path.append(vertexPoint(v));
    path.append(to);
    return path;
}

bool PathFinder::search(const Welk::WPointOnTriangle& from, const Welk::WPointOnTriangle& to,
                        QVector<int>& vertices) const
{
    const QVector<int>& triangles = m_mesh.triangleVertexIndices();
    const QVector<QVector3D>& positions = m_mesh.vertices();
    const QVector3D start = position(from), end = position(to);
    const int n = m_mesh.vertexCount();
    const bool directional = dependsOnDirection();

    // Search states: a vertex, or, for costs that depend on the way in, an
    // arrival at a vertex along one edge (CSR slot of the edge seen from its
    // far end) plus three starting arrivals from the `from` point.
    const int edgeStates = m_neighbours.size();
    const int stateCount = directional ? edgeStates + 3 : n;
    std::vector<double> cost(size_t(stateCount), std::numeric_limits<double>::infinity());
    std::vector<int> previous(size_t(stateCount), -1);
    std::vector<int> stateVertex(directional ? size_t(stateCount) : 0);
    if (directional) {
        for (int v = 0; v < n; ++v)
            for (int k = m_neighbourStart[v]; k < m_neighbourStart[v + 1]; ++k)
                stateVertex[size_t(k)] = m_neighbours[k];
    }
    const auto vertexOf = [&](int state) { return directional ? stateVertex[size_t(state)] : state; };
    const auto incoming = [&](int state) -> QVector3D {
        if (!directional)
            return QVector3D();
        const int v = stateVertex[size_t(state)];
        const QVector3D origin = state >= edgeStates ? start : positions[previous[size_t(state)] >= 0 ? vertexOf(previous[size_t(state)]) : v];
        return positions[v] - origin;
    };

    using Entry = std::pair<double, int>;
    std::priority_queue<Entry, std::vector<Entry>, std::greater<Entry>> queue;
    for (int k = 0; k < 3; ++k) {
        const int corner = triangles[3 * from.triangle + k];
        const int state = directional ? edgeStates + k : corner;
        if (directional)
            stateVertex[size_t(state)] = corner;
        const double c = endCost(double((positions[corner] - start).length()));
        if (c < cost[size_t(state)]) {
            cost[size_t(state)] = c;
            queue.push({c, state});
        }
    }
    double exitCost[3];
    int targets[3];
    for (int k = 0; k < 3; ++k) {
        targets[k] = triangles[3 * to.triangle + k];
        exitCost[k] = endCost(double((positions[targets[k]] - end).length()));
    }
    double best = std::numeric_limits<double>::infinity();
    int bestState = -1;
    while (!queue.empty()) {
        const auto [c, state] = queue.top();
        queue.pop();
        if (c > cost[size_t(state)])
            continue;
        if (c >= best)
            break;
        const int v = vertexOf(state);
        for (int k = 0; k < 3; ++k)
            if (targets[k] == v && c + exitCost[k] < best) {
                best = c + exitCost[k];
                bestState = state;
            }
        const QVector3D in = incoming(state);
        for (int slot = m_neighbourStart[v]; slot < m_neighbourStart[v + 1]; ++slot) {
            const int w = m_neighbours[slot];
            const double next = c + stepCost(v, w, in);
            const int nextState = directional ? slot : w;
            if (next < cost[size_t(nextState)]) {
                cost[size_t(nextState)] = next;
                previous[size_t(nextState)] = state;
                queue.push({next, nextState});
            }
        }
    }
    if (bestState < 0)
        return false;
    vertices.clear();
    for (int s = bestState; s >= 0; s = previous[size_t(s)])
        vertices.prepend(vertexOf(s));
    return true;
}

double NaiveDijkstraPathFinder::stepCost(int a, int b, const QVector3D&) const
{
    return double((m_mesh.vertices()[a] - m_mesh.vertices()[b]).length());
}

TurnPenalizingDijkstraPathFinder::TurnPenalizingDijkstraPathFinder(const GeometryStack2::GeomStackTriangulated& mesh,
                                                                   double turnWeight)
    : PathFinder(mesh), m_turnWeight(turnWeight)
{
}

double TurnPenalizingDijkstraPathFinder::stepCost(int a, int b, const QVector3D& incoming) const
{
    const QVector3D out = m_mesh.vertices()[b] - m_mesh.vertices()[a];
    const double length = double(out.length());
    const float inLength = incoming.length();
    if (inLength <= 0.0f || length <= 0.0)
        return length;
    const double cosine = double(QVector3D::dotProduct(incoming, out)) / (double(inLength) * length);
    return length + m_turnWeight * m_meanEdge * (1.0 - cosine);
}

double TopologicalDijkstraPathFinder::stepCost(int, int, const QVector3D&) const
{
    return 1.0;
}

} // namespace WSpline
