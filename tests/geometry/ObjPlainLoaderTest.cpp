#include "support/TestFiles.h"

#include "geometry/GeomStackTriangulated.h"
#include "geometry/ObjNumberParser.h"
#include "geometry/ProgressInterface.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include <QTemporaryDir>

#include <cmath>
#include <cstring>

using namespace GeometryStack2;

namespace {

class ObjPlainLoaderTest : public ::testing::Test
{
protected:
    GeomStack load(const QByteArray& text, QString& error)
    {
        const QString path = m_dir.filePath(QStringLiteral("mesh.obj"));
        EXPECT_TRUE(TestSupport::writeFile(path, text));
        return GeomStack(path, error, nullptr, GeomStack::PlainLoader);
    }
    QString errorOf(const QByteArray& text)
    {
        QString error;
        load(text, error);
        return error;
    }
    QTemporaryDir m_dir;
};

float parse(const char* text)
{
    return parseObjFloat(text, text + std::strlen(text));
}

} // namespace

TEST(ObjNumberParser, ParsesTheFormsOfObjFiles)
{
    EXPECT_FLOAT_EQ(parse("1"), 1.0f);
    EXPECT_FLOAT_EQ(parse("-2.5"), -2.5f);
    EXPECT_FLOAT_EQ(parse("+.5"), 0.5f);
    EXPECT_FLOAT_EQ(parse("1.25e2"), 125.0f);
    EXPECT_FLOAT_EQ(parse("-3E-2"), -0.03f);
    EXPECT_NEAR(parse("0.1234567"), 0.1234567f, 1e-6f);
    // A tail of number characters is skipped; anything else is NaN.
    EXPECT_FLOAT_EQ(parse("1.5.3"), 1.5f);
    EXPECT_TRUE(std::isnan(parse("1.5x")));
    EXPECT_TRUE(std::isnan(parse("nan")));
    const char* integer = "  -42";
    EXPECT_EQ(parseObjInt(integer, integer + 5), -42);
    const char* none = "abc";
    EXPECT_EQ(parseObjInt(none, none + 3), 0);
}

TEST(ObjNumberParser, RoundsEveryDecimalToTheNearestFloat)
{
    // The nearest float to a decimal, judged against both neighbours in
    // long double: a parser that accumulates in float misses by some units
    // in the last place on values like these.
    const auto expectNearest = [](const char* text) {
        const float parsed = parse(text);
        const long double exact = std::strtold(text, nullptr);
        const long double error = std::fabs(static_cast<long double>(parsed) - exact);
        EXPECT_LE(error, std::fabs(static_cast<long double>(std::nextafter(parsed, INFINITY)) - exact)) << text;
        EXPECT_LE(error, std::fabs(static_cast<long double>(std::nextafter(parsed, -INFINITY)) - exact)) << text;
    };
    for (const char* text : {"0.79029", "-0.79029", "123.456789", "0.000123456", "9.87654321e-5", "16777217",
                             "3.4028234e38", "1.17549435e-38", "0.1", "-7.000001"})
        expectNearest(text);
    std::mt19937 random(14);
    std::uniform_real_distribution<double> value(-1000.0, 1000.0);
    char text[64];
    for (int i = 0; i < 2000; ++i) {
        std::snprintf(text, sizeof text, "%.*f", 1 + i % 7, value(random));
        expectNearest(text);
        // Nine significant digits carry a float exactly.
        const float f = float(value(random)) * std::pow(10.0f, float(i % 9 - 4));
        std::snprintf(text, sizeof text, "%.9g", double(f));
        EXPECT_EQ(parse(text), f) << text;
    }
    EXPECT_EQ(parse("1e39"), INFINITY);
    EXPECT_EQ(parse("-1e39"), -INFINITY);
    EXPECT_EQ(parse("1e-50"), 0.0f);
    EXPECT_EQ(parse("-"), 0.0f);
}

