// TBB first: Qt's "emit" keyword macro breaks TBB's headers.
#include <tbb/flow_graph.h>
#include <tbb/task_arena.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/task_group.h>

#include "ObjReaderTBB.h"

#include "ObjChunk.h"
#include "HugePages.h"
#include "ObjChunkParser.h"
#include "ProgressInterface.h"

#include <QFile>

#include <atomic>
#include <cstring>
#include <unordered_map>

namespace GeometryStack2 {

using namespace tbb::flow;

namespace {

const char* const LoadingLabel = "Loading OBJ file";

/// The final lists and what the graph's stages share about them.
struct ReaderState
{
    MeshLists* lists = nullptr;
    Welk::ProgressInterface* progress = nullptr;
    int64_t chunkCount = 0;

    // Raw pointers into the final lists, taken on the allocating stage so
    // that no worker ever triggers a copy of an implicitly shared list.
    QVector3D* vertices = nullptr;
    QVector2D* texCoords = nullptr;
    int* polygonOffsets = nullptr;
    int* polygonSizes = nullptr;
    int* polygroupIds = nullptr;
    int* materialIds = nullptr;
    int* vertexIndices = nullptr;
    int* texCoordIndices = nullptr;
    int32_t vertexTotal = 0;
    int32_t texCoordTotal = 0;

    // Counts travel as raw pointers, and a cancelled graph drops messages
    // where they are: the counts belong here, one per chunk.
    std::vector<std::unique_ptr<ChunkCount>> counts;
};

/// The six totals the allocators size the final lists by.
struct Totals
{
    int32_t vertices = 0, texCoords = 0, faces = 0;
};

/// How many chunks hold their text. The read loop lets at most a fixed
/// number be alive, so that reading a file in the page cache cannot run far
/// ahead of the parsers: without it every chunk's text and parsed lists are
/// alive at once beside the final arrays.
struct TextWindow
{
    std::atomic<int64_t> held{0};

    void release(ChunkData* chunk)
    {
        if (chunk->releaseBuffer())
            --held;
    }
};

struct SortChDBufferBody
{
    size_t operator()(ChunkData* const& chunk) const { return size_t(chunk->index); }
};

struct SortChCBufferBody
{
    size_t operator()(ChunkCount* const& count) const { return size_t(count->index); }
};

// --- count ------------------------------------------------------------------

using CountNode = multifunction_node<ChunkData*, std::tuple<ChunkData*, ChunkCount*>>;

struct ParseCountBody
{
    TextWindow* texts;
    ReaderState* state;

    void operator()(ChunkData* chunk, CountNode::output_ports_type& ports) const
    {
        size_t carried = 0;
        if (ChunkData* previous = chunk->previous) {
            // The previous chunk's unfinished line moves into our head.
            const char* end = previous->fileData + previous->rawSize;
            const size_t window = std::min<size_t>(previous->rawSize, ChunkData::HeadSize + 1);
            const char* lineEnd = nullptr;
            for (const char* p = end; p > end - window; --p) {
                if (p[-1] == '\n' || p[-1] == '\r') {
                    lineEnd = p;
                    break;
                }
            }
            if (!lineEnd)
                throw GraphException("The file contains too long lines");
            carried = size_t(end - lineEnd);
            std::memcpy(chunk->fileData - carried, lineEnd, carried);
            chunk->text = chunk->fileData - carried;
            texts->release(previous);
        }
        size_t whole = chunk->rawSize;
        if (chunk->isLast) {
            if (whole == 0 || (chunk->fileData[whole - 1] != '\n' && chunk->fileData[whole - 1] != '\r'))
                chunk->fileData[whole++] = '\n';
        } else {
            while (whole > 0 && chunk->fileData[whole - 1] != '\n' && chunk->fileData[whole - 1] != '\r')
                --whole;
            // A chunk without a line end holds part of a line far longer
            // than the carry-over allows.
            if (whole == 0)
                throw GraphException("The file contains too long lines");
        }
        chunk->textSize = carried + whole;

        auto* count = new ChunkCount;
        state->counts[size_t(chunk->index)].reset(count);
        count->isLast = chunk->isLast;
        count->index = chunk->index;
        ObjChunkParser::countLines(*chunk, chunk->vertexCount, chunk->texCoordCount, chunk->faceCount,
                                   chunk->groupCount, chunk->materialCount);
        count->vertexCount = chunk->vertexCount;
        count->texCoordCount = chunk->texCoordCount;
        count->faceCount = chunk->faceCount;
        std::get<0>(ports).try_put(chunk);
        std::get<1>(ports).try_put(count);
    }
};

// --- Malloc -----------------------------------------------------------------

using MallocCountNode = multifunction_node<ChunkCount*, std::tuple<ChunkCount*, Totals>>;
using MallocReduceNode = multifunction_node<bool, std::tuple<bool>>;

struct MallocCountBody
{
    std::shared_ptr<Totals> sums = std::make_shared<Totals>();

