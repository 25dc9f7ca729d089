// zwelk-batch welk with bad and awkward input: refused early and clearly,
// nothing written or overwritten, and interruptions that keep what was
// reached.
#include "support/TestFiles.h"

#include "geometry/GeomStackTriangulated.h"
#include "geometry/GoZFile.h"
#include "geometry/WPointOnTriangle.h"

#include <gtest/gtest.h>

#include <limits>

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>
#include <functional>

namespace {

struct BatchRun
{
    int code = -1;
    QString out;
    QString err;
};

BatchRun zwelkBatch(const QStringList& arguments, const QString& workingDirectory = QString())
{
    QProcess process;
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    process.start(QStringLiteral(ZWELK_BATCH_PROGRAM), arguments);
    // Never a hang: every case ends well within this.
    EXPECT_TRUE(process.waitForFinished(90000)) << arguments.join(QLatin1Char(' ')).toStdString();
    return {process.exitCode(), QString::fromLocal8Bit(process.readAllStandardOutput()),
            QString::fromLocal8Bit(process.readAllStandardError())};
}

/// Every file under `folder` with a hash of its bytes.
QMap<QString, QByteArray> snapshot(const QString& folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files[path] = QCryptographicHash::hash(TestSupport::readFile(path), QCryptographicHash::Sha1);
    }
    return files;
}

/// The demo pair, once per test program, with variants of it.
class WelkBadInput : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_dir = new QTemporaryDir;
        const QString meshes = s_dir->filePath(QStringLiteral("m"));
        const BatchRun run = zwelkBatch({QStringLiteral("demo-models"), meshes, QStringLiteral("--base-resolution"),
                                         QStringLiteral("8"), QStringLiteral("--scan-subdivisions"),
                                         QStringLiteral("4")});
        ASSERT_EQ(run.code, 0) << run.err.toStdString();
        s_base = TestSupport::readFile(meshes + QStringLiteral("/base.obj"));
        s_scan = TestSupport::readFile(meshes + QStringLiteral("/scan.obj"));
    }
    static void TearDownTestSuite()
    {
        delete s_dir;
        s_dir = nullptr;
    }
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }

    QString path(const QString& name) const { return m_dir.filePath(name); }
    QString write(const QString& name, const QByteArray& bytes) const
    {
        EXPECT_TRUE(TestSupport::writeFile(path(name), bytes));
        return path(name);
    }
    /// A landmark file (CSV with a header) of the points' positions on `mesh`.
    QString landmarkFile(const QString& name, const QVector<Welk::WPointOnTriangle>& points,
                         const GeometryStack2::GeomStackTriangulated& mesh) const
    {
        QByteArray text = "x,y,z\n";
        for (const auto& p : points) {
            const QVector3D at = p.position(mesh.vertices(), mesh.triangleVertexIndices());
            text += QByteArray::number(double(at.x()), 'g', 9) + "," + QByteArray::number(double(at.y()), 'g', 9) + "," +
                    QByteArray::number(double(at.z()), 'g', 9) + "\n";
        }
        return write(name, text);
    }
    /// The OBJ text with every vertex line passed through `change`; the
    /// first vertex line alone when `firstOnly`.
    static QByteArray mapVertices(const QByteArray& obj, const std::function<QByteArray(double, double, double)>& change,
                                  bool firstOnly = false)
    {
        QByteArray result;
        bool done = false;
        for (const QByteArray& line : obj.split('\n')) {
            if (line.startsWith("v ") && !done) {
                const QList<QByteArray> f = line.split(' ');
                result += change(f[1].toDouble(), f[2].toDouble(), f[3].toDouble()) + '\n';
                done = firstOnly;
            } else {
                result += line + '\n';
            }
        }
        return result;
    }
    static QByteArray vertex(double x, double y, double z)
    {
        return "v " + QByteArray::number(x, 'f', 6) + ' ' + QByteArray::number(y, 'f', 6) + ' ' +
               QByteArray::number(z, 'f', 6);
    }

    static QTemporaryDir* s_dir;
    static QByteArray s_base, s_scan;
    QTemporaryDir m_dir;
};

QTemporaryDir* WelkBadInput::s_dir = nullptr;
QByteArray WelkBadInput::s_base, WelkBadInput::s_scan;

} // namespace

