#include "SBVHBuilder.h"

#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace SBVH {

void SBVHRecursiveBuilder::prepare(QVector<int>& all, TriangleBox& root)
{
    const int n = triangleIndices.size() / 3;
    if (triangleBoxes.isEmpty()) {
        triangleBoxes.resize(n);
        for (int t = 0; t < n; ++t) {
            TriangleBox& b = triangleBoxes[t];
            b.id = t;
            const QVector3D& p0 = vertices[triangleIndices[3 * t]];
            const QVector3D& p1 = vertices[triangleIndices[3 * t + 1]];
            const QVector3D& p2 = vertices[triangleIndices[3 * t + 2]];
            for (int a = 0; a < 3; ++a) {
                b.min[a] = std::min({p0[a], p1[a], p2[a]});
                b.max[a] = std::max({p0[a], p1[a], p2[a]});
            }
        }
        binPositions.resize(binCount);
        for (int i = 0; i < binCount; ++i)
            binPositions[i] = float(i) / float(binCount);
    }
    all.resize(n);
    for (int t = 0; t < n; ++t)
        all[t] = t;
    const float inf = std::numeric_limits<float>::infinity();
    for (int a = 0; a < 3; ++a) {
        root.min[a] = n > 0 ? inf : 0.0f;
        root.max[a] = n > 0 ? -inf : 0.0f;
    }
    for (const TriangleBox& b : triangleBoxes)
        for (int a = 0; a < 3; ++a) {
            root.min[a] = std::min(root.min[a], b.min[a]);
            root.max[a] = std::max(root.max[a], b.max[a]);
        }
}

SBVHNode* SBVHRecursiveBuilder::build()
{
    QVector<int> all;
    TriangleBox root;
    prepare(all, root);
    return buildNode(root, all, 0, maxDepth);
}

SBVHRecursiveBuilder::Split SBVHRecursiveBuilder::findSplit(const TriangleBox& box,
                                                            const QVector<int>& triangles, float budget) const
{
    const float e[3] = {box.max[0] - box.min[0], box.max[1] - box.min[1], box.max[2] - box.min[2]};
    const float halfArea = e[1] * e[2] + e[0] * e[2] + e[0] * e[1];
    const int n = triangles.size();
    QVector<int> starts(binCount + 1), ends(binCount + 1);
    Split best;
    float bestCost = std::numeric_limits<float>::infinity();
    int bestBin = 0;
    for (int axis = 0; axis < 3; ++axis) {
        if (std::abs(e[axis]) <= 1e-5f)
            continue;
        const float invWidth = float(binCount) / e[axis];
        starts.fill(0);
        ends.fill(0);
        for (int t : triangles) {
            const TriangleBox& tri = triangleBoxes[t];
            // A triangle reaching beyond the box on a side counts on neither end there.
            if (tri.min[axis] >= box.min[axis])
                ++starts[std::min(binCount, int((tri.min[axis] - box.min[axis]) * invWidth))];
            if (tri.max[axis] <= box.max[axis])
                ++ends[std::min(binCount, int((tri.max[axis] - box.min[axis]) * invWidth))];
        }
        starts[binCount - 1] += starts[binCount];
        ends[binCount - 1] += ends[binCount];
        for (int b = binCount - 2; b >= 0; --b)
            starts[b] += starts[b + 1];
        const int o1 = (axis + 1) % 3, o2 = (axis + 2) % 3;
        const float perp = e[o1] * e[o2];
        const float side = e[o1] + e[o2];
        for (int b = 1; b < binCount; ++b) {
            ends[b] += ends[b - 1];
            const float t = binPositions[b] * e[axis];
            const float leftArea = perp + t * side;
            const float rightArea = halfArea + perp - leftArea;
            const int leftCount = n - starts[b];
            const int rightCount = n - ends[b - 1];
            const float cost = leftArea * float(leftCount) + rightArea * float(rightCount);
            if (cost < bestCost) {
                bestCost = cost;
                bestBin = b;
                best.axis = axis;
                best.leftCount = leftCount;
                best.rightCount = rightCount;
            }
        }
    }
    if (best.axis < 0 || !(intersectionCost * bestCost / halfArea + traversalCost <= budget))
        return Split();
    best.position = box.min[best.axis] + e[best.axis] * binPositions[bestBin];
    return best;
}

