#include "ModelsDataObj.h"

#include <QDebug>

namespace WelkPlugin {

using namespace GeometryStack2;

ModelsDataObj::ModelsDataObj(const ExchangeFolder& exchange, QString& error) : ModelsData(exchange)
{
    for (int index = 0; index < 2; ++index) {
        if (!loadGeometry(m_exchange.meshFilePath(index), error, index))
            return;
        loadTexture(m_exchange.textureFilePath(index), error, index);
        error.clear();
    }
}

bool ModelsDataObj::loadGeometry(const QString& path, QString& error, int index)
{
    if (m_geometry[index])
        return false;
    error.clear();
    m_geometry[index] = std::make_unique<GeomStackTriangulated>(path, error, nullptr, GeomStack::GraphLoader, true);
    error = GeomStack::withFileName(error, path);
    return error.isEmpty();
}

bool ModelsDataObj::saveGeometry(const QString& path, QString& error)
{
    GeomStackTriangulated* mesh = m_geometry[0].get();
    if (!mesh || mesh->vertexCount() == 0 ||
        (!m_resultVertices.isEmpty() && m_resultVertices.size() != mesh->vertexCount())) {
        error = QStringLiteral("Cannot save result mesh: \n%1").arg(path);
        return false;
    }
    if (!m_resultVertices.isEmpty())
        mesh->setVertices(m_resultVertices);
    QString saveError;
    if (!mesh->saveObj(path, true, true, nullptr, &saveError)) {
        qDebug().noquote() << "save error! " << saveError;
        error = QStringLiteral("Cannot save result mesh: \n%1").arg(path);
        return false;
    }
    return true;
}

} // namespace WelkPlugin
