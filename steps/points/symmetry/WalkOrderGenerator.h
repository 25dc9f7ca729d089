#pragma once

#include "DCEL.h"

#include <QVector>

#include <tbb/spin_mutex.h>

#include <atomic>
#include <memory>
#include <vector>

namespace SymmetryDetectionTBB {

/// Whole walk orders of the half-edges leaving the seed vertex, by target.
/// Walks from the seed are the most frequent in a search and always the
/// same, so an order is stored once it has been asked for twice: a search
/// that settles on its first candidate from the seed stores nothing.
/// `order` and `noteWalk` may be called from any thread.
class SeedWalkCache
{
public:
    SeedWalkCache(const DCEL& dcel, int seed, tbb::spin_mutex& mutex);

    int seed() const { return m_seed; }
    /// The stored order of the walk from (seed, target), or null.
    const QVector<int>* order(int target) const;
    /// Counts one walk from (seed, target); the second fills the entry.
    void noteWalk(int target);

private:
    struct Entry
    {
        std::atomic<int> walks{0};
        std::atomic<bool> ready{false};
        QVector<int> order;
    };

    const DCEL& m_dcel;
    int m_seed;
    tbb::spin_mutex& m_mutex;
    tsl::robin_map<int, int> m_index;
    std::unique_ptr<Entry[]> m_entries;
};

/// Walks a DCEL breadth-first over polygons from a starting half-edge and
/// yields every vertex the first time it is met. The order depends only on
/// the connectivity and the start, so two walks over mirror-image
/// connectivities from corresponding half-edges yield corresponding
/// vertices step by step. Reusable: `start` begins a new walk and clears
/// only what the last one touched unless that was a large part.
class WalkOrderGenerator
{
public:
    explicit WalkOrderGenerator(const DCEL& dcel);

    /// Walks from the cache's seed are replayed from it where it can.
    void setCache(SeedWalkCache* cache) { m_cache = cache; }
    bool hasCache() const { return m_cache != nullptr; }

    void start(int a, int b);
    bool next(int& vertex);

    /// The complete order of a walk from (a, b), for the cache.
    QVector<int> walkAll(int a, int b);

private:
    enum class State
    {
        Begin,
        Pop,
        Walk,
        Replay,
        Finished,
    };

    void clearMarks();

    const DCEL* m_dcel;
    int m_a = 0;
    int m_b = 0;
    State m_state = State::Finished;
    std::vector<char> m_vertexSeen;
    std::vector<char> m_polygonSeen;
    std::vector<const HalfEdge*> m_queue;
    size_t m_head = 0;
    const HalfEdge* m_current = nullptr;
    const HalfEdge* m_first = nullptr;
    std::vector<int> m_touchedVertices;
    std::vector<int> m_touchedPolygons;
    SeedWalkCache* m_cache = nullptr;
    const QVector<int>* m_replay = nullptr;
    int m_replayPosition = 0;
};

} // namespace SymmetryDetectionTBB
