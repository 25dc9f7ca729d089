#include "SBVHTree.h"

#include <limits>

namespace SBVH {

SBVHTree::SBVHTree(SBVHBuilder& builder)
{
    m_root = builder.build();
    m_leafCount = builder.leafCount();
    m_innerCount = builder.innerCount();
    m_vertices = builder.vertices;
    m_triangleIndices = builder.triangleIndices;
}

SBVHTree::~SBVHTree()
{
    delete m_root;
}

int SBVHTree::findClosestTriangle(const QVector3D& p, QVector3D& closestPoint) const
{
    if (!m_root)
        return -1;
    float bestDistance = std::numeric_limits<float>::max();
    return m_root->findClosest(p, m_vertices, m_triangleIndices, bestDistance, closestPoint);
}

int SBVHTree::findPointOnTriangle(const QVector3D& p, QVector3D& barycentric) const
{
    QVector3D q;
    const int t = findClosestTriangle(p, q);
    if (t < 0) {
        const float nan = std::numeric_limits<float>::quiet_NaN();
        barycentric = QVector3D(nan, nan, nan);
        return t;
    }
    const QVector3D& a = m_vertices[m_triangleIndices[3 * t]];
    const QVector3D e0 = m_vertices[m_triangleIndices[3 * t + 1]] - a;
    const QVector3D e1 = m_vertices[m_triangleIndices[3 * t + 2]] - a;
    const QVector3D e2 = q - a;
    const float d00 = QVector3D::dotProduct(e0, e0);
    const float d01 = QVector3D::dotProduct(e0, e1);
    const float d11 = QVector3D::dotProduct(e1, e1);
    const float d20 = QVector3D::dotProduct(e2, e0);
    const float d21 = QVector3D::dotProduct(e2, e1);
    const float denom = d00 * d11 - d01 * d01;
    const float v = (d11 * d20 - d01 * d21) / denom;
    const float w = (d00 * d21 - d01 * d20) / denom;
    barycentric = QVector3D(1.0f - v - w, v, w);
    return t;
}

size_t SBVHTree::memoryBytes() const
{
    size_t bytes = 0;
    QVector<const SBVHNode*> stack;
    if (m_root)
        stack.append(m_root);
    while (!stack.isEmpty()) {
        const SBVHNode* node = stack.takeLast();
        if (const auto* leaf = dynamic_cast<const SBVHLeaf*>(node)) {
            bytes += sizeof(SBVHLeaf) + size_t(leaf->triangleList.capacity()) * sizeof(int);
        } else if (const auto* inner = dynamic_cast<const SBVHNonLeaf*>(node)) {
            bytes += sizeof(SBVHNonLeaf);
            if (inner->left)
                stack.append(inner->left);
            if (inner->right)
                stack.append(inner->right);
        }
    }
    return bytes;
}

QVector<Welk::WPointOnTriangle> projectPoints(const QVector<QVector3D>& points, const SBVHTree& tree)
{
    QVector<Welk::WPointOnTriangle> result(points.size());
    for (int i = 0; i < points.size(); ++i) {
        QVector3D barycentric;
        const int t = tree.findPointOnTriangle(points[i], barycentric);
        if (t >= 0)
            result[i] = {t, barycentric.x(), barycentric.y()};
    }
    return result;
}

QVector<Welk::WPointOnTriangle> projectPoints(const QVector<QVector3D>& vertices,
                                              const QVector<int>& triangleIndices,
                                              const QVector<QVector3D>& points)
{
    SBVHMultithreadRecursiveBuilder builder(vertices, triangleIndices);
    SBVHTree tree(builder);
    return projectPoints(points, tree);
}

} // namespace SBVH
