#include "ModelsData.h"

#include "ModelsDataGoz.h"
#include "ModelsDataObj.h"

#include <QFile>
#include <QHash>

namespace WelkPlugin {

ModelsData::ModelsData(const ExchangeFolder& exchange) : m_exchange(exchange) {}

ModelsData::~ModelsData() = default;

bool ModelsData::loadTexture(const QString& path, QString& error, int index)
{
    if (!QFile::exists(path)) {
        error = QStringLiteral("Texture file does not exist: \n%1").arg(path);
        return false;
    }
    m_textures[index].load(path);
    if (m_textures[index].isNull()) {
        error = QStringLiteral("Texture file is corrupted or cannot be read:\n %1").arg(path);
        return false;
    }
    return true;
}

void ModelsData::setCorrespondencePoints(const QVector<Welk::WPointOnTriangle>& points, int index)
{
    m_correspondencePoints[index] = points;
}

void ModelsData::setSplinePoints(const QVector<Welk::WPointOnTriangle>& points, int index)
{
    m_splinePoints[index] = points;
}

QVector<Welk::WPointOnTriangle> ModelsData::allPoints(int index) const
{
    if (m_correspondencePoints[index].isEmpty())
        return m_splinePoints[index];
    return m_correspondencePoints[index] + m_splinePoints[index];
}

void ModelsData::setResultVertices(const QVector<QVector3D>& vertices)
{
    m_resultVertices = vertices;
}

void ModelsData::setResultVertices(const std::optional<QMatrix4x4>& transform, const QVector<QVector3D>& vertices)
{
    m_resultVertices = GeometryStack2::GeomStack::transformedVertices(transform, vertices);
}

bool ModelsData::isClean(const GeometryStack2::GeomStack& mesh)
{
    const QVector<int>& offsets = mesh.polygonOffsets();
    const QVector<int>& corners = mesh.vertexIndices();
    // Per undirected edge (smaller index first): how often each direction is used.
    QHash<quint64, QPair<int, int>> edges;
    edges.reserve(corners.size());
    QVector<int> repeatedVertexPolygons;
    QVector<quint64> faultyEdges;
    for (int p = 0; p < mesh.polygonCount(); ++p) {
        const int first = offsets[p];
        const int size = offsets[p + 1] - first;
        for (int i = 0; i < size; ++i) {
            for (int j = i + 1; j < size; ++j)
                if (corners[first + i] == corners[first + j])
                    repeatedVertexPolygons.append(p);
            const quint32 a = quint32(corners[first + i]);
            const quint32 b = quint32(corners[first + (i + 1) % size]);
            const quint64 key = a < b ? (quint64(a) << 32 | b) : (quint64(b) << 32 | a);
            auto& uses = edges[key];
            (a < b ? uses.first : uses.second) += 1;
        }
    }
    for (auto it = edges.constBegin(); it != edges.constEnd(); ++it) {
        const auto uses = it.value();
        if (uses.first > 1 || uses.second > 1)
            faultyEdges.append(it.key());
    }
    return repeatedVertexPolygons.isEmpty() && faultyEdges.isEmpty();
}

std::shared_ptr<ModelsData> loadModelsData(const ExchangeFolder& exchange, const QVector<bool>& textureFlags,
                                           QString& error)
{
    error.clear();
    if (exchange.meshFileName(0).endsWith(QLatin1String(".obj"), Qt::CaseSensitive))
        return std::make_shared<ModelsDataObj>(exchange, error);
    return std::make_shared<ModelsDataGoz>(exchange, textureFlags, error);
}

} // namespace WelkPlugin
