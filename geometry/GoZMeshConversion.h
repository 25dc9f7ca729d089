#pragma once

#include "GeomStack.h"
#include "GoZFile.h"
#include "GoZMappedFile.h"
#include "MeshLists.h"

namespace GeometryStack2 {

/// A GoZ subtool as the program's lists, with its masks.
struct GoZMesh
{
    MeshLists lists;
    QVector<float> vertexMask;       ///< the file's mask value per vertex, 65535 where it has none
    QVector<quint8> polygonMaskFlags; ///< 1 for a polygon with a masked corner
};

/// Converts a GoZ image to polygon lists. Polygons are read with a stride of
/// four slots whatever the polygon tag, a negative slot being empty; every
/// corner gets its own texture coordinate. Polygon groups become numbers
/// (the file's value less 1), and the names list those numbers in order of
/// first use. Files without a mask or group chunk read as unmasked and
/// ungrouped. Returns false with `error` when an index is out of range.
bool meshFromGoZ(const GoZArrays& goz, GoZMesh& mesh, QString& error);
bool meshFromGoZ(const GoZFile& goz, GoZMesh& mesh, QString& error);

/// Maps the GoZ file at `path` into `file` and converts it into `mesh`.
/// False with a message for the user in `error` when the file cannot be
/// read, holds no vertex or no polygon, or names a vertex it does not have.
bool loadGoZMesh(const QString& path, GoZMappedFile& file, GoZMesh& mesh, QString& error);

/// Where `gozFromMesh` puts an OBJ-style mesh.
enum class GoZFrame
{
    /// As ZBrush writes a subtool: the name chunk holds "GoZMesh_" and the
    /// name, positions are (x, -y, -z) of the OBJ's, and texture
    /// coordinates are (u, 1 - v), counting v from the top of the image.
    ZBrush,
    /// The mesh's own numbers and the bare name.
    AsGiven,
};

/// Builds a GoZ image of `mesh` the way ZBrush exports a subtool: quads with
/// empty fourth slots for triangles (larger polygons are fanned into
/// triangles), texture coordinates per corner when the mesh has them, an
/// unmasked mask chunk and a polygon group chunk (ungrouped polygons get 0).
GoZFile gozFromMesh(const GeomStack& mesh, const QByteArray& name, GoZFrame frame = GoZFrame::AsGiven);

} // namespace GeometryStack2
