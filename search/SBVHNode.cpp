#include "SBVHNode.h"

#include "ClosestPointOnTriangle.h"

#include <cmath>
#include <limits>

namespace SBVH {

int SBVHLeaf::findClosest(const QVector3D& p, const QVector<QVector3D>& vertices,
                          const QVector<int>& triangleIndices, float& bestDistance,
                          QVector3D& closestPoint) const
{
    int found = -1;
    for (int t : triangleList) {
        QVector3D a, b, c;
        if (t == -1) {
            const float inf = std::numeric_limits<float>::infinity();
            a = b = c = QVector3D(inf, inf, inf);
        } else {
            a = vertices[triangleIndices[3 * t]];
            b = vertices[triangleIndices[3 * t + 1]];
            c = vertices[triangleIndices[3 * t + 2]];
        }
        float u, v;
        const QVector3D q = ClosestTriangleSearch::closestPointOnTriangle(a, b, c, p, u, v);
        const float distance = std::sqrt(ClosestTriangleSearch::dot(q - p, q - p));
        if (distance < bestDistance) {
            bestDistance = distance;
            closestPoint = q;
            found = t;
        }
    }
    return found;
}

QVector<int> SBVHNonLeaf::triangles() const
{
    QVector<int> result;
    if (left)
        result += left->triangles();
    if (right)
        result += right->triangles();
    return result;
}

QVector<int> SBVHNonLeaf::trianglesNear(const QVector3D& point) const
{
    if (!left || !right)
        return left ? left->trianglesNear(point) : right ? right->trianglesNear(point) : QVector<int>();
    const auto centreDistanceSq = [&](const TriangleBox& b) {
        const QVector3D centre(0.5f * (b.min[0] + b.max[0]), 0.5f * (b.min[1] + b.max[1]),
                               0.5f * (b.min[2] + b.max[2]));
        return (centre - point).lengthSquared();
    };
    return centreDistanceSq(left->box) < centreDistanceSq(right->box) ? left->trianglesNear(point)
                                                                      : right->trianglesNear(point);
}

int SBVHNonLeaf::findClosest(const QVector3D& p, const QVector<QVector3D>& vertices,
                             const QVector<int>& triangleIndices, float& bestDistance,
                             QVector3D& closestPoint) const
{
    if (!left || !right) {
        const SBVHNode* only = left ? left : right;
        return only ? only->findClosest(p, vertices, triangleIndices, bestDistance, closestPoint) : -1;
    }
    // Only the split plane is tested: a triangle crossing it is referenced on both sides,
    // so everything that can still be nearer lies in the child on p's side.
    const int axis = splitAxis;
    int first = -1, second = -1;
    if (left->box.max[axis] <= p[axis]) {
        first = right->findClosest(p, vertices, triangleIndices, bestDistance, closestPoint);
        if (left->box.max[axis] < p[axis] - bestDistance)
            return first;
        second = left->findClosest(p, vertices, triangleIndices, bestDistance, closestPoint);
    } else {
        first = left->findClosest(p, vertices, triangleIndices, bestDistance, closestPoint);
        if (p[axis] + bestDistance < right->box.min[axis])
            return first;
        second = right->findClosest(p, vertices, triangleIndices, bestDistance, closestPoint);
    }
    return second != -1 ? second : first;
}

void SBVHNonLeaf::collectLeaves(QVector<QPair<SBVHNode*, SBVHNonLeaf*>>& list, SBVHNonLeaf*)
{
    if (left)
        left->collectLeaves(list, this);
    if (right)
        right->collectLeaves(list, this);
}

} // namespace SBVH
