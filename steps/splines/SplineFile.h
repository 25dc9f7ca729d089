#pragma once

#include "ClosestPointLookup.h"
#include "SplinesState.h"

#include "geometry/GeomStackTriangulated.h"

#include <QJsonDocument>
#include <QString>
#include <QStringList>

namespace WelkPlugin {

/// Spline files: a JSON object {"formatVersion": 1, "splines": ...} in one
/// of four forms. Named forms hold an object of name to points, the others
/// an array of point arrays in list order. Points are either [triangle, u,
/// v] arrays on the model they were drawn on, or {"x", "y", "z"} positions,
/// which any model close to the original can read back.
namespace SplineFile {

enum Form
{
    NamedPointsOnTriangles = 0,
    PointsOnTriangles = 1,
    NamedPoints3D = 2,
    Points3D = 3,
};

/// The forms' names for the "Select splines format" choice, by index.
QStringList formNames();
inline bool isNamed(Form form) { return form == NamedPointsOnTriangles || form == NamedPoints3D; }
inline bool isOnTriangles(Form form) { return form == NamedPointsOnTriangles || form == PointsOnTriangles; }

/// The start of the names given to splines of the forms without names,
/// followed by a running number from 1.
QString generatedNamePrefix();

/// Splines read from a file, in file order.
struct Contents
{
    SplineMap splines;
    QStringList order;
};

/// Decodes a parsed document in `form` for a model of `mesh`. Points on
/// triangles are checked against its triangle count; 3D points become
/// surface points through `lookup` (needed for the 3D forms only). False
/// with the reader's message in `error`; `contents` is then left alone.
bool readDocument(const QJsonDocument& document, Form form, const GeometryStack2::GeomStackTriangulated& mesh,
                  const ClosestPointLookup& lookup, Contents& contents, QString& error);

/// Reads and decodes a file. A missing or unreadable file and broken JSON
/// are reported too.
bool read(const QString& path, Form form, const GeometryStack2::GeomStackTriangulated& mesh,
          const ClosestPointLookup& lookup, Contents& contents, QString& error);

/// The form a document is in, judged from its content ("splines" an object
/// or an array; the first point an array or an object), for tools that
/// read files without asking. False with the header's error, or when
/// nothing tells (no spline holds a point: the on-triangles form of the
/// container is then chosen and true returned).
bool detectForm(const QJsonDocument& document, Form& form, QString& error);

/// Encodes `splines` (in `order` for the forms without names) for `mesh`.
/// Fails with "Missing splines", "Missing geometry" (a mesh without
/// triangles) or the text for points off the model.
bool toDocument(const SplineMap& splines, const QStringList& order, Form form,
                const GeometryStack2::GeomStackTriangulated& mesh, QJsonDocument& document, QString& error);

/// `toDocument` written to `path`.
bool write(const QString& path, const SplineMap& splines, const QStringList& order, Form form,
           const GeometryStack2::GeomStackTriangulated& mesh, QString& error);

} // namespace SplineFile
} // namespace WelkPlugin