TEST_F(ObjPlainLoaderTest, ReadsAllCornerFormsGroupsAndMaterials)
{
    QString error;
    const GeomStack mesh = load("mtllib a.mtl b.mtl\n"
                                "v 0 0 0\nv 1 0 0 0.5 0.5 0.5\nv 1 1 0\nv 0 1 0\n"
                                "vt 0 0\nvt 1 0 7\nvt 1 1\nvt 0 1\n"
                                "vn 0 0 1\n"
                                "f 1/1 2/2 3/3\n"
                                "g body skin\n"
                                "usemtl clay\n"
                                "f 1/1/1 3/3/1 4/4/1\n"
                                "g other\n"
                                "f 1/4 2/3 3/2 4/1\n"
                                "g body\n"
                                "usemtl clay\n"
                                "f 4/1 3/2 2/3",
                                error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_EQ(mesh.vertexCount(), 4);
    EXPECT_EQ(mesh.texCoordCount(), 4);
    EXPECT_EQ(mesh.polygonSizes(), (QVector<int>{3, 3, 4, 3}));
    EXPECT_EQ(mesh.polygonOffsets(), (QVector<int>{0, 3, 6, 10, 13}));
    EXPECT_EQ(mesh.vertexIndices(), (QVector<int>{0, 1, 2, 0, 2, 3, 0, 1, 2, 3, 3, 2, 1}));
    EXPECT_EQ(mesh.texCoordIndices(), (QVector<int>{0, 1, 2, 0, 2, 3, 3, 2, 1, 0, 0, 1, 2}));
    EXPECT_EQ(mesh.polygroupIds(), (QVector<int>{-1, 0, 1, 0}));
    EXPECT_EQ(mesh.polygroupNames(), (QStringList{QStringLiteral("body"), QStringLiteral("other")}));
    EXPECT_EQ(mesh.materialIds(), (QVector<int>{-1, 0, 0, 0}));
    EXPECT_EQ(mesh.materialNames(), QStringList{QStringLiteral("clay")});
    EXPECT_EQ(mesh.mtllib(), QStringLiteral("a.mtl b.mtl"));
    EXPECT_EQ(mesh.normals().size(), 4);
}

TEST_F(ObjPlainLoaderTest, WrongLinesAreNamedByTheirLineCountedFromZero)
{
    EXPECT_EQ(errorOf("v 0 0 0\n\nv 1 2\n"), QStringLiteral("Wrong vertex coordinate in line 2"));
    EXPECT_EQ(errorOf("v 0 0 0\nvt 1\n"), QStringLiteral("Wrong texture coordinate in line 1"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\n# two corners\nf 1 2\n"), QStringLiteral("Wrong face in line 3"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 /2 3\n"), QStringLiteral("Wrong vertex index in line 3"));
    EXPECT_EQ(errorOf("v 0 0 0\nusemtl\n"), QStringLiteral("Wrong material name in line: 1"));
    EXPECT_EQ(errorOf("mtllib\n"), QStringLiteral("Wrong material library name in line: 0"));
}

TEST_F(ObjPlainLoaderTest, IndexProblemsAreLeftToTheMeshValidation)
{
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf -1 -2 -3\n"), QStringLiteral("Vertex index can not be negative"));
    // Index 0 is stored as -1.
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf 0 1 2\n"), QStringLiteral("Vertex index can not be negative"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 4\n"),
              QStringLiteral("Invalid vertex index 3 The model only has 3 vertices."));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/2\n"),
              QStringLiteral("Invalid texture coordinate index 1 The model only has 1 texture coordinates."));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/1\nf 1 2 3\n"),
              QStringLiteral("File contains both: polygons with attached textures and polygons without them"));
}

TEST_F(ObjPlainLoaderTest, EmptyFilesAndMissingFilesSayWhy)
{
    EXPECT_EQ(errorOf(""), QStringLiteral("The file contains no vertices"));
    EXPECT_EQ(errorOf("v 1 2 3\n"), QStringLiteral("The file contains no polygons"));
    QString error;
    const GeomStack missing(m_dir.filePath(QStringLiteral("none.obj")), error, nullptr, GeomStack::PlainLoader);
    EXPECT_TRUE(error.startsWith(QStringLiteral("Can not load file: ")));
}

TEST_F(ObjPlainLoaderTest, SkipsLinesWithMultiByteCharactersAndReadsCrLf)
{
    QString error;
    const GeomStack mesh = load("v 0 0 0\r\nv 1 0 0\r\ng gr\xc3\xbc\x6e\r\nv 0 1 0\r\nf 1 2 3", error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_EQ(mesh.polygroupNames(), QStringList());
    EXPECT_EQ(mesh.vertexIndices(), (QVector<int>{0, 1, 2}));
}

TEST_F(ObjPlainLoaderTest, ReportsProgressInPercent)
{
    struct Recorder : Welk::ProgressInterface
    {
        QStringList labels;
        long long last = -1, maximum = 0;
        void start(const QString& label, long long max) override
        {
            labels << label;
            maximum = max;
        }
        void setValue(long long value, const QString&) override { last = value; }
        void end() override { labels << QStringLiteral("end"); }
    } progress;
    const QString path = m_dir.filePath(QStringLiteral("p.obj"));
    QByteArray text;
    for (int i = 0; i < 2000; ++i)
        text += "v 0 0 0\n";
    text += "f 1 2 3\n";
    ASSERT_TRUE(TestSupport::writeFile(path, text));
    QString error;
    const GeomStack mesh(path, error, &progress, GeomStack::PlainLoader);
    EXPECT_EQ(progress.labels, (QStringList{QStringLiteral("Loading obj file"), QStringLiteral("end")}));
    EXPECT_EQ(progress.maximum, 100);
    EXPECT_EQ(progress.last, 100);
}

TEST(ObjPlainLoaderData, ReadsRealFilesWithTheirPublishedCounts)
{
    struct Expected
    {
        const char* file;
        int vertices, polygons, texCoords;
    };
    const Expected files[] = {
        {"meshmonk-face/Template.obj", 7160, 14050, 7160},
        {"ict-face/generic_neutral_mesh.obj", 26719, 26384, 28911},
        {"amm-cat/source.obj", 16127, 30735, 0},
    };
    for (const Expected& e : files) {
        const QString path = TestSupport::sharedDataFile(QLatin1String(e.file));
        ZWELK_REQUIRE_DATA(path);
        QString error;
        const GeomStackTriangulated mesh(path, error, nullptr, GeomStack::PlainLoader);
        ASSERT_TRUE(error.isEmpty()) << e.file << ": " << error.toStdString();
        EXPECT_EQ(mesh.vertexCount(), e.vertices) << e.file;
        EXPECT_EQ(mesh.polygonCount(), e.polygons) << e.file;
        EXPECT_EQ(mesh.texCoordCount(), e.texCoords) << e.file;
        EXPECT_GE(mesh.triangleCount(), mesh.polygonCount()) << e.file;
    }
}
