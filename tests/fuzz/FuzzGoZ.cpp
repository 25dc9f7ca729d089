// GoZ files: the image, its conversion to polygon lists and the
// triangulated mesh, as a run loads a subtool; then the write-back.
#include "FuzzInput.h"

#include "geometry/GeomStackTriangulated.h"
#include "geometry/GoZFile.h"
#include "geometry/GoZMeshConversion.h"

using namespace GeometryStack2;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = ZWelkFuzz::writeInput(QStringLiteral("input.GoZ"), data, size);
    GoZFile goz;
    if (!goz.read(path) || goz.vertexCount < 1 || goz.polygonCount < 1)
        return 0;
    GoZMesh mesh;
    QString error;
    if (!meshFromGoZ(goz, mesh, error))
        return 0;
    const MeshLists& l = mesh.lists;
    GeomStackTriangulated triangulated(l.vertices, l.vertexIndices, l.polygonSizes, l.polygonOffsets, l.texCoords,
                                       l.texCoordIndices, QVector<QVector3D>(), l.polygroupIds, l.polygroupNames,
                                       l.materialIds, l.materialNames, l.mtllib);
    // What was read must write and read again.
    const QString back = ZWelkFuzz::workDir() + QStringLiteral("/back.GoZ");
    if (!goz.write(back))
        abort();
    GoZFile again;
    if (!again.read(back) || again.vertices != goz.vertices || again.polygons != goz.polygons)
        abort();
    return 0;
}
