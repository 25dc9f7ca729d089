#pragma once

#include "geometry/GeomStack.h"
#include "geometry/GoZFile.h"

#include <optional>

namespace ZWelkBatch {

/// A mesh read from the command line: OBJ or GoZ by extension.
struct MeshInput
{
    GeometryStack2::GeomStack mesh;
    std::optional<GeometryStack2::GoZFile> goz; ///< the file's image when it was GoZ
    QVector<quint8> polygonMaskFlags;           ///< 1 per masked polygon; GoZ only

    static bool load(const QString& path, MeshInput& input, QString& error);
};

} // namespace ZWelkBatch
