#include "StepMeshes.h"

#include "support/TestFiles.h"

#include "steps/points/LandmarkFile.h"
#include "steps/points/SurfaceDistance.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <limits>
#include <random>

using namespace WelkPlugin;

namespace {

/// The nearest surface point by testing every triangle at many barycentric
/// samples plus its corners and edges: slow, obviously right, and close
/// to the exact distance for the sample density used.
float bruteForceDistance(const QVector3D& p, const GeometryStack2::GeomStackTriangulated& mesh)
{
    const QVector<int>& t = mesh.triangleVertexIndices();
    const QVector<QVector3D>& v = mesh.vertices();
    float best = std::numeric_limits<float>::max();
    const int n = 60;
    for (int i = 0; i + 2 < t.size(); i += 3)
        for (int a = 0; a <= n; ++a)
            for (int b = 0; a + b <= n; ++b) {
                const float u = float(a) / n, w = float(b) / n;
                const QVector3D q = u * v[t[i]] + w * v[t[i + 1]] + (1 - u - w) * v[t[i + 2]];
                best = std::min(best, (q - p).length());
            }
    return best;
}

} // namespace

TEST(LandmarkFile, ReadsCommaAndBlankSeparatedRowsWithHeaderAndComments)
{
    QTemporaryDir dir;
    const QString csv = dir.filePath(QStringLiteral("a.csv"));
    ASSERT_TRUE(TestSupport::writeFile(csv, "x,y,z\n-15.647,37.001,14.34\r\n\n# nose\n1e1;2;3;extra\n"));
    QVector<QVector3D> positions;
    QString error;
    ASSERT_TRUE(LandmarkFile::readPositions(csv, positions, error)) << error.toStdString();
    ASSERT_EQ(positions.size(), 2);
    EXPECT_EQ(positions[0], QVector3D(-15.647f, 37.001f, 14.34f));
    EXPECT_EQ(positions[1], QVector3D(10, 2, 3));

    const QString blank = dir.filePath(QStringLiteral("b.txt"));
    ASSERT_TRUE(TestSupport::writeFile(blank, "  1 2 3\n4\t5\t6\n"));
    ASSERT_TRUE(LandmarkFile::readPositions(blank, positions, error));
    EXPECT_EQ(positions.size(), 2);
}

TEST(LandmarkFile, BadRowsNameTheFileAndLine)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("bad.csv"));
    QVector<QVector3D> positions{{9, 9, 9}};
    QString error;
    for (const QByteArray& text : {QByteArray("1,2,3\n4,5\n"), QByteArray("1,2,3\n4,nan,6\n"),
                                   QByteArray("1,2,3\n4,1e39,6\n"), QByteArray("1,2,3\n[0, 0.5, 0.5]\n")}) {
        ASSERT_TRUE(TestSupport::writeFile(path, text));
        EXPECT_FALSE(LandmarkFile::readPositions(path, positions, error)) << text.constData();
        EXPECT_TRUE(error.contains(path)) << error.toStdString();
        EXPECT_TRUE(error.contains(QStringLiteral("line 2"))) << error.toStdString();
    }
    EXPECT_EQ(positions, QVector<QVector3D>{QVector3D(9, 9, 9)}) << "left alone on failure";
    ASSERT_TRUE(TestSupport::writeFile(path, "# nothing\n"));
    EXPECT_FALSE(LandmarkFile::readPositions(path, positions, error));
    EXPECT_FALSE(LandmarkFile::readPositions(dir.filePath(QStringLiteral("missing.csv")), positions, error));
    EXPECT_TRUE(error.contains(QStringLiteral("missing.csv")));
}

TEST(LandmarkFile, ProjectionFindsTheNearestSurfacePoint)
{
    // A coarse sphere: flat facets, long edges, and points inside, outside
    // and far away.
    const auto mesh = StepMeshes::sphere(5, 2.0f, {1, 0, 0});
    std::mt19937 random(7);
    std::uniform_real_distribution<float> coordinate(-4.0f, 5.0f);
    QVector<QVector3D> positions{{1, 0, 0}, {1, 0, 2.5f}, {40, 3, -2}};
    for (int i = 0; i < 40; ++i)
        positions.append(QVector3D(coordinate(random), coordinate(random), coordinate(random)));
    const LandmarkFile::Projected projected =
        LandmarkFile::projectOntoSurface(positions, mesh.vertices(), mesh.triangleVertexIndices());
    ASSERT_EQ(projected.points.size(), positions.size());
    for (int i = 0; i < positions.size(); ++i) {
        const Welk::WPointOnTriangle& p = projected.points[i];
        ASSERT_TRUE(p.isValid());
        EXPECT_GE(p.u, -1e-5f);
        EXPECT_GE(p.v, -1e-5f);
        EXPECT_LE(p.u + p.v, 1.0f + 1e-5f);
        const QVector3D onSurface = p.position(mesh.vertices(), mesh.triangleVertexIndices());
        EXPECT_NEAR((onSurface - positions[i]).length(), projected.distances[i], 1e-3f);
        // Never farther than the sampled brute force, and not much nearer
        // than its sampling allows.
        const float brute = bruteForceDistance(positions[i], mesh);
        EXPECT_LE(projected.distances[i], brute + 1e-4f) << i;
        EXPECT_GE(projected.distances[i], brute - 0.03f) << i;
    }
}

TEST(SurfaceDistance, FastDistanceMatchesExactOnAnEvenMesh)
{
    const auto mesh = StepMeshes::sphere(16, 1.0f);
    const SurfaceDistance surface(mesh.vertices(), mesh.triangleVertexIndices());
    for (const QVector3D& p : {QVector3D(0.3f, 0.2f, 1.4f), QVector3D(-2, 0, 0), QVector3D(0.1f, 0.1f, 0.1f)}) {
        float exact = 0;
        surface.closestPoint(p, &exact);
        EXPECT_NEAR(surface.distance(p), exact, 1e-4f);
    }
    const SurfaceDistance::Summary s = surface.summarize(mesh.vertices());
    EXPECT_EQ(s.count, mesh.vertexCount());
    EXPECT_LT(s.max, 1e-5);
}
