#include "search/IndexedHeap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using Welk::IndexedHeap;

namespace {

void expectHeapOrder(const IndexedHeap& heap)
{
    for (int i = 1; i < heap.count(); ++i)
        ASSERT_LE(heap.entry(i).key, heap.entry((i - 1) / 2).key) << "entry " << i;
    for (int i = 0; i < heap.count(); ++i)
        ASSERT_EQ(heap.position(heap.entry(i).id), i);
}

} // namespace

TEST(IndexedHeap, RemovingTheRootYieldsKeysLargestFirst)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> keys(0.0, 100.0);
    IndexedHeap heap(500);
    std::vector<double> inserted;
    for (int id = 0; id < 500; ++id) {
        inserted.push_back(keys(random));
        heap.insertOrUpdate(id, inserted.back());
    }
    expectHeapOrder(heap);
    std::sort(inserted.rbegin(), inserted.rend());
    for (double expected : inserted) {
        ASSERT_EQ(heap.maxKey(), expected);
        const int id = heap.root().id;
        heap.removeRoot();
        EXPECT_EQ(heap.position(id), -1);
        expectHeapOrder(heap);
    }
    EXPECT_TRUE(heap.isEmpty());
}

TEST(IndexedHeap, UpdatesMoveEntriesBothWays)
{
    IndexedHeap heap(10);
    for (int id = 0; id < 10; ++id)
        heap.insertOrUpdate(id, id);
    heap.insertOrUpdate(0, 50.0); // up to the root
    EXPECT_EQ(heap.root().id, 0);
    heap.insertOrUpdate(0, -1.0); // all the way down
    expectHeapOrder(heap);
    EXPECT_EQ(heap.root().id, 9);
    EXPECT_EQ(heap.count(), 10);
    heap.clear();
    EXPECT_EQ(heap.count(), 0);
    for (int id = 0; id < 10; ++id)
        EXPECT_EQ(heap.position(id), -1);
}

TEST(IndexedHeap, SiftingDownPrefersTheLargerIdAtEqualKeys)
{
    IndexedHeap heap(4);
    heap.insertOrUpdate(0, 9.0);
    heap.insertOrUpdate(1, 5.0);
    heap.insertOrUpdate(2, 5.0);
    heap.removeRoot();
    // Entry 2 moved to the root and meets entry 1 of equal key: it stays,
    // being the larger id.
    EXPECT_EQ(heap.root().id, 2);
    heap.insertOrUpdate(3, 5.0);
    heap.insertOrUpdate(2, 1.0);
    EXPECT_EQ(heap.root().id, 3);
}
