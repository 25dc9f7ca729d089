#pragma once

#include "ObjChunk.h"

#include <QByteArray>
#include <QString>

namespace GeometryStack2 {

/// What the OBJ graph does to the text of one chunk.
namespace ObjChunkParser {

/// Counts the lines the chunk holds by kind, from `text` over `textSize`
/// bytes. Only "\n" ends a line.
void countLines(ChunkData& chunk, int32_t& vertices, int32_t& texCoords, int32_t& faces, int32_t& groups,
                int32_t& materials);

/// Where a parser collects a chunk's corners before their number is
/// known; one per thread, reused from chunk to chunk.
struct CornerScratch
{
    std::vector<int32_t> vertexIndices;
    std::vector<int32_t> texIndices;
};

/// Parses the chunk's text into its own lists, sized by its counts and
/// taken from `arena` where it has room. Throws an empty GraphException on
/// a wrong line and a GraphException with a message on a line the design
/// cannot hold.
void parse(ChunkData& chunk, ChunkListArena* arena, CornerScratch& scratch);

/// Walks a whole file to its first wrong line and names it: lines are
/// counted from 1, empty lines not at all. An empty text means no line was
/// found wrong.
QString findWrongLine(const QByteArray& file);

/// The line of the vertex with index `vertex` (from 0), counted as
/// `findWrongLine` counts; -1 when the file has fewer vertices.
long long findVertexLine(const QByteArray& file, int vertex);

} // namespace ObjChunkParser
} // namespace GeometryStack2
