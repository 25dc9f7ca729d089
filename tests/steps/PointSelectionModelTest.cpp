// The point step's model: picking, edits as commands that undo back to
// where they started, masks, point files, pairing and mirrored points; and
// the surface-point helpers it builds on.
#include "steps/points/PointFile.h"
#include "steps/points/PointOnTriangleTools.h"
#include "steps/points/PointSelectionModel.h"
#include "steps/points/WSymmetryPoints.h"

#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <random>

namespace {

using GeometryStack2::GeomStackTriangulated;
using Welk::WPointOnTriangle;
using WelkPlugin::PointSelectionModel;

/// An nx by ny grid of unit quads in z = 0.
GeomStackTriangulated grid(int nx, int ny)
{
    QVector<QVector3D> vertices;
    for (int j = 0; j <= ny; ++j)
        for (int i = 0; i <= nx; ++i)
            vertices.append(QVector3D(float(i), float(j), 0.0f));
    QVector<QVector<int>> polygons;
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) {
            const int a = j * (nx + 1) + i;
            polygons.append({a, a + 1, a + nx + 2, a + nx + 1});
        }
    return GeomStackTriangulated(TestSupport::polygonSoup(vertices, polygons));
}

/// The surface point straight below (x, y), picked as a view would.
WPointOnTriangle below(const PointSelectionModel& model, int side, float x, float y)
{
    return model.pick(side, QVector3D(x, y, 5.0f), QVector3D(0, 0, -1));
}

TEST(PointOnTriangleTools, BarycentricCoordinatesRecoverWeightsAndProject)
{
    std::mt19937 rng(2);
    std::uniform_real_distribution<float> coordinate(-2, 2), weight(-0.5f, 1.5f);
    for (int i = 0; i < 200; ++i) {
        const QVector3D p0(coordinate(rng), coordinate(rng), coordinate(rng));
        const QVector3D p1(coordinate(rng), coordinate(rng), coordinate(rng));
        const QVector3D p2(coordinate(rng), coordinate(rng), coordinate(rng));
        const QVector3D normal = QVector3D::crossProduct(p1 - p0, p2 - p0);
        if (normal.length() < 0.1f)
            continue;
        const float w1 = weight(rng), w2 = weight(rng);
        const QVector3D onPlane = (1 - w1 - w2) * p0 + w1 * p1 + w2 * p2;
        // Lifted off the plane, the point projects back onto it.
        const QVector3D w = Welk::barycentricCoordinates(onPlane + 0.7f * normal.normalized(), p0, p1, p2);
        EXPECT_NEAR(w[0], 1 - w1 - w2, 1e-3f);
        EXPECT_NEAR(w[1], w1, 1e-3f);
        EXPECT_NEAR(w[2], w2, 1e-3f);
    }
    const QVector<QVector3D> vertices = {{0, 0, 0}, {2, 0, 0}, {0, 2, 0}};
    const WPointOnTriangle p = Welk::pointOnTriangle(0, QVector3D(0.5f, 0.5f, 3), vertices, {0, 1, 2});
    EXPECT_EQ(p.triangle, 0);
    EXPECT_FLOAT_EQ(p.u, 0.5f);
    EXPECT_FLOAT_EQ(p.v, 0.25f);
    EXPECT_EQ(p.position(vertices, {0, 1, 2}), QVector3D(0.5f, 0.5f, 0));
}

TEST(PointOnTriangleTools, SinglePointFormAndStrictListReader)
{
    const WPointOnTriangle p{12, 0.25f, 0.5f};
    WPointOnTriangle back;
    ASSERT_TRUE(Welk::pointFromJsonObject(Welk::pointToJsonObject(p), back));
    EXPECT_EQ(back, p);
    QJsonObject missing = Welk::pointToJsonObject(p);
    missing.remove(QStringLiteral("u"));
    back = WPointOnTriangle();
    EXPECT_FALSE(Welk::pointFromJsonObject(missing, back));
    EXPECT_FALSE(Welk::pointFromJsonObject(QJsonArray{12, 0.25, 0.5}, back));
    EXPECT_FALSE(back.isValid());

    QVector<WPointOnTriangle> list = {p};
    EXPECT_TRUE(Welk::pointsFromJson(WelkPlugin::PointFile::pointsToJson({p, p}), list));
    EXPECT_EQ(list.size(), 2);
    for (const QJsonValue& bad : {QJsonValue(3), QJsonValue(QJsonArray{1}), QJsonValue(QJsonArray{QJsonArray{1, 2}}),
                                  QJsonValue(QJsonArray{QJsonArray{1, 2, QStringLiteral("x")}})}) {
        EXPECT_FALSE(Welk::pointsFromJson(bad, list));
        EXPECT_EQ(list.size(), 2);
    }
}

