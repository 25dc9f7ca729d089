// OBJ files through GeomStackTriangulated's file constructor, as a run loads
// a subtool: the loader, the index validation, normals and triangulation.
// ZWELK_OBJ_LOADER picks the loader (0 the plain one, 2 the graph).
#include "FuzzInput.h"

#include "geometry/GeomStackTriangulated.h"

using namespace GeometryStack2;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = ZWelkFuzz::writeInput(QStringLiteral("input.obj"), data, size);
    QString error;
    GeomStackTriangulated mesh(path, error, nullptr, ZWELK_OBJ_LOADER);
    if (error.isEmpty() && (mesh.vertexCount() == 0 || mesh.polygonCount() == 0))
        abort(); // success must mean a usable mesh
    return 0;
}
