#include "WSymmetryPoints.h"

#include "symmetry/SymmetryDetectionTBB.h"

#include "geometry/ProgressInterface.h"

#include <numeric>

namespace Welk {

WSymmetryPoints::WSymmetryPoints(QObject* parent) : QObject(parent) {}

void WSymmetryPoints::setGeometry(const QVector<QVector3D>& vertices, const QVector<int>& polygonOffsets,
                                  const QVector<int>& indices)
{
    m_vertices = vertices;
    m_polygonOffsets = polygonOffsets;
    m_indices = indices;
    m_result.clear();
    m_mirror.clear();
    m_attempted = false;
    m_message.clear();
}

int WSymmetryPoints::detectionState() const
{
    if (m_result.size() >= 2 && !m_vertices.isEmpty() && m_result[0].size() == m_vertices.size())
        return 0;
    return m_attempted ? 1 : -1;
}

void WSymmetryPoints::setSymmetryMode(int mode, ProgressInterface* progress)
{
    m_mode = mode;
    if (mode != TopologicalSymmetry) {
        Q_EMIT symmDetectState(0);
        return;
    }
    if (detectionState() == -1) {
        Q_EMIT symmDetectStarted();
        detect(progress);
        Q_EMIT symmDetectFinished();
    }
    Q_EMIT symmDetectState(detectionState());
}

bool WSymmetryPoints::detect(ProgressInterface* progress)
{
    m_result.clear();
    m_mirror.clear();
    m_message.clear();
    const int polygons = std::max(0, m_polygonOffsets.size() - 1);
    if (connectedParts(m_vertices.size(), m_polygonOffsets, m_indices) > 1) {
        // A walk never leaves its part, so the search could only fail, and
        // only after trying every candidate.
        m_attempted = true;
        m_message = QStringLiteral("Mesh is composed of several parts.\n"
                                   "Topology-based symmetry needs one connected mesh.");
        return false;
    }
    const int seed = m_vertices.size() / 2;
    const bool found =
        SymmetryDetectionTBB::detectTopologicalSymmetry(m_polygonOffsets, m_indices, seed, m_result, progress);
    if (progress && progress->isCancelled()) {
        // Stopped by the user: the next switch to the mode tries again.
        m_result.clear();
        m_message = QStringLiteral("Symmetry detection was stopped.");
        return false;
    }
    m_attempted = true;
    if (found && detectionState() == 0) {
        m_mirror.fill(-1, m_vertices.size());
        for (int k = 0; k < m_result[0].size(); ++k)
            m_mirror[m_result[0][k] - 1] = m_result[1][k] - 1;
        return true;
    }
    m_result.clear();
    m_message = polygons % 2 == 1 ? QStringLiteral("Mesh is composed of uneven number of polygons.\n"
                                                   "Topology-based symmetry cannot be established.")
                                  : QStringLiteral("Topological symmetry has not been detected.");
    return false;
}

bool WSymmetryPoints::mirrorVertex(int vertexIndex, int& mirrored) const
{
    if (m_mode != TopologicalSymmetry || detectionState() != 0 || vertexIndex < 0 || vertexIndex >= m_mirror.size())
        return false;
    mirrored = m_mirror[vertexIndex];
    return mirrored >= 0;
}

int WSymmetryPoints::connectedParts(int vertexCount, const QVector<int>& polygonOffsets, const QVector<int>& indices)
{
    std::vector<int> parent(size_t(std::max(vertexCount, 0)));
    std::iota(parent.begin(), parent.end(), 0);
    auto find = [&parent](int v) {
        while (parent[size_t(v)] != v) {
            parent[size_t(v)] = parent[size_t(parent[size_t(v)])];
            v = parent[size_t(v)];
        }
        return v;
    };
    std::vector<char> used(parent.size(), 0);
    for (int f = 0; f + 1 < polygonOffsets.size(); ++f) {
        const int begin = polygonOffsets[f], end = polygonOffsets[f + 1];
        for (int i = begin; i < end; ++i) {
            const int v = indices[i];
            if (v < 0 || v >= vertexCount)
                continue;
            used[size_t(v)] = 1;
            const int first = indices[begin];
            if (first < 0 || first >= vertexCount)
                continue;
            const int a = find(first), b = find(v);
            if (a != b)
                parent[size_t(b)] = a;
        }
    }
    int parts = 0;
    for (size_t v = 0; v < parent.size(); ++v)
        if (used[v] && find(int(v)) == int(v))
            ++parts;
    return parts;
}

} // namespace Welk
