#include "SplineFile.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>

namespace WelkPlugin {
namespace SplineFile {

namespace {

const QString kFormatVersion = QStringLiteral("formatVersion");
const QString kSplines = QStringLiteral("splines");

bool checkHeader(const QJsonDocument& document, QString& error)
{
    if (!document.isObject()) {
        error = QStringLiteral("Json document is not an object");
        return false;
    }
    const QJsonObject root = document.object();
    if (!root.contains(kFormatVersion)) {
        error = QStringLiteral("Json document doesn't contain \"formatVersion\"");
        return false;
    }
    const QJsonValue version = root.value(kFormatVersion);
    if (!version.isDouble()) {
        error = QStringLiteral("\"formatVersion\" doesn't contain number");
        return false;
    }
    const double number = version.toDouble();
    if (number < 1) {
        error = QStringLiteral("formatVersion %1 doesn't exist").arg(number);
        return false;
    }
    if (number != 1) {
        error = QStringLiteral("formatVersion %1 is not supported in this Welk version").arg(number);
        return false;
    }
    if (!root.contains(kSplines)) {
        error = QStringLiteral("Json document doesn't contain \"splines\"");
        return false;
    }
    return true;
}

bool parsePointsOnTriangles(const QJsonValue& value, QVector<Welk::WPointOnTriangle>& points)
{
    if (!value.isArray())
        return false;
    for (const QJsonValue& element : value.toArray()) {
        if (!element.isArray())
            return false;
        const QJsonArray p = element.toArray();
        if (p.size() != 3 || !p[0].isDouble() || !p[1].isDouble() || !p[2].isDouble())
            return false;
        points.append(Welk::WPointOnTriangle{p[0].toInt(), float(p[1].toDouble()), float(p[2].toDouble())});
    }
    return true;
}

bool parsePositions(const QJsonValue& value, QVector<QVector3D>& positions)
{
    if (!value.isArray())
        return false;
    for (const QJsonValue& element : value.toArray()) {
        if (!element.isObject())
            return false;
        const QJsonObject p = element.toObject();
        const QJsonValue x = p.value(QStringLiteral("x")), y = p.value(QStringLiteral("y")),
                         z = p.value(QStringLiteral("z"));
        if (!x.isDouble() || !y.isDouble() || !z.isDouble())
            return false;
        positions.append(QVector3D(float(x.toDouble()), float(y.toDouble()), float(z.toDouble())));
    }
    return true;
}

/// The detail of the first point off a model of `triangleCount` triangles;
/// empty when all are on it.
QString triangleProblem(const QVector<Welk::WPointOnTriangle>& points, int triangleCount)
{
    for (const Welk::WPointOnTriangle& p : points) {
        if (p.triangle < 0)
            return QStringLiteral("Has spline point on triangle with index < 0");
        if (p.triangle >= triangleCount)
            return QStringLiteral("Has spline point on inexistent triangle with index %1").arg(p.triangle);
    }
    return QString();
}

/// One spline's value decoded in `form`; false when it does not parse.
bool parseSpline(const QJsonValue& value, Form form, const ClosestPointLookup& lookup,
                 QVector<Welk::WPointOnTriangle>& points)
{
    if (isOnTriangles(form))
        return parsePointsOnTriangles(value, points);
    QVector<QVector3D> positions;
    if (!parsePositions(value, positions))
        return false;
    for (const QVector3D& p : positions)
        points.append(lookup ? lookup(p) : Welk::WPointOnTriangle());
    return true;
}

} // namespace

QStringList formNames()
{
    return {QStringLiteral("Named Points on Triangles"), QStringLiteral("Points on Triangles"),
            QStringLiteral("Named 3D-Points"), QStringLiteral("3D-Points")};
}

QString generatedNamePrefix()
{
    return QStringLiteral("Spline ");
}

bool readDocument(const QJsonDocument& document, Form form, const GeometryStack2::GeomStackTriangulated& mesh,
                  const ClosestPointLookup& lookup, Contents& contents, QString& error)
{
    if (!checkHeader(document, error))
        return false;
    const QJsonValue splines = document.object().value(kSplines);
    const int triangleCount = mesh.triangleCount();
    Contents read;
    if (isNamed(form)) {
        if (!splines.isObject()) {
            error = QStringLiteral("\"splines\" is not an object");
            return false;
        }
        const QJsonObject object = splines.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            const QString name = it.key();
            if (name.isEmpty()) {
                error = QStringLiteral("Spline cannot have an empty name");
                return false;
            }
            QVector<Welk::WPointOnTriangle> points;
            if (!parseSpline(it.value(), form, lookup, points)) {
                error = QStringLiteral("Failed to parse %1 spline").arg(name);
                return false;
            }
            if (isOnTriangles(form)) {
                const QString problem = triangleProblem(points, triangleCount);
                if (!problem.isEmpty()) {
                    error = QStringLiteral("Spline %1 has incorrect point index. ").arg(name) + problem;
                    return false;
                }
            }
            read.splines.insert(name, points);
            read.order.append(name);
        }
    } else {
        if (!splines.isArray()) {
            error = QStringLiteral("\"splines\" is not array");
            return false;
        }
        const QJsonArray array = splines.toArray();
        for (int i = 0; i < array.size(); ++i) {
            QVector<Welk::WPointOnTriangle> points;
            if (!parseSpline(array[i], form, lookup, points)) {
                error = QStringLiteral("Failed to parse spline with index %1").arg(i);
                return false;
            }
            if (isOnTriangles(form)) {
                const QString problem = triangleProblem(points, triangleCount);
                if (!problem.isEmpty()) {
                    error = QStringLiteral("Spline with index %1 has incorrect point index. ").arg(i) + problem;
                    return false;
                }
            }
            const QString name = QStringLiteral("%1%2").arg(generatedNamePrefix()).arg(i + 1);
            read.splines.insert(name, points);
            read.order.append(name);
        }
    }
    contents = read;
    return true;
}

bool read(const QString& path, Form form, const GeometryStack2::GeomStackTriangulated& mesh,
          const ClosestPointLookup& lookup, Contents& contents, QString& error)
{
    if (path.isEmpty()) {
        error = QStringLiteral("File name is empty");
        return false;
    }
    QFile file(path);
    if (!file.exists()) {
        error = QStringLiteral("File doesn't exist: \"%1\"").arg(path);
        return false;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("Can't read file: \"%1\"").arg(path);
        return false;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        error = parseError.errorString();
        return false;
    }
    return readDocument(document, form, mesh, lookup, contents, error);
}

bool detectForm(const QJsonDocument& document, Form& form, QString& error)
{
    if (!checkHeader(document, error))
        return false;
    const QJsonValue splines = document.object().value(kSplines);
    QJsonArray values;
    bool named = false;
    if (splines.isObject()) {
        named = true;
        for (const QJsonValue& v : splines.toObject())
            values.append(v);
    } else if (splines.isArray()) {
        values = splines.toArray();
    } else {
        error = QStringLiteral("\"splines\" is neither an object nor an array");
        return false;
    }
    bool positions = false;
    for (const QJsonValue& spline : values)
        if (spline.isArray() && !spline.toArray().isEmpty()) {
            positions = spline.toArray().first().isObject();
            break;
        }
    form = named ? (positions ? NamedPoints3D : NamedPointsOnTriangles) : (positions ? Points3D : PointsOnTriangles);
    return true;
}

bool toDocument(const SplineMap& splines, const QStringList& order, Form form,
                const GeometryStack2::GeomStackTriangulated& mesh, QJsonDocument& document, QString& error)
{
    if (splines.isEmpty()) {
        error = QStringLiteral("Missing splines");
        return false;
    }
    if (mesh.triangleCount() == 0) {
        error = QStringLiteral("Missing geometry");
        return false;
    }
    for (const QVector<Welk::WPointOnTriangle>& points : splines)
        if (!triangleProblem(points, mesh.triangleCount()).isEmpty()) {
            error = QStringLiteral("Spline control points are located on triangles that are not contained in the "
                                   "geometry");
            return false;
        }
    const auto encode = [&](const QVector<Welk::WPointOnTriangle>& points) {
        QJsonArray array;
        for (const Welk::WPointOnTriangle& p : points) {
            if (isOnTriangles(form)) {
                array.append(QJsonArray{p.triangle, double(p.u), double(p.v)});
            } else {
                const QVector3D x = p.position(mesh.vertices(), mesh.triangleVertexIndices());
                array.append(QJsonObject{{QStringLiteral("x"), double(x.x())},
                                         {QStringLiteral("y"), double(x.y())},
                                         {QStringLiteral("z"), double(x.z())}});
            }
        }
        return array;
    };
    QJsonObject root{{kFormatVersion, 1}};
    if (isNamed(form)) {
        QJsonObject object;
        for (auto it = splines.begin(); it != splines.end(); ++it)
            object.insert(it.key(), encode(it.value()));
        root.insert(kSplines, object);
    } else {
        // The list order, then any spline the order misses, so nothing is lost.
        QStringList names;
        for (const QString& name : order)
            if (splines.contains(name) && !names.contains(name))
                names.append(name);
        for (auto it = splines.begin(); it != splines.end(); ++it)
            if (!names.contains(it.key()))
                names.append(it.key());
        QJsonArray array;
        for (const QString& name : names)
            array.append(encode(splines.value(name)));
        root.insert(kSplines, array);
    }
    document = QJsonDocument(root);
    return true;
}

bool write(const QString& path, const SplineMap& splines, const QStringList& order, Form form,
           const GeometryStack2::GeomStackTriangulated& mesh, QString& error)
{
    QJsonDocument document;
    if (!toDocument(splines, order, form, mesh, document, error))
        return false;
    if (path.isEmpty()) {
        error = QStringLiteral("File name is empty");
        return false;
    }
    QFile file(path);
    const QByteArray bytes = document.toJson();
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size()) {
        error = QStringLiteral("Can't open file for writing");
        return false;
    }
    return true;
}

} // namespace SplineFile
} // namespace WelkPlugin
