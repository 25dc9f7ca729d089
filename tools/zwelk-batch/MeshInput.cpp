#include "MeshInput.h"

#include "geometry/GoZMeshConversion.h"

#include <QFileInfo>

namespace ZWelkBatch {

using namespace GeometryStack2;

bool MeshInput::load(const QString& path, MeshInput& input, QString& error)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        error = QStringLiteral("File does not exist: %1").arg(path);
        return false;
    }
    if (!info.isFile()) {
        error = QStringLiteral("Not a mesh file: %1").arg(path);
        return false;
    }
    const QString suffix = info.suffix().toLower();
    if (suffix == QLatin1String("goz")) {
        auto goz = std::make_shared<GoZMappedFile>();
        GoZMesh converted;
        if (!loadGoZMesh(path, *goz, converted, error))
            return false;
        const MeshLists& l = converted.lists;
        input.mesh = GeomStack(l.vertices, l.vertexIndices, l.polygonSizes, l.polygonOffsets, l.texCoords,
                               l.texCoordIndices, {}, l.polygroupIds, l.polygroupNames, l.materialIds,
                               l.materialNames, l.mtllib);
        input.goz = std::move(goz);
        input.polygonMaskFlags = converted.polygonMaskFlags;
        return true;
    }
    if (suffix != QLatin1String("obj")) {
        error = QStringLiteral("Unknown mesh format \"%1\": %2 (OBJ and GoZ are read)").arg(info.suffix(), path);
        return false;
    }
    input.mesh = GeomStack(path, error, nullptr, GeomStack::GraphLoader);
    error = GeomStack::withFileName(error, path);
    return error.isEmpty();
}

} // namespace ZWelkBatch
