#include "PointFile.h"

#include <QFile>
#include <QJsonDocument>

namespace WelkPlugin {
namespace PointFile {

QJsonArray pointsToJson(const QVector<Welk::WPointOnTriangle>& points)
{
    QJsonArray array;
    for (const Welk::WPointOnTriangle& p : points)
        array.append(QJsonArray{p.triangle, double(p.u), double(p.v)});
    return array;
}

bool readPointsFromJsonArray(const QJsonArray& array, QVector<Welk::WPointOnTriangle>& points, QString& error)
{
    points.reserve(points.size() + array.size());
    for (int i = 0; i < array.size(); ++i) {
        const int n = i + 1;
        if (!array[i].isArray()) {
            error = QStringLiteral("Point #%1 is not a Json array").arg(n);
            return false;
        }
        const QJsonArray point = array[i].toArray();
        if (point.size() != 3) {
            error = QStringLiteral("Point #%1 contains invalid number of elements").arg(n);
            return false;
        }
        if (!point[0].isDouble()) {
            error = QStringLiteral("Point #%1 triangle index is not a number").arg(n);
            return false;
        }
        if (!point[1].isDouble()) {
            error = QStringLiteral("Point #%1 u-coordinate is not a number").arg(n);
            return false;
        }
        if (!point[2].isDouble()) {
            error = QStringLiteral("Point #%1 v-coordinate is not a number").arg(n);
            return false;
        }
        points.append(Welk::WPointOnTriangle{point[0].toInt(), float(point[1].toDouble()), float(point[2].toDouble())});
    }
    return true;
}

QString savePointsToFile(const QString& path, const QVector<Welk::WPointOnTriangle>& points)
{
    if (path.isEmpty())
        return QStringLiteral("File name is empty");
    if (points.isEmpty())
        return QStringLiteral("Invalid points");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QStringLiteral("Can't open file for writing");
    file.write(QJsonDocument(pointsToJson(points)).toJson());
    return QString();
}

QString loadPointsFromFile(const QString& path, int triangleCount, QVector<Welk::WPointOnTriangle>& points,
                           const QVector<quint8>* usableTriangles)
{
    if (path.isEmpty())
        return QStringLiteral("File name is empty");
    QFile file(path);
    if (!file.exists())
        return QStringLiteral("File doesn't exist: \"%1\"").arg(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("Can't read file: \"%1\"").arg(path);
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return parseError.errorString();
    if (!document.isArray())
        return QStringLiteral("Json document is not an array");
    QVector<Welk::WPointOnTriangle> read;
    QString error;
    if (!readPointsFromJsonArray(document.array(), read, error))
        return error;
    int largest = -1;
    for (const Welk::WPointOnTriangle& p : read) {
        largest = std::max(largest, p.triangle);
        if (usableTriangles && p.triangle >= 0 && p.triangle < usableTriangles->size() &&
            (*usableTriangles)[p.triangle] == 0)
            return QStringLiteral("Points don't match the current geometry");
    }
    // An index equal to the count passes: that is how the check is defined.
    if (triangleCount < largest)
        return QStringLiteral("Points don't match the current geometry");
    points = read;
    return QString();
}

} // namespace PointFile
} // namespace WelkPlugin
