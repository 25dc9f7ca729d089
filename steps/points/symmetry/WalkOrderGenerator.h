#pragma once

#include "DCEL.h"

#include <QVector>

#include <memory>
#include <vector>

namespace SymmetryDetectionTBB {

/// Whole walk orders of the half-edges leaving one vertex, by target.
using WalkOrderCache = tsl::robin_map<int, QVector<int>>;

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

    /// Walks from `seed` are replayed from `cache` instead of walked.
    void setCache(int seed, std::shared_ptr<const WalkOrderCache> cache);
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
    int m_cacheSeed = 0;
    std::shared_ptr<const WalkOrderCache> m_cache;
    const QVector<int>* m_replay = nullptr;
    int m_replayPosition = 0;
};

} // namespace SymmetryDetectionTBB