TEST(PointSelectionModel, PickingLandsUnderTheRayAndFollowsMovedVertices)
{
    PointSelectionModel model;
    model.setMesh(0, grid(4, 3));
    model.setMesh(1, grid(5, 5));
    const WPointOnTriangle p = below(model, 0, 2.3f, 1.6f);
    ASSERT_TRUE(p.isValid());
    EXPECT_LT((p.position(model.mesh(0).vertices(), model.mesh(0).triangleVertexIndices()) -
               QVector3D(2.3f, 1.6f, 0))
                  .length(),
              1e-5f);
    EXPECT_FALSE(below(model, 0, 4.5f, 1.0f).isValid());
    EXPECT_TRUE(below(model, 1, 4.5f, 1.0f).isValid());

    // The basemesh deforms: picking sees the new shape.
    QVector<QVector3D> lifted = model.mesh(0).vertices();
    for (QVector3D& v : lifted)
        v.setZ(1.0f);
    model.updateVertices(0, lifted);
    float t = INFINITY;
    ASSERT_TRUE(model.rayTracer(0)->intersectPoint({1, 1, 5}, {0, 0, -1}, 0, 0, INFINITY, &t).isValid());
    EXPECT_NEAR(t, 4.0f, 1e-5f);
}

TEST(PointSelectionModel, EditsUndoBackToTheStartAndRedoToTheEnd)
{
    QTemporaryDir dir;
    PointSelectionModel model;
    model.setMesh(0, grid(4, 4));
    model.setMesh(1, grid(4, 4));
    QSignalSpy changed(&model, &PointSelectionModel::pointsChanged);

    const QString file = dir.filePath(QStringLiteral("scan.json"));
    ASSERT_TRUE(WelkPlugin::PointFile::savePointsToFile(file, {below(model, 1, 0.5f, 0.5f),
                                                               below(model, 1, 3.5f, 3.2f)})
                    .isEmpty());

    QVector<WelkPlugin::PointSelectionState> states{model.state()};
    ASSERT_TRUE(model.addPoint(0, below(model, 0, 1.2f, 1.3f)));
    states.append(model.state());
    ASSERT_TRUE(model.addPoint(0, below(model, 0, 3.2f, 0.4f)));
    states.append(model.state());
    ASSERT_TRUE(model.addPoint(1, below(model, 1, 2.5f, 2.5f)));
    states.append(model.state());

    // A drag of many steps is one history entry.
    ASSERT_TRUE(model.beginSlide(0, 0));
    for (float x : {1.4f, 1.8f, 2.2f, 2.6f})
        ASSERT_TRUE(model.slideTo(below(model, 0, x, 1.3f)));
    model.endSlide();
    EXPECT_LT((model.position(0, 0) - QVector3D(2.6f, 1.3f, 0)).length(), 1e-5f);
    states.append(model.state());

    ASSERT_TRUE(model.deletePoint(0, 1));
    states.append(model.state());
    ASSERT_TRUE(model.loadPoints(1, file).isEmpty());
    EXPECT_EQ(model.points(1).size(), 2);
    states.append(model.state());
    ASSERT_TRUE(model.movePoint(1, 0, below(model, 1, 0.7f, 0.9f)));
    states.append(model.state());
    ASSERT_TRUE(model.clearPoints(0));
    states.append(model.state());

    EXPECT_EQ(model.commands()->count(), states.size() - 1);
    EXPECT_GE(changed.count(), states.size() - 1 + 4);
    for (int i = states.size() - 2; i >= 0; --i) {
        ASSERT_TRUE(model.undo());
        ASSERT_EQ(model.state(), states[i]) << "after undo to " << i;
    }
    EXPECT_FALSE(model.undo());
    for (int i = 1; i < states.size(); ++i) {
        ASSERT_TRUE(model.redo());
        ASSERT_EQ(model.state(), states[i]) << "after redo to " << i;
    }
    EXPECT_FALSE(model.redo());
    // The views got the lists that are now in place.
    const QList<QVariant> last = changed.last();
    EXPECT_EQ(last.at(1).value<QVector<WPointOnTriangle>>(), model.points(1));
}