TEST_F(WelkBadInput, RefusedBeforeAnythingIsWritten)
{
    const QString base = write(QStringLiteral("base.obj"), s_base);
    const QString scan = write(QStringLiteral("scan.obj"), s_scan);
    const auto firstVertex = [](const QByteArray& text) {
        return [text](double, double, double) { return "v " + text + " 0 0"; };
    };
    const QString nanBase = write(QStringLiteral("nan_base.obj"), mapVertices(s_base, firstVertex("nan"), true));
    const QString infBase = write(QStringLiteral("inf_base.obj"), mapVertices(s_base, firstVertex("-inf"), true));
    const QString overflowBase = write(QStringLiteral("overflow_base.obj"), mapVertices(s_base, firstVertex("1e39"), true));
    const QString nanScan = write(QStringLiteral("nan_scan.obj"), mapVertices(s_scan, firstVertex("nan"), true));
    const QString overflowScan = write(QStringLiteral("overflow_scan.obj"), mapVertices(s_scan, firstVertex("1e39"), true));
    const QString farScan = write(QStringLiteral("far.obj"), mapVertices(s_scan, [](double x, double y, double z) {
        return vertex(x + 5000, y, z);
    }));
    const QString largeScan = write(QStringLiteral("large.obj"), mapVertices(s_scan, [](double x, double y, double z) {
        return vertex(x * 1000, y * 1000, z * 1000);
    }));
    const QString smallScan = write(QStringLiteral("small.obj"), mapVertices(s_scan, [](double x, double y, double z) {
        return vertex(x / 1000, y / 1000, z / 1000);
    }));
    const QString brokenFace = write(QStringLiteral("face.obj"), s_base + "f 1 2\n");
    const QString notGoZ = write(QStringLiteral("fake.goz"), "GoZb but nothing after that, no chunks at all");
    GeometryStack2::GoZFile goz;
    goz.vertexCount = 3;
    goz.vertices = {0, 0, 0, 1, 0, 0, 0, std::numeric_limits<float>::quiet_NaN(), 0};
    goz.polygonTag = GeometryStack2::GoZFile::TagQuads;
    goz.polygonCount = 1;
    goz.polygons = {0, 1, 2, -1};
    goz.vertexMask = {0xFFFF, 0xFFFF, 0xFFFF};
    goz.polygonGroups = {1};
    ASSERT_TRUE(goz.write(path(QStringLiteral("nan.goz"))));
    const QString nanGoZ = path(QStringLiteral("nan.goz"));
    const QString landmarks3 = write(QStringLiteral("three.csv"), "0,0,0\n1,1,1\n2,2,2\n");
    const QString landmarks2 = write(QStringLiteral("two.csv"), "0,0,0\n1,1,1\n");
    const QString out = path(QStringLiteral("out.obj"));
    const QString report = path(QStringLiteral("report.json"));
    const QString missing = path(QStringLiteral("no/such/folder/out.obj"));

    struct Case
    {
        const char* name;
        QStringList arguments;
        int code;
        QString message; ///< part of standard error
    };
    const QStringList files{QStringLiteral("--base"), base, QStringLiteral("--target"), scan};
    const QStringList toOut{QStringLiteral("-o"), out, QStringLiteral("--report"), report};
    const QString welk = QStringLiteral("welk");
    const QVector<Case> cases = {
        {"NaN in the basemesh", QStringList{welk, QStringLiteral("--base"), nanBase, QStringLiteral("--target"), scan} + toOut, 1,
         QStringLiteral("Wrong vertex coordinate in line 1: not a finite number")},
        {"infinity in the basemesh", QStringList{welk, QStringLiteral("--base"), infBase, QStringLiteral("--target"), scan} + toOut, 1,
         QStringLiteral("inf_base.obj")},
        {"overflow in the basemesh", QStringList{welk, QStringLiteral("--base"), overflowBase, QStringLiteral("--target"), scan} + toOut,
         1, QStringLiteral("Wrong vertex coordinate in line 1")},
        {"NaN in the target", QStringList{welk, QStringLiteral("--base"), base, QStringLiteral("--target"), nanScan} + toOut, 1,
         QStringLiteral("nan_scan.obj")},
        {"overflow in the target", QStringList{welk, QStringLiteral("--base"), base, QStringLiteral("--target"), overflowScan} + toOut,
         1, QStringLiteral("Wrong vertex coordinate")},
        {"NaN in a GoZ", QStringList{welk, QStringLiteral("--base"), nanGoZ, QStringLiteral("--target"), scan} + toOut, 1,
         QStringLiteral("Vertex 2 has a coordinate that is not a finite number")},
        {"garbled GoZ", QStringList{welk, QStringLiteral("--base"), notGoZ, QStringLiteral("--target"), scan} + toOut, 1,
         QStringLiteral("Cannot read GoZ file: %1: the file").arg(notGoZ)},
        {"broken face", QStringList{welk, QStringLiteral("--base"), brokenFace, QStringLiteral("--target"), scan} + toOut, 1,
         QStringLiteral("Wrong face in line")},
        {"target far away", QStringList{welk, QStringLiteral("--base"), base, QStringLiteral("--target"), farScan} + toOut, 1,
         QStringLiteral("no intersections")},
        {"target 1000x larger", QStringList{welk, QStringLiteral("--base"), base, QStringLiteral("--target"), largeScan} + toOut, 1,
         QStringLiteral("times smaller than the target model")},
        {"target 1000x smaller", QStringList{welk, QStringLiteral("--base"), base, QStringLiteral("--target"), smallScan} + toOut, 1,
         QStringLiteral("--rigid --scale")},
        {"output in a missing folder", QStringList{welk} + files + QStringList{QStringLiteral("-o"), missing, QStringLiteral("--report"), report},
         1, QStringLiteral("does not exist")},
        {"report in a missing folder",
         QStringList{welk} + files + QStringList{QStringLiteral("-o"), out, QStringLiteral("--report"), path(QStringLiteral("x/r.json"))}, 1,
         QStringLiteral("--report")},
        {"output is the basemesh", QStringList{welk} + files + QStringList{QStringLiteral("-o"), base}, 1,
         QStringLiteral("also an input")},
        {"output is the target by another name",
         QStringList{welk} + files + QStringList{QStringLiteral("-o"), m_dir.path() + QStringLiteral("/./scan.obj")}, 1,
         QStringLiteral("also an input")},
        {"report is the basemesh", QStringList{welk} + files + QStringList{QStringLiteral("-o"), out, QStringLiteral("--report"), base},
         1, QStringLiteral("--report")},
        {"unknown output format", QStringList{welk} + files + QStringList{QStringLiteral("-o"), path(QStringLiteral("out.stl"))}, 1,
         QStringLiteral(".obj or .goz")},
        {"output is a folder", QStringList{welk} + files + QStringList{QStringLiteral("-o"), m_dir.path() + QStringLiteral(".obj")}, 1,
         QString()},
        {"unequal landmarks", QStringList{welk} + files + toOut +
             QStringList{QStringLiteral("--landmarks-base"), landmarks3, QStringLiteral("--landmarks-target"), landmarks2},
         1, QStringLiteral("they must pair up")},
        {"too few pairs to align", QStringList{welk} + files + toOut +
             QStringList{QStringLiteral("--landmarks-base"), landmarks2, QStringLiteral("--landmarks-target"), landmarks2,
                         QStringLiteral("--rigid")},
         1, QStringLiteral("three or more point pairs")},
        {"points and landmarks for one side", QStringList{welk} + files + toOut +
             QStringList{QStringLiteral("--points-base"), landmarks2, QStringLiteral("--landmarks-base"), landmarks2},
         2, QStringLiteral("both given")},
        {"unknown engine", QStringList{welk} + files + toOut + QStringList{QStringLiteral("--engine"), QStringLiteral("magic")}, 2,
         QStringLiteral("unknown engine 'magic' (known: fast, cartoon, classic)")},
        {"missing basemesh", QStringList{welk, QStringLiteral("--base"), path(QStringLiteral("none.obj")), QStringLiteral("--target"), scan} + toOut,
         1, QStringLiteral("File does not exist")},
        {"mesh of another format", QStringList{welk, QStringLiteral("--base"), landmarks3, QStringLiteral("--target"), scan} + toOut, 1,
         QStringLiteral("Unknown mesh format")},
    };
    QDir().mkpath(m_dir.path() + QStringLiteral(".obj"));
    for (const Case& c : cases) {
        const auto before = snapshot(m_dir.path());
        const BatchRun run = zwelkBatch(c.arguments);
        EXPECT_EQ(run.code, c.code) << c.name << "\n" << run.err.toStdString();
        EXPECT_TRUE(run.err.contains(c.message)) << c.name << "\n" << run.err.toStdString();
        // A message a user can act on: one line or a few, never empty.
        EXPECT_FALSE(run.err.trimmed().isEmpty()) << c.name;
        EXPECT_EQ(snapshot(m_dir.path()), before) << c.name << ": a file was written or changed";
    }
    QDir(m_dir.path() + QStringLiteral(".obj")).removeRecursively();
}

