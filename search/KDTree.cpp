#include "KDTree.h"

#include "KDTreeSplit.h"

#include <QDebug>

#include <limits>

namespace KDTree {

namespace {

constexpr float Largest = std::numeric_limits<float>::max();

inline float squaredDistance(const QVector3D& a, const QVector3D& b)
{
    const float dx = a.x() - b.x(), dy = a.y() - b.y(), dz = a.z() - b.z();
    return dx * dx + dy * dy + dz * dz;
}

template <typename Query>
int nearestIndex(const NodeBase& node, const Query& query, const QVector<QVector3D>& points, float* distanceSq)
{
    int index = -1;
    float best = Largest;
    node.findNearestPoint(query, points, index, best);
    if (distanceSq)
        *distanceSq = best;
    return index;
}

NodeBase* buildSubtree(std::vector<int>& indices, const QVector<QVector3D>& points, size_t leafSize)
{
    auto split = Welk::KDTreeDetail::chooseSplit(indices, leafSize, [&](int i, int axis) { return points[i][axis]; });
    if (split.makeLeaf)
        return new NodeLeaf(QVector<int>(indices.begin(), indices.end()), points);
    std::vector<int>().swap(indices);
    NodeBase* left = buildSubtree(split.left, points, leafSize);
    NodeBase* right = buildSubtree(split.right, points, leafSize);
    return new Node(left, right, split.axis, split.split);
}

} // namespace

// --- NodeBase -------------------------------------------------------------

NodeBase::~NodeBase() = default;

void NodeBase::findNearestPoint(const QVector3D&, const QVector<QVector3D>&, int&, float&) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPoint";
}

int NodeBase::findNearestPointInd(const QVector3D&, const QVector<QVector3D>&, float*) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPointInd";
    return -1;
}

void NodeBase::findNearestPoint(int, const QVector<QVector3D>&, int&, float&) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPoint";
}

int NodeBase::findNearestPointInd(int, const QVector<QVector3D>&, float*) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPointInd";
    return -1;
}

void NodeBase::findNearestPointInRadius(const QVector3D&, const QVector<QVector3D>&, QVector<int>&, float) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPointInRadius";
}

void NodeBase::findKNearestPointsIndsInSecondaryBranch(QVector3D, const QVector<QVector3D>&, int, IndexedHeap&) const
{
    qDebug() << "Calling virtual method NodeBase::findKNearestPointsIndsInSecondaryBranch";
}

void NodeBase::findKNearestPointsInds(QVector3D, const QVector<QVector3D>&, int, IndexedHeap&) const
{
    qDebug() << "Calling virtual method NodeBase::findKNearestPointsInds";
}

int NodeBase::dataSize() const
{
    return -1;
}

NodeBase* NodeBase::clone() const
{
    return nullptr;
}

// --- Node -----------------------------------------------------------------

Node::Node(NodeBase* l, NodeBase* r, int a, float s) : left(l), right(r), axis(a), split(s) {}

Node::~Node()
{
    delete left;
    delete right;
}

void Node::findNearestPoint(const QVector3D& p, const QVector<QVector3D>& points, int& index,
                            float& distanceSq) const
{
    const bool rightIsNear = split <= p[axis];
    (rightIsNear ? right : left)->findNearestPoint(p, points, index, distanceSq);
    const float d = split - p[axis];
    // A plane at exactly the best distance is still visited.
    if (d * d <= distanceSq)
        (rightIsNear ? left : right)->findNearestPoint(p, points, index, distanceSq);
}

int Node::findNearestPointInd(const QVector3D& p, const QVector<QVector3D>& points, float* distanceSq) const
{
    return nearestIndex(*this, p, points, distanceSq);
}

void Node::findNearestPoint(int self, const QVector<QVector3D>& points, int& index, float& distanceSq) const
{
    const QVector3D& p = points[self];
    const bool rightIsNear = split <= p[axis];
    (rightIsNear ? right : left)->findNearestPoint(self, points, index, distanceSq);
    const float d = split - p[axis];
    // Until something is found the far side is always searched.
    if (index == -1 || !(distanceSq < d * d))
        (rightIsNear ? left : right)->findNearestPoint(self, points, index, distanceSq);
}

int Node::findNearestPointInd(int self, const QVector<QVector3D>& points, float* distanceSq) const
{
    return nearestIndex(*this, self, points, distanceSq);
}