TEST(PointSelectionModel, SlideCancelAndRefusedEditsLeaveNoTrace)
{
    PointSelectionModel model;
    GeomStackTriangulated mesh = grid(2, 1);
    // Triangles 0 and 1 come from the left quad: masked.
    model.setMesh(0, mesh, {0, 0, 1, 1});
    ASSERT_TRUE(model.addPoint(0, below(model, 0, 1.5f, 0.5f)));
    const WelkPlugin::PointSelectionState start = model.state();
    const int history = model.commands()->count();

    QString error;
    EXPECT_FALSE(model.addPoint(0, below(model, 0, 0.5f, 0.5f), &error));
    EXPECT_EQ(error, QStringLiteral("Masked polygons cannot take a point."));
    EXPECT_FALSE(model.addPoint(0, WPointOnTriangle(), &error));
    EXPECT_FALSE(model.addPoint(0, WPointOnTriangle{4, 0.2f, 0.2f}));
    EXPECT_FALSE(model.movePoint(0, 0, below(model, 0, 0.4f, 0.5f)));
    EXPECT_FALSE(model.movePoint(0, 3, below(model, 0, 1.4f, 0.5f)));
    EXPECT_FALSE(model.deletePoint(0, 1));
    EXPECT_FALSE(model.deletePoint(1, 0));

    // Sliding onto a masked polygon stops at the last free place.
    ASSERT_TRUE(model.beginSlide(0, 0));
    EXPECT_TRUE(model.slideTo(below(model, 0, 1.2f, 0.5f)));
    EXPECT_FALSE(model.slideTo(below(model, 0, 0.8f, 0.5f)));
    EXPECT_LT((model.position(0, 0) - QVector3D(1.2f, 0.5f, 0)).length(), 1e-5f);
    model.cancelSlide();
    EXPECT_EQ(model.state(), start);
    EXPECT_EQ(model.commands()->count(), history);
}

TEST(PointSelectionModel, BadPointFilesChangeNothing)
{
    QTemporaryDir dir;
    PointSelectionModel model;
    model.setMesh(0, grid(2, 2), {1, 1, 1, 1, 1, 1, 0, 1});
    model.setMesh(1, grid(1, 1));
    ASSERT_TRUE(model.addPoint(0, below(model, 0, 0.5f, 0.5f)));
    ASSERT_TRUE(model.addPoint(1, below(model, 1, 0.5f, 0.5f)));
    const WelkPlugin::PointSelectionState start = model.state();
    const int history = model.commands()->count();

    auto write = [&](const char* name, const QByteArray& text) {
        const QString path = dir.filePath(QString::fromLatin1(name));
        TestSupport::writeFile(path, text);
        return path;
    };
    // The scan has two triangles: index 2 passes (one past the end, as the
    // file check defines), 3 belongs to another mesh.
    EXPECT_EQ(model.loadPoints(1, write("other.json", "[[3, 0.2, 0.2]]")),
              QStringLiteral("Points don't match the current geometry"));
    EXPECT_EQ(model.loadPoints(0, write("masked.txt", "[[6, 0.2, 0.2]]")),
              QStringLiteral("Points don't match the current geometry"));
    EXPECT_EQ(model.loadPoints(0, write("short.json", "[[1, 0.2]]")),
              QStringLiteral("Point #1 contains invalid number of elements"));
    EXPECT_EQ(model.loadPoints(0, dir.filePath(QStringLiteral("missing.json"))),
              QStringLiteral("File doesn't exist: \"%1\"").arg(dir.filePath(QStringLiteral("missing.json"))));
    EXPECT_FALSE(model.loadPoints(0, write("broken.json", "[[1, 0.2,")).isEmpty());
    EXPECT_EQ(model.state(), start);
    EXPECT_EQ(model.commands()->count(), history);

    // Fewer points than the other side load, and the pairing says so.
    EXPECT_TRUE(model.loadPoints(0, write("empty.json", "[]")).isEmpty());
    EXPECT_EQ(model.unpairedCount(), 1);
    EXPECT_EQ(model.pairCount(), 0);
    EXPECT_FALSE(model.pairingMessage().isEmpty());
    EXPECT_EQ(model.savePoints(0, dir.filePath(QStringLiteral("none.json"))), QStringLiteral("Invalid points"));
    ASSERT_TRUE(model.undo());
    EXPECT_EQ(model.state(), start);
    EXPECT_TRUE(model.pairingMessage().isEmpty());
}

