#pragma once

#include "geometry/GeomStack.h"

#include <functional>

namespace TestSupport {

/// Small meshes for tests, built from explicit lists.

/// A unit square of two quads side by side: 6 vertices, 2 polygons, with
/// per-vertex UVs and two groups.
GeometryStack2::GeomStack twoQuads();

/// A closed, outward-facing cube of 6 quads spanning [lo, hi].
GeometryStack2::GeomStack cube(const QVector3D& lo = {-1, -1, -1}, const QVector3D& hi = {1, 1, 1});

/// Any polygon soup: `polygons` lists corner indices per polygon.
GeometryStack2::GeomStack polygonSoup(const QVector<QVector3D>& vertices, const QVector<QVector<int>>& polygons);

/// An n x n grid of quads over [0, size]^2 with z = height(x, y), facing +z.
GeometryStack2::GeomStack heightField(int n, float size, const std::function<float(float, float)>& height);

} // namespace TestSupport
