#pragma once

#include "MeshLists.h"

namespace Welk {
class ProgressInterface;
}

namespace GeometryStack2 {

/// Reads an OBJ file line by line through a text stream. Simple and
/// sequential; the graph reader is the fast one. It numbers lines from 0 in
/// its messages and leaves index range checks to the mesh's validation.
class ObjPlainLoader
{
public:
    static bool read(const QString& path, MeshLists& lists, QString& error,
                     Welk::ProgressInterface* progress = nullptr);
};

} // namespace GeometryStack2
