#pragma once

#include <QtGlobal>
#include <QVector2D>
#include <QVector3D>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace GeometryStack2 {

/// Memory for the parsed lists of all chunks of one read: address space
/// reserved for the most the file's size allows, given out in one block per
/// list and backed by huge pages as the lists are written. The chunks' lists
/// are all alive when the final lists are made, so handing them out from
/// here costs no more memory than allocating each, but a few hundred page
/// faults instead of one every 4 KB. Released whole when the read ends.
class ChunkListArena
{
public:
    /// Reserves `capacity` bytes; without the reservation every `take` fails
    /// and the lists fall back on their own allocations.
    explicit ChunkListArena(size_t capacity);
    ~ChunkListArena();
    ChunkListArena(const ChunkListArena&) = delete;
    ChunkListArena& operator=(const ChunkListArena&) = delete;

    /// `bytes` of the reservation, 64-byte aligned, or nullptr when it is used up.
    void* take(size_t bytes);
    /// Gives the memory of a list nobody reads again back to the system (the
    /// whole pages inside it); the address space stays taken.
    void give(void* data, size_t bytes);

    /// Bytes of parsed lists a file of `fileSize` bytes in `chunkCount`
    /// chunks can hold at most: six bytes of lists per byte of text (a face
    /// line "f 1" of four bytes has 24), on at most a carried head more
    /// text per chunk, plus the alignment of eight lists per chunk.
    static size_t capacityFor(qint64 fileSize, qint64 chunkCount);

private:
    char* m_base = nullptr;
    size_t m_capacity = 0;
    std::atomic<size_t> m_used{0};
};

/// A chunk's parsed list. The counter knows its size before the parser
/// runs and the parser writes every element, so it is allocated without
/// being cleared first (a cleared list costs a pass over fresh memory).
template <typename T> class ChunkArray
{
    static_assert(std::is_trivially_copyable<T>::value, "ChunkArray holds plain values");

public:
    ChunkArray() = default;
    ~ChunkArray() { reset(); }
    ChunkArray(const ChunkArray&) = delete;
    ChunkArray& operator=(const ChunkArray&) = delete;

    /// From `arena` where it has room, else from the heap.
    void allocate(size_t size, ChunkListArena* arena = nullptr)
    {
        reset();
        if (size == 0)
            return;
        m_data = arena ? static_cast<T*>(arena->take(size * sizeof(T))) : nullptr;
        m_arena = m_data ? arena : nullptr;
        if (!m_data)
            m_data = static_cast<T*>(std::malloc(size * sizeof(T)));
        if (!m_data)
            throw std::bad_alloc();
        m_size = size;
    }
    void reset()
    {
        if (m_arena)
            m_arena->give(m_data, m_size * sizeof(T));
        else
            std::free(m_data);
        m_data = nullptr;
        m_size = 0;
        m_arena = nullptr;
    }
    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    T* data() { return m_data; }
    T& operator[](size_t i) { return m_data[i]; }
    const T& operator[](size_t i) const { return m_data[i]; }
    const T* begin() const { return m_data; }
    const T* end() const { return m_data + m_size; }

private:
    T* m_data = nullptr;
    size_t m_size = 0;
    ChunkListArena* m_arena = nullptr; ///< where the list lives; none for the heap
};

/// Text buffers for the chunks. All chunks of a file but the last have the
/// same size, and the read loop keeps only a few alive: a buffer given back
/// is handed to the next chunk instead of the file being read into fresh
/// memory, page fault after page fault, for every chunk.
class ChunkBufferPool
{
public:
    explicit ChunkBufferPool(size_t bufferSize) : m_bufferSize(bufferSize) {}
    ~ChunkBufferPool();
    ChunkBufferPool(const ChunkBufferPool&) = delete;
    ChunkBufferPool& operator=(const ChunkBufferPool&) = delete;

    size_t bufferSize() const { return m_bufferSize; }
    char* take();
    void give(char* buffer);

private:
    size_t m_bufferSize;
    std::mutex m_mutex;
    std::vector<char*> m_free;
};

/// One slice of an OBJ file on its way through the reader's graph. The
/// read loop allocates it; the graph only passes pointers around; the
/// reader frees all chunks once the graph is done.
struct ChunkData
{
    /// Bytes in front of the file data where the unfinished last line of the
    /// previous chunk is copied, so that no chunk is ever copied whole.
    static constexpr size_t HeadSize = 2048;

    /// `pool` gives the text buffer, which holds HeadSize + a chunk + 1 bytes.
    ChunkData(int64_t chunkIndex, ChunkBufferPool& pool, bool last);
    ~ChunkData();
    /// The text buffer has two users, the chunk's own parser and the next
    /// chunk's counter (which copies the unfinished last line); the last of
    /// them frees it, so that the file is not held whole in memory. True for
    /// the call that freed it.
    bool releaseBuffer();
    ChunkData(const ChunkData&) = delete;
    ChunkData& operator=(const ChunkData&) = delete;

    bool isLast = false;
    int64_t index = 0;
    int32_t vertexOffset = 0, vertexCount = 0;
    int32_t texCoordOffset = 0, texCoordCount = 0;
    int32_t faceOffset = 0, faceCount = 0;
    int32_t lastGroup = -1, groupCount = 0;
    int32_t lastMaterial = -1, materialCount = 0;
    /// Chunk-local group or material number -> global one; the element at
    /// `groupCount` (`materialCount`) is the one in force when the chunk starts.
    std::vector<int32_t> groupMap, materialMap;
    ChunkData* previous = nullptr;
    size_t rawSize = 0;  ///< bytes read from the file
    size_t textSize = 0; ///< bytes of whole lines, from `text`
    ChunkBufferPool* pool = nullptr;
    char* buffer = nullptr;
    char* fileData = nullptr; ///< buffer + HeadSize
    char* text = nullptr;     ///< first whole line; before fileData when a head was carried
    std::atomic<int> bufferUsers{2};

    // Filled by the parser.
    ChunkArray<QVector3D> vertices;
    ChunkArray<QVector2D> texCoords;
    ChunkArray<int32_t> faceVertexIndices;
    ChunkArray<int32_t> faceTexIndices;
    ChunkArray<int32_t> faceOffsets; ///< start of each face in faceVertexIndices
    ChunkArray<int32_t> faceSizes;
    ChunkArray<int32_t> faceGroups;
    std::vector<std::string> groupNames;
    ChunkArray<int32_t> faceMaterials;
    std::vector<std::string> materialNames;
    std::string mtllib;

    // Set by the serial reduction: where this chunk's corners go.
    int64_t cornerOffset = 0;
    int64_t texCornerOffset = 0;
};

/// A chunk's counts and, once assigned, its offsets in the final lists.
struct ChunkCount
{
    bool isLast = false;
    int64_t index = 0;
    int32_t vertexOffset = 0, vertexCount = 0;
    int32_t texCoordOffset = 0, texCoordCount = 0;
    int32_t faceOffset = 0, faceCount = 0;
};

/// Thrown inside the graph. Without a message it means "a line is wrong":
/// a chunk does not know its line numbers, so the reader then runs the
/// wrong-line checker over the whole file to name the line.
class GraphException : public std::runtime_error
{
public:
    GraphException() : std::runtime_error("wrong line"), m_findLine(true) {}
    explicit GraphException(const std::string& message) : std::runtime_error(message), m_findLine(false) {}
    bool findLine() const { return m_findLine; }

private:
    bool m_findLine;
};

} // namespace GeometryStack2
