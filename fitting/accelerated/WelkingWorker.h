#pragma once

#include "AcceleratedParameters.h"
#include "DeformerTypes.h"
#include "EmbeddedGraphLevel.h"
#include "FitCourse.h"
#include "WelkingCallback.h"

#include "geometry/WPointOnTriangle.h"
#include "search/KDTreeAcceleratedVersion.h"

#include <QMatrix4x4>
#include <QObject>

#include <functional>
#include <memory>

namespace EmbeddedGraphDeformer::Abstract {
class Deformer;
}

namespace WelkingAcceleratedVersion {

/// The coarse-to-fine non-rigid fit of a basemesh onto a target: per graph
/// level, rigid initialisation of the nodes, then rounds of closest-vertex
/// matching (normals must agree) and deformer solves. Both models are
/// scaled so that the basemesh's largest extent is `normalisedSize`;
/// results come back in the basemesh's own units. Runs on any thread; the
/// GUI moves it to a QThread, the command line calls `run` directly.
class WelkingWorker : public QObject
{
    Q_OBJECT
public:
    /// Triangles hold three vertex indices each; `excluded` holds one byte
    /// per source vertex, non-zero to leave the vertex out of matching.
    WelkingWorker(const QVector<QVector3D>& sourceVertices, const QVector<int>& sourceTriangles,
                  const QMatrix4x4& sourceTransform, const QVector<QVector3D>& targetVertices,
                  const QVector<QVector3D>& targetNormals, const QMatrix4x4& targetTransform,
                  const QVector<int>& targetTriangles, const QVector<Welk::WPointOnTriangle>& sourcePoints,
                  const QVector<Welk::WPointOnTriangle>& targetPoints, const QVector<quint8>& excluded,
                  std::vector<EmbeddedGraphLevel> levels, const AcceleratedParameters& parameters,
                  float normalisedSize, Welk::ProgressInterface* progress, QObject* parent = nullptr);
    ~WelkingWorker() override;

    WelkingCallback& callback() { return m_callback; }
    /// Source vertex -> target vertex pairs of the current shape, after the
    /// normals test; exposed for tests and reports.
    void findPairs(std::vector<long long>& sources, std::vector<EmbeddedGraphDeformer::Vec3>& targets,
                   std::vector<EmbeddedGraphDeformer::Vec3>& normals) const;
    /// How the last run went; distances in the basemesh's units after its
    /// transform (the target's units).
    const FitCourse& course() const { return m_course; }

public slots:
    /// Runs the fit with the subclass's deformer.
    virtual void start() = 0;
    void run(EmbeddedGraphDeformer::Abstract::Deformer* deformer);
    /// Asks the run to stop at the next level or iteration boundary; safe
    /// from any thread.
    void terminate();
    void onUpdate(QVector<QVector3D> vertices, QVector<QVector3D> nodes);

signals:
    void finished(QVector<QVector3D> verticesWelked);
    void updated(QVector<QVector3D> vertices, QVector<QVector3D> nodes);
    void interruptionRequested();

protected:
    using Vec3 = EmbeddedGraphDeformer::Vec3;
    /// The deformer for a level, given the level index, the control points
    /// and the weights of the level's energy.
    using DeformerForLevel = std::function<EmbeddedGraphDeformer::Abstract::Deformer&(
        int level, const std::vector<EmbeddedGraphDeformer::ControlPoint>& controls,
        const EmbeddedGraphDeformer::EnergyWeights& weights)>;
    /// The coarse-to-fine loop, with a deformer per level.
    void runLevels(const DeformerForLevel& deformerFor);

    /// The current shape's distance to the target, from the nearest target
    /// vertex of every vertex that takes part in matching.
    struct ShapeDistance
    {
        double rms = 0; ///< normalised units; infinite for a non-finite shape
        int flownOff = 0;
    };
    /// The nearest point to p on the target triangles around `vertex`, and
    /// the target's normal there (its corners' normals, interpolated).
    void nearestOnTargetSurface(const Vec3& p, long long vertex, Vec3& point, Vec3& normal) const;
    /// Whether a target vertex lies on an open border of the target (from
    /// the triangles around it), and if so the nearest point to p on its
    /// border edges.
    bool nearestOnTargetBorder(const Vec3& p, long long vertex, Vec3& point) const;
    /// `findPairs`, also measuring the current shape when `measured` is set.
    void findPairs(std::vector<long long>& sources, std::vector<Vec3>& targets, std::vector<Vec3>& normals,
                   ShapeDistance* measured) const;
    ShapeDistance measureCurrent() const;
    /// Relaxes the vertices around fold-overs that the fit added (triangles
    /// folded now that were not in the source) towards their neighbours,
    /// widening the region while folds remain.
    void repairFolds();

    std::vector<EmbeddedGraphLevel> m_levels;
    AcceleratedParameters m_parameters;
    std::vector<std::vector<Vec3>> m_levelNodes;
    std::vector<char> m_excluded;
    std::vector<EmbeddedGraphDeformer::ControlPoint> m_controls;
    QMatrix4x4 m_normalisation;
    QMatrix4x4 m_normalisationInverse;
    QMatrix4x4 m_targetNormalisation;
    std::vector<Vec3> m_source;
    std::vector<long long> m_sourceTriangles;
    std::vector<Vec3> m_target;
    std::vector<Vec3> m_targetNormals;
    /// With surface pairs: the target's triangles, and the triangles around
    /// each target vertex (offsets, then indices).
    QVector<int> m_targetTriangles;
    std::vector<int> m_targetVertexTriangleOffsets;
    std::vector<int> m_targetVertexTriangles;
    std::vector<Vec3> m_current;
    std::unique_ptr<KDTreeAcceleratedVersion::Node<float, long long>> m_tree;
    /// Each vertex's nearest target vertex in the last search (-1: none yet).
    mutable std::vector<long long> m_previousMatch;
    /// Target vertices that also look for their nearest basemesh vertex,
    /// and the basemesh's border vertices, which they never take.
    std::vector<long long> m_coverageSamples;
    std::vector<char> m_sourceBoundary;
    /// The triangles around each basemesh vertex (offsets, then indices).
    std::vector<long long> m_vertexTriangleOffsets;
    std::vector<long long> m_vertexTriangles;
    /// The coverage pairs of the last `findPairs`, for the next solve.
    mutable std::vector<EmbeddedGraphDeformer::SurfacePair> m_surfacePairs;
    bool m_coverageActive = false; ///< on the current level
    WelkingCallback m_callback;
    float m_normalisedSize = 100.0f;
    float m_scale = 1.0f; ///< normalised units per target unit
    /// Outside this box a vertex has flown off (normalised units).
    Vec3 m_farLo = Vec3::Zero(), m_farHi = Vec3::Zero();
    FitCourse m_course;
};

/// The "FastWelking" fit: the worker with the iterative deformer.
class FastWelkingWorker : public WelkingWorker
{
    Q_OBJECT
public:
    using WelkingWorker::WelkingWorker;

public slots:
    void start() override;
};

} // namespace WelkingAcceleratedVersion
