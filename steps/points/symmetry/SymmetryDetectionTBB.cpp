#include "SymmetryDetectionTBB.h"

#include "PathGenerator.h"
#include "VertexAdjacency.h"
#include "VertexSignatures.h"
#include "WalkOrderGenerator.h"

#include "geometry/ProgressInterface.h"

#include <QDebug>
#include <QElapsedTimer>

#include <tbb/enumerable_thread_specific.h>
#include <tbb/flow_graph.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_invoke.h>
#include <tbb/spin_mutex.h>
#include <tbb/task_group.h>

#include <atomic>
#include <limits>
#include <memory>

namespace SymmetryDetectionTBB {

namespace {

/// A thread's lists for testing candidates, kept between candidates: the
/// partner of each vertex (0 for none) and the two walks' vertices so far.
struct WalkScratch
{
    std::vector<int> partner;
    std::vector<int> left;
    std::vector<int> right;
};

/// What every node body of one search shares. Read-only apart from the
/// caches and the winner, which the spin mutex guards.
struct Search
{
    Search(const DCEL& given, const DCEL& reversed, const VertexAdjacency& adjacency,
           const VertexSignatures& signatures, int seed, tbb::task_group_context& context,
           Welk::ProgressInterface* progress)
        : given(given), reversed(reversed), adjacency(adjacency), signatures(signatures), seed(seed),
          context(context), progress(progress),
          givenWalks(WalkOrderGenerator(given)), reversedWalks(WalkOrderGenerator(reversed))
    {
    }

    const DCEL& given;
    const DCEL& reversed;
    const VertexAdjacency& adjacency;
    const VertexSignatures& signatures;
    const int seed;
    tbb::task_group_context& context;
    Welk::ProgressInterface* progress;

    tbb::enumerable_thread_specific<WalkOrderGenerator> givenWalks;
    tbb::enumerable_thread_specific<WalkOrderGenerator> reversedWalks;
    tbb::enumerable_thread_specific<WalkScratch> scratch;

    tbb::spin_mutex mutex;
    bool cachesBuilt = false;
    std::unique_ptr<SeedWalkCache> givenCache;
    std::unique_ptr<SeedWalkCache> reversedCache;
    bool found = false;
    QVector<QVector<int>>* result = nullptr;
    std::atomic<long long> candidates{0};

    bool stopped() const { return context.is_group_execution_cancelled(); }
    void checkUserCancel()
    {
        if (progress && progress->isCancelled())
            context.cancel_group_execution();
    }
};

/// Emits the seed's neighbours (candidates reaching distance 2 around
/// each), then the seed itself (candidates over the whole mesh).
class VertexGeneratorNodeBody
{
public:
    explicit VertexGeneratorNodeBody(Search* search)
        : m_search(search), m_neighbours(search->adjacency.neighbours(search->seed))
    {
    }

    Message operator()(tbb::flow_control& control)
    {
        if (m_position < m_neighbours.size()) {
            // The integer division keeps the bar at 0 until the end: the
            // number of candidates is unknown ahead.
            if (m_search->progress)
                m_search->progress->setValue(m_position / m_neighbours.size());
            return Message{m_neighbours[m_position++], 3, {}};
        }
        if (!m_seedSent) {
            m_seedSent = true;
            return Message{m_search->seed, 0, {}};
        }
        control.stop();
        return Message{};
    }

private:
    Search* m_search;
    QVector<int> m_neighbours;
    int m_position = 0;
    bool m_seedSent = false;
};

using PathNode = tbb::flow::multifunction_node<Message, std::tuple<Message>, tbb::flow::queueing>;

class PathGeneratorNodeBody
{
public:
    explicit PathGeneratorNodeBody(Search* search) : m_search(search) {}

    void operator()(const Message& message, PathNode::output_ports_type& ports)
    {
        PathGenerator generator(m_search->adjacency, message.vertex, message.limit < 1 ? 0 : message.limit);
        CandidatePath path;
        long long produced = 0;
        while (generator.next(path)) {
            // A found symmetry or a user's stop ends candidate making too.
            if ((++produced & 1023) == 0 && (m_search->checkUserCancel(), m_search->stopped()))
                return;
            // Pairs that no symmetry could map are never sent.
            if (!m_search->signatures.mayMap(path[0], path[3]) || !m_search->signatures.mayMap(path[1], path[2]))
                continue;
            std::get<0>(ports).try_put(Message{message.vertex, message.limit, {path[0], path[1], path[2], path[3]}});
        }
    }

private:
    Search* m_search;
};

class WalkOrderNodeBody
{
public:
    explicit WalkOrderNodeBody(Search* search) : m_search(search) {}