TEST(PointSelectionModel, SymmetryAddsMovesAndDeletesMirrorTwins)
{
    PointSelectionModel model;
    const GeomStackTriangulated mesh = grid(6, 4);
    model.setMesh(0, mesh);
    model.setMesh(1, grid(3, 3));
    Welk::WSymmetryPoints symmetry;
    symmetry.setGeometry(mesh.vertices(), mesh.polygonOffsets(), mesh.vertexIndices());
    symmetry.setSymmetryMode(Welk::WSymmetryPoints::TopologicalSymmetry);
    ASSERT_EQ(symmetry.detectionState(), 0);
    model.setSymmetry(0, &symmetry);

    // On a flat grid the topological mirror is a reflection in x or in y.
    int corner = -1;
    ASSERT_TRUE(symmetry.mirrorVertex(0, corner));
    const bool inX = mesh.vertices()[corner] == QVector3D(6, 0, 0);
    ASSERT_TRUE(inX || mesh.vertices()[corner] == QVector3D(0, 4, 0));
    auto reflect = [inX](const QVector3D& p) { return inX ? QVector3D(6 - p.x(), p.y(), 0) : QVector3D(p.x(), 4 - p.y(), 0); };

    // Off: one point.
    ASSERT_TRUE(model.addPoint(0, below(model, 0, 1.3f, 0.6f)));
    EXPECT_EQ(model.points(0).size(), 1);
    model.setSymmetryEnabled(true);
    ASSERT_TRUE(model.addPoint(0, below(model, 0, 1.7f, 1.2f)));
    ASSERT_EQ(model.points(0).size(), 3);
    EXPECT_EQ(model.mirrorLinks(0), (QVector<int>{-1, 2, 1}));
    EXPECT_LT((model.position(0, 2) - reflect(model.position(0, 1))).length(), 1e-4f);

    // On the plane of symmetry a point is its own mirror.
    ASSERT_TRUE(model.addPoint(0, below(model, 0, inX ? 3.0f : 2.2f, inX ? 2.2f : 2.0f)));
    EXPECT_EQ(model.points(0).size(), 4);

    // Sliding one twin moves the other; one undo puts both back.
    const WelkPlugin::PointSelectionState before = model.state();
    ASSERT_TRUE(model.beginSlide(0, 2));
    ASSERT_TRUE(model.slideTo(below(model, 0, 4.6f, 3.1f)));
    model.endSlide();
    EXPECT_LT((model.position(0, 1) - reflect(QVector3D(4.6f, 3.1f, 0))).length(), 1e-4f);
    ASSERT_TRUE(model.undo());
    EXPECT_EQ(model.state(), before);

    // Deleting either twin deletes both; the others keep their links.
    ASSERT_TRUE(model.deletePoint(0, 2));
    EXPECT_EQ(model.points(0).size(), 2);
    EXPECT_EQ(model.mirrorLinks(0), (QVector<int>{-1, -1}));
    ASSERT_TRUE(model.undo());
    EXPECT_EQ(model.state(), before);

    // The scan has no symmetry set: no twins there.
    ASSERT_TRUE(model.addPoint(1, below(model, 1, 0.5f, 0.5f)));
    EXPECT_EQ(model.points(1).size(), 1);
    EXPECT_EQ(model.pairCount(), 1);
    EXPECT_EQ(model.unpairedCount(), 3);
}

} // namespace
