// zwelk-batch symmetry: the real program on meshes written by the test.
#include "support/MeshFactory.h"

#include "geometry/GeomStack.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <set>

namespace {

struct BatchOutput
{
    int code = -1;
    QString out;
    QString err;
};

BatchOutput symmetry(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(ZWELK_BATCH_PROGRAM), QStringList{QStringLiteral("symmetry")} + arguments);
    EXPECT_TRUE(process.waitForFinished(120000));
    return {process.exitCode(), QString::fromLocal8Bit(process.readAllStandardOutput()),
            QString::fromLocal8Bit(process.readAllStandardError())};
}

/// An nx by ny quad grid, with `skip` quads left out; written as OBJ.
QString writeGrid(const QTemporaryDir& dir, const QString& name, int nx, int ny, const std::set<int>& skip = {})
{
    QVector<QVector3D> vertices;
    for (int j = 0; j <= ny; ++j)
        for (int i = 0; i <= nx; ++i)
            vertices.append(QVector3D(float(i), float(j), 0.0f));
    QVector<QVector<int>> polygons;
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i)
            if (!skip.count(j * nx + i)) {
                const int a = j * (nx + 1) + i;
                polygons.append({a, a + 1, a + nx + 2, a + nx + 1});
            }
    const QString path = dir.filePath(name);
    EXPECT_TRUE(TestSupport::polygonSoup(vertices, polygons).saveObj(path, false, false));
    return path;
}

TEST(SymmetryCommand, WritesAnInvolutionAndReportsPairs)
{
    QTemporaryDir dir;
    const QString mesh = writeGrid(dir, QStringLiteral("grid.obj"), 8, 5);
    const QString pairs = dir.filePath(QStringLiteral("pairs.json"));
    const BatchOutput run = symmetry({mesh, QStringLiteral("-o"), pairs});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    EXPECT_TRUE(run.out.contains(QStringLiteral("vertices: 54"))) << run.out.toStdString();
    EXPECT_TRUE(run.out.contains(QStringLiteral("detection: ")));

    QFile file(pairs);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    EXPECT_EQ(root.value(QStringLiteral("vertexCount")).toInt(), 54);
    const QJsonArray list = root.value(QStringLiteral("pairs")).toArray();
    ASSERT_EQ(list.size(), 54);
    QVector<int> map(54, -1);
    for (const QJsonValue& pair : list)
        map[pair.toArray()[0].toInt()] = pair.toArray()[1].toInt();
    int fixed = 0;
    for (int v = 0; v < 54; ++v) {
        ASSERT_GE(map[v], 0);
        ASSERT_EQ(map[map[v]], v);
        fixed += map[v] == v;
    }
    // The printed pair count agrees with the file.
    EXPECT_TRUE(run.out.contains(QStringLiteral("pairs: %1").arg((54 - fixed) / 2))) << run.out.toStdString();
}

TEST(SymmetryCommand, MeshesWithoutSymmetryFailWithTheirMessage)
{
    QTemporaryDir dir;
    BatchOutput run = symmetry({writeGrid(dir, QStringLiteral("holed.obj"), 6, 5, {7, 16})});
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("Topological symmetry has not been detected."))) << run.err.toStdString();

    run = symmetry({dir.filePath(QStringLiteral("missing.obj"))});
    EXPECT_EQ(run.code, 1);
    EXPECT_FALSE(run.err.isEmpty());
    run = symmetry({});
    EXPECT_EQ(run.code, 2);
}

} // namespace
