// Topological symmetry: the engine's parts, and whole detections checked by
// what a mirror map must be: an involution that keeps adjacency and turns
// every polygon's winding around.
#include "steps/points/WSymmetryPoints.h"
#include "steps/points/symmetry/DCEL.h"
#include "steps/points/symmetry/PathGenerator.h"
#include "steps/points/symmetry/SymmetryDetectionTBB.h"
#include "steps/points/symmetry/VertexAdjacency.h"
#include "steps/points/symmetry/WalkOrderGenerator.h"

#include "geometry/GeomStack.h"
#include "geometry/ProgressInterface.h"
#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

namespace {

using GeometryStack2::GeomStack;
using SymmetryDetectionTBB::Polygons;
using Welk::WSymmetryPoints;

/// An nx by ny grid of quads in the plane, vertex (i, j) at i + j (nx + 1).
/// `skip` leaves quads out (holes).
GeomStack quadGrid(int nx, int ny, const std::set<std::pair<int, int>>& skip = {})
{
    QVector<QVector3D> vertices;
    for (int j = 0; j <= ny; ++j)
        for (int i = 0; i <= nx; ++i)
            vertices.append(QVector3D(float(i), float(j), 0.0f));
    QVector<QVector<int>> polygons;
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i)
            if (!skip.count({i, j})) {
                const int a = j * (nx + 1) + i;
                polygons.append({a, a + 1, a + nx + 2, a + nx + 1});
            }
    return TestSupport::polygonSoup(vertices, polygons);
}

QVector<QVector<int>> polygonsOf(const GeomStack& mesh)
{
    QVector<QVector<int>> polygons;
    for (int f = 0; f < mesh.polygonCount(); ++f)
        polygons.append(mesh.vertexIndices().mid(mesh.polygonOffsets()[f],
                                                 mesh.polygonOffsets()[f + 1] - mesh.polygonOffsets()[f]));
    return polygons;
}

/// Rotates a polygon's corner list so that it starts at its smallest index.
QVector<int> canonical(QVector<int> polygon)
{
    std::rotate(polygon.begin(), std::min_element(polygon.begin(), polygon.end()), polygon.end());
    return polygon;
}

/// Checks that `map` (0-based, one entry a vertex) is a mirror symmetry of
/// `mesh`: an involution onto all vertices, mapping edges to edges and each
/// polygon onto a polygon with the opposite winding.
void expectMirrorMap(const GeomStack& mesh, const QVector<int>& map)
{
    ASSERT_EQ(map.size(), mesh.vertexCount());
    for (int v = 0; v < map.size(); ++v) {
        ASSERT_GE(map[v], 0);
        ASSERT_LT(map[v], map.size());
        ASSERT_EQ(map[map[v]], v) << "not an involution at " << v;
    }
    std::set<QVector<int>> polygons;
    std::set<std::pair<int, int>> edges;
    for (const QVector<int>& p : polygonsOf(mesh)) {
        polygons.insert(canonical(p));
        for (int i = 0; i < p.size(); ++i)
            edges.insert({p[i], p[(i + 1) % p.size()]});
    }
    for (const QVector<int>& p : polygonsOf(mesh)) {
        QVector<int> image;
        for (auto it = p.rbegin(); it != p.rend(); ++it)
            image.append(map[*it]);
        ASSERT_TRUE(polygons.count(canonical(image))) << "a polygon's image with reversed winding is missing";
        for (int i = 0; i < p.size(); ++i) {
            const int a = map[p[i]], b = map[p[(i + 1) % p.size()]];
            ASSERT_TRUE(edges.count({b, a})) << "an edge does not map onto an edge";
        }
    }
}

QVector<int> detect(const GeomStack& mesh, QString* message = nullptr)
{
    WSymmetryPoints symmetry;
    symmetry.setGeometry(mesh.vertices(), mesh.polygonOffsets(), mesh.vertexIndices());
    symmetry.setSymmetryMode(WSymmetryPoints::TopologicalSymmetry);
    if (message)
        *message = symmetry.message();
    return symmetry.vertexMap();
}