    void operator()(ChunkCount* count, MallocCountNode::output_ports_type& ports) const
    {
        count->vertexOffset = sums->vertices;
        count->texCoordOffset = sums->texCoords;
        count->faceOffset = sums->faces;
        sums->vertices += count->vertexCount;
        sums->texCoords += count->texCoordCount;
        sums->faces += count->faceCount;
        const bool last = count->isLast;
        const Totals totals = *sums;
        std::get<0>(ports).try_put(count);
        if (last)
            std::get<1>(ports).try_put(totals);
    }
};

/// Sizes one final list and answers that it is done.
template <typename T> struct MallocMainBody
{
    QVector<T>* list;
    T** data;
    int32_t Totals::*field;
    int32_t extra;

    bool operator()(const Totals& totals) const
    {
        resizeOnHugePages(*list, totals.*field + extra);
        *data = list->data();
        return true;
    }
};

struct MallocReduceBody
{
    std::shared_ptr<std::atomic<int>> remaining;
    int64_t chunkCount;

    void operator()(bool, MallocReduceNode::output_ports_type& ports) const
    {
        if (--*remaining != 0)
            return;
        for (int64_t i = 0; i < chunkCount; ++i)
            std::get<0>(ports).try_put(true);
    }
};

/// Counts become offsets; once all are counted the six final lists are
/// sized in parallel, and one token per chunk opens the gate behind.
class Malloc : public composite_node<std::tuple<ChunkCount*>, std::tuple<ChunkCount*, bool>>
{
public:
    Malloc(graph& g, ReaderState& state)
        : composite_node(g), m_count(g, serial, MallocCountBody()),
          m_vertices(g, unlimited, MallocMainBody<QVector3D>{&state.lists->vertices, &state.vertices, &Totals::vertices, 0}),
          m_texCoords(g, unlimited,
                      MallocMainBody<QVector2D>{&state.lists->texCoords, &state.texCoords, &Totals::texCoords, 0}),
          m_offsets(g, unlimited, MallocMainBody<int>{&state.lists->polygonOffsets, &state.polygonOffsets, &Totals::faces, 1}),
          m_sizes(g, unlimited, MallocMainBody<int>{&state.lists->polygonSizes, &state.polygonSizes, &Totals::faces, 0}),
          m_groups(g, unlimited, MallocMainBody<int>{&state.lists->polygroupIds, &state.polygroupIds, &Totals::faces, 0}),
          m_materials(g, unlimited, MallocMainBody<int>{&state.lists->materialIds, &state.materialIds, &Totals::faces, 0}),
          m_reduce(g, serial, MallocReduceBody{std::make_shared<std::atomic<int>>(6), state.chunkCount})
    {
        make_edge(output_port<1>(m_count), m_vertices);
        make_edge(output_port<1>(m_count), m_texCoords);
        make_edge(output_port<1>(m_count), m_offsets);
        make_edge(output_port<1>(m_count), m_sizes);
        make_edge(output_port<1>(m_count), m_groups);
        make_edge(output_port<1>(m_count), m_materials);
        for (function_node<Totals, bool>* allocator : {&m_vertices, &m_texCoords, &m_offsets, &m_sizes, &m_groups, &m_materials})
            make_edge(*allocator, m_reduce);
        set_external_ports(input_ports_type(m_count), output_ports_type(output_port<0>(m_count), output_port<0>(m_reduce)));
    }

private:
    MallocCountNode m_count;
    function_node<Totals, bool> m_vertices, m_texCoords, m_offsets, m_sizes, m_groups, m_materials;
    MallocReduceNode m_reduce;
};

// --- joins ------------------------------------------------------------------

/// A queueing join of a chunk and a second message, then a serial body.
template <typename Second, typename Body>
class JoinStage : public composite_node<std::tuple<ChunkData*, Second>, std::tuple<ChunkData*>>
{
    using Base = composite_node<std::tuple<ChunkData*, Second>, std::tuple<ChunkData*>>;

public:
    JoinStage(graph& g, Body body) : Base(g), m_join(g), m_body(g, serial, body)
    {
        make_edge(m_join, m_body);
        Base::set_external_ports(typename Base::input_ports_type(input_port<0>(m_join), input_port<1>(m_join)),
                                 typename Base::output_ports_type(m_body));
    }

private:
    join_node<std::tuple<ChunkData*, Second>, queueing> m_join;
    function_node<std::tuple<ChunkData*, Second>, ChunkData*> m_body;
};

struct ReduceChunkBody
{
    ReaderState* state;

