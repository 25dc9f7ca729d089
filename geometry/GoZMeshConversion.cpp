#include "GoZMeshConversion.h"

#include "GeomStack.h"
#include "HugePages.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace GeometryStack2 {

bool meshFromGoZ(const GoZFile& goz, GoZMesh& mesh, QString& error)
{
    return meshFromGoZ(goz.arrays(), mesh, error);
}

bool meshFromGoZ(const GoZArrays& goz, GoZMesh& mesh, QString& error)
{
    // Every list is sized first and then filled in parallel through raw
    // pointers: a dense subtool has millions of corners, and appending them
    // one by one cost more than reading the file.
    mesh = GoZMesh();
    MeshLists& lists = mesh.lists;
    const int vertexCount = goz.vertexCount;
    resizeOnHugePages(lists.vertices, vertexCount);
    QVector3D* vertices = lists.vertices.data();
    const GoZArray<float>& positions = goz.vertices;
    tbb::parallel_for(tbb::blocked_range<int>(0, vertexCount, 65536), [&](const tbb::blocked_range<int>& r) {
        for (int i = r.begin(); i < r.end(); ++i)
            vertices[i] = QVector3D(positions[3 * size_t(i)], positions[3 * size_t(i) + 1], positions[3 * size_t(i) + 2]);
    });
    const int unusable = GeomStack::firstUnusableVertex(lists.vertices);
    if (unusable >= 0) {
        const QVector3D& v = lists.vertices[unusable];
        error = QStringLiteral("Vertex %1 has a coordinate that is not a finite number, or larger than %2: (%3, %4, %5)")
                    .arg(unusable)
                    .arg(double(GeomStack::MaxCoordinate))
                    .arg(double(v.x()))
                    .arg(double(v.y()))
                    .arg(double(v.z()));
        return false;
    }
    resizeOnHugePages(mesh.vertexMask, vertexCount);
    float* vertexMask = mesh.vertexMask.data();
    tbb::parallel_for(tbb::blocked_range<int>(0, vertexCount, 65536), [&](const tbb::blocked_range<int>& r) {
        for (int i = r.begin(); i < r.end(); ++i)
            vertexMask[i] = size_t(i) < goz.vertexMask.size() ? float(goz.vertexMask[size_t(i)]) : 65535.0f;
    });

    // Four slots per polygon whatever the tag: a triangle is a quad with an
    // empty slot.
    const int polygonCount = goz.polygonCount;
    const bool withUVs = !goz.uvs.empty();
    const auto slot = [&](int p, int k) {
        const size_t at = size_t(p) * 4 + size_t(k);
        return at < goz.polygons.size() ? goz.polygons[at] : -1;
    };
    resizeOnHugePages(lists.polygonSizes, polygonCount);
    resizeOnHugePages(lists.polygonOffsets, polygonCount + 1);
    int* sizes = lists.polygonSizes.data();
    // The first polygon that names a vertex the file does not have.
    const int badPolygon = tbb::parallel_reduce(
        tbb::blocked_range<int>(0, polygonCount, 65536), polygonCount,
        [&](const tbb::blocked_range<int>& r, int bad) {
            for (int p = r.begin(); p < r.end(); ++p) {
                int size = 0;
                for (int k = 0; k < 4; ++k) {
                    const int index = slot(p, k);
                    size += index >= 0;
                    if (index >= vertexCount && p < bad)
                        bad = p;
                }
                sizes[p] = size;
            }
            return bad;
        },
        [](int a, int b) { return std::min(a, b); });
    if (badPolygon < polygonCount) {
        for (int k = 0; k < 4; ++k)
            if (slot(badPolygon, k) >= vertexCount) {
                error = QStringLiteral("Polygon %1 refers to vertex %2 of %3")
                            .arg(badPolygon)
                            .arg(slot(badPolygon, k))
                            .arg(vertexCount);
                break;
            }
        return false;
    }
    int* offsets = lists.polygonOffsets.data();
    offsets[0] = 0;
    for (int p = 0; p < polygonCount; ++p)
        offsets[p + 1] = offsets[p] + sizes[p];
    const int cornerCount = offsets[polygonCount];
    resizeOnHugePages(lists.vertexIndices, cornerCount);
    if (withUVs)
        resizeOnHugePages(lists.texCoords, cornerCount);
    resizeOnHugePages(lists.polygroupIds, polygonCount);
    resizeOnHugePages(lists.materialIds, polygonCount); // zeros: material 0
    resizeOnHugePages(mesh.polygonMaskFlags, polygonCount);
    int* corners = lists.vertexIndices.data();
    QVector2D* texCoords = lists.texCoords.data();
    int* groups = lists.polygroupIds.data();
    quint8* masked = mesh.polygonMaskFlags.data();
    tbb::parallel_for(tbb::blocked_range<int>(0, polygonCount, 65536), [&](const tbb::blocked_range<int>& r) {
        for (int p = r.begin(); p < r.end(); ++p) {
            int c = offsets[p];
            bool isMasked = false;
            for (int k = 0; k < 4; ++k) {
                const int index = slot(p, k);
                if (index < 0)
                    continue;
                corners[c] = index;
                isMasked = isMasked || vertexMask[index] < float(GoZFile::MaskThreshold);
                if (withUVs) {
                    const size_t uv = (size_t(p) * 4 + size_t(k)) * 2;
                    texCoords[c] = uv + 1 < goz.uvs.size() ? QVector2D(goz.uvs[uv], goz.uvs[uv + 1]) : QVector2D();
                }
                ++c;
            }
            masked[p] = isMasked ? 1 : 0;
            groups[p] = size_t(p) < goz.polygonGroups.size() ? int(goz.polygonGroups[size_t(p)]) - 1 : -1;
        }
    });
    // Group names in order of first use; the file's groups are 16-bit.
    std::vector<char> groupSeen(size_t(std::numeric_limits<uint16_t>::max()) + 1, 0);
    const size_t groupCount = std::min(goz.polygonGroups.size(), size_t(polygonCount));
    for (size_t p = 0; p < groupCount; ++p)
        if (!groupSeen[goz.polygonGroups[p]]) {
            groupSeen[goz.polygonGroups[p]] = 1;
            lists.polygroupNames.append(QString::number(int(goz.polygonGroups[p]) - 1));
        }
    if (withUVs) {
        resizeOnHugePages(lists.texCoordIndices, cornerCount);
        int* uvIndices = lists.texCoordIndices.data();
        tbb::parallel_for(tbb::blocked_range<int>(0, cornerCount, 65536), [&](const tbb::blocked_range<int>& r) {
            for (int i = r.begin(); i < r.end(); ++i)
                uvIndices[i] = i;
        });
    }
    return true;
}

