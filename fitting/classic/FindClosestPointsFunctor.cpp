#include "FindClosestPointsFunctor.h"
#include "FindClosestPointsFunctorWithFilteringHeuristics.h"

#include "search/KDTree.h"

namespace ICPRoutine {

FindClosestPointsFunctor::FindClosestPointsFunctor(const KDTree::NodeBase& tree, QVector<bool> mask)
    : m_tree(tree), m_mask(std::move(mask))
{
}

QVector<int> FindClosestPointsFunctor::findClosestPoints(const QVector<QVector3D>& vertices,
                                                         const QVector<QVector3D>& targetVertices) const
{
    QVector<int> matches(vertices.size(), -1);
    for (int v = 0; v < vertices.size(); ++v)
        if (m_mask.isEmpty() || v >= m_mask.size() || !m_mask[v])
            matches[v] = m_tree.findNearestPointInd(vertices[v], targetVertices);
    return matches;
}

} // namespace ICPRoutine

namespace Welking {

FindClosestPointsFunctorWithFilteringHeuristics::FindClosestPointsFunctorWithFilteringHeuristics(
    const KDTree::NodeBase& tree, QVector<QVector3D> targetNormals, QVector<int> triangles, QVector<bool> mask,
    float minCosBetweenNormals)
    : FindClosestPointsFunctor(tree, std::move(mask)), m_targetNormals(std::move(targetNormals)),
      m_triangles(std::move(triangles)), m_minCos(minCosBetweenNormals)
{
}

QVector<QVector3D> FindClosestPointsFunctorWithFilteringHeuristics::vertexNormals(const QVector<QVector3D>& vertices,
                                                                                const QVector<int>& triangles)
{
    QVector<QVector3D> normals(vertices.size());
    for (int t = 0; t + 2 < triangles.size(); t += 3)
        for (int c = 0; c < 3; ++c) {
            const int v = triangles[t + c];
            const QVector3D a = (vertices[triangles[t + (c + 1) % 3]] - vertices[v]) * 1000.0f;
            const QVector3D b = (vertices[triangles[t + (c + 2) % 3]] - vertices[v]) * 1000.0f;
            normals[v] += QVector3D::crossProduct(a, b).normalized();
        }
    for (QVector3D& n : normals)
        n.normalize();
    return normals;
}

QVector<int> FindClosestPointsFunctorWithFilteringHeuristics::findClosestPoints(
    const QVector<QVector3D>& vertices, const QVector<QVector3D>& targetVertices) const
{
    QVector<int> matches = FindClosestPointsFunctor::findClosestPoints(vertices, targetVertices);
    const QVector<QVector3D> normals = vertexNormals(vertices, m_triangles);
    for (int v = 0; v < matches.size(); ++v) {
        const int m = matches[v];
        if (m < 0)
            continue;
        const QVector3D& a = normals[v];
        const QVector3D& b = m < m_targetNormals.size() ? m_targetNormals[m] : QVector3D();
        const double dot = double(a.x()) * double(b.x()) + double(a.y()) * double(b.y()) + double(a.z()) * double(b.z());
        if (dot < double(m_minCos))
            matches[v] = -1;
    }
    return matches;
}

} // namespace Welking
