#include "GeomStack.h"

#include "CornerNormals.h"
#include "HugePages.h"
#include "ObjChunkParser.h"
#include "ObjPlainLoader.h"
#include "ObjReaderTBB.h"

#include <QDebug>
#include <QFile>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>

namespace GeometryStack2 {

GeomStack::GeomStack(const QString& path, QString& error, Welk::ProgressInterface* progress, int loader,
                     bool logLoaded)
{
    error.clear();
    MeshLists lists;
    if (loader == PlainLoader) {
        if (!ObjPlainLoader::read(path, lists, error, progress))
            return;
        error = validateIndices(lists.vertexIndices, lists.vertices.size(), lists.texCoordIndices,
                                lists.texCoords.size());
    } else if (loader == GraphLoader) {
        if (!ObjReaderTBB::read(path, lists, error, progress, 0))
            return;
    } else {
        // Other loader numbers load nothing; saying so keeps an empty mesh
        // from passing for a loaded one.
        error = QStringLiteral("Unknown OBJ loader %1").arg(loader);
        return;
    }
    m_vertices = std::move(lists.vertices);
    m_texCoords = std::move(lists.texCoords);
    m_vertexIndices = std::move(lists.vertexIndices);
    m_texCoordIndices = std::move(lists.texCoordIndices);
    m_polygonSizes = std::move(lists.polygonSizes);
    m_polygonOffsets = std::move(lists.polygonOffsets);
    m_polygroupIds = std::move(lists.polygroupIds);
    m_polygroupNames = std::move(lists.polygroupNames);
    m_materialIds = std::move(lists.materialIds);
    m_materialNames = std::move(lists.materialNames);
    m_mtllib = std::move(lists.mtllib);
    if (!error.isEmpty())
        return;
    const int unusable = firstUnusableVertex(m_vertices);
    if (unusable >= 0) {
        QFile file(path);
        const long long line =
            file.open(QIODevice::ReadOnly) ? ObjChunkParser::findVertexLine(file.readAll(), unusable) : -1;
        error = QStringLiteral("Wrong vertex coordinate in line %1: not a finite number, or larger than %2")
                    .arg(line)
                    .arg(double(MaxCoordinate));
        return;
    }
    computeNormals();
    if (logLoaded)
        this->logLoaded();
}

GeomStack::GeomStack(const QVector<QVector3D>& vertices, const QVector<int>& vertexIndices,
                     const QVector<int>& polygonSizes, const QVector<int>& polygonOffsets,
                     const QVector<QVector2D>& texCoords, const QVector<int>& texCoordIndices,
                     const QVector<QVector3D>& normals, const QVector<int>& polygroupIds,
                     const QStringList& polygroupNames, const QVector<int>& materialIds,
                     const QStringList& materialNames, const QString& mtllib)
    : m_vertices(vertices), m_texCoords(texCoords), m_normals(normals), m_vertexIndices(vertexIndices),
      m_texCoordIndices(texCoordIndices), m_polygonSizes(polygonSizes), m_polygonOffsets(polygonOffsets),
      m_polygroupIds(polygroupIds), m_polygroupNames(polygroupNames), m_materialIds(materialIds),
      m_materialNames(materialNames), m_mtllib(mtllib)
{
    if (m_normals.size() != m_vertices.size())
        computeNormals();
}

GeomStack::GeomStack(QDataStream& stream, QString& error)
{
    stream >> m_vertices >> m_texCoords >> m_normals >> m_vertexIndices >> m_texCoordIndices >>
        m_polygonSizes >> m_polygonOffsets >> m_polygroupIds >> m_polygroupNames >> m_materialIds >>
        m_materialNames;
    error = stream.status() == QDataStream::Ok
                ? QString()
                : QStringLiteral("Cannot create GeomStack: byteStream reading error");
}

GeomStack::~GeomStack() = default;

void GeomStack::serialize(QDataStream& stream) const
{
    stream << m_vertices << m_texCoords << m_normals << m_vertexIndices << m_texCoordIndices << m_polygonSizes
           << m_polygonOffsets << m_polygroupIds << m_polygroupNames << m_materialIds << m_materialNames;
}

QVector<QVector3D> GeomStack::transformedVertices(const std::optional<QMatrix4x4>& transform,
                                                  const QVector<QVector3D>& vertices)
{
    if (!transform)
        return vertices;
    const float* m = transform->constData();
    static const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    if (std::equal(m, m + 16, identity))
        return vertices;
    QVector<QVector3D> result(vertices.size());
    for (int i = 0; i < vertices.size(); ++i)
        result[i] = transform->map(vertices[i]);
    return result;
}

void GeomStack::setVertices(const QVector<QVector3D>& vertices)
{
    m_vertices = vertices;
    computeNormals();
}

namespace {

/// Adds the unit normals of the corners at vertices [begin, end) to `sums`,
/// walking every polygon in order. The arrays come in as plain pointers, so
/// the walk keeps them in registers rather than reloading them after each
/// store.
void sumCornerNormals(const QVector3D* positions, const int* offsets, const int* corners, int polygonCount,
                      int begin, int end, QVector3D* sums)
{
    std::fill(sums + begin, sums + end, QVector3D());
    // The range's corners are listed a batch at a time, their unit
    // normals computed together (see cornerNormals), then added to their
    // vertices in the walk's order.
    constexpr int Batch = 512;
    int previous[Batch] = {}, centre[Batch] = {}, next[Batch] = {};
    QVector3D unit[Batch];
    int listed = 0;
    const auto flush = [&] {
        cornerNormals(positions, previous, centre, next, listed, unit);
        for (int i = 0; i < listed; ++i)
            sums[centre[i]] += unit[i];
        listed = 0;
    };
    const auto addCorner = [&](int before, int at, int after) {
        previous[listed] = before;
        centre[listed] = at;
        next[listed] = after;
        if (++listed == Batch)
            flush();
    };
    const auto inRange = [&](int vertex) { return vertex >= begin && vertex < end; };
    for (int p = 0; p < polygonCount; ++p) {
        const int first = offsets[p];
        const int size = offsets[p + 1] - first;
        if (size == 3) {
            // Dense meshes are mostly triangles (scans) or quads
            // (sculpts): their corners without the general walk's index
            // arithmetic, in its order.
            const int v0 = corners[first], v1 = corners[first + 1], v2 = corners[first + 2];
            if (inRange(v1))
                addCorner(v0, v1, v2);
            if (inRange(v2))
                addCorner(v1, v2, v0);
            if (inRange(v0))
                addCorner(v2, v0, v1);
            continue;
        }
        if (size == 4) {
            const int v0 = corners[first], v1 = corners[first + 1], v2 = corners[first + 2],
                      v3 = corners[first + 3];
            if (inRange(v1))
                addCorner(v0, v1, v2);
            if (inRange(v2))
                addCorner(v1, v2, v3);
            if (inRange(v3))
                addCorner(v2, v3, v0);
            if (inRange(v0))
                addCorner(v3, v0, v1);
            continue;
        }
        for (int i = 0; i < size; ++i) {
            // Corners i + 1 and i + 2 around the polygon, wrapped by a
            // compare: a division per corner cost more than the rest of
            // its arithmetic.
            const int centreIndex = i + 1 < size ? i + 1 : i + 1 - size;
            const int nextIndex = centreIndex + 1 < size ? centreIndex + 1 : centreIndex + 1 - size;
            const int vertex = corners[first + centreIndex];
            if (inRange(vertex))
                addCorner(corners[first + i], vertex, corners[first + nextIndex]);
        }
    }
    flush();
}

} // namespace

QVector<QVector3D> GeomStack::computeNormals(const QVector<QVector3D>& vertices,
                                             const QVector<int>& vertexIndices,
                                             const QVector<int>& polygonOffsets)
{
    QVector<QVector3D> normals;
    resizeForOverwrite(normals, vertices.size());
    // Every vertex sums its corners' contributions in polygon order, as a
    // single walk would sum them, so the normals do not depend on the number
    // of threads: the vertices are split into ranges, and each range walks
    // all polygons and takes the corners at its own vertices. Reading the
    // index lists once per range costs less than storing every corner's
    // contribution and summing them on one thread.
    const int vertexCount = vertices.size();
    const int polygonCount = std::max(0, polygonOffsets.size() - 1);
    const int* offsets = polygonOffsets.constData();
    const int* corners = vertexIndices.constData();
    const QVector3D* positions = vertices.constData();
    QVector3D* sums = normals.data();
    const int ranges = std::max(1, std::min(vertexCount / 16384, tbb::this_task_arena::max_concurrency()));
    tbb::parallel_for(0, ranges, [&](int range) {
        const int begin = int(qint64(vertexCount) * range / ranges);
        const int end = int(qint64(vertexCount) * (range + 1) / ranges);
        sumCornerNormals(positions, offsets, corners, polygonCount, begin, end, sums);
        normalizeAll(sums + begin, end - begin);
    });
    return normals;
}

void GeomStack::computeNormals()
{
    m_normals = computeNormals(m_vertices, m_vertexIndices, m_polygonOffsets);
}

QString GeomStack::validateIndices(const QVector<int>& vertexIndices, int vertexCount,
                                   const QVector<int>& texCoordIndices, int texCoordCount)
{
    for (int index : vertexIndices) {
        if (index < 0)
            return QStringLiteral("Vertex index can not be negative");
        if (index >= vertexCount)
            return QStringLiteral("Invalid vertex index %1 The model only has %2 vertices.")
                .arg(index)
                .arg(vertexCount);
    }
    for (int index : texCoordIndices) {
        if (index < 0)
            return QStringLiteral("Texture coordinate index can not be negative");
        if (index >= texCoordCount)
            return QStringLiteral("Invalid texture coordinate index %1 The model only has %2 texture coordinates.")
                .arg(index)
                .arg(texCoordCount);
    }
    return QString();
}

int GeomStack::firstUnusableVertex(const QVector<QVector3D>& vertices)
{
    for (int i = 0; i < vertices.size(); ++i)
        if (!isUsable(vertices[i]))
            return i;
    return -1;
}

QString GeomStack::withFileName(const QString& error, const QString& path)
{
    if (error.isEmpty() || path.isEmpty() || error.contains(path))
        return error;
    return QStringLiteral("%1: \n%2").arg(error, path);
}

void GeomStack::logLoaded() const
{
    qDebug().noquote() << QStringLiteral("Geometry loaded:\n\tvertices:%1\n\ttexCoords:%2\n\tpolygons:%3\n\t"
                                         "polygroups:%4\n\tmaterials:%5")
                              .arg(m_vertices.size())
                              .arg(m_texCoords.size())
                              .arg(m_polygonSizes.size())
                              .arg(m_polygroupNames.size())
                              .arg(m_materialNames.size());
}

} // namespace GeometryStack2
