#pragma once

#include <QString>
#include <QStringList>
#include <QVector2D>
#include <QVector3D>
#include <QVector>

namespace GeometryStack2 {

/// The lists a loader fills before a mesh is built from them; the same
/// meaning as the fields of `GeomStack`, normals aside.
struct MeshLists
{
    QVector<QVector3D> vertices;
    QVector<QVector2D> texCoords;
    QVector<int> vertexIndices;
    QVector<int> texCoordIndices;
    QVector<int> polygonSizes;
    QVector<int> polygonOffsets;
    QVector<int> polygroupIds;
    QStringList polygroupNames;
    QVector<int> materialIds;
    QStringList materialNames;
    QString mtllib;
};

} // namespace GeometryStack2
