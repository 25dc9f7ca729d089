#include "TextureTransferModels.h"

#include "TextureTexels.h"

#include <algorithm>
#include <cmath>

namespace WelkPlugin {

namespace {

bool hasTexCoords(const GeometryStack2::GeomStack& mesh)
{
    return !mesh.texCoords().isEmpty() && mesh.texCoordIndices().size() == mesh.vertexIndices().size();
}

} // namespace

bool TextureTransferModels::setModels(const GeometryStack2::GeomStack& source,
                                      const GeometryStack2::GeomStack& target, QString& error)
{
    m_sourceTracer.reset();
    m_targetUvTracer.reset();
    if (source.polygonCount() == 0) {
        error = QStringLiteral("The source mesh has no polygons");
        return false;
    }
    if (target.polygonCount() == 0) {
        error = QStringLiteral("The target mesh has no polygons");
        return false;
    }
    if (!hasTexCoords(source)) {
        error = QStringLiteral("The source mesh has no texture coordinates: its texture can't be read");
        return false;
    }
    if (!hasTexCoords(target)) {
        error = QStringLiteral("The target mesh has no UVs: there is nowhere to put the texture");
        return false;
    }
    m_source = GeometryStack2::GeomStackTriangulated(source);
    m_target = GeometryStack2::GeomStackTriangulated(target);
    m_sourceTracer = std::make_unique<Welk::WRayTracerEmbree>(m_source.vertices(), m_source.triangleVertexIndices(), 0, 1);
    m_targetUvTracer =
        std::make_unique<Welk::WRayTracerEmbree>(m_target.texCoords(), m_target.triangleTexCoordIndices(), 0, 1);
    error.clear();
    return true;
}

QVector<QPoint> TextureTransferModels::occupiedTiles() const
{
    QVector<QPoint> tiles;
    const QVector<int>& indices = m_target.triangleTexCoordIndices();
    const QVector<QVector2D>& uv = m_target.texCoords();
    for (int t = 0; t + 2 < indices.size(); t += 3) {
        const QVector2D centre = (uv[indices[t]] + uv[indices[t + 1]] + uv[indices[t + 2]]) / 3.0f;
        const int v = int(std::floor(centre.y()));
        const QPoint tile(int(std::floor(centre.x())), m_targetFromTop ? -v : v);
        if (!tiles.contains(tile))
            tiles.append(tile);
    }
    std::sort(tiles.begin(), tiles.end(), [](const QPoint& a, const QPoint& b) {
        return a.y() != b.y() ? a.y() < b.y() : a.x() < b.x();
    });
    return tiles;
}

bool TextureTransferModels::hasTrianglesInTile(int u, int v) const
{
    return occupiedTiles().contains(QPoint(u, v));
}

QVector<quint8> TextureTransferModels::triangleMask(const QVector<quint8>& polygonMaskFlags) const
{
    if (std::none_of(polygonMaskFlags.begin(), polygonMaskFlags.end(), [](quint8 b) { return b != 0; }))
        return {};
    QVector<quint8> mask = m_target.triangleMask(polygonMaskFlags);
    for (quint8& byte : mask)
        byte = byte ? 0 : 1;
    return mask;
}

Welk::WImg TextureTransferModels::project(const Welk::WImg& sourceImage, const QSize& outputSize, float maxDistance,
                                          int uOffset, int vOffset, const QVector<quint8>& triangleMask,
                                          QString& error, Welk::ProgressInterface* progress) const
{
    if (!isValid()) {
        error = QStringLiteral("No meshes to project between");
        return {};
    }
    const Welk::WImg image = WelkPlugin::project(
        projectionSource(sourceImage), m_source.texCoords(), m_source.triangleTexCoordIndices(), *m_sourceTracer,
        m_target.vertices(), m_target.normals(), m_target.triangleVertexIndices(), outputSize, *m_targetUvTracer,
        maxDistance, uOffset, projectionVOffset(vOffset), QSize(128, 128), triangleMask, error, progress);
    return resultOfProjection(image);
}

Welk::WImg TextureTransferModels::projectionSource(const Welk::WImg& texture) const
{
    return m_sourceFromTop ? flippedVertically(texture) : texture;
}

Welk::WImg TextureTransferModels::resultOfProjection(const Welk::WImg& projected) const
{
    return m_targetFromTop ? flippedVertically(projected) : projected;
}

int TextureTransferModels::udim(int u, int v)
{
    if (u < 0 || u > 9 || v < 0)
        return -1;
    return 1001 + u + 10 * v;
}

} // namespace WelkPlugin