TEST_F(WelkBadInput, ForceFitsModelsThatLookWrongAndSaysSo)
{
    const QString base = write(QStringLiteral("base.obj"), s_base);
    const QString scan = write(QStringLiteral("large.obj"), mapVertices(s_scan, [](double x, double y, double z) {
        return vertex(x * 20, y * 20, z * 20);
    }));
    const BatchRun run = zwelkBatch({QStringLiteral("welk"), QStringLiteral("--base"), base, QStringLiteral("--target"), scan,
                                     QStringLiteral("-o"), path(QStringLiteral("out.goz")), QStringLiteral("--force"),
                                     QStringLiteral("--json")});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("Warning: The basemesh is"))) << run.err.toStdString();
    const QJsonObject json = QJsonDocument::fromJson(run.out.toUtf8()).object();
    EXPECT_EQ(json[QStringLiteral("warnings")].toArray().size(), 1);
    // A GoZ written from an OBJ basemesh, read back by the GoZ reader.
    GeometryStack2::GoZFile written;
    ASSERT_TRUE(written.read(path(QStringLiteral("out.goz")))) << written.readError().toStdString();
    EXPECT_EQ(written.vertexCount, 6 * 8 * 8 + 2);
}

TEST_F(WelkBadInput, HelpVersionAndTheShortSummary)
{
    BatchRun run = zwelkBatch({QStringLiteral("welk"), QStringLiteral("--help")});
    EXPECT_EQ(run.code, 0);
    const BatchRun help = zwelkBatch({QStringLiteral("help"), QStringLiteral("welk")});
    EXPECT_EQ(help.out, run.out);
    for (const char* option : {"--base", "--target", "-o", "--exchange", "--engine", "--cartoon", "--settings",
                               "--exclude-masked", "--points-base", "--points-target", "--landmarks-base",
                               "--landmarks-target", "--rigid", "--scale", "--force", "--report", "--json"})
        EXPECT_TRUE(run.out.contains(QLatin1String(option))) << option;
    run = zwelkBatch({QStringLiteral("--version")});
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(run.out.startsWith(QStringLiteral("zwelk-batch 2"))) << run.out.toStdString();

    // Without --json the terminal gets a short summary, the report its file.
    const QString base = write(QStringLiteral("base.obj"), s_base);
    const QString scan = write(QStringLiteral("scan.obj"), s_scan);
    const QString out = path(QStringLiteral("fitted.obj"));
    run = zwelkBatch({QStringLiteral("welk"), QStringLiteral("--base"), base, QStringLiteral("--target"), scan,
                      QStringLiteral("-o"), out, QStringLiteral("--report"), path(QStringLiteral("r.json"))});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    EXPECT_FALSE(run.out.contains(QLatin1Char('{')));
    EXPECT_TRUE(run.out.contains(QStringLiteral("RMS distance result->target")));
    EXPECT_TRUE(run.out.contains(out));
    EXPECT_TRUE(QJsonDocument::fromJson(TestSupport::readFile(path(QStringLiteral("r.json")))).isObject());
}

