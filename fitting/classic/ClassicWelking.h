#pragma once

#include "WelkingParameters.h"

#include "geometry/WPointOnTriangle.h"

#include <QMatrix4x4>
#include <QString>
#include <QVector3D>
#include <QVector>

namespace Welk {

class ProgressInterface;

/// Everything one classic fit reads. Triangles hold three vertex indices
/// each; the control points pair up by index.
struct ClassicWelkingInput
{
    QVector<QVector3D> vertices;
    QVector<int> triangles;
    QMatrix4x4 transform; ///< applied to the basemesh before fitting
    QVector<QVector3D> targetVertices;
    QVector<QVector3D> targetNormals; ///< per target vertex; computed when the count differs
    QVector<int> targetTriangles;
    QVector<WPointOnTriangle> basePoints;
    QVector<WPointOnTriangle> targetPoints;
    QVector<bool> mask; ///< per basemesh vertex, true to leave it out of matching
    WelkingParameters parameters;
    float normalisedSize = 100.0f;
    bool dijkstraSampler = false;
};

struct ClassicWelkingResult
{
    QVector<QVector3D> vertices; ///< in the basemesh's frame before `transform`
    QVector<int> levelNodeCounts;
    bool interrupted = false;
    QString error; ///< empty when the fit ran (fully or until interrupted)
};

/// Runs the classic fit on the calling thread. `progress` shows the graph
/// build and the fit, and its `isCancelled` stops the fit at the next level
/// or matching round; the shape reached is still returned. Settings that
/// cannot run, and a solve that leaves finite numbers, end the fit with
/// `error` set; the vertices are then the last good shape.
ClassicWelkingResult runClassicWelking(const ClassicWelkingInput& input, ProgressInterface* progress);

} // namespace Welk
