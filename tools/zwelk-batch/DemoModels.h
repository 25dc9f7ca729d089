#pragma once

#include "geometry/GeomStack.h"

namespace ZWelkBatch {

/// A low-resolution, quad-only basemesh: a rounded head-like form made from
/// a subdivided cube pushed onto an ellipsoid, with a UV atlas of its six
/// faces and two polygroups (upper and lower half). `resolution` quads per
/// cube edge give 6 x resolution^2 quads.
GeometryStack2::GeomStack makeDemoBasemesh(int resolution = 24);

/// A dense triangle scan of a clearly different shape (longer, with a brow,
/// a nose-like bump and a lumpy surface) that overlaps the basemesh: a
/// subdivided icosahedron with per-corner spherical UVs. `subdivisions`
/// levels give 20 x 4^subdivisions triangles.
GeometryStack2::GeomStack makeDemoScan(int subdivisions = 6);

/// A colourful test texture for the scan's UVs, width x width pixels, RGB.
bool writeDemoTexture(const QString& path, int width, QString& error);

} // namespace ZWelkBatch
