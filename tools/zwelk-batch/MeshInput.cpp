#include "MeshInput.h"

#include "geometry/GoZMeshConversion.h"

#include <QFileInfo>

namespace ZWelkBatch {

using namespace GeometryStack2;

bool MeshInput::load(const QString& path, MeshInput& input, QString& error)
{
    if (!QFileInfo::exists(path)) {
        error = QStringLiteral("File does not exist: %1").arg(path);
        return false;
    }
    if (QFileInfo(path).suffix().compare(QLatin1String("goz"), Qt::CaseInsensitive) == 0) {
        GoZFile goz;
        if (!goz.read(path)) {
            error = QStringLiteral("Cannot read GoZ file: \n%1").arg(path);
            return false;
        }
        GoZMesh converted;
        if (!meshFromGoZ(goz, converted, error))
            return false;
        const MeshLists& l = converted.lists;
        input.mesh = GeomStack(l.vertices, l.vertexIndices, l.polygonSizes, l.polygonOffsets, l.texCoords,
                               l.texCoordIndices, {}, l.polygroupIds, l.polygroupNames, l.materialIds,
                               l.materialNames, l.mtllib);
        input.goz = std::move(goz);
        input.polygonMaskFlags = converted.polygonMaskFlags;
        return true;
    }
    input.mesh = GeomStack(path, error, nullptr, GeomStack::GraphLoader);
    return error.isEmpty();
}

} // namespace ZWelkBatch
