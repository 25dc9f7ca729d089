// The spline set's tools, their commands and undo, mirror and resample.
#include "SplineTestMeshes.h"
#include "support/TestFiles.h"

#include "search/FastContinuousProjectionOnTriangleFinder.h"
#include "steps/splines/SplineMirror.h"
#include "steps/splines/SplineSelectionModel.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

using namespace WelkPlugin;
using Welk::WPointOnTriangle;

namespace {

QVector<WPointOnTriangle> line(const GeometryStack2::GeomStackTriangulated& mesh,
                               const QVector<QPointF>& points)
{
    QVector<WPointOnTriangle> result;
    for (const QPointF& p : points)
        result.append(SplineTestMeshes::locate(mesh, float(p.x()), float(p.y())));
    return result;
}

TEST(SplineSelectionModel, EditsAreCommandsThatUndoToEveryEarlierState)
{
    SplineSelectionModel model;
    model.setMesh(SplineTestMeshes::flatGrid(6, 4));
    QVector<SplinesState> states{model.state()};
    int changes = 0;
    QObject::connect(&model, &SplineSelectionModel::splinesChanged, [&] { ++changes; });

    const QString a = model.addSpline(line(model.mesh(), {{0.5, 0.5}, {2.5, 1.5}, {4.5, 0.5}}));
    EXPECT_EQ(a, QStringLiteral("Spline 1"));
    EXPECT_EQ(model.selected(), a);
    states.append(model.state());
    const QString b = model.addSpline(line(model.mesh(), {{1, 3}, {5, 3}}), QStringLiteral("brow"));
    EXPECT_EQ(b, QStringLiteral("brow"));
    states.append(model.state());
    EXPECT_EQ(model.order(), (QStringList{a, b}));

    EXPECT_TRUE(model.reverse(a));
    EXPECT_EQ(model.splines()[a].first(), states.last().splines[a].last());
    states.append(model.state());
    EXPECT_TRUE(model.swapPrevious(b));
    EXPECT_EQ(model.order(), (QStringList{b, a}));
    EXPECT_FALSE(model.swapPrevious(b)); // already first
    EXPECT_FALSE(model.swapNext(a));     // already last
    states.append(model.state());
    EXPECT_TRUE(model.swapNext(b));
    EXPECT_EQ(model.order(), (QStringList{a, b}));
    states.append(model.state());
    EXPECT_TRUE(model.select(a));
    EXPECT_FALSE(model.select(QStringLiteral("nothing")));
    states.append(model.state());
    EXPECT_TRUE(model.rename(a, QStringLiteral("upper lip")).isEmpty());
    EXPECT_EQ(model.selected(), QStringLiteral("upper lip")); // the selection follows
    EXPECT_EQ(model.order(), (QStringList{QStringLiteral("upper lip"), b}));
    states.append(model.state());
    EXPECT_TRUE(model.deleteSpline(QStringLiteral("upper lip")));
    EXPECT_EQ(model.order(), (QStringList{b}));
    EXPECT_TRUE(model.selected().isEmpty());
    states.append(model.state());
    EXPECT_TRUE(model.clear());
    EXPECT_TRUE(model.splines().isEmpty());
    EXPECT_FALSE(model.clear()); // nothing to clear: no command
    states.append(model.state());
    EXPECT_EQ(model.commands()->count(), states.size() - 1);
    EXPECT_GE(changes, states.size() - 1);

    for (int i = states.size() - 2; i >= 0; --i) {
        ASSERT_TRUE(model.undo());
        EXPECT_EQ(model.state(), states[i]) << "after undo to " << i;
    }
    EXPECT_FALSE(model.undo());
    for (int i = 1; i < states.size(); ++i) {
        ASSERT_TRUE(model.redo());
        EXPECT_EQ(model.state(), states[i]) << "after redo to " << i;
    }
}

// The drag's search built on its own thread belongs to the mesh it was
// started for, restarts through the lookup it was given, and a new mesh
// while it builds takes its own.
TEST(SplineSelectionModel, DragSearchPreparedAheadFollowsTheMeshAndLookup)
{
    SplineSelectionModel model;
    model.setMesh(SplineTestMeshes::flatGrid(6, 4));
    model.prepareDragFinder(); // no lookup yet: built on first use instead
    int lookups = 0;
    const ClosestPointLookup grid = makeClosestPointLookup(model.mesh());
    model.setClosestPointLookup([&](const QVector3D& p) {
        ++lookups;
        return grid(p);
    });
    model.prepareDragFinder();
    const auto& finder = model.dragFinder();
    EXPECT_EQ(finder.vertexNormals().size(), model.mesh().vertexCount());
    // No point to start from: the walk starts at the lookup's answer.
    const WPointOnTriangle p = finder.project(QVector3D(2.5f, 1.5f, 0.3f), WPointOnTriangle());
    ASSERT_TRUE(p.isValid());
    EXPECT_GE(lookups, 1);
    EXPECT_NEAR((SplineTestMeshes::at(model.mesh(), p) - QVector3D(2.5f, 1.5f, 0.0f)).length(), 0.0f, 1e-5f);

    model.setMesh(SplineTestMeshes::flatGrid(8, 8));
    model.setClosestPointLookup(makeClosestPointLookup(model.mesh()));
    model.prepareDragFinder();
    model.setMesh(SplineTestMeshes::flatGrid(3, 2));
    EXPECT_EQ(model.dragFinder().vertexNormals().size(), model.mesh().vertexCount());
}

TEST(SplineSelectionModel, NamesAreValidated)
{
    SplineSelectionModel model;
    model.setMesh(SplineTestMeshes::flatGrid(3, 3));
    model.addSpline(line(model.mesh(), {{0.5, 0.5}, {2, 2}}), QStringLiteral("a"));
    model.addSpline(line(model.mesh(), {{0.5, 2.5}, {2.5, 2.5}}), QStringLiteral("b"));
    const int commands = model.commands()->count();
    EXPECT_EQ(model.validateName(QString(), QStringLiteral("a")), QStringLiteral("Name can't be empty!"));
    EXPECT_EQ(model.validateName(QStringLiteral("b"), QStringLiteral("a")),
              QStringLiteral("A spline with such name already exists!"));
    EXPECT_TRUE(model.validateName(QStringLiteral("a"), QStringLiteral("a")).isEmpty());
    EXPECT_EQ(model.rename(QStringLiteral("a"), QStringLiteral("b")),
              QStringLiteral("A spline with such name already exists!"));
    EXPECT_EQ(model.rename(QStringLiteral("a"), QString()), QStringLiteral("Name can't be empty!"));
    EXPECT_EQ(model.commands()->count(), commands);
    EXPECT_TRUE(model.splines().contains(QStringLiteral("a")));

    EXPECT_TRUE(model.renameAll(QStringLiteral("Eye ")).isEmpty());
    EXPECT_EQ(model.order(), (QStringList{QStringLiteral("Eye 1"), QStringLiteral("Eye 2")}));
    EXPECT_EQ(model.selected(), QStringLiteral("Eye 2"));
}

TEST(SplineSelectionModel, ResampleSpacesPointsEvenlyAndKeepsTheEnds)
{
    SplineSelectionModel model;
    model.setMesh(SplineTestMeshes::flatGrid(8, 2));
    model.setCurveType(WSpline::CurveType::PiecewiseLinear);
    const QVector<WPointOnTriangle> original = line(model.mesh(), {{0.5, 1}, {1, 1}, {7.5, 1}});
    const QString name = model.addSpline(original);
    EXPECT_EQ(model.resample(name, 1), QStringLiteral("The number of control points must be from 2 to 1000"));
    EXPECT_EQ(model.resample(name, 1001), QStringLiteral("The number of control points must be from 2 to 1000"));
    ASSERT_TRUE(model.resample(name, 15).isEmpty());
    const QVector<WPointOnTriangle>& points = model.splines()[name];
    ASSERT_EQ(points.size(), 15);
    EXPECT_EQ(points.first(), original.first());
    EXPECT_EQ(points.last(), original.last());
    for (int k = 0; k < points.size(); ++k) {
        const QVector3D p = SplineTestMeshes::at(model.mesh(), points[k]);
        EXPECT_NEAR(p.x(), 0.5f + 0.5f * k, 1e-4f);
        EXPECT_NEAR(p.y(), 1.0f, 1e-4f);
    }
    ASSERT_TRUE(model.undo());
    EXPECT_EQ(model.splines()[name], original);
}

TEST(SplineSelectionModel, FilesReplaceTheSetAndFailuresChangeNothing)
{
    QTemporaryDir dir;
    SplineSelectionModel model;
    model.setMesh(SplineTestMeshes::flatGrid(4, 4));
    EXPECT_EQ(model.exportFile(dir.filePath(QStringLiteral("none.json")), SplineFile::NamedPointsOnTriangles),
              QStringLiteral("Missing splines"));
    model.addSpline(line(model.mesh(), {{0.5, 0.5}, {3.5, 3.5}}), QStringLiteral("a"));
    model.addSpline(line(model.mesh(), {{0.5, 3.5}, {3.5, 0.5}}), QStringLiteral("b"));
    const SplinesState before = model.state();
    const QString path = dir.filePath(QStringLiteral("splines.json"));
    ASSERT_TRUE(model.exportFile(path, SplineFile::NamedPoints3D).isEmpty());
    EXPECT_EQ(model.importFile(path, SplineFile::Points3D), QStringLiteral("\"splines\" is not array"));
    EXPECT_EQ(model.state(), before);
    ASSERT_TRUE(model.importFile(path, SplineFile::NamedPoints3D).isEmpty());
    EXPECT_EQ(model.order(), (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
    ASSERT_TRUE(model.undo());
    EXPECT_EQ(model.state(), before);

    SplineSelectionModel empty;
    EXPECT_EQ(empty.importFile(path, SplineFile::NamedPoints3D), QStringLiteral("Missing geometry"));
}

/// Reflection of the mirror grid: x -> 8 - x.
QVector3D reflected(const QVector3D& p)
{
    return QVector3D(8.0f - p.x(), p.y(), p.z());
}

TEST(SplineSelectionModel, MirrorFollowsTheOnlySymmetryOfTheGrid)
{
    SplineSelectionModel model;
    model.setMesh(SplineTestMeshes::mirrorGrid());
    const QVector<WPointOnTriangle> left = line(model.mesh(), {{0.3, 0.2}, {1.7, 1.4}, {2.2, 4.6}, {3.4, 3.3}});
    const QString name = model.addSpline(left, QStringLiteral("Left eyelid"));
    SplineSelectionModel::MirrorOutcome outcome = model.mirror(name);
    ASSERT_EQ(outcome.kind, SplineSelectionModel::MirrorOutcome::Added) << outcome.text.toStdString();
    EXPECT_EQ(outcome.name, QStringLiteral("Right eyelid"));
    const QVector<WPointOnTriangle>& right = model.splines()[outcome.name];
    ASSERT_EQ(right.size(), left.size());
    for (int k = 0; k < left.size(); ++k)
        EXPECT_LT((SplineTestMeshes::at(model.mesh(), right[k]) - reflected(SplineTestMeshes::at(model.mesh(), left[k])))
                      .length(),
                  1e-4f);

    // Mirroring the mirror gives the original back, which exists: a question,
    // and nothing changes until the caller says yes.
    outcome = model.mirror(QStringLiteral("Right eyelid"));
    ASSERT_EQ(outcome.kind, SplineSelectionModel::MirrorOutcome::Question);
    EXPECT_EQ(outcome.title, QStringLiteral("Mirror spline"));
    EXPECT_EQ(outcome.text, QStringLiteral("Mirrored spline will be equal to existing spline \"Left eyelid\".\n"
                                           "Add mirrored spline anyway?"));
    EXPECT_EQ(model.splines().size(), 2);
    outcome = model.mirror(QStringLiteral("Right eyelid"), true);
    EXPECT_EQ(outcome.kind, SplineSelectionModel::MirrorOutcome::Added);
    EXPECT_EQ(outcome.name, QStringLiteral("Left eyelid 1"));
    EXPECT_EQ(model.splines().size(), 3);
}

TEST(SplineSelectionModel, MirrorQuestionForASplineOnTheAxis)
{
    // A spline on the vertices of the axis x = 4 mirrors onto itself.
    SplineSelectionModel model;
    model.setMesh(SplineTestMeshes::mirrorGrid());
    const QString name = model.addSpline(line(model.mesh(), {{4, 0}, {4, 3}, {4, 5}}), QStringLiteral("middle"));
    const int commands = model.commands()->count();
    const SplineSelectionModel::MirrorOutcome outcome = model.mirror(name);
    ASSERT_EQ(outcome.kind, SplineSelectionModel::MirrorOutcome::Question) << outcome.text.toStdString();
    EXPECT_EQ(outcome.text, QStringLiteral("Mirrored spline will be equal to existing spline \"middle\".\n"
                                           "Add mirrored spline anyway?"));
    EXPECT_EQ(model.commands()->count(), commands);
    const SplineSelectionModel::MirrorOutcome forced = model.mirror(name, true);
    EXPECT_EQ(forced.kind, SplineSelectionModel::MirrorOutcome::Added);
    EXPECT_EQ(forced.name, QStringLiteral("middle mirrored"));
}

TEST(SplineSelectionModel, MirrorFailures)
{
    SplineSelectionModel model;
    EXPECT_EQ(model.mirror(QStringLiteral("x")).text, QStringLiteral("Missing geometry"));
    // One hole off the middle breaks every mirror of the grid.
    model.setMesh(SplineTestMeshes::flatGrid(6, 5, {{1, 1}, {4, 2}}));
    const QString name = model.addSpline(line(model.mesh(), {{0.5, 0.5}, {5.5, 4.5}}));
    SplineSelectionModel::MirrorOutcome outcome = model.mirror(name);
    EXPECT_EQ(outcome.kind, SplineSelectionModel::MirrorOutcome::Failed);
    EXPECT_EQ(outcome.title, QStringLiteral("Error"));
    EXPECT_EQ(outcome.text, QStringLiteral("Geometry has no topological symmetry"));
    model.setSplinePoints(name, {WPointOnTriangle{model.mesh().triangleCount() + 3, 0, 0}});
    outcome = model.mirror(name);
    EXPECT_EQ(outcome.text,
              QStringLiteral("Spline control points are located on triangles that are not contained in the geometry"));
    EXPECT_EQ(model.splines().size(), 1);
}

TEST(SplineSelectionModel, ResampleCommutesWithMirror)
{
    // On a posed model the symmetry is topological only; the property that
    // holds whatever the pose: mirrored points sit on mirrored polygons, and
    // mirroring twice comes back to the start.
    const auto posed = SplineTestMeshes::grid(8, 5, {{1, 2}, {6, 2}, {3, 1}, {4, 1}},
                                              [](float x, float y) { return 0.3f * x + 0.05f * x * y; });
    const QVector<int> map = splineSymmetryMap(posed);
    ASSERT_EQ(map.size(), posed.vertexCount());
    for (int v = 0; v < map.size(); ++v) {
        // Vertex (i, j) pairs with (8 - i, j), read from the rest positions.
        const int i = v % 9, j = v / 9;
        EXPECT_EQ(map[v], j * 9 + (8 - i));
    }
    const SplineMirror mirror(posed, map);
    ASSERT_TRUE(mirror.isValid());
    const auto rest = SplineTestMeshes::mirrorGrid();
    for (float x : {0.2f, 1.5f, 2.75f, 3.9f})
        for (float y : {0.1f, 2.5f, 4.8f}) {
            const WPointOnTriangle p = SplineTestMeshes::locate(rest, x, y);
            if (!p.isValid())
                continue;
            WPointOnTriangle m, back;
            ASSERT_TRUE(mirror.mirror(p, m));
            ASSERT_TRUE(mirror.mirror(m, back));
            // Same triangulation in rest and posed: compare on the rest grid.
            // The posed quads are not planar and mirroring turns their fans
            // around, so a point moves a little off its exact mirror (within
            // a few thousandths of a quad).
            EXPECT_LT((SplineTestMeshes::at(rest, m) - reflected(SplineTestMeshes::at(rest, p))).length(), 1e-2f);
            EXPECT_LT((SplineTestMeshes::at(rest, back) - SplineTestMeshes::at(rest, p)).length(), 1e-2f);
            EXPECT_EQ(posed.trianglePolygonIndices()[m.triangle],
                      mirror.polygonMap()[posed.trianglePolygonIndices()[p.triangle]]);
        }

    SplineSelectionModel model;
    model.setMesh(SplineTestMeshes::mirrorGrid());
    model.setCurveType(WSpline::CurveType::CatmullRom);
    const QString name = model.addSpline(line(model.mesh(), {{0.3, 0.2}, {1.7, 1.4}, {2.2, 4.6}, {3.4, 3.3}}));
    const QString mirrored = model.mirror(name).name;
    ASSERT_FALSE(mirrored.isEmpty());
    ASSERT_TRUE(model.resample(name, 25).isEmpty());
    ASSERT_TRUE(model.resample(mirrored, 25).isEmpty());
    const QVector<WPointOnTriangle>& a = model.splines()[name];
    const QVector<WPointOnTriangle>& b = model.splines()[mirrored];
    ASSERT_EQ(a.size(), 25);
    ASSERT_EQ(b.size(), 25);
    for (int k = 0; k < 25; ++k)
        EXPECT_LT((SplineTestMeshes::at(model.mesh(), b[k]) - reflected(SplineTestMeshes::at(model.mesh(), a[k]))).length(),
                  1e-3f);
}

} // namespace

namespace {

TEST(SplineMirrorData, AFaceTemplateMirrorsIsometricallyAndBack)
{
    const QString path = TestSupport::sharedDataFile(QStringLiteral("meshmonk-face/Template.obj"));
    ZWELK_REQUIRE_DATA(path);
    QString error;
    const GeometryStack2::GeomStackTriangulated mesh(path, error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    SplineSelectionModel model;
    model.setMesh(mesh);
    QVector3D lo = mesh.vertices()[0], hi = lo;
    for (const QVector3D& v : mesh.vertices())
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], v[k]);
            hi[k] = std::max(hi[k], v[k]);
        }
    const float diagonal = (hi - lo).length();
    QVector<WPointOnTriangle> points;
    for (int i = 0; i < 6; ++i)
        points.append(WPointOnTriangle{(i * 2311 + 17) % mesh.triangleCount(), 0.2f + 0.1f * float(i % 3), 0.3f});
    const QString name = model.addSpline(points, QStringLiteral("left"));
    const SplineSelectionModel::MirrorOutcome once = model.mirror(name);
    ASSERT_EQ(once.kind, SplineSelectionModel::MirrorOutcome::Added) << once.text.toStdString();
    EXPECT_EQ(once.name, QStringLiteral("right"));
    const SplineSelectionModel::MirrorOutcome twice = model.mirror(once.name);
    // Back where it started: the same spline, so the question is asked.
    EXPECT_EQ(twice.kind, SplineSelectionModel::MirrorOutcome::Question) << twice.text.toStdString();
    const QVector<WPointOnTriangle>& mirrored = model.splines()[once.name];
    // The template's rest shape is symmetric: mirroring keeps distances.
    for (int i = 0; i < points.size(); ++i)
        for (int j = i + 1; j < points.size(); ++j) {
            const float before = (SplineTestMeshes::at(mesh, points[i]) - SplineTestMeshes::at(mesh, points[j])).length();
            const float after =
                (SplineTestMeshes::at(mesh, mirrored[i]) - SplineTestMeshes::at(mesh, mirrored[j])).length();
            EXPECT_NEAR(after, before, 0.01f * diagonal);
        }
}

} // namespace
