// zwelk-batch welk with spline files: a generated pair pulls a region of a
// plane sideways, which only the splines can tell the fit; and the
// command-line and file mistakes.
#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include "geometry/GeomStack.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

namespace {

struct WelkRun
{
    int code = -1;
    QString out;
    QString err;
};

WelkRun welk(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(ZWELK_BATCH_PROGRAM), QStringList{QStringLiteral("welk")} + arguments);
    EXPECT_TRUE(process.waitForFinished(300000));
    return {process.exitCode(), QString::fromLocal8Bit(process.readAllStandardOutput()),
            QString::fromLocal8Bit(process.readAllStandardError())};
}

/// A square grid of n by n quads over [lo, hi] in x and y, at z = 0.
QString writePlane(const QTemporaryDir& dir, const QString& name, int n, float lo, float hi)
{
    QVector<QVector3D> vertices;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i)
            vertices.append(QVector3D(lo + (hi - lo) * float(i) / float(n), lo + (hi - lo) * float(j) / float(n), 0.0f));
    QVector<QVector<int>> polygons;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const int a = j * (n + 1) + i;
            polygons.append({a, a + 1, a + n + 2, a + n + 1});
        }
    const QString path = dir.filePath(name);
    EXPECT_TRUE(TestSupport::polygonSoup(vertices, polygons).saveObj(path, false, false));
    return path;
}

QString writeText(const QTemporaryDir& dir, const QString& name, const QByteArray& text)
{
    QFile file(dir.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
    return file.fileName();
}

/// Mean x of the result's vertices within the band the splines run through
/// on the base (x = 3, 3 <= y <= 7).
double meanXNearBaseSpline(const QString& resultPath, const QString& basePath)
{
    QString error;
    const GeometryStack2::GeomStack result(resultPath, error, nullptr, GeometryStack2::GeomStack::GraphLoader);
    EXPECT_TRUE(error.isEmpty()) << error.toStdString();
    const GeometryStack2::GeomStack base(basePath, error, nullptr, GeometryStack2::GeomStack::GraphLoader);
    double sum = 0;
    int count = 0;
    for (int v = 0; v < base.vertexCount(); ++v) {
        const QVector3D p = base.vertices()[v];
        if (std::abs(p.x() - 3.0f) < 0.01f && p.y() >= 3.0f && p.y() <= 7.0f) {
            sum += double(result.vertices()[v].x());
            ++count;
        }
    }
    EXPECT_GT(count, 3);
    return count ? sum / count : 0.0;
}

TEST(WelkSplines, ASplinePairPullsTheRegionItRunsThrough)
{
    QTemporaryDir dir;
    const QString base = writePlane(dir, QStringLiteral("base.obj"), 10, 0.0f, 10.0f);
    const QString target = writePlane(dir, QStringLiteral("target.obj"), 40, -5.0f, 15.0f);
    // Written by hand, as another tool would: a named 3D form on each side.
    // The target's "edge" runs 2 units further in x; "lonely" has no partner.
    const QString baseSplines = writeText(dir, QStringLiteral("base.json"), R"({
        "formatVersion": 1,
        "splines": {
            "edge": [{"x": 3, "y": 3, "z": 0}, {"x": 3, "y": 5, "z": 0}, {"x": 3, "y": 7, "z": 0}],
            "lonely": [{"x": 8, "y": 1, "z": 0}, {"x": 9, "y": 1, "z": 0}]
        }})");
    const QString targetSplines = writeText(dir, QStringLiteral("target.json"), R"({
        "formatVersion": 1,
        "splines": {"edge": [{"x": 5, "y": 3, "z": 0}, {"x": 5, "y": 5, "z": 0}, {"x": 5, "y": 7, "z": 0}]}})");

    const QString plain = dir.filePath(QStringLiteral("plain.obj"));
    const WelkRun without = welk({QStringLiteral("--base"), base, QStringLiteral("--target"), target, QStringLiteral("-o"),
                              plain, QStringLiteral("--force")});
    ASSERT_EQ(without.code, 0) << without.err.toStdString();

    const QString pulled = dir.filePath(QStringLiteral("pulled.obj"));
    const QString report = dir.filePath(QStringLiteral("report.json"));
    const WelkRun with = welk({QStringLiteral("--base"), base, QStringLiteral("--target"), target, QStringLiteral("-o"),
                           pulled, QStringLiteral("--splines-base"), baseSplines, QStringLiteral("--splines-target"),
                           targetSplines, QStringLiteral("--spline-points"), QStringLiteral("9"),
                           QStringLiteral("--report"), report, QStringLiteral("--force")});
    ASSERT_EQ(with.code, 0) << with.err.toStdString();
    EXPECT_TRUE(with.err.contains(QStringLiteral("lonely"))) << with.err.toStdString();
    const QJsonObject splines =
        QJsonDocument::fromJson(TestSupport::readFile(report)).object()[QStringLiteral("splines")].toObject();
    EXPECT_EQ(splines[QStringLiteral("points")].toInt(), 9);
    // The samples select the base vertices along x = 3 (five of them, some
    // samples sharing one), which closest-point matching then leaves alone.
    EXPECT_GE(splines[QStringLiteral("selectedVertices")].toInt(), 5);
    EXPECT_LE(splines[QStringLiteral("selectedVertices")].toInt(), 9);

    // Without splines the plane has nothing to slide it; with them the
    // band under the base spline follows the target spline.
    EXPECT_NEAR(meanXNearBaseSpline(plain, base), 3.0, 0.3);
    EXPECT_NEAR(meanXNearBaseSpline(pulled, base), 5.0, 0.5);
}