TEST_F(WelkBadInput, LandmarkFilesReproduceTheFitWithEquivalentPointFiles)
{
    const QString base = write(QStringLiteral("base.obj"), s_base);
    const QString scan = write(QStringLiteral("scan.obj"), s_scan);
    QString error;
    const GeometryStack2::GeomStack baseMesh(base, error), scanMesh(scan, error);
    ASSERT_TRUE(error.isEmpty());
    const GeometryStack2::GeomStackTriangulated baseTriangles(baseMesh), scanTriangles(scanMesh);
    // Points inside triangles, so that each position has one nearest triangle.
    // Each scan point lies on the scan triangle nearest its basemesh point:
    // pairs drawn across the model would pull the fit into folds that it
    // resolves one way or another on a change of the inputs' last digits.
    const QVector<Welk::WPointOnTriangle> basePoints{{3, 0.3f, 0.3f}, {250, 0.5f, 0.25f}, {600, 0.2f, 0.6f}};
    QVector<Welk::WPointOnTriangle> scanPoints;
    for (const auto& p : basePoints) {
        const QVector3D at = p.position(baseTriangles.vertices(), baseTriangles.triangleVertexIndices());
        int nearest = 0;
        float best = std::numeric_limits<float>::max();
        const auto& corners = scanTriangles.triangleVertexIndices();
        for (int t = 0; 3 * t < corners.size(); ++t) {
            const QVector3D centre = (scanTriangles.vertices()[corners[3 * t]] + scanTriangles.vertices()[corners[3 * t + 1]] +
                                      scanTriangles.vertices()[corners[3 * t + 2]]) / 3.0f;
            if ((centre - at).lengthSquared() < best) {
                best = (centre - at).lengthSquared();
                nearest = t;
            }
        }
        scanPoints.append({nearest, 0.3f, 0.4f});
    }
    const auto pointFile = [&](const QString& name, const QVector<Welk::WPointOnTriangle>& points) {
        QByteArray json = "[";
        for (const auto& p : points)
            json += (json.size() > 1 ? "," : "") + QByteArray("[") + QByteArray::number(p.triangle) + "," +
                    QByteArray::number(double(p.u), 'g', 9) + "," + QByteArray::number(double(p.v), 'g', 9) + "]";
        return write(name, json + "]");
    };
    const QStringList common{QStringLiteral("welk"), QStringLiteral("--base"), base, QStringLiteral("--target"), scan};
    BatchRun run = zwelkBatch(common + QStringList{QStringLiteral("-o"), path(QStringLiteral("points.obj")),
                                                   QStringLiteral("--json"), QStringLiteral("--report"),
                                                   path(QStringLiteral("points.json")),
                                                   QStringLiteral("--points-base"), pointFile(QStringLiteral("b.json"), basePoints),
                                                   QStringLiteral("--points-target"), pointFile(QStringLiteral("t.json"), scanPoints)});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QJsonObject byPointsJson = QJsonDocument::fromJson(run.out.toUtf8()).object();
    run = zwelkBatch(common + QStringList{QStringLiteral("-o"), path(QStringLiteral("landmarks.obj")), QStringLiteral("--json"),
                                          QStringLiteral("--report"), path(QStringLiteral("landmarks.json")),
                                          QStringLiteral("--landmarks-base"),
                                          landmarkFile(QStringLiteral("b.csv"), basePoints, baseTriangles),
                                          QStringLiteral("--landmarks-target"),
                                          landmarkFile(QStringLiteral("t.csv"), scanPoints, scanTriangles)});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QJsonObject json = QJsonDocument::fromJson(run.out.toUtf8()).object();
    const QJsonArray moved = json[QStringLiteral("landmarkProjection")].toObject()[QStringLiteral("base")].toArray();
    ASSERT_EQ(moved.size(), 3);
    for (const auto& d : moved)
        EXPECT_LT(d.toDouble(), 1e-4);
    EXPECT_EQ(json[QStringLiteral("landmarks")].toObject()[QStringLiteral("count")].toInt(), 3);

    // Both fits reach the scan and the landmarks equally well.
    const auto figure = [](const QJsonObject& report, const char* group, const char* key) {
        return report[QLatin1String(group)].toObject()[QLatin1String(key)].toDouble();
    };
    for (const auto& [group, key] : {std::pair{"resultToTarget", "rms"}, std::pair{"targetToResult", "rms"},
                                     std::pair{"landmarks", "mean"}}) {
        const double points = figure(byPointsJson, group, key), landmarks = figure(json, group, key);
        EXPECT_GT(points, 0.0) << group;
        // The landmarks' own distances are a few thousandths on a model 25
        // units across: a thousandth either way is equally well.
        EXPECT_NEAR(landmarks, points, std::max(0.02 * points, 0.001)) << group << " " << key;
    }

    // The positions' last digits move the landmarks by about 1e-7. A fit that
    // matches by nearest vertex is not a continuous function of its input at
    // that scale: such a move can tip one vertex's nearest target vertex or
    // one step's acceptance, and the two fits then part locally (on this
    // pair by up to 0.8 with coverage pairs off, and by 5.7 with six rounds
    // per level, on a model 25 units across). So the shapes are compared on
    // average: a landmark projected wrongly, or a correspondence lost, moves
    // a whole region and the mean with it.
    const GeometryStack2::GeomStack byPoints(path(QStringLiteral("points.obj")), error);
    const GeometryStack2::GeomStack byLandmarks(path(QStringLiteral("landmarks.obj")), error);
    ASSERT_EQ(byPoints.vertexCount(), byLandmarks.vertexCount());
    double sum = 0;
    for (int v = 0; v < byPoints.vertexCount(); ++v)
        sum += double((byPoints.vertices()[v] - byLandmarks.vertices()[v]).length());
    EXPECT_LT(sum / byPoints.vertexCount(), 0.01);
}

