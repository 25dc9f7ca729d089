#pragma once

#include "geometry/WPointOnTriangle.h"

#include <QJsonArray>
#include <QString>
#include <QVector>

namespace WelkPlugin {

/// One side's correspondence points as a file: a UTF-8 JSON array of
/// [triangle index, u, v] arrays, whatever the file's extension.
namespace PointFile {

QJsonArray pointsToJson(const QVector<Welk::WPointOnTriangle>& points);

/// Decodes `array`; on failure `error` names the first bad point (1-based)
/// and the result is false.
bool readPointsFromJsonArray(const QJsonArray& array, QVector<Welk::WPointOnTriangle>& points, QString& error);

/// Writes `points`; returns the error text, empty on success.
QString savePointsToFile(const QString& path, const QVector<Welk::WPointOnTriangle>& points);

/// Reads a point file for a mesh of `triangleCount` triangles. With a
/// `usableTriangles` mask (one byte a triangle, basemesh only), a point on
/// a zero byte is refused. Returns the error text, empty on success;
/// `points` is left alone on failure.
QString loadPointsFromFile(const QString& path, int triangleCount, QVector<Welk::WPointOnTriangle>& points,
                           const QVector<quint8>* usableTriangles = nullptr);

} // namespace PointFile
} // namespace WelkPlugin
