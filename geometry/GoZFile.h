#pragma once

#include "GoZArrays.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <vector>

namespace GeometryStack2 {

/// In-memory image of one GoZ file, the binary mesh format of ZBrush.
///
/// Known chunks are kept exactly as read, so a result written back differs
/// from its input only in what the program replaced (the vertices), in the
/// writer's fixed chunk order, in padding bytes and in unknown chunks, which
/// are skipped on reading. All values are little-endian on disk.
class GoZFile
{
public:
    enum Tag : int32_t
    {
        TagEnd = 0,
        TagName = 1,
        TagSecondName = 2,
        TagValue5001 = 5001,
        TagVertices = 10001,
        TagVerticesDouble = 10002,
        TagQuads = 20001,
        TagQuads2 = 20002,
        TagTriangles = 20003,
        TagUVQuads = 25001,
        TagUVTriangles = 25002,
        TagBytes = 30001,
        TagVertexMask = 30002,
        TagVertexColors = 35001,
        TagPolygonGroups = 40001,
        TagText45001 = 45001,
        TagText50001 = 50001,
        TagText55001 = 55001,
    };

    static constexpr int HeaderSize = 32;
    static constexpr int ChunkHeaderSize = 16;
    /// Mask values below this flag a vertex as masked.
    static constexpr uint16_t MaskThreshold = 0xD000;

    GoZFile() = default;
    GoZFile(const GoZFile&) = default;
    GoZFile& operator=(const GoZFile&) = default;

    /// Clears, then reads `path`. False on an unopenable file, a bad magic, a
    /// short read or a missing end chunk.
    bool read(const QString& path);
    /// Why the last `read` failed, for the user ("the file ends inside chunk
    /// 10001"); empty after a successful read.
    const QString& readError() const { return m_readError; }
    /// Writes all present chunks in the fixed order. The file at `path` is
    /// replaced only once everything is written: false at the first failed
    /// write, and then `path` is as it was before.
    bool write(const QString& path) const;
    void clear();
    /// A view of the arrays below, valid while this object is unchanged.
    GoZArrays arrays() const;

    /// Corners stored per polygon for a polygon tag (4, or 3 for triangles).
    static int cornersPerPolygon(int32_t polygonTag);
    /// Floats stored per polygon for a texture tag (8, or 6 for triangles).
    static int uvFloatsPerPolygon(int32_t uvTag);

    // The file's content. Empty arrays and null texts are absent chunks.
    QByteArray name;
    QByteArray secondName;
    uint32_t value5001 = 0;
    int32_t vertexCount = 0;
    std::vector<float> vertices; ///< 3 per vertex
    int32_t polygonCount = 0;
    int32_t polygonTag = 0;
    std::vector<int32_t> polygons; ///< `cornersPerPolygon` per polygon, -1 for an empty slot
    int32_t uvTag = 0;
    std::vector<float> uvs; ///< `uvFloatsPerPolygon` per polygon, u first
    std::vector<uint16_t> vertexMask;
    std::vector<uint32_t> vertexColors;
    std::vector<uint16_t> polygonGroups;
    QByteArray string45001;
    QByteArray string50001;
    QByteArray string55001;
    float float55001 = 1.0f;

private:
    QString m_readError;
};

} // namespace GeometryStack2