TEST_F(WelkBadInput, LandmarksPulledAcrossTheModelDoNotLetTheRepairUndoTheFit)
{
    // Three pairs that pull points of the coarse demo basemesh (386
    // vertices) across the model: the fit folds a few triangles, and
    // relaxing them drew a wide patch flat, five times as far from the
    // scan as the fit left it and farther than where the fit began.
    const QString base = write(QStringLiteral("base.obj"), s_base);
    const QString scan = write(QStringLiteral("scan.obj"), s_scan);
    QString error;
    const GeometryStack2::GeomStackTriangulated baseMesh(GeometryStack2::GeomStack(base, error));
    const GeometryStack2::GeomStackTriangulated scanMesh(GeometryStack2::GeomStack(scan, error));
    ASSERT_TRUE(error.isEmpty());
    const BatchRun run = zwelkBatch(
        {QStringLiteral("welk"), QStringLiteral("--base"), base, QStringLiteral("--target"), scan, QStringLiteral("-o"),
         path(QStringLiteral("across.obj")), QStringLiteral("--json"), QStringLiteral("--landmarks-base"),
         landmarkFile(QStringLiteral("b.csv"), {{3, 0.3f, 0.3f}, {250, 0.5f, 0.25f}, {600, 0.2f, 0.6f}}, baseMesh),
         QStringLiteral("--landmarks-target"),
         landmarkFile(QStringLiteral("t.csv"), {{10, 0.3f, 0.3f}, {2000, 0.25f, 0.5f}, {4000, 0.6f, 0.2f}}, scanMesh)});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QJsonObject course = QJsonDocument::fromJson(run.out.toUtf8()).object()[QStringLiteral("course")].toObject();
    EXPECT_FALSE(course[QStringLiteral("diverged")].toBool());
    // The fit itself ends at about 0.45 of its starting distance; the flat
    // patch took it to 1.4 times that distance.
    const double start = course[QStringLiteral("startDistance")].toDouble();
    const double end = course[QStringLiteral("endDistance")].toDouble();
    EXPECT_LT(end, 0.75 * start);
    EXPECT_FALSE(run.err.contains(QStringLiteral("farther from the target than it began"))) << run.err.toStdString();
}