    ChunkData* operator()(const std::tuple<ChunkData*, ChunkCount*>& pair) const
    {
        ChunkData* chunk = std::get<0>(pair);
        const ChunkCount* count = std::get<1>(pair);
        chunk->vertexOffset = count->vertexOffset;
        chunk->texCoordOffset = count->texCoordOffset;
        chunk->faceOffset = count->faceOffset;
        state->counts[size_t(count->index)].reset();
        return chunk;
    }
};

/// Holds a chunk until its gate's token arrives.
struct GateBody
{
    ChunkData* operator()(const std::tuple<ChunkData*, bool>& pair) const { return std::get<0>(pair); }
};
using BlockParallelBody = GateBody;
using BlockSerialBody = GateBody;

using ReduceChunk = JoinStage<ChunkCount*, ReduceChunkBody>;
using BlockParallel = JoinStage<bool, BlockParallelBody>;
using BlockSerial = JoinStage<bool, BlockSerialBody>;

// --- parse, copy, reduce, resolve ---------------------------------------------

struct ParseDataBody
{
    TextWindow* window;
    ChunkListArena* arena;
    tbb::enumerable_thread_specific<ObjChunkParser::CornerScratch>* scratch;

    ChunkData* operator()(ChunkData* chunk) const
    {
        ObjChunkParser::parse(*chunk, arena, scratch->local());
        window->release(chunk);
        return chunk;
    }
};

struct ReduceParallelIndependentBody
{
    ReaderState* state;

    continue_msg operator()(ChunkData* chunk) const
    {
        std::copy(chunk->vertices.begin(), chunk->vertices.end(), state->vertices + chunk->vertexOffset);
        std::copy(chunk->texCoords.begin(), chunk->texCoords.end(), state->texCoords + chunk->texCoordOffset);
        std::copy(chunk->faceSizes.begin(), chunk->faceSizes.end(), state->polygonSizes + chunk->faceOffset);
        // Nothing reads these again: give the memory back while others work.
        chunk->vertices.reset();
        chunk->texCoords.reset();
        chunk->faceSizes.reset();
        return continue_msg();
    }
};

using ReduceSerialNode = multifunction_node<ChunkData*, std::tuple<ChunkData*, bool>>;

/// Names merged across chunks, numbered by first use in the file.
class GlobalNames
{
public:
    explicit GlobalNames(QStringList& names) : m_names(names) {}
    int32_t number(const std::string& name)
    {
        auto it = m_numbers.find(name);
        if (it == m_numbers.end()) {
            it = m_numbers.emplace(name, int32_t(m_names.size())).first;
            m_names.append(QString::fromStdString(name));
        }
        return it->second;
    }

private:
    QStringList& m_names;
    std::unordered_map<std::string, int32_t> m_numbers;
};

struct ReduceSerialBody
{
    struct Running
    {
        int64_t corners = 0;
        int64_t texCorners = 0;
        int32_t group = -1;
        int32_t material = -1;
        int64_t chunksDone = 0;
        std::unique_ptr<GlobalNames> groups;
        std::unique_ptr<GlobalNames> materials;
    };
    ReaderState* state;
    std::shared_ptr<Running> running;

