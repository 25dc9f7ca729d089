#include "PointOnTriangleTools.h"

#include <QJsonArray>

namespace Welk {

QVector3D barycentricCoordinates(const QVector3D& x, const QVector3D& p0, const QVector3D& p1, const QVector3D& p2)
{
    const QVector3D e1 = p1 - p0, e2 = p2 - p0, d = x - p0;
    const float d11 = QVector3D::dotProduct(e1, e1);
    const float d12 = QVector3D::dotProduct(e1, e2);
    const float d22 = QVector3D::dotProduct(e2, e2);
    const float r1 = QVector3D::dotProduct(d, e1);
    const float r2 = QVector3D::dotProduct(d, e2);
    const float denominator = d11 * d22 - d12 * d12;
    const float w1 = (d22 * r1 - d12 * r2) / denominator;
    const float w2 = (d11 * r2 - d12 * r1) / denominator;
    return QVector3D(1.0f - w1 - w2, w1, w2);
}

WPointOnTriangle pointOnTriangle(int triangle, const QVector3D& x, const QVector<QVector3D>& vertices,
                                 const QVector<int>& triangleVertexIndices)
{
    const int t = 3 * triangle;
    const QVector3D w = barycentricCoordinates(x, vertices[triangleVertexIndices[t]],
                                               vertices[triangleVertexIndices[t + 1]],
                                               vertices[triangleVertexIndices[t + 2]]);
    return WPointOnTriangle{triangle, w[0], w[1]};
}

QJsonObject pointToJsonObject(const WPointOnTriangle& point)
{
    return QJsonObject{{QStringLiteral("triangleInd"), point.triangle},
                       {QStringLiteral("u"), double(point.u)},
                       {QStringLiteral("v"), double(point.v)}};
}

bool pointFromJsonObject(const QJsonValue& value, WPointOnTriangle& point)
{
    if (!value.isObject())
        return false;
    const QJsonObject object = value.toObject();
    const QJsonValue t = object.value(QStringLiteral("triangleInd"));
    const QJsonValue u = object.value(QStringLiteral("u"));
    const QJsonValue v = object.value(QStringLiteral("v"));
    if (!t.isDouble() || !u.isDouble() || !v.isDouble())
        return false;
    point = WPointOnTriangle{t.toInt(), float(u.toDouble()), float(v.toDouble())};
    return true;
}

bool pointsFromJson(const QJsonValue& value, QVector<WPointOnTriangle>& points)
{
    if (!value.isArray())
        return false;
    const QJsonArray array = value.toArray();
    QVector<WPointOnTriangle> read;
    read.reserve(array.size());
    for (const QJsonValue& element : array) {
        if (!element.isArray())
            return false;
        const QJsonArray p = element.toArray();
        if (p.size() != 3 || !p[0].isDouble() || !p[1].isDouble() || !p[2].isDouble())
            return false;
        read.append(WPointOnTriangle{p[0].toInt(), float(p[1].toDouble()), float(p[2].toDouble())});
    }
    points = read;
    return true;
}

} // namespace Welk