TEST_F(WelkBadInput, RealLandmarkFilesOfTheFaceTemplate)
{
    const QString template1k = TestSupport::sharedDataFile(QStringLiteral("meshmonk-face/Template_1K.obj"));
    ZWELK_REQUIRE_DATA(template1k);
    const QString folder = QFileInfo(template1k).absolutePath();
    const BatchRun run =
        zwelkBatch({QStringLiteral("welk"), QStringLiteral("--base"), template1k, QStringLiteral("--target"),
                    folder + QStringLiteral("/DemoFace_1K.obj"), QStringLiteral("--landmarks-base"),
                    folder + QStringLiteral("/TemplateLandmarks.csv"), QStringLiteral("--landmarks-target"),
                    folder + QStringLiteral("/DemoFaceLandmarks.csv"), QStringLiteral("--rigid"), QStringLiteral("--scale"),
                    QStringLiteral("-o"), path(QStringLiteral("face.obj")), QStringLiteral("--json")});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QJsonObject json = QJsonDocument::fromJson(run.out.toUtf8()).object();
    // The five landmarks lie within half a millimetre of each surface and
    // end within a millimetre of their partners.
    for (const char* side : {"base", "target"})
        for (const auto& d : json[QStringLiteral("landmarkProjection")].toObject()[QLatin1String(side)].toArray())
            EXPECT_LT(d.toDouble(), 0.5) << side;
    EXPECT_LT(json[QStringLiteral("landmarks")].toObject()[QStringLiteral("max")].toDouble(), 1.0);
}

