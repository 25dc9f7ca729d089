#pragma once

#include <QVector2D>
#include <QVector3D>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace GeometryStack2 {

/// One slice of an OBJ file on its way through the reader's graph. The
/// read loop allocates it; the graph only passes pointers around; the
/// reader frees all chunks once the graph is done.
struct ChunkData
{
    /// Bytes in front of the file data where the unfinished last line of the
    /// previous chunk is copied, so that no chunk is ever copied whole.
    static constexpr size_t HeadSize = 2048;

    ChunkData(int64_t chunkIndex, size_t capacity, bool last);
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
    char* buffer = nullptr;
    char* fileData = nullptr; ///< buffer + HeadSize
    char* text = nullptr;     ///< first whole line; before fileData when a head was carried
    std::atomic<int> bufferUsers{2};

    // Filled by the parser.
    std::vector<QVector3D> vertices;
    std::vector<QVector2D> texCoords;
    std::vector<int32_t> faceVertexIndices;
    std::vector<int32_t> faceTexIndices;
    std::vector<int32_t> faceOffsets; ///< start of each face in faceVertexIndices
    std::vector<int32_t> faceSizes;
    std::vector<int32_t> faceGroups;
    std::vector<std::string> groupNames;
    std::vector<int32_t> faceMaterials;
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
