#pragma once

#include "document/WImg.h"
#include "geometry/GeomStack.h"

#include <functional>

namespace TextureTests {

/// An n by n quad grid over x, y in [0, 1], counter-clockwise seen from +z,
/// with one texture coordinate per vertex.
GeometryStack2::GeomStack grid(int n, const std::function<QVector3D(float, float)>& position,
                               const std::function<QVector2D(float, float)>& uv);

/// The texture coordinate that the projection samples for texel (x, y) of
/// a width by height image in UV tile (0, 0).
QVector2D texelUv(int x, int y, int width, int height);

/// The one application object of the test program, made on first use and
/// kept to the end: Qt's thread pool is not fit for use once an application
/// object has come and gone.
QObject* application();

/// 8-bit RGB ramp: red grows with the column, green with the row, blue 77.
Welk::WImg rampImage(int size);

} // namespace TextureTests
