#pragma once

#include "FitOptions.h"
#include "FitReport.h"
#include "ModelWarnings.h"

#include "fitting/accelerated/FitCourse.h"

#include "geometry/GeomStackTriangulated.h"
#include "geometry/WPointOnTriangle.h"

#include <QMatrix4x4>
#include <QObject>
#include <QPair>

#include <atomic>
#include <memory>

namespace Welk {
class ProgressInterface;
}

namespace WelkingAcceleratedVersion {
class WelkingWorker;
}

namespace WelkPlugin {

/// The two models and their correspondences, as one fit takes them. The
/// meshes are implicitly shared, so filling this copies no vertex data.
struct FitInput
{
    GeometryStack2::GeomStackTriangulated base;   ///< side 0: the mesh that is fitted
    GeometryStack2::GeomStackTriangulated target; ///< side 1: the scan
    QVector<Welk::WPointOnTriangle> basePoints;   ///< pair i with `targetPoints[i]`
    QVector<Welk::WPointOnTriangle> targetPoints;
    /// One byte per base polygon, non-zero for a polygon masked in ZBrush;
    /// only read with `FitOptions::excludeMasked`.
    QVector<quint8> basePolygonMask;
    /// Optional, one byte per base vertex: non-zero leaves the vertex out of
    /// matching whatever the options say (a selection, for instance).
    QVector<quint8> excludedVertices;
};

/// What a fit produced.
struct FitResult
{
    enum Status
    {
        NotRun,
        Finished,
        Interrupted, ///< stopped on request; `welked` holds the shape reached (or the start shape)
        Failed,      ///< `error` says why; nothing usable in `welked`
    };
    Status status = NotRun;
    QString error;
    /// The rigid/scale alignment applied before the fit.
    QMatrix4x4 transform;
    /// The fitted vertices in the basemesh's own frame, as the models keep
    /// them together with `transform` (`ModelsData::setResultVertices`).
    QVector<QVector3D> welked;
    /// `welked` with `transform` applied: where the result lies on the target.
    QVector<QVector3D> vertices;
    QVector<int> graphNodes; ///< node count per level, coarsest first
    /// (stage, seconds): "graph levels", "fit" and, when measured, "measure".
    QVector<QPair<QString, double>> seconds;
    bool measured = false;
    /// The distances when `measured`; the fold-over counts of the fast and
    /// cartoon fits always.
    FitReport report;
    /// How the fast or cartoon fit went (distances in the target's units):
    /// whether it diverged, which rounds it undid, which folds it repaired.
    bool hasCourse = false;
    WelkingAcceleratedVersion::FitCourse course;
};

/// One fit from models to result, composed in one place for the window and
/// the batch tool: the alignment by point pairs, the exclusion mask, the
/// graph levels, the worker chosen by the options, and the measurement of
/// the result.
///
/// Use from a window: create it, move it to a `QThread`, connect the
/// thread's `started` to `run` and `finished` to the thread's `quit`;
/// `updated` and `progressChanged` arrive queued on the GUI thread. Call
/// `stop` directly (not through a queued connection, the fit's thread is
/// busy): the fit ends at its next boundary, within about a second, and
/// `result` then holds the shape reached. From a command line, call `run`
/// on the current thread.
class WelkingFit : public QObject
{
    Q_OBJECT
public:
    /// `progress`, when given, also receives every progress report; its
    /// `isCancelled` stops the fit like `stop`.
    WelkingFit(FitInput input, FitOptions options, Welk::ProgressInterface* progress = nullptr,
               QObject* parent = nullptr);
    ~WelkingFit() override;

    /// Empty when the input can be fitted; otherwise the reason (unequal
    /// point counts, a point off its mesh, mismatched masks). `run` fails
    /// with the same text.
    QString checkInput() const;
    /// The alignment by the point pairs that `run` will apply.
    const QMatrix4x4& transform() const { return m_transform; }
    /// The basemesh's vertices with `transform` applied.
    QVector<QVector3D> alignedBase() const;
    /// The model warnings for the aligned basemesh and the target.
    QVector<ModelWarning> warnings() const;
    /// The one-byte-per-vertex exclusion mask the fit will use.
    QVector<quint8> excludedVertices() const;

    const FitInput& input() const { return m_input; }
    const FitOptions& options() const { return m_options; }
    /// Valid once `finished` was emitted.
    const FitResult& result() const { return m_result; }
    bool isStopRequested() const { return m_stop.load(); }

    /// Rotation and translation (with `rigid`) and a uniform scale (with
    /// `scale`) that carry `source` onto `target`, composed as translate,
    /// rotate, scale. Identity unless a flag is set and there are three or
    /// more pairs of equal count.
    static QMatrix4x4 pairTransform(const QVector<QVector3D>& source, const QVector<QVector3D>& target, bool rigid,
                                    bool scale);
    /// Vertices of the polygons flagged in `polygonMask`, one byte each.
    static QVector<quint8> verticesOfPolygons(const GeometryStack2::GeomStack& mesh,
                                              const QVector<quint8>& polygonMask);
    /// The vertices that surface points select, one byte each: each point's
    /// corner of largest weight. The spline step's points select the
    /// basemesh vertices along its curves this way; their pairs hold them,
    /// so closest-point matching leaves them alone. Points off the mesh
    /// select nothing.
    static QVector<quint8> verticesNearestPoints(const GeometryStack2::GeomStackTriangulated& mesh,
                                                 const QVector<Welk::WPointOnTriangle>& points);
    /// Positions of surface points on `mesh`.
    static QVector<QVector3D> pointPositions(const QVector<Welk::WPointOnTriangle>& points,
                                             const GeometryStack2::GeomStackTriangulated& mesh);

public slots:
    /// Builds the graph levels, runs the worker, measures when asked, and
    /// emits `finished`. Runs on the thread the object lives in, or on the
    /// caller's when called directly.
    void run();
    /// Asks the fit to end at its next boundary; safe from any thread and
    /// from a signal handler.
    void stop();

signals:
    /// The progress text ("Building nodes", "Welking (subdivision 1 of 3)",
    /// "Measuring the result") with its value in 0 .. maximum.
    void progressChanged(QString text, int value, int maximum);
    /// An intermediate shape in the basemesh's own frame (apply `transform`
    /// to place it), and the current level's node positions.
    void updated(QVector<QVector3D> vertices, QVector<QVector3D> nodes);
    void finished();

private:
    class Progress;
    void fail(const QString& error);
    void runClassic();

    FitInput m_input;
    FitOptions m_options;
    QMatrix4x4 m_transform;
    std::unique_ptr<Progress> m_progress;
    std::atomic<bool> m_stop{false};
    std::atomic<WelkingAcceleratedVersion::WelkingWorker*> m_worker{nullptr};
    FitResult m_result;
};

} // namespace WelkPlugin
