#pragma once

#include "DeformationGraphTypes.h"
#include "WelkingCallback.h"
#include "WelkingParameters.h"

#include "geometry/WPointOnTriangle.h"

#include <QMatrix4x4>
#include <QObject>

namespace ICPRoutine {
class FindClosestPointsFunctor;
}

namespace Welk {

class ProgressInterface;

/// The classic fit: a deformation graph per level from coarse to fine, a
/// rigid warm start of every node, then rounds of closest-vertex matching
/// (normals must agree) and double-precision Levenberg-Marquardt solves
/// with a sparse Cholesky factorisation. Both models are scaled so that
/// the basemesh's longest box side is `size`; results come back in the
/// basemesh's own frame. `start` runs the fit on the calling thread, so
/// the GUI moves the worker to a QThread and the command line calls it
/// directly. A worker runs once.
class WelkingWorker : public QObject
{
    Q_OBJECT
public:
    /// Triangles hold three vertex indices each. `mask` holds one entry per
    /// basemesh vertex, true to leave the vertex out of matching (empty:
    /// all take part). Target normals are per target vertex; when their
    /// count does not match they are computed from the target's triangles.
    /// `dijkstraSampler` measures graph distances along edges instead of by
    /// fast marching.
    WelkingWorker(const QVector<QVector3D>& vertices, const QVector<int>& triangles, const QMatrix4x4& transform,
                  const QVector<QVector3D>& targetVertices, const QVector<QVector3D>& targetNormals,
                  const QVector<int>& targetTriangles, const QMatrix4x4& targetTransform,
                  const QVector<WPointOnTriangle>& basePoints, const QVector<WPointOnTriangle>& targetPoints,
                  const QVector<bool>& mask, const WelkingParameters& parameters, float size,
                  ProgressInterface* progress, bool dijkstraSampler = false, QObject* parent = nullptr);
    ~WelkingWorker() override;

    const QVector<QVector3D>& verticesWelked() const { return m_verticesWelked; }
    /// Why the fit did not run or stopped early; empty after a full or an
    /// interrupted run.
    const QString& errorText() const { return m_error; }
    bool wasInterrupted() const { return m_interrupted; }
    /// Node counts of the graph levels, coarsest first.
    const QVector<int>& levelNodeCounts() const { return m_levelNodeCounts; }

    Welking::WelkingCallback& callback() { return *m_callback; }

public slots:
    void start();
    /// Asks the run to stop at the next level or matching round; safe from
    /// any thread. A running solve finishes first.
    void terminate();
    void onUpdate(QVector<QVector3D> vertices, QVector<QVector3D> nodes);

signals:
    void finished(QVector<QVector3D> verticesWelked);
    void updated(QVector<QVector3D> vertices, QVector<QVector3D> nodes);
    void interruptionRequested();

private:
    QVector<QVector3D> fit();
    QVector<QVector3D> fitLevels(const QVector<int>& controlVertices, const QVector<QVector3D>& controlBarycentrics,
                                 const QVector<QVector3D>& controlTargets, ICPRoutine::FindClosestPointsFunctor& match,
                                 float radiusMin, float radiusMax);

    QVector<QVector3D> m_vertices;
    QVector<int> m_triangles;
    QMatrix4x4 m_normalisation;
    QMatrix4x4 m_normalisationInverse;
    QVector<QVector3D> m_targetVertices;
    QVector<QVector3D> m_targetNormals;
    QVector<int> m_targetTriangles;
    QMatrix4x4 m_targetNormalisation;
    QVector<WPointOnTriangle> m_basePoints;
    QVector<WPointOnTriangle> m_targetPoints;
    QVector<bool> m_mask;
    WelkingParameters m_parameters;
    ProgressInterface* m_progress;
    bool m_dijkstraSampler;
    Welking::WelkingCallbackGraphCreation* m_graphCallback;
    Welking::WelkingCallback* m_callback;
    QVector<QVector3D> m_verticesWelked;
    QVector<int> m_levelNodeCounts;
    QString m_error;
    bool m_interrupted = false;
};

} // namespace Welk