void Node::findNearestPointInRadius(const QVector3D& p, const QVector<QVector3D>& points, QVector<int>& result,
                                    float radiusSq) const
{
    const float d = p[axis] - split;
    if (radiusSq <= d * d) {
        if (p[axis] < split)
            left->findNearestPointInRadius(p, points, result, radiusSq);
        else if (p[axis] > split)
            right->findNearestPointInRadius(p, points, result, radiusSq);
        return;
    }
    left->findNearestPointInRadius(p, points, result, radiusSq);
    right->findNearestPointInRadius(p, points, result, radiusSq);
}

void Node::findKNearestPointsIndsInSecondaryBranch(QVector3D p, const QVector<QVector3D>& points, int k,
                                                   IndexedHeap& heap) const
{
    const float d = p[axis] - split;
    if (heap.count() >= k && !(float(heap.maxKey()) > d * d)) {
        if (p[axis] < split)
            left->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
        else if (p[axis] > split)
            right->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
        return;
    }
    left->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
    right->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
}

void Node::findKNearestPointsInds(QVector3D p, const QVector<QVector3D>& points, int k, IndexedHeap& heap) const
{
    const bool rightIsNear = split <= p[axis];
    (rightIsNear ? right : left)->findKNearestPointsInds(p, points, k, heap);
    const double d = double(p[axis]) - double(split);
    if (heap.count() < k || d * d < heap.maxKey())
        (rightIsNear ? left : right)->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
}

int Node::dataSize() const
{
    return left->dataSize() + right->dataSize();
}

NodeBase* Node::clone() const
{
    return new Node(left->clone(), right->clone(), axis, split);
}

// --- NodeLeaf -------------------------------------------------------------

NodeLeaf::NodeLeaf(const QVector<int>& leafIndices, const QVector<QVector3D>& allPoints) : indices(leafIndices)
{
    points.reserve(indices.size());
    for (int i : indices)
        points.append(allPoints[i]);
}

void NodeLeaf::findNearestPoint(const QVector3D& p, const QVector<QVector3D>&, int& index, float& distanceSq) const
{
    const QVector3D* stored = points.constData();
    for (int i = 0; i < indices.size(); ++i) {
        const float d = squaredDistance(p, stored[i]);
        // Of equally near points the first scanned wins.
        if (d < distanceSq) {
            distanceSq = d;
            index = indices[i];
        }
    }
}

int NodeLeaf::findNearestPointInd(const QVector3D& p, const QVector<QVector3D>& points, float* distanceSq) const
{
    return nearestIndex(*this, p, points, distanceSq);
}

void NodeLeaf::findNearestPoint(int self, const QVector<QVector3D>& allPoints, int& index, float& distanceSq) const
{
    const QVector3D p = allPoints[self];
    for (int i = 0; i < indices.size(); ++i) {
        if (indices[i] == self)
            continue;
        const float d = squaredDistance(p, points[i]);
        if (d < distanceSq) {
            distanceSq = d;
            index = indices[i];
        }
    }
}

int NodeLeaf::findNearestPointInd(int self, const QVector<QVector3D>& points, float* distanceSq) const
{
    return nearestIndex(*this, self, points, distanceSq);
}

void NodeLeaf::findNearestPointInRadius(const QVector3D& p, const QVector<QVector3D>&, QVector<int>& result,
                                        float radiusSq) const
{
    for (int i = 0; i < indices.size(); ++i)
        if (squaredDistance(p, points[i]) < radiusSq)
            result.append(indices[i]);
}

void NodeLeaf::findKNearestPointsIndsInSecondaryBranch(QVector3D p, const QVector<QVector3D>& allPoints, int k,
                                                       IndexedHeap& heap) const
{
    findKNearestPointsInds(p, allPoints, k, heap);
}

void NodeLeaf::findKNearestPointsInds(QVector3D p, const QVector<QVector3D>&, int k, IndexedHeap& heap) const
{
    for (int i = 0; i < indices.size(); ++i) {
        heap.insertOrUpdate(indices[i], double(squaredDistance(p, points[i])));
        if (heap.count() > k)
            heap.removeRoot();
    }
}

int NodeLeaf::dataSize() const
{
    return 4 * indices.size();
}

NodeBase* NodeLeaf::clone() const
{
    return new NodeLeaf(*this);
}

// --- build ----------------------------------------------------------------

NodeBase* build(const QVector<QVector3D>& points, int leafSize)
{
    std::vector<int> indices(size_t(points.size()));
    for (int i = 0; i < points.size(); ++i)
        indices[size_t(i)] = i;
    return buildSubtree(indices, points, size_t(std::max(1, leafSize)));
}

} // namespace KDTree