SBVHNode* SBVHRecursiveBuilder::buildNode(const TriangleBox& box, const QVector<int>& triangles, int depth,
                                          int maxDepth)
{
    SBVHNonLeaf* node = makeInnerNode(box);
    Split split;
    if (depth < maxDepth && triangles.size() > maxLeafSize)
        split = findSplit(box, triangles, float(triangles.size()) * intersectionCost);
    if (split.axis < 0) {
        deleteInnerNode(node);
        return makeLeaf(box, triangles);
    }

    QVector<int> left, right;
    left.reserve(split.leftCount);
    right.reserve(split.rightCount);
    for (int t : triangles) {
        const TriangleBox& tri = triangleBoxes[t];
        if (tri.max[split.axis] <= split.position) {
            left.append(t);
        } else {
            right.append(t);
            if (tri.min[split.axis] < split.position)
                left.append(t);
        }
    }
    node->splitAxis = split.axis;
    TriangleBox leftBox = box, rightBox = box;
    leftBox.max[split.axis] = split.position;
    rightBox.min[split.axis] = split.position;
    if (!left.isEmpty())
        node->left = buildNode(leftBox, left, depth + 1, maxDepth);
    if (!right.isEmpty())
        node->right = buildNode(rightBox, right, depth + 1, maxDepth);
    return node;
}

SBVHNonLeaf* SBVHRecursiveBuilder::makeInnerNode(const TriangleBox& box)
{
    ++m_innerCount;
    return new SBVHNonLeaf(box);
}

SBVHLeaf* SBVHRecursiveBuilder::makeLeaf(const TriangleBox& box, const QVector<int>& triangles)
{
    ++m_leafCount;
    return new SBVHLeaf(box, triangles);
}

void SBVHRecursiveBuilder::deleteLeaf(SBVHNode* node)
{
    --m_leafCount;
    delete node;
}

void SBVHRecursiveBuilder::deleteInnerNode(SBVHNonLeaf* node)
{
    --m_innerCount;
    delete node;
}

SBVHNode* SBVHMultithreadRecursiveBuilder::build()
{
    QVector<int> all;
    TriangleBox rootBox;
    prepare(all, rootBox);
    const int firstDepth = threadCount > 0 ? int(std::floor(std::log2(double(threadCount)))) : -1;
    SBVHNode* root = buildNode(rootBox, all, 0, firstDepth);

    QVector<QPair<SBVHNode*, SBVHNonLeaf*>> leaves;
    root->collectLeaves(leaves, nullptr);
    if (leaves.size() == 1 && leaves[0].second == nullptr) {
        // One thread, or no thread count: the first phase stopped at the root, which is built in full here.
        auto* leaf = static_cast<SBVHLeaf*>(root);
        root = buildNode(leaf->box, leaf->triangleList, std::max(firstDepth, 0), maxDepth);
        deleteLeaf(leaf);
        return root;
    }
    tbb::parallel_for(
        tbb::blocked_range<int>(0, leaves.size()),
        [&](const tbb::blocked_range<int>& range) {
            for (int i = range.begin(); i != range.end(); ++i) {
                auto* leaf = static_cast<SBVHLeaf*>(leaves[i].first);
                SBVHNonLeaf* parent = leaves[i].second;
                SBVHNode* subtree = buildNode(leaf->box, leaf->triangleList, firstDepth, maxDepth);
                if (parent->left == leaf)
                    parent->left = subtree;
                else
                    parent->right = subtree;
                deleteLeaf(leaf);
            }
        },
        tbb::static_partitioner());
    return root;
}

SBVHNonLeaf* SBVHMultithreadRecursiveBuilder::makeInnerNode(const TriangleBox& box)
{
    ++m_atomicInnerCount;
    return new SBVHNonLeaf(box);
}

SBVHLeaf* SBVHMultithreadRecursiveBuilder::makeLeaf(const TriangleBox& box, const QVector<int>& triangles)
{
    ++m_atomicLeafCount;
    return new SBVHLeaf(box, triangles);
}

void SBVHMultithreadRecursiveBuilder::deleteLeaf(SBVHNode* node)
{
    --m_atomicLeafCount;
    delete node;
}

void SBVHMultithreadRecursiveBuilder::deleteInnerNode(SBVHNonLeaf* node)
{
    --m_atomicInnerCount;
    delete node;
}

} // namespace SBVH
