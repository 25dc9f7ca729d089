#include "GeomStack.h"

#include "HugePages.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include "ObjPlainLoader.h"
#include "ObjChunkParser.h"
#include "ObjReaderTBB.h"

#include <QFile>

#include <cmath>

#include <QDebug>

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

QVector<QVector3D> GeomStack::computeNormals(const QVector<QVector3D>& vertices,
                                             const QVector<int>& vertexIndices,
                                             const QVector<int>& polygonOffsets)
{
    QVector<QVector3D> normals;
    resizeOnHugePages(normals, vertices.size());
    // The corners' contributions are computed in parallel, a block of
    // polygons at a time, and summed in polygon order as a single walk would
    // sum them: the normals do not depend on the number of threads.
    constexpr int BlockPolygons = 1 << 16;
    const int polygonCount = polygonOffsets.size() - 1;
    std::vector<QVector3D> contributions;
    QVector3D* sums = normals.data();
    for (int blockBegin = 0; blockBegin < polygonCount; blockBegin += BlockPolygons) {
        const int blockEnd = std::min(polygonCount, blockBegin + BlockPolygons);
        const int cornerBegin = polygonOffsets[blockBegin];
        contributions.resize(size_t(polygonOffsets[blockEnd] - cornerBegin));
        QVector3D* contribution = contributions.data() - cornerBegin;
        tbb::parallel_for(tbb::blocked_range<int>(blockBegin, blockEnd, 2048), [&](const tbb::blocked_range<int>& r) {
            for (int p = r.begin(); p < r.end(); ++p) {
                const int first = polygonOffsets[p];
                const int size = polygonOffsets[p + 1] - first;
                for (int i = 0; i < size; ++i) {
                    const int centreCorner = first + (i + 1) % size;
                    const int previous = vertexIndices[first + i];
                    const int centre = vertexIndices[centreCorner];
                    const int next = vertexIndices[first + (i + 2) % size];
                    // Scaled by 1000 so that tiny edges keep a cross product in float.
                    const QVector3D a = (vertices[next] - vertices[centre]) * 1000.0f;
                    const QVector3D b = (vertices[previous] - vertices[centre]) * 1000.0f;
                    contribution[centreCorner] = QVector3D::crossProduct(a, b).normalized();
                }
            }
        });
        for (int p = blockBegin; p < blockEnd; ++p) {
            const int first = polygonOffsets[p];
            const int size = polygonOffsets[p + 1] - first;
            for (int i = 0; i < size; ++i) {
                const int centreCorner = first + (i + 1) % size;
                sums[vertexIndices[centreCorner]] += contribution[centreCorner];
            }
        }
    }
    tbb::parallel_for(tbb::blocked_range<int>(0, normals.size(), 65536), [&](const tbb::blocked_range<int>& r) {
        for (int v = r.begin(); v < r.end(); ++v)
            sums[v].normalize();
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
        for (int axis = 0; axis < 3; ++axis)
            // Written so that NaN fails the test too.
            if (!(std::abs(vertices[i][axis]) <= MaxCoordinate))
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
