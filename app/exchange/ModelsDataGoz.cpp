#include "ModelsDataGoz.h"

#include "geometry/GoZMeshConversion.h"

#include <QFile>

namespace WelkPlugin {

using namespace GeometryStack2;

ModelsDataGoz::ModelsDataGoz(const ExchangeFolder& exchange, const QVector<bool>& textureFlags, QString& error)
    : ModelsData(exchange)
{
    for (int index = 0; index < 2; ++index) {
        if (!loadGeometry(m_exchange.meshFilePath(index), error, index))
            return;
        const QString texturePath = m_exchange.textureFilePath(index);
        const bool textureLoaded = loadTexture(texturePath, error, index);
        if (!textureFlags.isEmpty() && index < textureFlags.size() && textureFlags[index] && !textureLoaded) {
            // Exported with a texture that cannot be had.
            if (texturePath.isEmpty())
                error += m_exchange.meshFilePath(index).chopped(4) + QStringLiteral("_TXTR.tif");
            return;
        }
        error.clear();
    }
}

ModelsDataGoz::~ModelsDataGoz() = default;

bool ModelsDataGoz::loadGeometry(const QString& path, QString& error, int index)
{
    if (m_geometry[index])
        return false;
    if (!QFile::exists(path)) {
        error = QStringLiteral("Geometry file does not exist: \n%1").arg(path);
        return false;
    }
    auto mapped = std::make_unique<GoZMappedFile>();
    GoZMesh mesh;
    if (!loadGoZMesh(path, *mapped, mesh, error))
        return false;
    m_vertexMasks[index] = mesh.vertexMask;
    m_polygonMaskFlags[index] = mesh.polygonMaskFlags;
    const MeshLists& l = mesh.lists;
    m_geometry[index] = std::make_unique<GeomStackTriangulated>(
        l.vertices, l.vertexIndices, l.polygonSizes, l.polygonOffsets, l.texCoords, l.texCoordIndices,
        QVector<QVector3D>(), l.polygroupIds, l.polygroupNames, l.materialIds, l.materialNames, l.mtllib);
    if (index == 0) {
        m_firstModelClean = isClean(*m_geometry[0]);
        // Done without a fit writes the mesh unchanged.
        m_resultVertices = m_geometry[0]->vertices();
        m_source = std::move(mapped);
    }
    return true;
}

bool ModelsDataGoz::saveGeometry(const QString& path, QString& error)
{
    // A result that does not match the mesh must never overwrite it.
    if (!m_source || m_resultVertices.size() != m_source->arrays().vertexCount) {
        error = QStringLiteral("Cannot save result mesh: \n%1").arg(path);
        return false;
    }
    GoZFile result = m_source->toFile();
    result.vertices.resize(size_t(result.vertexCount) * 3);
    for (int i = 0; i < m_resultVertices.size(); ++i) {
        result.vertices[3 * size_t(i)] = m_resultVertices[i].x();
        result.vertices[3 * size_t(i) + 1] = m_resultVertices[i].y();
        result.vertices[3 * size_t(i) + 2] = m_resultVertices[i].z();
    }
    if (!result.write(path)) {
        error = QStringLiteral("Cannot save result mesh: \n%1").arg(path);
        return false;
    }
    return true;
}

} // namespace WelkPlugin