    static void mapNames(const std::vector<std::string>& local, std::vector<int32_t>& map, int32_t inForce,
                         GlobalNames& global, int32_t last, int32_t& next)
    {
        // The extra element stands for the name continuing from before.
        map.back() = inForce;
        for (size_t i = 0; i < local.size(); ++i)
            map[i] = global.number(local[i]);
        next = last == -1 ? map.back() : map[size_t(last)];
    }

    void operator()(ChunkData* chunk, ReduceSerialNode::output_ports_type& ports) const
    {
        Running& r = *running;
        if (chunk->index != r.chunksDone)
            throw GraphException("The file could not be read in order");
        for (size_t k = 0; k < chunk->faceOffsets.size(); ++k)
            state->polygonOffsets[chunk->faceOffset + int64_t(k)] = int(r.corners + chunk->faceOffsets[k]);
        chunk->cornerOffset = r.corners;
        chunk->texCornerOffset = r.texCorners;
        r.corners += int64_t(chunk->faceVertexIndices.size());
        r.texCorners += int64_t(chunk->faceTexIndices.size());
        if (r.corners > std::numeric_limits<int>::max())
            throw GraphException("The file has too many polygon corners");

        mapNames(chunk->groupNames, chunk->groupMap, r.group, *r.groups, chunk->lastGroup, r.group);
        mapNames(chunk->materialNames, chunk->materialMap, r.material, *r.materials, chunk->lastMaterial,
                 r.material);
        state->lists->mtllib += QString::fromStdString(chunk->mtllib);

        ++r.chunksDone;
        if (state->progress)
            state->progress->setValue(2 * state->chunkCount + r.chunksDone, QString::fromLatin1(LoadingLabel));

        std::get<0>(ports).try_put(chunk);
        if (!chunk->isLast)
            return;
        if (r.corners > 0) {
            resizeOnHugePages(state->lists->vertexIndices, int(r.corners));
            state->vertexIndices = state->lists->vertexIndices.data();
        }
        if (r.corners != r.texCorners && r.texCorners != 0)
            throw GraphException("File contains both: polygons with attached textures and polygons without them");
        if (r.texCorners > 0) {
            resizeOnHugePages(state->lists->texCoordIndices, int(r.texCorners));
            state->texCoordIndices = state->lists->texCoordIndices.data();
        }
        state->polygonOffsets[state->lists->polygonOffsets.size() - 1] = int(r.corners);
        state->vertexTotal = state->lists->vertices.size();
        state->texCoordTotal = state->lists->texCoords.size();
        for (int64_t i = 0; i <= chunk->index; ++i)
            std::get<1>(ports).try_put(true);
    }
};

struct ReduceParallelDependentBody
{
    ReaderState* state;

    static void resolve(const ChunkArray<int32_t>& local, int* target, int32_t total, const char* negative,
                        const char* outside)
    {
        for (size_t i = 0; i < local.size(); ++i) {
            int32_t index = local[i];
            // Negative indices count back from the end of the file.
            if (index < 0) {
                index += 1 + total;
                if (index < 0)
                    throw GraphException(negative);
            }
            if (index >= total)
                throw GraphException(outside);
            target[i] = index;
        }
    }

