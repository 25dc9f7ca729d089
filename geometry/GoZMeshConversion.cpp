#include "GoZMeshConversion.h"

#include "GeomStack.h"

#include <QHash>

#include <limits>

namespace GeometryStack2 {

bool meshFromGoZ(const GoZFile& goz, GoZMesh& mesh, QString& error)
{
    mesh = GoZMesh();
    MeshLists& lists = mesh.lists;
    const int vertexCount = goz.vertexCount;
    lists.vertices.resize(vertexCount);
    for (int i = 0; i < vertexCount; ++i)
        lists.vertices[i] = QVector3D(goz.vertices[3 * size_t(i)], goz.vertices[3 * size_t(i) + 1],
                                      goz.vertices[3 * size_t(i) + 2]);
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
    mesh.vertexMask.resize(vertexCount);
    for (int i = 0; i < vertexCount; ++i)
        mesh.vertexMask[i] = size_t(i) < goz.vertexMask.size() ? float(goz.vertexMask[size_t(i)]) : 65535.0f;

    const int polygonCount = goz.polygonCount;
    const bool withUVs = !goz.uvs.empty();
    lists.polygonSizes.reserve(polygonCount);
    lists.polygonOffsets.reserve(polygonCount + 1);
    lists.vertexIndices.reserve(polygonCount * 4);
    lists.polygroupIds.resize(polygonCount);
    lists.materialIds.fill(0, polygonCount);
    mesh.polygonMaskFlags.resize(polygonCount);
    QHash<int, bool> groupsSeen;

    for (int p = 0; p < polygonCount; ++p) {
        lists.polygonOffsets.append(lists.vertexIndices.size());
        bool masked = false;
        int size = 0;
        // Four slots per polygon whatever the tag: a triangle is a quad with
        // an empty slot.
        for (int slot = 0; slot < 4; ++slot) {
            const size_t at = size_t(p) * 4 + size_t(slot);
            const int index = at < goz.polygons.size() ? goz.polygons[at] : -1;
            if (index < 0)
                continue;
            if (index >= vertexCount) {
                error = QStringLiteral("Polygon %1 refers to vertex %2 of %3").arg(p).arg(index).arg(vertexCount);
                return false;
            }
            lists.vertexIndices.append(index);
            ++size;
            if (mesh.vertexMask[index] < float(GoZFile::MaskThreshold))
                masked = true;
            if (withUVs) {
                const size_t uv = at * 2;
                lists.texCoords.append(uv + 1 < goz.uvs.size() ? QVector2D(goz.uvs[uv], goz.uvs[uv + 1])
                                                               : QVector2D());
            }
        }
        lists.polygonSizes.append(size);
        mesh.polygonMaskFlags[p] = masked ? 1 : 0;
        const int group = size_t(p) < goz.polygonGroups.size() ? int(goz.polygonGroups[size_t(p)]) - 1 : -1;
        lists.polygroupIds[p] = group;
        if (size_t(p) < goz.polygonGroups.size() && !groupsSeen.contains(group)) {
            groupsSeen.insert(group, true);
            lists.polygroupNames.append(QString::number(group));
        }
    }
    lists.polygonOffsets.append(lists.vertexIndices.size());
    if (withUVs) {
        lists.texCoordIndices.resize(lists.vertexIndices.size());
        for (int i = 0; i < lists.texCoordIndices.size(); ++i)
            lists.texCoordIndices[i] = i;
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
