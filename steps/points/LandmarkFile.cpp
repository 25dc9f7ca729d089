#include "LandmarkFile.h"

#include "SurfaceDistance.h"

#include <QFile>
#include <QRegularExpression>

#include <cmath>

namespace WelkPlugin {
namespace LandmarkFile {

bool readPositions(const QString& path, QVector<QVector3D>& positions, QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        error = QStringLiteral("Cannot read landmark file %1: %2").arg(path, file.errorString());
        return false;
    }
    static const QRegularExpression separators(QStringLiteral("[,;\\s]+"));
    QVector<QVector3D> read;
    int lineNumber = 0;
    bool firstRow = true;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        ++lineNumber;
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const QStringList fields = line.split(separators, Qt::SkipEmptyParts);
        float xyz[3] = {0, 0, 0};
        bool numeric = fields.size() >= 3;
        for (int i = 0; numeric && i < 3; ++i) {
            xyz[i] = fields[i].toFloat(&numeric);
            numeric = numeric && std::isfinite(xyz[i]);
        }
        if (!numeric) {
            // A spreadsheet's header row names the columns.
            const bool header = firstRow && fields.size() >= 3 && !fields[0].at(0).isDigit() &&
                                fields[0].at(0) != QLatin1Char('-') && fields[0].at(0) != QLatin1Char('+') &&
                                fields[0].at(0) != QLatin1Char('.');
            firstRow = false;
            if (header)
                continue;
            error = QStringLiteral("Landmark file %1, line %2: expected three numbers x y z, found \"%3\"")
                        .arg(path)
                        .arg(lineNumber)
                        .arg(line.left(80));
            return false;
        }
        firstRow = false;
        read.append(QVector3D(xyz[0], xyz[1], xyz[2]));
    }
    if (read.isEmpty()) {
        error = QStringLiteral("Landmark file %1 holds no landmarks").arg(path);
        return false;
    }
    positions = read;
    return true;
}

Projected projectOntoSurface(const QVector<QVector3D>& positions, const QVector<QVector3D>& vertices,
                             const QVector<int>& triangles)
{
    const SurfaceDistance surface(vertices, triangles);
    Projected result;
    for (const QVector3D& p : positions) {
        float distance = 0;
        result.points.append(surface.closestPoint(p, &distance));
        result.distances.append(distance);
    }
    return result;
}

} // namespace LandmarkFile
} // namespace WelkPlugin
