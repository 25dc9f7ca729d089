// Spline files: the four forms through a round trip, files written by hand
// (as another program would), and every header and spline message.
#include "SplineTestMeshes.h"

#include "steps/splines/SplineFile.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

using namespace WelkPlugin;
using Welk::WPointOnTriangle;

namespace {

class SplineFileTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mesh = SplineTestMeshes::grid(6, 4, {}, [](float x, float y) { return 0.1f * x * y; });
        lookup = makeClosestPointLookup(mesh);
        splines.insert(QStringLiteral("lip"), {SplineTestMeshes::locate(mesh, 0.5f, 0.5f),
                                               SplineTestMeshes::locate(mesh, 2.25f, 1.75f),
                                               SplineTestMeshes::locate(mesh, 5.5f, 3.2f)});
        splines.insert(QStringLiteral("brow"), {SplineTestMeshes::locate(mesh, 1.1f, 3.9f),
                                                SplineTestMeshes::locate(mesh, 4.0f, 2.0f)});
        splines.insert(QStringLiteral("empty"), {});
        order = QStringList{QStringLiteral("lip"), QStringLiteral("empty"), QStringLiteral("brow")};
    }

    /// Reads a document given as text.
    bool readText(const QByteArray& text, SplineFile::Form form, SplineFile::Contents& contents, QString& error)
    {
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
        EXPECT_EQ(parseError.error, QJsonParseError::NoError) << text.toStdString();
        return SplineFile::readDocument(document, form, mesh, lookup, contents, error);
    }

    QString errorOf(const QByteArray& text, SplineFile::Form form)
    {
        SplineFile::Contents contents;
        contents.order = QStringList{QStringLiteral("untouched")};
        QString error;
        EXPECT_FALSE(readText(text, form, contents, error)) << text.toStdString();
        EXPECT_EQ(contents.order, QStringList{QStringLiteral("untouched")});
        return error;
    }

    GeometryStack2::GeomStackTriangulated mesh;
    ClosestPointLookup lookup;
    SplineMap splines;
    QStringList order;
    QTemporaryDir dir;
};

TEST_F(SplineFileTest, EveryFormRoundTrips)
{
    for (int f = 0; f < 4; ++f) {
        const auto form = SplineFile::Form(f);
        SCOPED_TRACE(SplineFile::formNames()[f].toStdString());
        const QString path = dir.filePath(QStringLiteral("splines%1.json").arg(f));
        QString error;
        ASSERT_TRUE(SplineFile::write(path, splines, order, form, mesh, error)) << error.toStdString();
        SplineFile::Contents read;
        ASSERT_TRUE(SplineFile::read(path, form, mesh, lookup, read, error)) << error.toStdString();
        ASSERT_EQ(read.splines.size(), 3);

        // Named forms keep names; the others keep the list order under
        // generated names.
        QStringList expectedNames = order;
        if (!SplineFile::isNamed(form))
            for (int i = 0; i < order.size(); ++i)
                expectedNames[i] = SplineFile::generatedNamePrefix() + QString::number(i + 1);
        for (int i = 0; i < order.size(); ++i) {
            const QVector<WPointOnTriangle>& original = splines[order[i]];
            ASSERT_TRUE(read.splines.contains(expectedNames[i]));
            const QVector<WPointOnTriangle>& back = read.splines[expectedNames[i]];
            ASSERT_EQ(back.size(), original.size());
            for (int k = 0; k < original.size(); ++k) {
                if (SplineFile::isOnTriangles(form)) {
                    EXPECT_EQ(back[k], original[k]);
                } else {
                    // Positions come back through the closest-point search.
                    EXPECT_LT((SplineTestMeshes::at(mesh, back[k]) - SplineTestMeshes::at(mesh, original[k])).length(),
                              1e-4f);
                }
            }
        }
        if (!SplineFile::isNamed(form)) {
            EXPECT_EQ(read.order, expectedNames);
        }
        SplineFile::Form detected;
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        ASSERT_TRUE(SplineFile::detectForm(QJsonDocument::fromJson(file.readAll()), detected, error));
        EXPECT_EQ(detected, form);
    }
}

TEST_F(SplineFileTest, ReadsFilesWrittenByHand)
{
    SplineFile::Contents contents;
    QString error;
    ASSERT_TRUE(readText(R"({"formatVersion": 1, "splines": {"a": [[0, 0.25, 0.5], [47, 1, 0]], "b": []}})",
                         SplineFile::NamedPointsOnTriangles, contents, error))
        << error.toStdString();
    ASSERT_EQ(contents.splines.size(), 2);
    EXPECT_EQ(contents.splines["a"], (QVector<WPointOnTriangle>{{0, 0.25f, 0.5f}, {47, 1.0f, 0.0f}}));
    EXPECT_TRUE(contents.splines["b"].isEmpty()); // an empty array is a spline without points

    ASSERT_TRUE(readText(R"({"splines": [[{"x": 3, "y": 2, "z": 10}], []], "formatVersion": 1.0})",
                         SplineFile::Points3D, contents, error))
        << error.toStdString();
    ASSERT_EQ(contents.order.size(), 2);
    const WPointOnTriangle p = contents.splines[contents.order[0]].value(0);
    ASSERT_TRUE(p.isValid());
    // (3, 2) lies on the surface at z = 0.6; the nearest surface point of
    // (3, 2, 10) is where the normal through it meets the surface, so just
    // check it lies on the mesh and is nearer than the vertex below.
    const QVector3D onSurface = SplineTestMeshes::at(mesh, p);
    EXPECT_LT((onSurface - QVector3D(3, 2, 10)).length(), (QVector3D(3, 2, 0.6f) - QVector3D(3, 2, 10)).length() + 1e-4f);
}