TEST(SymmetryParts, DcelLinksTwinsAndReversesWinding)
{
    const Polygons polygons = {{1, 2, 3}, {1, 3, 4}};
    SymmetryDetectionTBB::DCEL given(polygons, true), reversed(polygons, false);
    EXPECT_EQ(given.maxVertexId(), 4);
    EXPECT_EQ(given.halfEdges().size(), 6u);
    ASSERT_TRUE(given.hasHalfEdge(1, 3));
    ASSERT_TRUE(given.hasHalfEdge(3, 1));
    EXPECT_EQ(given.halfEdge(1, 3)->twin, given.halfEdge(3, 1));
    EXPECT_EQ(given.halfEdge(1, 2)->twin, nullptr);
    EXPECT_EQ(given.halfEdge(1, 2)->next, given.halfEdge(2, 3));
    EXPECT_TRUE(reversed.hasHalfEdge(2, 1));
    EXPECT_FALSE(reversed.hasHalfEdge(1, 2));
    EXPECT_THROW(given.halfEdge(2, 4), std::out_of_range);
}

TEST(SymmetryParts, AdjacencyRowsAndCandidatePathsAreShortestPaths)
{
    const GeomStack grid = quadGrid(6, 5);
    const Polygons polygons = SymmetryDetectionTBB::extractFacesFromPolygons(grid.polygonOffsets(),
                                                                             grid.vertexIndices());
    SymmetryDetectionTBB::VertexAdjacency adjacency(polygons, grid.vertexCount());
    EXPECT_EQ(adjacency.count(), grid.vertexCount() + 1);
    const int centre = 2 * 7 + 3 + 1;
    EXPECT_EQ(adjacency.neighbours(centre).size(), 4);
    EXPECT_TRUE(adjacency.areAdjacent(centre, centre));
    EXPECT_TRUE(adjacency.areAdjacent(centre, centre + 1));
    EXPECT_FALSE(adjacency.areAdjacent(centre, centre + 8)); // diagonal of a quad
    EXPECT_FALSE(adjacency.areAdjacent(-1, centre));
    EXPECT_FALSE(adjacency.areAdjacent(1000, centre));

    // Grid distance is the L1 distance between (i, j) positions.
    auto distance = [](int a, int b) {
        --a, --b;
        return std::abs(a % 7 - b % 7) + std::abs(a / 7 - b / 7);
    };
    for (int limit : {3, 0}) {
        SymmetryDetectionTBB::PathGenerator generator(adjacency, centre, limit);
        SymmetryDetectionTBB::CandidatePath path;
        std::set<int> ends;
        int count = 0;
        while (generator.next(path)) {
            ++count;
            const auto [a, a1, b1, b] = path;
            EXPECT_EQ(a, centre);
            EXPECT_TRUE(adjacency.areAdjacent(a, a1));
            EXPECT_TRUE(adjacency.areAdjacent(b1, b));
            EXPECT_EQ(distance(a, b1) + 1, distance(a, b));
            if (limit == 3) {
                EXPECT_LE(distance(a, b), 2);
            }
            ends.insert(b);
        }
        // Without a limit every other vertex is an end; with 3, those within 2.
        EXPECT_EQ(int(ends.size()), limit == 0 ? grid.vertexCount() - 1 : 12);
        EXPECT_GE(count, int(ends.size()));
    }
}

TEST(SymmetryParts, WalkVisitsEveryVertexOnceAndCacheReplaysIt)
{
    const GeomStack grid = quadGrid(5, 4);
    const Polygons polygons = SymmetryDetectionTBB::extractFacesFromPolygons(grid.polygonOffsets(),
                                                                             grid.vertexIndices());
    SymmetryDetectionTBB::DCEL dcel(polygons, true);
    SymmetryDetectionTBB::WalkOrderGenerator walker(dcel);
    const QVector<int> order = walker.walkAll(8, 9);
    EXPECT_EQ(order.size(), grid.vertexCount());
    EXPECT_EQ(std::set<int>(order.begin(), order.end()).size(), size_t(grid.vertexCount()));
    EXPECT_EQ(order[0], 8);
    EXPECT_EQ(order[1], 9);
    // The same generator gives the same order again, and a replay equals it.
    EXPECT_EQ(walker.walkAll(8, 9), order);
    // The seed's cache stores a walk the second time it is asked for, and
    // replays the same order from then on.
    tbb::spin_mutex mutex;
    SymmetryDetectionTBB::SeedWalkCache cache(dcel, 8, mutex);
    walker.setCache(&cache);
    for (int round = 0; round < 3; ++round) {
        walker.start(8, 9);
        QVector<int> walked;
        int v = 0;
        while (walker.next(v))
            walked.append(v);
        EXPECT_EQ(walked, order) << round;
        EXPECT_EQ(cache.order(9) != nullptr, round >= 1) << round;
    }
    EXPECT_EQ(*cache.order(9), order);
    EXPECT_EQ(cache.order(2), nullptr);
    int v = 0;
    walker.start(2, 1); // a border edge: not a half-edge in this direction
    EXPECT_FALSE(walker.next(v));
}