    continue_msg operator()(ChunkData* chunk) const
    {
        resolve(chunk->faceVertexIndices, state->vertexIndices + chunk->cornerOffset, state->vertexTotal,
                "File contains invalid negative vertex indexes", "File contains invalid vertex indexes");
        if (!chunk->faceTexIndices.empty())
            resolve(chunk->faceTexIndices, state->texCoordIndices + chunk->texCornerOffset, state->texCoordTotal,
                    "File contains invalid negative texture vertex indexes",
                    "File contains invalid texture vertex indexes");
        const int32_t groupInForce = int32_t(chunk->groupMap.size()) - 1;
        const int32_t materialInForce = int32_t(chunk->materialMap.size()) - 1;
        for (size_t k = 0; k < chunk->faceGroups.size(); ++k) {
            const int32_t group = chunk->faceGroups[k];
            const int32_t material = chunk->faceMaterials[k];
            state->polygroupIds[chunk->faceOffset + int64_t(k)] = chunk->groupMap[size_t(group < 0 ? groupInForce : group)];
            state->materialIds[chunk->faceOffset + int64_t(k)] =
                chunk->materialMap[size_t(material < 0 ? materialInForce : material)];
        }
        chunk->faceVertexIndices.reset();
        chunk->faceTexIndices.reset();
        return continue_msg();
    }
};

} // namespace

ObjReaderTBB::Layout ObjReaderTBB::chunkLayout(qint64 fileSize, qint64 requestedChunkSize)
{
    Layout layout;
    layout.chunkSize = requestedChunkSize;
    if (layout.chunkSize < MinChunkSize) {
        layout.chunkSize = MinChunkSize;
        if (fileSize >= ManyChunksFrom)
            layout.chunkSize = fileSize / ChunksPerFile;
    }
    layout.chunkCount = (fileSize + layout.chunkSize - 1) / layout.chunkSize;
    return layout;
}

bool ObjReaderTBB::read(const QString& path, MeshLists& lists, QString& error, Welk::ProgressInterface* progress,
                        qint64 requestedChunkSize)
{
    lists = MeshLists();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        error = QStringLiteral("Can not load file: ") + path;
        return false;
    }
    const qint64 fileSize = file.size();
    const Layout layout = chunkLayout(fileSize, requestedChunkSize);
    if (progress)
        progress->start(QString::fromLatin1(LoadingLabel), 3 * layout.chunkCount);

    ReaderState state;
    state.lists = &lists;
    state.progress = progress;
    state.chunkCount = layout.chunkCount;
    state.counts.resize(size_t(layout.chunkCount));