TEST_F(SplineFileTest, HeaderMessages)
{
    using F = SplineFile::Form;
    EXPECT_EQ(errorOf("[1, 2]", F::NamedPointsOnTriangles), QStringLiteral("Json document is not an object"));
    EXPECT_EQ(errorOf(R"({"splines": {}})", F::NamedPointsOnTriangles),
              QStringLiteral("Json document doesn't contain \"formatVersion\""));
    EXPECT_EQ(errorOf(R"({"formatVersion": "1", "splines": {}})", F::NamedPointsOnTriangles),
              QStringLiteral("\"formatVersion\" doesn't contain number"));
    EXPECT_EQ(errorOf(R"({"formatVersion": 0, "splines": {}})", F::NamedPointsOnTriangles),
              QStringLiteral("formatVersion 0 doesn't exist"));
    EXPECT_EQ(errorOf(R"({"formatVersion": 2, "splines": {}})", F::NamedPointsOnTriangles),
              QStringLiteral("formatVersion 2 is not supported in this Welk version"));
    EXPECT_EQ(errorOf(R"({"formatVersion": 1})", F::Points3D), QStringLiteral("Json document doesn't contain \"splines\""));
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": {"a": []}})", F::PointsOnTriangles),
              QStringLiteral("\"splines\" is not array"));
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": [[]]})", F::NamedPoints3D),
              QStringLiteral("\"splines\" is not an object"));
}

TEST_F(SplineFileTest, SplineMessages)
{
    using F = SplineFile::Form;
    const int triangles = mesh.triangleCount();
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": {"": []}})", F::NamedPointsOnTriangles),
              QStringLiteral("Spline cannot have an empty name"));
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": {"a": [[0, 0.5]]}})", F::NamedPointsOnTriangles),
              QStringLiteral("Failed to parse a spline"));
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": {"a": 5}})", F::NamedPoints3D),
              QStringLiteral("Failed to parse a spline"));
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": {"a": [{"x": 1, "y": 2}]}})", F::NamedPoints3D),
              QStringLiteral("Failed to parse a spline"));
    // A 3D form read as points on triangles fails on the points, not the header.
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": [[], [{"x": 1, "y": 2, "z": 0}]]})", F::PointsOnTriangles),
              QStringLiteral("Failed to parse spline with index 1"));
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": [[[0, "a", 0]]]})", F::PointsOnTriangles),
              QStringLiteral("Failed to parse spline with index 0"));

    // Another mesh's file: the first index out of range names itself.
    EXPECT_EQ(errorOf(QStringLiteral(R"({"formatVersion": 1, "splines": {"jaw": [[0, 0, 0], [%1, 0, 0], [-1, 0, 0]]}})")
                          .arg(triangles)
                          .toUtf8(),
                      F::NamedPointsOnTriangles),
              QStringLiteral("Spline jaw has incorrect point index. Has spline point on inexistent triangle with index %1")
                  .arg(triangles));
    EXPECT_EQ(errorOf(R"({"formatVersion": 1, "splines": [[[1, 0, 0]], [[-3, 0, 0]]]})", F::PointsOnTriangles),
              QStringLiteral("Spline with index 1 has incorrect point index. Has spline point on triangle with index < 0"));
    SplineFile::Contents contents;
    QString error;
    EXPECT_TRUE(readText(QStringLiteral(R"({"formatVersion": 1, "splines": [[[%1, 0, 0]]]})").arg(triangles - 1).toUtf8(),
                         F::PointsOnTriangles, contents, error));
}

TEST_F(SplineFileTest, FileAndExportMessages)
{
    SplineFile::Contents contents;
    QString error;
    EXPECT_FALSE(SplineFile::read(dir.filePath(QStringLiteral("none.json")), SplineFile::PointsOnTriangles, mesh, lookup,
                                  contents, error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("File doesn't exist: \""))) << error.toStdString();
    QFile broken(dir.filePath(QStringLiteral("broken.json")));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("{\"formatVersion\": 1, ");
    broken.close();
    EXPECT_FALSE(SplineFile::read(broken.fileName(), SplineFile::PointsOnTriangles, mesh, lookup, contents, error));
    EXPECT_FALSE(error.isEmpty());

    const QString path = dir.filePath(QStringLiteral("out.json"));
    EXPECT_FALSE(SplineFile::write(path, {}, {}, SplineFile::NamedPointsOnTriangles, mesh, error));
    EXPECT_EQ(error, QStringLiteral("Missing splines"));
    EXPECT_FALSE(SplineFile::write(path, splines, order, SplineFile::NamedPointsOnTriangles,
                                   GeometryStack2::GeomStackTriangulated(), error));
    EXPECT_EQ(error, QStringLiteral("Missing geometry"));
    SplineMap off = splines;
    off[QStringLiteral("brow")].append(WPointOnTriangle{mesh.triangleCount(), 0, 0});
    EXPECT_FALSE(SplineFile::write(path, off, order, SplineFile::Points3D, mesh, error));
    EXPECT_EQ(error, QStringLiteral("Spline control points are located on triangles that are not contained in the geometry"));
    EXPECT_FALSE(QFile::exists(path));
}

} // namespace