TEST(TopologicalSymmetry, GridsWithAndWithoutAMiddleColumnAndWithHoles)
{
    for (int nx : {6, 7}) {
        const GeomStack grid = quadGrid(nx, 5);
        const QVector<int> map = detect(grid);
        SCOPED_TRACE(nx);
        expectMirrorMap(grid, map);
        int fixed = 0;
        for (int v = 0; v < map.size(); ++v)
            fixed += map[v] == v;
        // A mirror across the middle of the columns or of the rows: the
        // vertices on its plane map to themselves.
        EXPECT_TRUE(fixed == 0 || fixed == nx + 1 || fixed == 6) << fixed;
    }
    // Holes placed symmetrically keep the symmetry; the map respects them.
    const GeomStack holes = quadGrid(8, 5, {{1, 2}, {6, 2}, {3, 1}, {4, 1}});
    expectMirrorMap(holes, detect(holes));
}

TEST(TopologicalSymmetry, PositionsPlayNoPart)
{
    const GeomStack grid = quadGrid(7, 6, {{0, 3}, {6, 3}});
    QVector<QVector3D> posed = grid.vertices();
    std::mt19937 rng(1);
    std::normal_distribution<float> noise(0.0f, 0.8f);
    for (QVector3D& v : posed)
        v = QVector3D(v.x() * v.y() * 0.3f + noise(rng), std::sin(v.x()) + noise(rng), noise(rng));
    WSymmetryPoints symmetry;
    symmetry.setGeometry(posed, grid.polygonOffsets(), grid.vertexIndices());
    symmetry.setSymmetryMode(WSymmetryPoints::TopologicalSymmetry);
    ASSERT_EQ(symmetry.detectionState(), 0);
    expectMirrorMap(grid, symmetry.vertexMap());
}

TEST(TopologicalSymmetry, AsymmetricHolesPartsAndEmptyMeshesFailWithAMessage)
{
    QString message;
    // One hole off the middle breaks every mirror of the grid.
    EXPECT_TRUE(detect(quadGrid(6, 5, {{1, 1}, {4, 2}}), &message).isEmpty());
    EXPECT_EQ(message, QStringLiteral("Topological symmetry has not been detected."));
    EXPECT_TRUE(detect(quadGrid(6, 5, {{1, 1}}), &message).isEmpty());
    EXPECT_EQ(message, QStringLiteral("Mesh is composed of uneven number of polygons.\n"
                                      "Topology-based symmetry cannot be established."));

    // Two separate grids.
    const GeomStack a = quadGrid(2, 2);
    QVector<QVector<int>> polygons = polygonsOf(a);
    for (const QVector<int>& p : polygonsOf(a)) {
        QVector<int> shifted;
        for (int v : p)
            shifted.append(v + a.vertexCount());
        polygons.append(shifted);
    }
    const GeomStack two = TestSupport::polygonSoup(a.vertices() + a.vertices(), polygons);
    EXPECT_EQ(WSymmetryPoints::connectedParts(two.vertexCount(), two.polygonOffsets(), two.vertexIndices()), 2);
    EXPECT_TRUE(detect(two, &message).isEmpty());
    EXPECT_TRUE(message.startsWith(QStringLiteral("Mesh is composed of several parts.")));

    QVector<QVector<int>> result;
    EXPECT_FALSE(SymmetryDetectionTBB::detectTopologicalSymmetry(QVector<int>{}, QVector<int>{}, 1, result));
    EXPECT_EQ(result.size(), 2);
    const GeomStack none = TestSupport::polygonSoup({{0, 0, 0}}, {});
    EXPECT_TRUE(detect(none, &message).isEmpty());
    EXPECT_FALSE(message.isEmpty());
}

TEST(TopologicalSymmetry, ClosedShellFromTheEngineDirectly)
{
    // A cube: many mirrors; any one found must be a mirror map.
    const GeomStack cube = TestSupport::cube();
    QVector<QVector<int>> result;
    ASSERT_TRUE(SymmetryDetectionTBB::detectTopologicalSymmetry(cube.polygonOffsets(), cube.vertexIndices(), 4,
                                                                result));
    ASSERT_EQ(result.size(), 2);
    ASSERT_EQ(result[0].size(), 8);
    QVector<int> map(8, -1);
    for (int k = 0; k < 8; ++k)
        map[result[0][k] - 1] = result[1][k] - 1;
    expectMirrorMap(cube, map);
}