    ChunkBufferPool buffers(size_t(ChunkData::HeadSize + layout.chunkSize + 1));
    // Both outlive the chunks, whose parsed lists they hold.
    ChunkListArena parsedLists(ChunkListArena::capacityFor(fileSize, layout.chunkCount));
    tbb::enumerable_thread_specific<ObjChunkParser::CornerScratch> scratch;
    std::vector<std::unique_ptr<ChunkData>> chunks;
    chunks.reserve(size_t(layout.chunkCount));
    bool findLine = false;
    try {
        tbb::task_group_context context;
        graph g(context);
        sequencer_node<ChunkData*> sortRead(g, SortChDBufferBody());
        TextWindow window;
        CountNode count(g, serial, ParseCountBody{&window, &state});
        sequencer_node<ChunkCount*> sortCounts(g, SortChCBufferBody());
        Malloc malloc(g, state);
        ReduceChunk reduceChunk(g, ReduceChunkBody{&state});
        function_node<ChunkData*, ChunkData*> parse(g, unlimited, ParseDataBody{&window, &parsedLists, &scratch});
        sequencer_node<ChunkData*> sortParsed(g, SortChDBufferBody());
        BlockParallel blockParallel(g, BlockParallelBody());
        function_node<ChunkData*, continue_msg> copy(g, unlimited, ReduceParallelIndependentBody{&state});
        auto running = std::make_shared<ReduceSerialBody::Running>();
        running->groups = std::make_unique<GlobalNames>(lists.polygroupNames);
        running->materials = std::make_unique<GlobalNames>(lists.materialNames);
        // The reduction must see the chunks in file order; the gate in front
        // of it passes them on as it pairs them, so order them again.
        sequencer_node<ChunkData*> sortReduced(g, SortChDBufferBody());
        ReduceSerialNode reduce(g, serial, ReduceSerialBody{&state, running});
        BlockSerial blockSerial(g, BlockSerialBody());
        function_node<ChunkData*, continue_msg> resolve(g, unlimited, ReduceParallelDependentBody{&state});

        make_edge(sortRead, count);
        make_edge(output_port<0>(count), input_port<0>(reduceChunk));
        make_edge(output_port<1>(count), sortCounts);
        make_edge(sortCounts, input_port<0>(malloc));
        make_edge(output_port<0>(malloc), input_port<1>(reduceChunk));
        make_edge(output_port<0>(reduceChunk), parse);
        make_edge(parse, sortParsed);
        make_edge(sortParsed, input_port<0>(blockParallel));
        make_edge(output_port<1>(malloc), input_port<1>(blockParallel));
        make_edge(output_port<0>(blockParallel), copy);
        make_edge(output_port<0>(blockParallel), sortReduced);
        make_edge(sortReduced, reduce);
        make_edge(output_port<0>(reduce), input_port<0>(blockSerial));
        make_edge(output_port<1>(reduce), input_port<1>(blockSerial));
        make_edge(output_port<0>(blockSerial), resolve);

        // Reading stays on this thread and in file order; the graph works
        // on the chunks already read meanwhile. When the window is full this
        // thread joins the work until the graph is idle: the chunks read are
        // then parsed and their text freed, all but the last, whose line end
        // waits for the next chunk. Waiting inside the graph rather than on
        // a signal also makes progress with a single thread.
        const int64_t windowSize = std::max<int64_t>(MinChunksInFlight, 2 * tbb::this_task_arena::max_concurrency());
        for (qint64 i = 0; i < layout.chunkCount && !context.is_group_execution_cancelled(); ++i) {
            if (window.held >= windowSize)
                g.wait_for_all();
            const bool last = i + 1 == layout.chunkCount;
            const qint64 size = last ? fileSize - i * layout.chunkSize : layout.chunkSize;
            auto chunk = std::make_unique<ChunkData>(i, buffers, last);
            if (file.read(chunk->fileData, size) != size) {
                context.cancel_group_execution();
                error = QStringLiteral("Can not load file: ") + path;
                break;
            }
            chunk->rawSize = size_t(size);
            chunk->previous = chunks.empty() ? nullptr : chunks.back().get();
            chunks.push_back(std::move(chunk));
            ++window.held;
            if (progress)
                progress->setValue(2 * i, QString::fromLatin1(LoadingLabel));
            sortRead.try_put(chunks.back().get());
        }
        g.wait_for_all();
    } catch (const GraphException& e) {
        if (e.findLine())
            findLine = true;
        else
            error = QString::fromStdString(e.what());
    } catch (const std::bad_alloc&) {
        error = QStringLiteral("Not enough memory to load file: ") + path;
    }
    chunks.clear();
    file.close();
    if (progress)
        progress->end();

    if (findLine) {
        // A chunk does not know its line numbers: find the line in the whole file.
        QFile whole(path);
        error = whole.open(QIODevice::ReadOnly) ? ObjChunkParser::findWrongLine(whole.readAll()) : QString();
        if (error.isEmpty())
            error = QStringLiteral("The file contains a wrong line");
    }
    if (!error.isEmpty())
        return false;
    if (lists.vertices.isEmpty()) {
        error = QStringLiteral("The file contains no vertices");
        return false;
    }
    if (lists.polygonSizes.isEmpty()) {
        error = QStringLiteral("The file contains no polygons");
        return false;
    }
    return true;
}

} // namespace GeometryStack2