TEST(WelkSplines, MistakesAreNamed)
{
    QTemporaryDir dir;
    const QString base = writePlane(dir, QStringLiteral("base.obj"), 4, 0.0f, 4.0f);
    const QString target = writePlane(dir, QStringLiteral("target.obj"), 4, 0.0f, 4.0f);
    const QString out = dir.filePath(QStringLiteral("out.obj"));
    const QString good = writeText(dir, QStringLiteral("good.json"),
                                   R"({"formatVersion": 1, "splines": {"a": [[0, 0.5, 0.2], [20, 0.1, 0.1]]}})");
    const QString other = writeText(dir, QStringLiteral("other.json"),
                                    R"({"formatVersion": 1, "splines": {"b": [[0, 0.5, 0.2], [20, 0.1, 0.1]]}})");
    const QString future = writeText(dir, QStringLiteral("future.json"), R"({"formatVersion": 2, "splines": []})");
    const QString foreign = writeText(dir, QStringLiteral("foreign.json"),
                                      R"({"formatVersion": 1, "splines": [[[5000, 0, 0]]]})");
    const QStringList files{QStringLiteral("--base"), base, QStringLiteral("--target"), target, QStringLiteral("-o"), out};
    const auto splines = [&](const QString& a, const QString& b) {
        return files + QStringList{QStringLiteral("--splines-base"), a, QStringLiteral("--splines-target"), b};
    };

    WelkRun run = welk(files + QStringList{QStringLiteral("--splines-base"), good});
    EXPECT_EQ(run.code, 2);
    EXPECT_TRUE(run.err.contains(QStringLiteral("--splines-base and --splines-target go together")));
    run = welk(splines(good, good) + QStringList{QStringLiteral("--spline-points"), QStringLiteral("1")});
    EXPECT_EQ(run.code, 2);
    EXPECT_TRUE(run.err.contains(QStringLiteral("--spline-points")));
    run = welk(splines(good, other));
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("No spline of"))) << run.err.toStdString();
    run = welk(splines(good, future));
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("formatVersion 2 is not supported in this Welk version")))
        << run.err.toStdString();
    run = welk(splines(foreign, good));
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral(
        "Spline with index 0 has incorrect point index. Has spline point on inexistent triangle with index 5000")))
        << run.err.toStdString();
    run = welk(splines(dir.filePath(QStringLiteral("missing.json")), good));
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("missing.json"))) << run.err.toStdString();
    EXPECT_FALSE(QFile::exists(out));
}

} // namespace
