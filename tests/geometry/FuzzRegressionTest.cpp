// Inputs the fuzzers of tests/fuzz found problems with, read the way the
// fuzz targets read them. Each must fail cleanly; under scripts/sanitize.sh
// a leak or a bad access fails the test as well.
#include "support/TestFiles.h"

#include "geometry/GeomStackTriangulated.h"
#include "geometry/GoZFile.h"
#include "geometry/GoZMeshConversion.h"

#include <gtest/gtest.h>

#include <QDir>

using namespace GeometryStack2;

namespace {

QStringList regressionFiles(const QString& format)
{
    const QDir dir(QStringLiteral(ZWELK_FUZZ_REGRESSIONS) + QLatin1Char('/') + format);
    QStringList paths;
    for (const QString& name : dir.entryList(QDir::Files, QDir::Name))
        paths << dir.filePath(name);
    return paths;
}

} // namespace

TEST(FuzzRegressions, GoZFilesFailWithAReason)
{
    const QStringList files = regressionFiles(QStringLiteral("goz"));
    ASSERT_FALSE(files.isEmpty());
    for (const QString& path : files) {
        SCOPED_TRACE(path.toStdString());
        GoZFile goz;
        const bool read = goz.read(path);
        EXPECT_EQ(read, goz.readError().isEmpty());
        if (!read)
            continue;
        GoZMesh mesh;
        QString error;
        if (goz.vertexCount > 0 && goz.polygonCount > 0 && meshFromGoZ(goz, mesh, error)) {
            EXPECT_EQ(mesh.lists.vertices.size(), goz.vertexCount);
        }
    }
}

TEST(FuzzRegressions, TextChunkLargerThanTheFileIsRefused)
{
    // Its size field promises 1.2 GB: the reader must not try to read them.
    GoZFile goz;
    EXPECT_FALSE(goz.read(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/goz/huge-text-chunk-size.GoZ")));
    EXPECT_EQ(goz.readError(), QStringLiteral("the file ends inside chunk 1, or the chunk's size is wrong"));
}

TEST(FuzzRegressions, ShortColourChunkWritesBackReadable)
{
    // One colour for five vertices: written back, the chunk must not claim five.
    GoZFile goz;
    ASSERT_TRUE(goz.read(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/goz/short-colour-chunk.GoZ"))) << goz.readError().toStdString();
    ASSERT_EQ(goz.vertexColors.size(), 1u);
    const QString back = QDir::temp().filePath(QStringLiteral("zwelk-short-colour-back.GoZ"));
    ASSERT_TRUE(goz.write(back));
    GoZFile again;
    EXPECT_TRUE(again.read(back)) << again.readError().toStdString();
    EXPECT_EQ(again.vertices, goz.vertices);
    EXPECT_EQ(again.polygons, goz.polygons);
    EXPECT_EQ(again.vertexColors, goz.vertexColors);
    QFile::remove(back);
}

TEST(FuzzRegressions, ShortUvChunkWritesBackReadable)
{
    // UVs of one triangle for three (found by fuzz_goz): written back, the UV
    // chunk claimed three triangles and the file no longer read.
    GoZFile goz;
    ASSERT_TRUE(goz.read(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/goz/short-uv-chunk.GoZ"))) << goz.readError().toStdString();
    ASSERT_EQ(goz.polygonCount, 3);
    ASSERT_EQ(goz.uvs.size(), size_t(GoZFile::uvFloatsPerPolygon(goz.uvTag)));
    const QString back = QDir::temp().filePath(QStringLiteral("zwelk-short-uv-back.GoZ"));
    ASSERT_TRUE(goz.write(back));
    GoZFile again;
    EXPECT_TRUE(again.read(back)) << again.readError().toStdString();
    EXPECT_EQ(again.vertices, goz.vertices);
    EXPECT_EQ(again.polygons, goz.polygons);
    EXPECT_EQ(again.uvs, goz.uvs);
    QFile::remove(back);
}

TEST(FuzzRegressions, ObjFilesThroughBothLoaders)
{
    const QStringList files = regressionFiles(QStringLiteral("obj"));
    ASSERT_FALSE(files.isEmpty());
    for (const QString& path : files) {
        for (int loader : {int(GeomStack::PlainLoader), int(GeomStack::GraphLoader)}) {
            SCOPED_TRACE(path.toStdString() + " loader " + std::to_string(loader));
            QString error;
            const GeomStackTriangulated mesh(path, error, nullptr, loader);
            if (error.isEmpty()) {
                EXPECT_GT(mesh.vertexCount(), 0);
                EXPECT_GT(mesh.polygonCount(), 0);
            }
        }
    }
}

TEST(FuzzRegressions, GraphReaderFailingMidwayReportsTheLine)
{
    // A wrong vertex line cancels the graph with chunks' counts in flight.
    QString error;
    const GeomStack mesh(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/obj/count-left-in-cancelled-graph.obj"), error,
                         nullptr, GeomStack::GraphLoader);
    EXPECT_TRUE(error.startsWith(QStringLiteral("Wrong "))) << error.toStdString();
}