TEST_F(WelkBadInput, InterruptedAtEachStageKeepsWhatWasReached)
{
    const QString meshes = path(QStringLiteral("big"));
    ASSERT_EQ(zwelkBatch({QStringLiteral("demo-models"), meshes, QStringLiteral("--base-resolution"), QStringLiteral("60"),
                          QStringLiteral("--scan-subdivisions"), QStringLiteral("6")})
                  .code,
              0);
    const QString out = path(QStringLiteral("out.obj"));
    const QString report = path(QStringLiteral("report.json"));
    // (the stage's first line on standard error, or empty for "at once")
    for (const QString& stage : {QString(), QStringLiteral("Building nodes..."), QStringLiteral("Welking (subdivision 1 of 3)...")}) {
        QFile::remove(out);
        QFile::remove(report);
        QProcess process;
        process.start(QStringLiteral(ZWELK_BATCH_PROGRAM),
                      {QStringLiteral("welk"), QStringLiteral("--base"), meshes + QStringLiteral("/base.obj"),
                       QStringLiteral("--target"), meshes + QStringLiteral("/scan.obj"), QStringLiteral("-o"), out,
                       QStringLiteral("--report"), report});
        ASSERT_TRUE(process.waitForStarted());
        QByteArray err;
        // Waited for by time, not by reads: progress lines come often, and a
        // sanitizer build on a loaded machine takes long to reach a stage.
        QElapsedTimer waiting;
        waiting.start();
        while (!stage.isEmpty() && !err.contains(stage.toUtf8()) && waiting.elapsed() < 180000 &&
               process.state() == QProcess::Running) {
            process.waitForReadyRead(50);
            err += process.readAllStandardError();
        }
        ASSERT_TRUE(stage.isEmpty() || err.contains(stage.toUtf8())) << err.toStdString();
        QElapsedTimer clock;
        clock.start();
        ::kill(pid_t(process.processId()), SIGINT);
        ASSERT_TRUE(process.waitForFinished(30000));
        // Ends promptly; the bound leaves room for a loaded test machine.
        EXPECT_LT(clock.elapsed(), 5000) << stage.toStdString();
        err += process.readAllStandardError();
        if (stage.isEmpty()) {
            // Before the fit: nothing to keep, nothing written.
            EXPECT_TRUE(process.exitStatus() == QProcess::CrashExit || process.exitCode() == 130);
            EXPECT_FALSE(QFile::exists(out));
            EXPECT_FALSE(QFile::exists(report));
            continue;
        }
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 130) << err.toStdString();
        EXPECT_TRUE(err.contains("interrupted")) << err.toStdString();
        EXPECT_FALSE(err.contains(stage.chopped(3).toUtf8() + ": done")) << err.toStdString();
        EXPECT_TRUE(QJsonDocument::fromJson(TestSupport::readFile(report)).object()[QStringLiteral("interrupted")].toBool());
        QString error;
        const GeometryStack2::GeomStack fitted(out, error);
        EXPECT_TRUE(error.isEmpty()) << error.toStdString();
        EXPECT_EQ(fitted.vertexCount(), 6 * 60 * 60 + 2);
        EXPECT_FALSE(QFile::exists(out + QStringLiteral(".partial")));
    }
}
