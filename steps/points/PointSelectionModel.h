#pragma once

#include "PointMirror.h"
#include "PointSelectionState.h"
#include "WSymmetryPoints.h"

#include "document/commands/WCommandsController.h"
#include "geometry/GeomStackTriangulated.h"
#include "search/WRayTracerEmbree.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

namespace WelkPlugin {

/// The correspondence point step without its widgets: both models' point
/// lists (side 0 the basemesh, left; side 1 the scan, right), picking on the
/// models, and every edit as an undoable command through the step's own
/// `WCommandsController`. The i-th point of side 0 pairs with the i-th of
/// side 1. Views listen to `pointsChanged` and call the edit functions;
/// nothing here draws.
///
/// Edits refuse, changing nothing, a point on no triangle, on a triangle
/// outside the mesh, or on a masked triangle (one whose usable byte is 0).
/// With symmetry on, a new point on a side whose `WSymmetryPoints` has a
/// symmetry also gets its mirror, placed right after it; the two then slide
/// and are deleted together.
class PointSelectionModel : public QObject
{
    Q_OBJECT
public:
    explicit PointSelectionModel(QObject* parent = nullptr);
    ~PointSelectionModel() override;

    /// The model of a side and its usable triangles (one byte a triangle,
    /// 0 masked; empty: all usable). Clears that side's points and the
    /// history. Side 0's ray tracer is dynamic, for a basemesh that deforms.
    void setMesh(int side, const GeometryStack2::GeomStackTriangulated& mesh,
                 const QVector<quint8>& usableTriangles = {});
    const GeometryStack2::GeomStackTriangulated& mesh(int side) const { return m_meshes[side]; }
    const QVector<quint8>& usableTriangles(int side) const { return m_usable[side]; }
    bool isUsable(int side, int triangle) const;
    /// New vertex positions for a side (same topology): the picking follows.
    void updateVertices(int side, const QVector<QVector3D>& vertices);

    /// The first surface point under a ray (masked triangles included, so
    /// that they hide what is behind them); invalid for none.
    Welk::WPointOnTriangle pick(int side, const QVector3D& origin, const QVector3D& direction) const;
    /// The nearest surface point, through the same scene as `pick` (so it
    /// needs no search structure of its own); invalid without a model.
    Welk::WPointOnTriangle closestPoint(int side, const QVector3D& position) const;
    const Welk::WRayTracer* rayTracer(int side) const { return m_tracers[side].get(); }

    const QVector<Welk::WPointOnTriangle>& points(int side) const { return m_state.points[side]; }
    /// Per point, its mirror twin's index on the same side, or -1.
    const QVector<int>& mirrorLinks(int side) const { return m_state.mirrors[side]; }
    const PointSelectionState& state() const { return m_state; }
    QVector3D position(int side, int index) const;
    /// The index of the point nearest `position` within `maxDistance`, or -1.
    int nearestPoint(int side, const QVector3D& position, float maxDistance) const;

    int pairCount() const;
    int unpairedCount() const;
    /// A text for the error bar while points are unpaired; empty otherwise.
    QString pairingMessage() const;

    // Edits: each is one command on the history.
    bool addPoint(int side, const Welk::WPointOnTriangle& point, QString* error = nullptr);
    bool deletePoint(int side, int index);
    bool movePoint(int side, int index, const Welk::WPointOnTriangle& point, QString* error = nullptr);
    /// Clears one side, or both with side -1.
    bool clearPoints(int side = -1);
    /// The whole lists at once (the path of every edit).
    void modifyPoints(const QVector<Welk::WPointOnTriangle>& base, const QVector<Welk::WPointOnTriangle>& scan);

    /// Dragging: the point follows `slideTo` without history entries, and
    /// `endSlide` records the whole drag as one command. `cancelSlide` puts
    /// the point back.
    bool beginSlide(int side, int index);
    bool slideTo(const Welk::WPointOnTriangle& point);
    void endSlide();
    void cancelSlide();
    bool isSliding() const { return m_slide.has_value(); }

    /// Point files; the texts are for the error bar, empty on success. A
    /// failed load changes nothing.
    QString loadPoints(int side, const QString& path);
    QString savePoints(int side, const QString& path) const;

    /// Mirrors through a side's symmetry (not owned; null for none).
    void setSymmetry(int side, Welk::WSymmetryPoints* symmetry);
    Welk::WSymmetryPoints* symmetry(int side) const { return m_symmetry[side]; }
    void setSymmetryEnabled(bool enabled) { m_symmetryEnabled = enabled; }
    bool symmetryEnabled() const { return m_symmetryEnabled; }
    /// The mirror of a point through a side's symmetry, when it has one.
    bool mirrorPoint(int side, const Welk::WPointOnTriangle& point, Welk::WPointOnTriangle& mirrored) const;

    Welk::WCommandsController* commands() { return &m_commands; }
    bool undo();
    bool redo();

    /// Used by the commands: puts a state in place and tells the views.
    void applyState(const PointSelectionState& state);

Q_SIGNALS:
    /// After every change of either list, with both lists.
    void pointsChanged(const QVector<Welk::WPointOnTriangle>& base, const QVector<Welk::WPointOnTriangle>& scan);

private:
    bool checkPoint(int side, const Welk::WPointOnTriangle& point, QString* error) const;
    void push(const PointSelectionState& state);
    const PointMirror* mirrorFor(int side) const;
    static void removePoint(PointSelectionState& state, int side, int index);

    struct Slide
    {
        int side;
        int index;
        PointSelectionState before;
    };

    GeometryStack2::GeomStackTriangulated m_meshes[2];
    QVector<quint8> m_usable[2];
    std::unique_ptr<Welk::WRayTracerEmbree> m_tracers[2];
    PointSelectionState m_state;
    Welk::WCommandsController m_commands;
    QPointer<Welk::WSymmetryPoints> m_symmetry[2];
    mutable std::unique_ptr<PointMirror> m_mirrors[2];
    bool m_symmetryEnabled = false;
    std::optional<Slide> m_slide;
};

} // namespace WelkPlugin

// Point lists travel in signals, also across threads.
Q_DECLARE_METATYPE(Welk::WPointOnTriangle)
