#include "GeomStackTriangulated.h"

#include "HugePages.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <algorithm>
#include <vector>

namespace GeometryStack2 {

GeomStackTriangulated::GeomStackTriangulated(const QString& path, QString& error,
                                             Welk::ProgressInterface* progress, int loader, bool logLoaded)
    : GeomStack(path, error, progress, loader, logLoaded)
{
    if (error.isEmpty())
        triangulate();
}

GeomStackTriangulated::GeomStackTriangulated(
    const QVector<QVector3D>& vertices, const QVector<int>& vertexIndices, const QVector<int>& polygonSizes,
    const QVector<int>& polygonOffsets, const QVector<QVector2D>& texCoords, const QVector<int>& texCoordIndices,
    const QVector<QVector3D>& normals, const QVector<int>& polygroupIds, const QStringList& polygroupNames,
    const QVector<int>& materialIds, const QStringList& materialNames, const QString& mtllib)
    : GeomStack(vertices, vertexIndices, polygonSizes, polygonOffsets, texCoords, texCoordIndices, normals,
                polygroupIds, polygroupNames, materialIds, materialNames, mtllib)
{
    triangulate();
}

GeomStackTriangulated::GeomStackTriangulated(QDataStream& stream, QString& error) : GeomStack(stream, error)
{
    if (error.isEmpty())
        triangulate();
}

GeomStackTriangulated::GeomStackTriangulated(const GeomStack& other) : GeomStack(other)
{
    triangulate();
}

GeomStackTriangulated::~GeomStackTriangulated() = default;

void GeomStackTriangulated::serialize(QDataStream& stream) const
{
    // Triangles are derived data and are rebuilt on reading.
    GeomStack::serialize(stream);
}

QVector<int> GeomStackTriangulated::triangulate(const QVector<int>& cornerIndices,
                                                const QVector<int>& polygonOffsets,
                                                QVector<int>* trianglePolygons)
{
    // Each polygon is a fan of size - 2 triangles. Where every polygon has
    // at least three corners, the fans before polygon p hold
    // offsets[p] - offsets[0] - 2p triangles, so the fans are written in
    // parallel, each at its place.
    const int polygonCount = std::max(0, polygonOffsets.size() - 1);
    const int* offsets = polygonOffsets.constData();
    const bool allPolygons = tbb::parallel_reduce(
        tbb::blocked_range<int>(0, polygonCount, 65536), true,
        [&](const tbb::blocked_range<int>& r, bool ok) {
            for (int p = r.begin(); ok && p < r.end(); ++p)
                ok = offsets[p + 1] - offsets[p] >= 3;
            return ok;
        },
        [](bool a, bool b) { return a && b; });
    std::vector<int> fanStarts;
    if (!allPolygons) {
        fanStarts.resize(size_t(polygonCount) + 1);
        for (int p = 0; p < polygonCount; ++p)
            fanStarts[size_t(p) + 1] = fanStarts[size_t(p)] + std::max(0, offsets[p + 1] - offsets[p] - 2);
    }
    const auto fanStart = [&](int p) { return allPolygons ? offsets[p] - offsets[0] - 2 * p : fanStarts[size_t(p)]; };
    const int triangleCount = polygonCount > 0 ? fanStart(polygonCount) : 0;

    // A mesh of triangles only (most scans) is its own triangulation: the
    // list is shared, not copied, and detaches if either side changes.
    if (allPolygons && triangleCount == polygonCount && offsets[0] == 0 && cornerIndices.size() == 3 * polygonCount) {
        if (trianglePolygons) {
            resizeForOverwrite(*trianglePolygons, polygonCount);
            int* owners = trianglePolygons->data();
            tbb::parallel_for(tbb::blocked_range<int>(0, polygonCount, 65536), [&](const tbb::blocked_range<int>& r) {
                for (int p = r.begin(); p < r.end(); ++p)
                    owners[p] = p;
            });
        }
        return cornerIndices;
    }

    QVector<int> triangles;
    resizeForOverwrite(triangles, 3 * qint64(triangleCount));
    int* out = triangles.data();
    int* owners = nullptr;
    if (trianglePolygons) {
        resizeForOverwrite(*trianglePolygons, triangleCount);
        owners = trianglePolygons->data();
    }
    const int* corners = cornerIndices.constData();
    tbb::parallel_for(tbb::blocked_range<int>(0, polygonCount, 16384), [&](const tbb::blocked_range<int>& r) {
        for (int p = r.begin(); p < r.end(); ++p) {
            const int first = offsets[p];
            const int size = offsets[p + 1] - first;
            int t = fanStart(p);
            for (int k = 1; k + 1 < size; ++k, ++t) {
                out[3 * size_t(t)] = corners[first];
                out[3 * size_t(t) + 1] = corners[first + k];
                out[3 * size_t(t) + 2] = corners[first + k + 1];
                if (owners)
                    owners[t] = p;
            }
        }
    });
    return triangles;
}

void GeomStackTriangulated::triangulate()
{
    m_triangleVertexIndices = triangulate(m_vertexIndices, m_polygonOffsets, &m_trianglePolygonIndices);
    m_triangleTexCoordIndices.clear();
    if (!m_texCoordIndices.isEmpty())
        m_triangleTexCoordIndices = triangulate(m_texCoordIndices, m_polygonOffsets, nullptr);
}

QVector<quint8> GeomStackTriangulated::triangleMask(const QVector<quint8>& polygonMask) const
{
    QVector<quint8> mask(m_trianglePolygonIndices.size());
    for (int t = 0; t < mask.size(); ++t)
        mask[t] = polygonMask[m_trianglePolygonIndices[t]];
    return mask;
}

QVector<quint8> GeomStackTriangulated::invertedMask(const QVector<quint8>& mask)
{
    QVector<quint8> inverted(mask);
    for (quint8& byte : inverted)
        byte ^= 1u;
    return inverted;
}

} // namespace GeometryStack2
