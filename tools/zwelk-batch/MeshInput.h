#pragma once

#include "geometry/GeomStack.h"
#include "geometry/GoZMappedFile.h"

#include <memory>

namespace ZWelkBatch {

/// A mesh read from the command line: OBJ or GoZ by extension.
struct MeshInput
{
    GeometryStack2::GeomStack mesh;
    /// The file, mapped, when it was GoZ: writers take a copy (`toFile`)
    /// only when they write it back.
    std::shared_ptr<const GeometryStack2::GoZMappedFile> goz;
    QVector<quint8> polygonMaskFlags;           ///< 1 per masked polygon; GoZ only

    static bool load(const QString& path, MeshInput& input, QString& error);
};

} // namespace ZWelkBatch