class StopAtOnce : public Welk::ProgressInterface
{
public:
    void start(const QString& label, long long) override { labels.append(label); }
    void setValue(long long value, const QString&) override { last = value; }
    void end() override { ++ended; }
    bool isCancelled() const override { return true; }
    QStringList labels;
    long long last = -1;
    int ended = 0;
};

TEST(WSymmetryPoints, ModeSignalsRunOnceAndStop)
{
    const GeomStack grid = quadGrid(6, 4);
    WSymmetryPoints symmetry;
    symmetry.setGeometry(grid.vertices(), grid.polygonOffsets(), grid.vertexIndices());
    QSignalSpy started(&symmetry, &WSymmetryPoints::symmDetectStarted);
    QSignalSpy finished(&symmetry, &WSymmetryPoints::symmDetectFinished);
    QSignalSpy state(&symmetry, &WSymmetryPoints::symmDetectState);
    EXPECT_EQ(symmetry.detectionState(), -1);

    // A stopped detection leaves nothing behind and may run again.
    StopAtOnce stop;
    symmetry.setSymmetryMode(WSymmetryPoints::TopologicalSymmetry, &stop);
    EXPECT_EQ(symmetry.detectionState(), -1);
    EXPECT_EQ(stop.labels, QStringList{QStringLiteral("Detecting symmetry...")});
    EXPECT_EQ(stop.ended, 1);
    EXPECT_EQ(stop.last, 100);

    symmetry.setSymmetryMode(WSymmetryPoints::NoSymmetry);
    int mirrored = -1;
    EXPECT_FALSE(symmetry.mirrorVertex(0, mirrored));
    symmetry.setSymmetryMode(WSymmetryPoints::TopologicalSymmetry);
    ASSERT_EQ(symmetry.detectionState(), 0);
    symmetry.setSymmetryMode(WSymmetryPoints::NoSymmetry);
    symmetry.setSymmetryMode(WSymmetryPoints::TopologicalSymmetry);
    EXPECT_EQ(started.count(), 2);
    EXPECT_EQ(finished.count(), 2);
    ASSERT_EQ(state.count(), 5);
    EXPECT_EQ(state.last().at(0).toInt(), 0);
    EXPECT_TRUE(symmetry.mirrorVertex(0, mirrored));
    EXPECT_TRUE(symmetry.mirrorVertex(mirrored, mirrored));
    EXPECT_EQ(mirrored, 0);
    EXPECT_FALSE(symmetry.mirrorVertex(-1, mirrored));

    // A failed search is not repeated on the next switch.
    WSymmetryPoints none;
    const GeomStack broken = quadGrid(6, 5, {{1, 1}, {4, 2}});
    none.setGeometry(broken.vertices(), broken.polygonOffsets(), broken.vertexIndices());
    QSignalSpy noneStarted(&none, &WSymmetryPoints::symmDetectStarted);
    none.setSymmetryMode(WSymmetryPoints::TopologicalSymmetry);
    none.setSymmetryMode(WSymmetryPoints::TopologicalSymmetry);
    EXPECT_EQ(noneStarted.count(), 1);
    EXPECT_EQ(none.detectionState(), 1);
}

TEST(TopologicalSymmetryData, SymmetricModelsInPosesOfTheirOwn)
{
    for (const char* file : {"spot/spot_quadrangulated.obj", "meshmonk-face/SIMPOP_01.obj",
                             "meshmonk-face/Template.obj"}) {
        const QString path = TestSupport::sharedDataFile(QString::fromLatin1(file));
        ZWELK_REQUIRE_DATA(path);
        SCOPED_TRACE(file);
        QString error;
        const GeomStack mesh(path, error);
        ASSERT_TRUE(error.isEmpty()) << error.toStdString();
        QString message;
        const QVector<int> map = detect(mesh, &message);
        ASSERT_FALSE(map.isEmpty()) << message.toStdString();
        expectMirrorMap(mesh, map);
    }
}

TEST(TopologicalSymmetryData, AnAsymmetricScanIsRefused)
{
    const QString path = TestSupport::sharedDataFile(QStringLiteral("fastrnrr-human/source.obj"));
    ZWELK_REQUIRE_DATA(path);
    QString error;
    const GeomStack mesh(path, error);
    ASSERT_TRUE(error.isEmpty());
    QString message;
    EXPECT_TRUE(detect(mesh, &message).isEmpty());
    EXPECT_EQ(message, QStringLiteral("Topological symmetry has not been detected."));
}

} // namespace
