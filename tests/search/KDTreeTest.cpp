// The three k-d trees against brute force, on random and degenerate sets.
#include "search/KDTree.h"
#include "search/KDTreeAcceleratedVersion.h"
#include "search/KDTreeEigen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <random>
#include <set>

namespace {

using Vec3 = Eigen::Vector3f;
constexpr float Largest = std::numeric_limits<float>::max();

float distanceSq(const QVector3D& a, const QVector3D& b)
{
    const float dx = a.x() - b.x(), dy = a.y() - b.y(), dz = a.z() - b.z();
    return dx * dx + dy * dy + dz * dz;
}

/// The three trees behind one interface, so each case runs on all of them.
struct Trees
{
    explicit Trees(const QVector<QVector3D>& points, int leafSize) : qpoints(points)
    {
        for (const QVector3D& p : points)
            epoints.emplace_back(p.x(), p.y(), p.z());
        classic.reset(KDTree::build(points, leafSize));
        eigen.reset(KDTreeEigen::build<float, long long>(epoints, leafSize));
        accelerated.reset(KDTreeAcceleratedVersion::build<float, long long>(epoints, leafSize));
    }
    QVector<QVector3D> qpoints;
    std::vector<Vec3> epoints;
    std::unique_ptr<KDTree::NodeBase> classic;
    std::unique_ptr<KDTreeEigen::NodeBaseEigen<float, long long>> eigen;
    std::unique_ptr<KDTreeAcceleratedVersion::Node<float, long long>> accelerated;

    /// Index and squared distance from each tree; all must agree.
    void expectNearest(const QVector3D& q, int expectedIndex, float expectedDistance) const
    {
        float d1 = 0, d2 = 0, d3 = 0;
        const Vec3 e(q.x(), q.y(), q.z());
        EXPECT_EQ(classic->findNearestPointInd(q, qpoints, &d1), expectedIndex);
        EXPECT_EQ(eigen->findNearestPointInd(e, epoints, &d2), expectedIndex);
        EXPECT_EQ(accelerated->findNearestPointInd(e, epoints, &d3), expectedIndex);
        EXPECT_EQ(d1, expectedDistance);
        EXPECT_EQ(d2, expectedDistance);
        EXPECT_EQ(d3, expectedDistance);
    }
    void expectNearestWithoutSelf(int self, int expectedIndex, float expectedDistance) const
    {
        float d1 = 0, d2 = 0, d3 = 0;
        EXPECT_EQ(classic->findNearestPointInd(self, qpoints, &d1), expectedIndex);
        EXPECT_EQ(eigen->findNearestPointInd((long long)self, epoints, &d2), expectedIndex);
        EXPECT_EQ(accelerated->findNearestPointInd((long long)self, epoints, &d3), expectedIndex);
        EXPECT_EQ(d1, expectedDistance);
        EXPECT_EQ(d2, expectedDistance);
        EXPECT_EQ(d3, expectedDistance);
    }
};

/// The first index at the smallest distance, scanning in index order.
std::pair<int, float> bruteNearest(const QVector<QVector3D>& points, const QVector3D& q, int skip = -1)
{
    int best = -1;
    float bestDistance = Largest;
    for (int i = 0; i < points.size(); ++i)
        if (i != skip && distanceSq(points[i], q) < bestDistance) {
            best = i;
            bestDistance = distanceSq(points[i], q);
        }
    return {best, bestDistance};
}

QVector<QVector3D> randomCloud(int n, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> u(-10.0f, 10.0f);
    QVector<QVector3D> points;
    for (int i = 0; i < n; ++i)
        points.append(QVector3D(u(random), u(random) * 0.3f, u(random)));
    return points;
}

} // namespace

TEST(KDTrees, NearestEqualsBruteForceOnRandomClouds)
{
    const QVector<QVector3D> points = randomCloud(3000, 1);
    const QVector<QVector3D> queries = randomCloud(400, 2);
    for (int leafSize : {1, 7, 128}) {
        SCOPED_TRACE(leafSize);
        const Trees trees(points, leafSize);
        for (const QVector3D& q : queries) {
            const auto expected = bruteNearest(points, q);
            trees.expectNearest(q, expected.first, expected.second);
        }
        for (int self = 0; self < 300; ++self) {
            const auto expected = bruteNearest(points, points[self], self);
            trees.expectNearestWithoutSelf(self, expected.first, expected.second);
        }
    }
}

TEST(KDTrees, PointsOnSplittingPlanesAndEqualDistances)
{
    // An integer lattice puts points on every splitting plane and makes many
    // distances equal: the first index at the best distance must win.
    QVector<QVector3D> points;
    for (int x = 0; x < 9; ++x)
        for (int y = 0; y < 5; ++y)
            for (int z = 0; z < 7; ++z)
                points.append(QVector3D(float(x), float(y), float(z)));
    for (int leafSize : {1, 4, 128}) {
        const Trees trees(points, leafSize);
        for (float x = -0.5f; x < 9.0f; x += 0.5f)
            for (float z = -0.5f; z < 7.0f; z += 0.5f) {
                const QVector3D q(x, 2.5f, z);
                const auto expected = bruteNearest(points, q);
                float d = 0;
                // Equal distances may resolve differently between the tree
                // and index order; the distance itself must be exact.
                trees.classic->findNearestPointInd(q, points, &d);
                EXPECT_EQ(d, expected.second);
                trees.eigen->findNearestPointInd(Vec3(x, 2.5f, z), trees.epoints, &d);
                EXPECT_EQ(d, expected.second);
                trees.accelerated->findNearestPointInd(Vec3(x, 2.5f, z), trees.epoints, &d);
                EXPECT_EQ(d, expected.second);
            }
    }
    // Two points at the same distance in one leaf: the first stored wins.
    const QVector<QVector3D> pair = {{1, 0, 0}, {-1, 0, 0}};
    const Trees trees(pair, 128);
    trees.expectNearest(QVector3D(0, 0, 0), 0, 1.0f);
}

