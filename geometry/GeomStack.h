#pragma once

#include <QDataStream>
#include <QMatrix4x4>
#include <QString>
#include <QStringList>
#include <QVector2D>
#include <QVector3D>
#include <QVector>

#include <cmath>
#include <optional>

namespace Welk {
class ProgressInterface;
}

namespace GeometryStack2 {

/// The program's polygon mesh: flat, implicitly shared lists with polygons of
/// any size. Copies are cheap; a write detaches. Indices are 0-based.
/// Polygon i has the corners `polygonOffsets[i]` up to `polygonOffsets[i + 1]`.
class GeomStack
{
public:
    /// Loader numbers accepted by the file constructor.
    enum Loader
    {
        PlainLoader = 0, ///< line by line through a text stream
        GraphLoader = 2, ///< chunked, parallel reader
    };

    GeomStack() = default;

    /// Loads an OBJ file. On failure `error` holds the reason and the lists
    /// hold what was read until then. With `logLoaded` a summary goes to the
    /// debug log.
    GeomStack(const QString& path, QString& error, Welk::ProgressInterface* progress = nullptr,
              int loader = GraphLoader, bool logLoaded = false);

    /// Builds from finished lists. Empty or mismatched `normals` are computed.
    GeomStack(const QVector<QVector3D>& vertices, const QVector<int>& vertexIndices,
              const QVector<int>& polygonSizes, const QVector<int>& polygonOffsets,
              const QVector<QVector2D>& texCoords, const QVector<int>& texCoordIndices,
              const QVector<QVector3D>& normals, const QVector<int>& polygroupIds,
              const QStringList& polygroupNames, const QVector<int>& materialIds,
              const QStringList& materialNames, const QString& mtllib);

    /// Reads what `serialize` wrote. A stream error leaves its text in `error`.
    GeomStack(QDataStream& stream, QString& error);

    GeomStack(const GeomStack&) = default;
    GeomStack& operator=(const GeomStack&) = default;
    virtual ~GeomStack();

    virtual void serialize(QDataStream& stream) const;

    /// Writes an OBJ file; see the implementation for the exact text layout.
    /// `path` is replaced only by a complete file; a failed write keeps it.
    bool saveObj(const QString& path, bool saveTexCoords = true, bool saveNormals = true,
                 Welk::ProgressInterface* progress = nullptr, QString* error = nullptr) const;

    /// Returns `vertices` itself (shared, not copied) when `transform` is
    /// absent or exactly the identity; otherwise every vertex mapped by it.
    static QVector<QVector3D> transformedVertices(const std::optional<QMatrix4x4>& transform,
                                                  const QVector<QVector3D>& vertices);

    /// Replaces the vertex positions, keeping the topology; normals follow.
    void setVertices(const QVector<QVector3D>& vertices);

    int vertexCount() const { return m_vertices.size(); }
    int texCoordCount() const { return m_texCoords.size(); }
    int polygonCount() const { return m_polygonOffsets.isEmpty() ? 0 : m_polygonOffsets.size() - 1; }
    int cornerCount() const { return m_vertexIndices.size(); }
    bool hasTexCoords() const { return !m_texCoordIndices.isEmpty() && !m_texCoords.isEmpty(); }

    const QVector<QVector3D>& vertices() const { return m_vertices; }
    const QVector<QVector2D>& texCoords() const { return m_texCoords; }
    const QVector<QVector3D>& normals() const { return m_normals; }
    const QVector<int>& vertexIndices() const { return m_vertexIndices; }
    const QVector<int>& texCoordIndices() const { return m_texCoordIndices; }
    const QVector<int>& polygonSizes() const { return m_polygonSizes; }
    const QVector<int>& polygonOffsets() const { return m_polygonOffsets; }
    const QVector<int>& polygroupIds() const { return m_polygroupIds; }
    const QStringList& polygroupNames() const { return m_polygroupNames; }
    const QVector<int>& materialIds() const { return m_materialIds; }
    const QStringList& materialNames() const { return m_materialNames; }
    const QString& mtllib() const { return m_mtllib; }

    /// One unit normal per vertex: the sum of one unit vector per polygon
    /// corner, normalised. Isolated vertices keep a zero normal.
    static QVector<QVector3D> computeNormals(const QVector<QVector3D>& vertices,
                                             const QVector<int>& vertexIndices,
                                             const QVector<int>& polygonOffsets);

    /// Checks every vertex index, then every texture index; the first bad one
    /// gives its message.
    static QString validateIndices(const QVector<int>& vertexIndices, int vertexCount,
                                   const QVector<int>& texCoordIndices, int texCoordCount);

    /// Coordinates beyond this magnitude are refused at load: their squares
    /// and sums leave the float range in distance computations.
    static constexpr float MaxCoordinate = 1e15f;
    /// Whether every coordinate is finite and within `MaxCoordinate`.
    static bool isUsable(const QVector3D& vertex)
    {
        // Written so that NaN fails the test too.
        return std::abs(vertex.x()) <= MaxCoordinate && std::abs(vertex.y()) <= MaxCoordinate &&
               std::abs(vertex.z()) <= MaxCoordinate;
    }
    /// The first vertex that is not `isUsable`, or -1.
    static int firstUnusableVertex(const QVector<QVector3D>& vertices);
    /// The loader's `error` with the file named after it, for messages that
    /// do not name it already.
    static QString withFileName(const QString& error, const QString& path);

protected:
    void computeNormals();
    void logLoaded() const;

    QVector<QVector3D> m_vertices;
    QVector<QVector2D> m_texCoords;
    QVector<QVector3D> m_normals;
    QVector<int> m_vertexIndices;
    QVector<int> m_texCoordIndices;
    QVector<int> m_polygonSizes;
    QVector<int> m_polygonOffsets;
    QVector<int> m_polygroupIds;
    QStringList m_polygroupNames;
    QVector<int> m_materialIds;
    QStringList m_materialNames;
    QString m_mtllib;
};

} // namespace GeometryStack2