    tbb::flow::continue_msg operator()(const Message& message)
    {
        Search& s = *m_search;
        if (s.stopped())
            return {};
        ++s.candidates;
        WalkOrderGenerator& givenWalk = s.givenWalks.local();
        WalkOrderGenerator& reversedWalk = s.reversedWalks.local();
        if (message.limit == 0 && (!givenWalk.hasCache() || !reversedWalk.hasCache())) {
            tbb::spin_mutex::scoped_lock lock(s.mutex);
            if (!s.cachesBuilt) {
                s.givenCache = std::make_unique<SeedWalkCache>(s.given, s.seed, s.mutex);
                s.reversedCache = std::make_unique<SeedWalkCache>(s.reversed, s.seed, s.mutex);
                s.cachesBuilt = true;
            }
            givenWalk.setCache(s.givenCache.get());
            reversedWalk.setCache(s.reversedCache.get());
        }

        const int a = message.path[0], a1 = message.path[1], b1 = message.path[2], b = message.path[3];
        WalkOrderGenerator* first = &givenWalk;
        WalkOrderGenerator* second = &reversedWalk;
        if (!s.given.hasHalfEdge(a, a1))
            std::swap(first, second);
        first->start(a, a1);
        second->start(b, b1);

        WalkScratch& scratch = s.scratch.local();
        const VertexAdjacency& adjacency = s.adjacency;
        if (scratch.partner.empty())
            scratch.partner.assign(size_t(adjacency.count()), 0);
        std::vector<int>& partner = scratch.partner;
        std::vector<int>& left = scratch.left;
        std::vector<int>& right = scratch.right;
        // The partner table is reset through the vertices this candidate
        // paired, however it ends.
        struct Reset
        {
            WalkScratch& scratch;
            ~Reset()
            {
                for (int x : scratch.left)
                    scratch.partner[size_t(x)] = 0;
                scratch.left.clear();
                scratch.right.clear();
            }
        } reset{scratch};

        for (;;) {
            int x = 0, y = 0;
            const bool hasX = first->next(x);
            const bool hasY = second->next(y);
            if (hasX != hasY)
                return {};
            if (!hasX)
                break;
            // A mirror keeps every vertex's number of neighbours and its
            // signature: checking them ends most wrong candidates at once
            // instead of many steps later, and never a right one.
            const int length = adjacency.rowLength(x);
            if (length != adjacency.rowLength(y) || !s.signatures.mayMap(x, y))
                return {};
            left.push_back(x);
            right.push_back(y);
            partner[size_t(x)] = y;
            const int* row = adjacency.row(x);
            for (int i = 0; i < length; ++i) {
                const int mapped = partner[size_t(row[i])];
                if (mapped != 0 && !adjacency.areAdjacent(y, mapped))
                    return {};
            }
        }

        // On closed shells a rotation combined with a mirror also reverses
        // orientation and keeps adjacency, but it is no mirror: a mirror's
        // image maps back onto the vertex it came from.
        for (int x : left)
            if (partner[size_t(partner[size_t(x)])] != x)
                return {};

        s.context.cancel_group_execution();
        tbb::spin_mutex::scoped_lock lock(s.mutex);
        if (!s.found) {
            s.found = true;
            (*s.result)[0] = QVector<int>(left.begin(), left.end());
            (*s.result)[1] = QVector<int>(right.begin(), right.end());
        }
        return {};
    }

private:
    Search* m_search;
};

} // namespace

Polygons extractFacesFromPolygons(const QVector<int>& polygonOffsets, const QVector<int>& indices)
{
    const int count = polygonOffsets.size() - 1;
    if (count < 1)
        return {};
    Polygons polygons(count);
    tbb::parallel_for(tbb::blocked_range<int>(0, count), [&](const tbb::blocked_range<int>& range) {
        for (int f = range.begin(); f != range.end(); ++f) {
            const int begin = polygonOffsets[f], end = polygonOffsets[f + 1];
            QVector<int> polygon;
            polygon.reserve(end - begin);
            for (int i = begin; i < end; ++i)
                polygon.append(indices[i] + 1);
            polygons[f] = polygon;
        }
    });
    return polygons;
}

bool detectTopologicalSymmetry(const QVector<int>& polygonOffsets, const QVector<int>& indices, int seedVertex,
                               QVector<QVector<int>>& result, Welk::ProgressInterface* progress,
                               const SymmetryOptions& options)
{
    return detectTopologicalSymmetry(extractFacesFromPolygons(polygonOffsets, indices), seedVertex, result,
                                     progress, options);
}

bool detectTopologicalSymmetry(const Polygons& polygons, int seedVertex, QVector<QVector<int>>& result,
                               Welk::ProgressInterface* progress, const SymmetryOptions& options)
{
    QElapsedTimer clock;
    clock.start();
    if (progress) {
        progress->start(QStringLiteral("Detecting symmetry..."), 100);
        progress->setValue(0);
    }
    // The two windings are independent, and each has serial stretches.
    std::unique_ptr<DCEL> given, reversed;
    tbb::parallel_invoke([&] { given = std::make_unique<DCEL>(polygons, true); },
                         [&] { reversed = std::make_unique<DCEL>(polygons, false); });
    const qint64 dcels = clock.elapsed();
    auto adjacency = std::make_unique<VertexAdjacency>(polygons, given->maxVertexId());
    auto signatures = std::make_unique<VertexSignatures>(*adjacency, options.signatureRounds);
    const qint64 built = clock.elapsed();

    result.clear();
    result.resize(2);
    long long candidates = 0;
    bool found = false;
    if (!polygons.isEmpty()) {
        tbb::task_group_context context;
        Search search(*given, *reversed, *adjacency, *signatures, seedVertex, context, progress);
        search.result = &result;
        {
            tbb::flow::graph graph(context);
            tbb::flow::input_node<Message> vertices(graph, VertexGeneratorNodeBody(&search));
            tbb::flow::buffer_node<Message> seeds(graph);
            PathNode paths(graph, tbb::flow::unlimited, PathGeneratorNodeBody(&search));
            tbb::flow::buffer_node<Message> candidatePaths(graph);
            tbb::flow::function_node<Message, tbb::flow::continue_msg, tbb::flow::queueing> walks(
                graph, tbb::flow::unlimited, WalkOrderNodeBody(&search));
            tbb::flow::make_edge(vertices, seeds);
            tbb::flow::make_edge(seeds, paths);
            tbb::flow::make_edge(tbb::flow::output_port<0>(paths), candidatePaths);
            tbb::flow::make_edge(candidatePaths, walks);
            vertices.activate();
            graph.wait_for_all();
        }
        found = search.found;
        candidates = search.candidates;
    }

    if (progress) {
        progress->setValue(100);
        progress->end();
    }
    const int vertexCount = adjacency->count() - 1;
    const qint64 searched = clock.elapsed();
    tbb::parallel_invoke([&] { given.reset(); }, [&] { reversed.reset(); },
                         [&] {
                             signatures.reset();
                             adjacency.reset();
                         });
    qDebug().noquote() << QStringLiteral("Symmetry: DCELs %1 ms, adjacency and signatures %2 ms, search %3 ms, "
                                         "freeing %4 ms, %5 candidates walked, %6")
                              .arg(dcels)
                              .arg(built - dcels)
                              .arg(searched - built)
                              .arg(clock.elapsed() - searched)
                              .arg(candidates)
                              .arg(found ? QStringLiteral("found") : QStringLiteral("none"));
    return found && result[0].size() == result[1].size() && result[0].size() == vertexCount;
}

int seedNearestToCentre(const QVector<QVector3D>& vertices)
{
    if (vertices.isEmpty())
        return 1;
    QVector3D lo = vertices[0], hi = vertices[0];
    for (const QVector3D& v : vertices)
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], v[k]);
            hi[k] = std::max(hi[k], v[k]);
        }
    const QVector3D centre = 0.5f * (lo + hi);
    int best = 0;
    float bestDistance = std::numeric_limits<float>::max();
    for (int i = 0; i < vertices.size(); ++i) {
        const float d = (vertices[i] - centre).lengthSquared();
        if (d < bestDistance) {
            bestDistance = d;
            best = i;
        }
    }
    return best + 1;
}

} // namespace SymmetryDetectionTBB
