#pragma once

#include "ClosestPointLookup.h"
#include "SplineFile.h"
#include "SplinesState.h"
#include "WSpline.h"

#include "document/commands/WCommandsController.h"
#include "geometry/GeomStackTriangulated.h"

#include <QObject>

#include <future>
#include <memory>
#include <optional>

namespace Welk {
class ProgressInterface;
}

namespace KeepDistance {
class FastContinuousProjectionOnTriangleFinder;
}

namespace WelkPlugin {

/// The splines of one model without widgets: the set, its list order and
/// the selected spline, with every edit an undoable command on the step's
/// own `WCommandsController`. The toolbar, the dialogs and the state
/// machine call these operations; views listen to `splinesChanged`.
///
/// Operations that can fail return the text to show (empty on success) and
/// change nothing on failure. Titles for message boxes are given where the
/// program uses one: "Error" for mirror failures, "Import" for reads.
class SplineSelectionModel : public QObject
{
    Q_OBJECT
public:
    /// Range of the points-per-spline field and of resampling.
    static constexpr int kMinPoints = 2;
    static constexpr int kMaxPoints = 1000;

    explicit SplineSelectionModel(QObject* parent = nullptr);
    ~SplineSelectionModel() override;

    /// The model the splines lie on. Clears the splines and the history.
    void setMesh(const GeometryStack2::GeomStackTriangulated& mesh);
    const GeometryStack2::GeomStackTriangulated& mesh() const { return m_mesh; }
    bool hasGeometry() const { return m_mesh.triangleCount() > 0; }

    const SplinesState& state() const { return m_state; }
    const SplineMap& splines() const { return m_state.splines; }
    const QStringList& order() const { return m_state.order; }
    /// The selected name when it names a spline; empty otherwise.
    QString selected() const;
    QVector<QVector3D> controlPositions(const QString& name) const;

    /// The curve through control points, for drawing and resampling.
    void setCurveType(WSpline::CurveType type);
    const WSpline::Curve& curve() const { return *m_curve; }
    /// Points per spline for the fit (clamped to 2..1000).
    void setPointsPerSpline(int count);
    int pointsPerSpline() const { return m_pointsPerSpline; }
    /// Every spline sampled to `pointsPerSpline` points, by name.
    SplineMap sampledSplines() const;

    /// Nearest surface points of the model (built on first use).
    const ClosestPointLookup& closestPointLookup() const;
    /// Replaces the search behind `closestPointLookup` (a faster one).
    void setClosestPointLookup(const ClosestPointLookup& lookup);

    /// Moves dragged points along the surface (built on first use; its
    /// restarts go through `closestPointLookup`).
    const KeepDistance::FastContinuousProjectionOnTriangleFinder& dragFinder() const;
    /// Starts building `dragFinder` on a thread of its own, so that the
    /// first drag on a dense model does not wait for it. Does nothing until
    /// a lookup is set (`setClosestPointLookup`).
    void prepareDragFinder();

    /// A free name "Spline N", N from 1.
    QString uniqueName(const QString& stem = QStringLiteral("Spline ")) const;

    // Edits; each is one command.
    /// Adds a spline (a free name when `name` is empty) and selects it.
    QString addSpline(const QVector<Welk::WPointOnTriangle>& points, const QString& name = QString());
    /// Replaces a spline's points; false for an unknown name.
    bool setSplinePoints(const QString& name, const QVector<Welk::WPointOnTriangle>& points);
    /// Selects `name` (empty: none); false for an unknown name.
    bool select(const QString& name);
    /// The whole state at once.
    void modify(const SplinesState& state);

    /// Why `name` cannot replace `current`'s name: "Name can't be empty!",
    /// "A spline with such name already exists!", or empty when it can.
    QString validateName(const QString& name, const QString& current) const;
    QString rename(const QString& current, const QString& name);
    /// Names every spline `stem` plus its place in the list, from 1.
    QString renameAll(const QString& stem);
    /// Replaces the control points by `count` points along the curve.
    QString resample(const QString& name, int count);
    bool reverse(const QString& name);
    bool swapPrevious(const QString& name);
    bool swapNext(const QString& name);
    bool deleteSpline(const QString& name);
    bool clear();

    /// What a mirror request came to.
    struct MirrorOutcome
    {
        enum Kind
        {
            Added,    ///< the mirrored spline is in the set, named `name`
            Failed,   ///< `text` says why, under `title`
            Question, ///< `text` asks whether to add a copy of an existing spline
        };
        Kind kind = Failed;
        QString title;
        QString text;
        QString name;
    };
    /// Mirrors `name` through the model's topological symmetry into a new
    /// spline. When the result equals an existing spline the answer is a
    /// Question and nothing changes; ask again with `addIfEqual` to add it.
    MirrorOutcome mirror(const QString& name, bool addIfEqual = false, Welk::ProgressInterface* progress = nullptr);
    /// The vertex map of the symmetry (searched on first use; empty: none).
    const QVector<int>& symmetryMap(Welk::ProgressInterface* progress = nullptr) const;
    /// Gives the map instead of searching it (for a host that has it).
    void setSymmetryMap(const QVector<int>& map);

    /// Files; the import replaces the whole set.
    QString importFile(const QString& path, SplineFile::Form form);
    QString exportFile(const QString& path, SplineFile::Form form) const;

    Welk::WCommandsController* commands() { return &m_commands; }
    bool undo() { return m_commands.undo(); }
    bool redo() { return m_commands.redo(); }

    /// Used by the commands.
    void applyState(const SplinesState& state);

Q_SIGNALS:
    void splinesChanged();

private:
    void pushSplines(const SplineMap& splines, const QStringList& order);
    void pushAll(const SplinesState& state);

    GeometryStack2::GeomStackTriangulated m_mesh;
    SplinesState m_state;
    Welk::WCommandsController m_commands;
    std::unique_ptr<WSpline::Curve> m_curve;
    int m_pointsPerSpline = 20;
    mutable ClosestPointLookup m_lookup;
    mutable std::shared_ptr<KeepDistance::FastContinuousProjectionOnTriangleFinder> m_dragFinder;
    mutable std::future<std::shared_ptr<KeepDistance::FastContinuousProjectionOnTriangleFinder>> m_pendingDragFinder;
    mutable std::optional<QVector<int>> m_symmetry;
};

} // namespace WelkPlugin
