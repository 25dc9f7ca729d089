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
    // Every list is allocated uninitialised and filled in parallel through
    // raw pointers, each element written once: a dense subtool has millions
    // of corners, and appending them one by one, or zeroing a list on one
    // thread before filling it on all, cost more than reading the file.
    mesh = GoZMesh();
    MeshLists& lists = mesh.lists;
    const int vertexCount = goz.vertexCount;
    resizeForOverwrite(lists.vertices, vertexCount);
    resizeForOverwrite(mesh.vertexMask, vertexCount);
    QVector3D* vertices = lists.vertices.data();
    float* vertexMask = mesh.vertexMask.data();
    const GoZArray<float>& positions = goz.vertices;
    // The first vertex with a coordinate that is not finite or too large,
    // and whether any vertex is masked.
    struct VertexScan
    {
        int unusable;
        bool anyMasked;
    };
    const VertexScan scan = tbb::parallel_reduce(
        tbb::blocked_range<int>(0, vertexCount, 65536), VertexScan{vertexCount, false},
        [&](const tbb::blocked_range<int>& r, VertexScan found) {
            for (int i = r.begin(); i < r.end(); ++i) {
                const QVector3D v(positions[3 * size_t(i)], positions[3 * size_t(i) + 1],
                                  positions[3 * size_t(i) + 2]);
                vertices[i] = v;
                if (!GeomStack::isUsable(v) && i < found.unusable)
                    found.unusable = i;
                const float mask = size_t(i) < goz.vertexMask.size() ? float(goz.vertexMask[size_t(i)]) : 65535.0f;
                vertexMask[i] = mask;
                found.anyMasked = found.anyMasked || mask < float(GoZFile::MaskThreshold);
            }
            return found;
        },
        [](const VertexScan& a, const VertexScan& b) {
            return VertexScan{std::min(a.unusable, b.unusable), a.anyMasked || b.anyMasked};
        });
    const int unusable = scan.unusable;
    if (unusable < vertexCount) {
        const QVector3D& v = lists.vertices[unusable];
        error = QStringLiteral("Vertex %1 has a coordinate that is not a finite number, or larger than %2: (%3, %4, %5)")
                    .arg(unusable)
                    .arg(double(GeomStack::MaxCoordinate))
                    .arg(double(v.x()))
                    .arg(double(v.y()))
                    .arg(double(v.z()));
        return false;
    }

    // Four slots per polygon whatever the tag: a triangle is a quad with an
    // empty slot. The polygons are taken in fixed blocks: a first pass counts
    // each block's corners and checks its indices, a second writes every
    // list at the place the counts give.
    const int polygonCount = goz.polygonCount;
    const bool withUVs = !goz.uvs.empty();
    // The arrays by value in every loop below: captured by reference they
    // were reloaded after each store, and these loops are few loads and
    // stores per corner.
    const GoZArray<int32_t> polygons = goz.polygons;
    const auto slot = [polygons](int p, int k) {
        const size_t at = size_t(p) * 4 + size_t(k);
        return at < polygons.size() ? polygons[at] : -1;
    };
    constexpr int BlockSize = 65536;
    const int blockCount = (polygonCount + BlockSize - 1) / BlockSize;
    const auto blockRange = [&](int block) {
        return std::make_pair(int(qint64(block) * BlockSize),
                              int(std::min(qint64(polygonCount), qint64(block + 1) * BlockSize)));
    };
    std::vector<int> blockCorners(size_t(blockCount) + 1, 0);
    std::vector<int> blockBad(size_t(blockCount), polygonCount);
    // Group numbers in order of first use within each block; the file's
    // groups are 16-bit.
    std::vector<std::vector<uint16_t>> blockGroups{size_t(blockCount)};
    const size_t groupCount = std::min(goz.polygonGroups.size(), size_t(polygonCount));
    tbb::parallel_for(0, blockCount, [&](int block) {
        const auto [begin, end] = blockRange(block);
        int corners = 0;
        int bad = polygonCount;
        for (int p = begin; p < end; ++p)
            for (int k = 0; k < 4; ++k) {
                const int index = slot(p, k);
                corners += index >= 0;
                if (index >= vertexCount && p < bad)
                    bad = p;
            }
        blockCorners[size_t(block) + 1] = corners;
        blockBad[size_t(block)] = bad;
        std::vector<bool> seen(size_t(std::numeric_limits<uint16_t>::max()) + 1, false);
        std::vector<uint16_t>& groups = blockGroups[size_t(block)];
        for (size_t p = size_t(begin); p < std::min(size_t(end), groupCount); ++p) {
            const uint16_t group = goz.polygonGroups[p];
            if (!seen[group]) {
                seen[group] = true;
                groups.push_back(group);
            }
        }
    });
    const int badPolygon = blockCount > 0 ? *std::min_element(blockBad.begin(), blockBad.end()) : polygonCount;
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
    for (int block = 0; block < blockCount; ++block)
        blockCorners[size_t(block) + 1] += blockCorners[size_t(block)];
    const int cornerCount = blockCorners[size_t(blockCount)];
    resizeForOverwrite(lists.polygonSizes, polygonCount);
    resizeForOverwrite(lists.polygonOffsets, polygonCount + 1);
    resizeForOverwrite(lists.vertexIndices, cornerCount);
    if (withUVs) {
        resizeForOverwrite(lists.texCoords, cornerCount);
        resizeForOverwrite(lists.texCoordIndices, cornerCount);
    }
    resizeForOverwrite(lists.polygroupIds, polygonCount);
    resizeForOverwrite(lists.materialIds, polygonCount);
    resizeForOverwrite(mesh.polygonMaskFlags, polygonCount);
    int* sizes = lists.polygonSizes.data();
    int* offsets = lists.polygonOffsets.data();
    int* corners = lists.vertexIndices.data();
    QVector2D* texCoords = lists.texCoords.data();
    int* uvIndices = lists.texCoordIndices.data();
    int* groups = lists.polygroupIds.data();
    int* materials = lists.materialIds.data();
    quint8* masked = mesh.polygonMaskFlags.data();
    offsets[polygonCount] = cornerCount;
    const GoZArray<float> uvs = goz.uvs;
    const GoZArray<uint16_t> polygonGroups = goz.polygonGroups;
    const bool anyMasked = scan.anyMasked;
    tbb::parallel_for(0, blockCount, [=, &blockCorners](int block) {
        const auto [begin, end] = blockRange(block);
        int c = blockCorners[size_t(block)];
        for (int p = begin; p < end; ++p) {
            offsets[p] = c;
            bool isMasked = false;
            for (int k = 0; k < 4; ++k) {
                const int index = slot(p, k);
                if (index < 0)
                    continue;
                corners[c] = index;
                // Most subtools have no masked vertex, and then the look-up,
                // scattered over the vertices, is skipped.
                isMasked = isMasked || (anyMasked && vertexMask[index] < float(GoZFile::MaskThreshold));
                if (withUVs) {
                    const size_t uv = (size_t(p) * 4 + size_t(k)) * 2;
                    texCoords[c] = uv + 1 < uvs.size() ? QVector2D(uvs[uv], uvs[uv + 1]) : QVector2D();
                    uvIndices[c] = c;
                }
                ++c;
            }
            sizes[p] = c - offsets[p];
            masked[p] = isMasked ? 1 : 0;
            groups[p] = size_t(p) < polygonGroups.size() ? int(polygonGroups[size_t(p)]) - 1 : -1;
            materials[p] = 0;
        }
    });
    // The names list the groups in order of first use in the whole file.
    std::vector<bool> named(size_t(std::numeric_limits<uint16_t>::max()) + 1, false);
    for (const std::vector<uint16_t>& blockFirst : blockGroups)
        for (uint16_t group : blockFirst)
            if (!named[group]) {
                named[group] = true;
                lists.polygroupNames.append(QString::number(int(group) - 1));
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