TEST(KDTrees, DegenerateSets)
{
    {
        const Trees empty(QVector<QVector3D>(), 1);
        empty.expectNearest(QVector3D(1, 2, 3), -1, Largest);
    }
    {
        const Trees one({QVector3D(1, 1, 1)}, 1);
        one.expectNearestWithoutSelf(0, -1, Largest);
        one.expectNearest(QVector3D(1, 1, 2), 0, 1.0f);
    }
    {
        // Coincident points cannot be split: one leaf even at leaf size 1.
        const QVector<QVector3D> same(50, QVector3D(2, 3, 4));
        const Trees trees(same, 1);
        EXPECT_NE(dynamic_cast<KDTree::NodeLeaf*>(trees.classic.get()), nullptr);
        using FastLeaf = KDTreeAcceleratedVersion::NodeLeaf<float, long long>;
        EXPECT_NE(dynamic_cast<FastLeaf*>(trees.accelerated.get()), nullptr);
        trees.expectNearest(QVector3D(2, 3, 5), 0, 1.0f);
        trees.expectNearestWithoutSelf(0, 1, 0.0f);
        trees.expectNearestWithoutSelf(7, 0, 0.0f);
    }
}

TEST(KDTrees, RadiusQueriesEqualBruteForceAndExcludeTheBoundary)
{
    const QVector<QVector3D> points = randomCloud(2000, 3);
    const Trees trees(points, 16);
    for (const QVector3D& q : randomCloud(100, 4)) {
        const float radiusSq = 4.0f;
        std::set<int> expected;
        for (int i = 0; i < points.size(); ++i)
            if (distanceSq(points[i], q) < radiusSq)
                expected.insert(i);
        QVector<int> classic;
        trees.classic->findNearestPointInRadius(q, points, classic, radiusSq);
        std::vector<long long> eigen;
        trees.eigen->findNearestPointInRadius(Vec3(q.x(), q.y(), q.z()), trees.epoints, eigen, radiusSq);
        EXPECT_EQ(std::set<int>(classic.begin(), classic.end()), expected);
        EXPECT_EQ(std::set<long long>(eigen.begin(), eigen.end()), std::set<long long>(expected.begin(), expected.end()));
        EXPECT_EQ(size_t(classic.size()), expected.size());
    }
    const QVector<QVector3D> line = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}};
    const Trees small(line, 1);
    QVector<int> found;
    small.classic->findNearestPointInRadius(QVector3D(0, 0, 0), line, found, 1.0f);
    EXPECT_EQ(found, QVector<int>{0});
}

TEST(KDTrees, KNearestEqualsBruteForce)
{
    const QVector<QVector3D> points = randomCloud(2500, 5);
    for (int leafSize : {1, 32}) {
        const Trees trees(points, leafSize);
        Welk::IndexedHeap heap(points.size());
        for (const QVector3D& q : randomCloud(60, 6)) {
            for (int k : {1, 5, 17}) {
                std::vector<std::pair<float, int>> all;
                for (int i = 0; i < points.size(); ++i)
                    all.emplace_back(distanceSq(points[i], q), i);
                std::sort(all.begin(), all.end());
                std::set<int> expected;
                for (int i = 0; i < k; ++i)
                    expected.insert(all[size_t(i)].second);

                heap.clear();
                trees.classic->findKNearestPointsInds(q, points, k, heap);
                std::set<int> classic;
                for (int i = 0; i < heap.count(); ++i)
                    classic.insert(heap.entry(i).id);
                EXPECT_EQ(classic, expected) << "k " << k;

                heap.clear();
                trees.eigen->findKNearestPointsInds(Vec3(q.x(), q.y(), q.z()), trees.epoints, k, heap);
                std::set<int> eigen;
                for (int i = 0; i < heap.count(); ++i)
                    eigen.insert(heap.entry(i).id);
                EXPECT_EQ(eigen, expected) << "k " << k;
            }
        }
    }
}

TEST(KDTrees, SizesAndClones)
{
    const QVector<QVector3D> points = randomCloud(1000, 8);
    const Trees trees(points, 10);
    EXPECT_EQ(trees.classic->dataSize(), 4 * 1000);
    EXPECT_EQ(trees.eigen->dataSize(), 4 * 1000);
    // The accelerated leaves count their coordinates too.
    EXPECT_EQ(trees.accelerated->dataSize(), 4 * (1000 + 3000));

    std::unique_ptr<KDTree::NodeBase> copy(trees.classic->clone());
    std::unique_ptr<KDTreeAcceleratedVersion::Node<float, long long>> fastCopy(trees.accelerated->clone());
    for (const QVector3D& q : randomCloud(50, 9)) {
        EXPECT_EQ(copy->findNearestPointInd(q, points), trees.classic->findNearestPointInd(q, points));
        EXPECT_EQ(fastCopy->findNearestPointInd(Vec3(q.x(), q.y(), q.z()), trees.epoints),
                  trees.accelerated->findNearestPointInd(Vec3(q.x(), q.y(), q.z()), trees.epoints));
    }
    EXPECT_EQ(KDTree::NodeBase().dataSize(), -1);
    EXPECT_EQ(KDTree::NodeBase().clone(), nullptr);
    EXPECT_EQ(KDTree::NodeBase().findNearestPointInd(QVector3D(), points), -1);
}