bool loadGoZMesh(const QString& path, GoZMappedFile& file, GoZMesh& mesh, QString& error)
{
    if (!file.open(path)) {
        error = QStringLiteral("Cannot read GoZ file: \n%1\n%2").arg(path, file.readError());
        return false;
    }
    if (file.arrays().vertexCount < 1) {
        error = QStringLiteral("Geometry does not contain vertices: \n%1").arg(path);
        return false;
    }
    if (file.arrays().polygonCount < 1) {
        error = QStringLiteral("Geometry does not contain polygons: \n%1").arg(path);
        return false;
    }
    QString conversionError;
    if (!meshFromGoZ(file.arrays(), mesh, conversionError)) {
        error = QStringLiteral("Cannot read GoZ file: \n%1\n%2").arg(path, conversionError);
        return false;
    }
    return true;
}

GoZFile gozFromMesh(const GeomStack& mesh, const QByteArray& name, GoZFrame frame)
{
    const bool zbrush = frame == GoZFrame::ZBrush;
    const float axis = zbrush ? -1.0f : 1.0f;
    GoZFile goz;
    goz.name = zbrush ? QByteArrayLiteral("GoZMesh_") + name : name;
    goz.vertexCount = mesh.vertexCount();
    goz.vertices.reserve(size_t(goz.vertexCount) * 3);
    for (const QVector3D& v : mesh.vertices()) {
        goz.vertices.push_back(v.x());
        goz.vertices.push_back(axis * v.y());
        goz.vertices.push_back(axis * v.z());
    }

    const bool withUVs = mesh.hasTexCoords();
    const QVector<int>& offsets = mesh.polygonOffsets();
    const QVector<int>& corners = mesh.vertexIndices();
    const QVector<int>& groups = mesh.polygroupIds();
    const auto addPolygon = [&](int p, std::initializer_list<int> cornerSlots) {
        int slot = 0;
        for (int c : cornerSlots) {
            goz.polygons.push_back(corners[c]);
            if (withUVs) {
                const QVector2D t = mesh.texCoords()[mesh.texCoordIndices()[c]];
                goz.uvs.push_back(t.x());
                goz.uvs.push_back(zbrush ? 1.0f - t.y() : t.y());
            }
            ++slot;
        }
        for (; slot < 4; ++slot) {
            goz.polygons.push_back(-1);
            if (withUVs) {
                goz.uvs.push_back(0.0f);
                goz.uvs.push_back(0.0f);
            }
        }
        const int group = p < groups.size() ? groups[p] + 1 : 0;
        goz.polygonGroups.push_back(uint16_t(qBound(0, group, int(std::numeric_limits<uint16_t>::max()))));
        ++goz.polygonCount;
    };
    for (int p = 0; p < mesh.polygonCount(); ++p) {
        const int first = offsets[p];
        const int size = offsets[p + 1] - first;
        if (size == 3)
            addPolygon(p, {first, first + 1, first + 2});
        else if (size == 4)
            addPolygon(p, {first, first + 1, first + 2, first + 3});
        else
            for (int k = 1; k + 1 < size; ++k)
                addPolygon(p, {first, first + k, first + k + 1});
    }
    goz.polygonTag = GoZFile::TagQuads;
    if (withUVs)
        goz.uvTag = GoZFile::TagUVQuads;
    goz.vertexMask.assign(size_t(goz.vertexCount), std::numeric_limits<uint16_t>::max());
    return goz;
}

} // namespace GeometryStack2
