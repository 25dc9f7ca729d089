#pragma once

#include "geometry/WPointOnTriangle.h"

#include <QString>
#include <QVector3D>
#include <QVector>

namespace WelkPlugin {

/// Landmarks that other tools give as 3D positions: one point per row, x y z
/// separated by commas, semicolons, tabs or blanks. Empty lines and lines
/// starting with "#" are skipped; a first row that is not numeric is taken
/// for a header. Further columns after z are ignored.
namespace LandmarkFile {

/// False with `error` (naming the file and the line) when the file cannot
/// be read or a row does not hold three finite numbers.
bool readPositions(const QString& path, QVector<QVector3D>& positions, QString& error);

/// A landmark placed on a mesh: the surface point nearest to the given
/// position, and how far the position had to move to reach it (mesh units).
struct Projected
{
    QVector<Welk::WPointOnTriangle> points;
    QVector<float> distances;
};

/// Projects every position onto the nearest point of the mesh's surface.
Projected projectOntoSurface(const QVector<QVector3D>& positions, const QVector<QVector3D>& vertices,
                             const QVector<int>& triangles);

} // namespace LandmarkFile
} // namespace WelkPlugin
