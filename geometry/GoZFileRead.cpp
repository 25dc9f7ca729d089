#include "GoZFile.h"

#include "GoZMappedFile.h"

namespace GeometryStack2 {

int GoZFile::cornersPerPolygon(int32_t polygonTag)
{
    return polygonTag == TagTriangles ? 3 : 4;
}

int GoZFile::uvFloatsPerPolygon(int32_t uvTag)
{
    return uvTag == TagUVTriangles ? 6 : 8;
}

void GoZFile::clear()
{
    *this = GoZFile();
}

bool GoZFile::read(const QString& path)
{
    clear();
    GoZMappedFile mapped;
    if (!mapped.open(path)) {
        m_readError = mapped.readError();
        return false;
    }
    *this = mapped.toFile();
    return true;
}

GoZArrays GoZFile::arrays() const
{
    GoZArrays a;
    a.vertexCount = vertexCount;
    a.polygonCount = polygonCount;
    a.polygonTag = polygonTag;
    a.uvTag = uvTag;
    a.vertices = GoZArray<float>(vertices);
    a.polygons = GoZArray<int32_t>(polygons);
    a.uvs = GoZArray<float>(uvs);
    a.vertexMask = GoZArray<uint16_t>(vertexMask);
    a.vertexColors = GoZArray<uint32_t>(vertexColors);
    a.polygonGroups = GoZArray<uint16_t>(polygonGroups);
    return a;
}

} // namespace GeometryStack2
