#include "ExchangeFixture.h"

#include "support/GoZBytes.h"
#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include "exchange/ModelsData.h"
#include "exchange/ModelsDataGoz.h"
#include "exchange/ResultWriter.h"
#include "exchange/TextureModeValidation.h"

#include "geometry/GoZFile.h"

#include <QDir>
#include <QFileInfo>

#include <opencv2/core.hpp>
#include <tbb/task_arena.h>

#include <algorithm>

using namespace WelkPlugin;
using GeometryStack2::GoZFile;

namespace {

class ModelsDataTest : public ExchangeFixture
{
protected:
    /// Resolves the folder's files and loads them as ZWelk does.
    std::shared_ptr<ModelsData> load(QString& error)
    {
        m_exchange = exchange();
        QVector<bool> flags;
        QString listError;
        EXPECT_TRUE(m_exchange.setModelFiles(m_exchange.getModelFilenames(flags, listError)));
        return loadModelsData(m_exchange, flags, error);
    }
    ExchangeFolder m_exchange;
};

} // namespace

TEST_F(ModelsDataTest, GoZExportLoadsWithMasksAndResultVertices)
{
    writeExport();
    QString error;
    auto models = load(error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    ASSERT_NE(dynamic_cast<ModelsDataGoz*>(models.get()), nullptr);
    EXPECT_EQ(models->geometry(0)->vertexCount(), 6);
    EXPECT_EQ(models->geometry(0)->polygonCount(), 2);
    EXPECT_EQ(models->geometry(1)->polygonCount(), 6);
    EXPECT_EQ(models->polygonMaskFlags(0), (QVector<quint8>{0, 0}));
    EXPECT_EQ(models->vertexMask(0).size(), 6);
    // Done without a fit writes the mesh as it came.
    EXPECT_EQ(models->resultVertices(), models->geometry(0)->vertices());
    EXPECT_TRUE(models->geometry(0)->hasTexCoords());
    // The first file stays at hand for the result.
    auto* goz = static_cast<ModelsDataGoz*>(models.get());
    ASSERT_NE(goz->sourceFile(), nullptr);
    EXPECT_EQ(goz->sourceFile()->arrays().vertexCount, 6);
}

TEST_F(ModelsDataTest, DoneWritesTheInputWithOnlyTheVerticesReplaced)
{
    writeExport();
    QString error;
    auto models = load(error);
    ASSERT_TRUE(error.isEmpty());
    QVector<QVector3D> moved = models->geometry(0)->vertices();
    for (QVector3D& v : moved)
        v += QVector3D(0.5f, 0, -1);
    models->setResultVertices(moved);
    EXPECT_EQ(writeWelkResult(*models, error), ResultWritten);
    announceResult(*models);

    const QByteArray input = TestSupport::readFile(meshPath(QStringLiteral("1_Head.GoZ")));
    const QByteArray output = TestSupport::readFile(meshPath(QStringLiteral("Head.GoZ")));
    ASSERT_FALSE(output.isEmpty());
    EXPECT_TRUE(QFile::exists(folder() + QStringLiteral("/import.txt")));
    const auto in = TestSupport::GoZBytes::chunks(input);
    const auto out = TestSupport::GoZBytes::chunks(output);
    ASSERT_EQ(in.size(), out.size());
    for (int i = 0; i < in.size(); ++i) {
        EXPECT_EQ(in[i].first, out[i].first);
        if (in[i].first != GoZFile::TagVertices) {
            EXPECT_EQ(in[i].second, out[i].second) << "chunk " << in[i].first;
        }
    }
    GoZFile result;
    ASSERT_TRUE(result.read(meshPath(QStringLiteral("Head.GoZ"))));
    EXPECT_FLOAT_EQ(result.vertices[3], 1.5f);
    EXPECT_FLOAT_EQ(result.vertices[5], -1.0f);
}

TEST_F(ModelsDataTest, AResultOfTheWrongSizeIsNeverWritten)
{
    writeExport();
    QString error;
    auto models = load(error);
    models->setResultVertices(QVector<QVector3D>());
    EXPECT_EQ(writeWelkResult(*models, error), ResultCancelled);
    EXPECT_EQ(error, QStringLiteral("Cannot save result GoZ-file: \nCannot save result mesh: \n%1")
                         .arg(meshPath(QStringLiteral("Head.GoZ"))));
    EXPECT_FALSE(QFile::exists(meshPath(QStringLiteral("Head.GoZ"))));
}

TEST_F(ModelsDataTest, GeometryFailuresCarryTheirTexts)
{
    writeExport();
    const QString first = meshPath(QStringLiteral("1_Head.GoZ"));
    QString error;

    QFile::remove(first);
    load(error);
    EXPECT_EQ(error, QStringLiteral("Geometry file does not exist: \n%1").arg(first));

    touch(first, "not a GoZ file at all, but long enough to have a header");
    load(error);
    EXPECT_EQ(error, QStringLiteral("Cannot read GoZ file: \n%1\nthe file does not start with \"GoZb\"; it is not a GoZ file")
                         .arg(first));

    touch(first, TestSupport::GoZBytes().text(GoZFile::TagName, "empty").end().bytes());
    load(error);
    EXPECT_EQ(error, QStringLiteral("Geometry does not contain vertices: \n%1").arg(first));

    touch(first, TestSupport::GoZBytes()
                     .chunk(GoZFile::TagVertices, 1, TestSupport::GoZBytes::floats({1, 2, 3}))
                     .end()
                     .bytes());
    load(error);
    EXPECT_EQ(error, QStringLiteral("Geometry does not contain polygons: \n%1").arg(first));
}

TEST_F(ModelsDataTest, TextureFlagDemandsATexture)
{
    writeExport(writeImage(QStringLiteral("a.tif")));
    const QString texture = meshPath(QStringLiteral("1_Head_TXTR.tif"));
    QString error;
    auto models = load(error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_EQ(models->texture(0).width(), 4);
    EXPECT_TRUE(models->texture(1).isNull());

    touch(texture, "corrupt");
    load(error);
    EXPECT_EQ(error, QStringLiteral("Texture file is corrupted or cannot be read:\n %1").arg(texture));

    QFile::remove(texture);
    load(error);
    EXPECT_EQ(error, QStringLiteral("Texture file does not exist: \n%1").arg(texture));
}

TEST_F(ModelsDataTest, UnflaggedCorruptTextureIsIgnored)
{
    writeExport();
    touch(meshPath(QStringLiteral("2_Scan_TXTR.tif")), "corrupt");
    QString error;
    auto models = load(error);
    EXPECT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_TRUE(models->texture(1).isNull());
}

TEST_F(ModelsDataTest, ObjExportLoadsWithoutTexturesAndSavesTheMeshWhenNoFitRan)
{
    ASSERT_TRUE(TestSupport::twoQuads().saveObj(meshPath(QStringLiteral("1_base.obj"))));
    ASSERT_TRUE(TestSupport::cube().saveObj(meshPath(QStringLiteral("2_scan.obj"))));
    QString error;
    auto models = load(error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_TRUE(models->resultVertices().isEmpty());
    EXPECT_EQ(writeWelkResult(*models, error), ResultWritten);
    QString readError;
    const GeometryStack2::GeomStack result(meshPath(QStringLiteral("base.obj")), readError, nullptr,
                                           GeometryStack2::GeomStack::PlainLoader);
    ASSERT_TRUE(readError.isEmpty());
    EXPECT_EQ(result.vertices(), TestSupport::twoQuads().vertices());
}

TEST_F(ModelsDataTest, CapitalObjSuffixIsReadAsGoZ)
{
    ASSERT_TRUE(TestSupport::twoQuads().saveObj(meshPath(QStringLiteral("1_base.OBJ"))));
    ASSERT_TRUE(TestSupport::cube().saveObj(meshPath(QStringLiteral("2_scan.OBJ"))));
    QString error;
    load(error);
    EXPECT_TRUE(error.startsWith(QStringLiteral("Cannot read GoZ file: \n%1\n").arg(meshPath(QStringLiteral("1_base.OBJ")))))
        << error.toStdString();
}

TEST_F(ModelsDataTest, TextureModeNeedsCoordinatesOnBothModels)
{
    writeExport();
    QString error;
    auto models = load(error);
    QString title, text;
    EXPECT_TRUE(validateTextureMode(WelkMode, *models, title, text));
    EXPECT_TRUE(title.isEmpty());
    // The cube has no UVs: the source lacks coordinates.
    EXPECT_FALSE(validateTextureMode(TextureMode, *models, title, text));
    EXPECT_EQ(title, QStringLiteral("The source model does not contain texture coordinates!"));
    EXPECT_EQ(text, QStringLiteral("Please check UV map for specified model."));
}

TEST_F(ModelsDataTest, MissingSourceTextureAloneDoesNotStopTheTextureMode)
{
    ASSERT_TRUE(TestSupport::twoQuads().saveObj(meshPath(QStringLiteral("1_a.obj"))));
    ASSERT_TRUE(TestSupport::twoQuads().saveObj(meshPath(QStringLiteral("2_b.obj"))));
    QString error;
    auto models = load(error);
    ASSERT_TRUE(error.isEmpty());
    QString title, text;
    EXPECT_TRUE(validateTextureMode(TextureMode, *models, title, text));
    EXPECT_EQ(title, QStringLiteral("The texture for the source mesh is not specified."));
    EXPECT_EQ(text, QStringLiteral("Please specify texture before starting texture transfer."));
}

TEST_F(ModelsDataTest, PointsJoinCorrespondencesBeforeSplines)
{
    writeExport();
    QString error;
    auto models = load(error);
    const Welk::WPointOnTriangle a{0, 0.2f, 0.3f}, b{1, 0.5f, 0.5f}, c{2, 0, 1};
    models->setSplinePoints({c}, 0);
    EXPECT_EQ(models->allPoints(0), (QVector<Welk::WPointOnTriangle>{c}));
    models->setCorrespondencePoints({a, b}, 0);
    EXPECT_EQ(models->allPoints(0), (QVector<Welk::WPointOnTriangle>{a, b, c}));
    EXPECT_TRUE(models->allPoints(1).isEmpty());
}

TEST(ModelsDataClean, FindsRepeatedVerticesAndBadEdges)
{
    EXPECT_TRUE(ModelsData::isClean(TestSupport::cube()));
    EXPECT_TRUE(ModelsData::isClean(TestSupport::twoQuads()));
    const QVector<QVector3D> v = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}};
    EXPECT_FALSE(ModelsData::isClean(TestSupport::polygonSoup(v, {{0, 1, 1, 2}})));
    // Three triangles on one edge.
    EXPECT_FALSE(ModelsData::isClean(TestSupport::polygonSoup(v, {{0, 1, 2}, {1, 0, 3}, {1, 0, 4}})));
    // Two neighbours walking their shared edge the same way.
    EXPECT_FALSE(ModelsData::isClean(TestSupport::polygonSoup(v, {{0, 1, 2}, {0, 1, 3}})));

    // A pole with more edges than a vertex usually has: a closed fan is
    // clean; one more triangle walking a spoke the same way is not.
    QVector<QVector3D> fan = {{0, 0, 1}};
    QVector<QVector<int>> triangles;
    constexpr int Spokes = 24;
    for (int i = 0; i < Spokes; ++i) {
        const float angle = float(i) * 6.2831853f / Spokes;
        fan.append(QVector3D(std::cos(angle), std::sin(angle), 0));
        triangles.append({0, 1 + i, 1 + (i + 1) % Spokes});
    }
    EXPECT_TRUE(ModelsData::isClean(TestSupport::polygonSoup(fan, triangles)));
    fan.append(QVector3D(0, 0, -1));
    triangles.append({0, 1 + Spokes / 2, Spokes + 1});
    EXPECT_FALSE(ModelsData::isClean(TestSupport::polygonSoup(fan, triangles)));
}

TEST_F(ModelsDataTest, TextureResultReplacesTheFirstSubtoolsTextureWholeOrNotAtAll)
{
    writeExport(writeImage(QStringLiteral("first.tif")), writeImage(QStringLiteral("second.tif")),
                QStringLiteral("texture"));
    QString error;
    auto models = load(error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    const QString path = m_exchange.resultTexturePath();
    ASSERT_TRUE(path.endsWith(QStringLiteral("/1_") + QFileInfo(m_exchange.meshFilePath(0)).completeBaseName().mid(2) +
                              QStringLiteral("_TXTR.tif")))
        << path.toStdString();

    // A 16-bit result goes as 8-bit when asked: full scale stays full scale.
    Welk::WImg deep(4, 2, 4, Welk::WImg::UInt16);
    deep.mat().setTo(cv::Scalar(65535, 32896, 0, 65535));
    const Welk::WImg shallow = toEightBit(deep);
    ASSERT_EQ(shallow.pixelType(), Welk::WImg::UInt8);
    EXPECT_EQ(shallow.mat().at<cv::Vec4b>(1, 3), cv::Vec4b(255, 128, 0, 255));
    EXPECT_EQ(toEightBit(shallow).mat().data, shallow.mat().data) << "8-bit passes through";

    ASSERT_EQ(writeTextureResult(*models, shallow, error), ResultWritten) << error.toStdString();
    Welk::WImg written;
    ASSERT_TRUE(written.load(path));
    EXPECT_EQ(written.width(), 4);
    EXPECT_EQ(written.pixelType(), Welk::WImg::UInt8);

    // Nothing to write, or a write that fails: the old file stays whole and
    // the user reads why.
    EXPECT_EQ(writeTextureResult(*models, Welk::WImg(), error), ResultCancelled);
    EXPECT_TRUE(error.startsWith(QStringLiteral("Cannot save result texture file:\n"))) << error.toStdString();
    // A folder in the result's place cannot be replaced: the write fails
    // with a message and leaves no partial file behind.
    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(QDir().mkpath(path + QStringLiteral("/inside")));
    error.clear();
    EXPECT_EQ(writeTextureResult(*models, shallow, error), ResultCancelled);
    EXPECT_TRUE(error.startsWith(QStringLiteral("Cannot save result texture file:\n"))) << error.toStdString();
    EXPECT_TRUE(QFileInfo(path).isDir());
    EXPECT_EQ(QDir(filesDir()).entryList({QStringLiteral(".*")}, QDir::Files | QDir::Hidden).size(), 0);
}

namespace {

/// A quad grid of n by n vertices, its polygons all turning the same way;
/// `flipped` polygons have their corners reversed.
GeometryStack2::GeomStack quadGrid(int n, const QVector<int>& flipped)
{
    QVector<QVector3D> vertices;
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
            vertices.append(QVector3D(float(x), float(y), 0));
    QVector<QVector<int>> polygons;
    for (int y = 0; y + 1 < n; ++y)
        for (int x = 0; x + 1 < n; ++x) {
            QVector<int> quad = {y * n + x, y * n + x + 1, (y + 1) * n + x + 1, (y + 1) * n + x};
            if (flipped.contains(polygons.size()))
                std::reverse(quad.begin(), quad.end());
            polygons.append(quad);
        }
    return TestSupport::polygonSoup(vertices, polygons);
}

} // namespace

TEST(ModelsDataClean, FindsABadEdgeInEveryPartOfADenseMesh)
{
    // Dense enough to be checked in several vertex ranges at once; a
    // reversed quad repeats its neighbours' edges in whichever range holds
    // its vertices, first, middle or last.
    const int n = 300;
    const int last = (n - 1) * (n - 1) - 1;
    for (int threads : {1, 4}) {
        tbb::task_arena arena(threads);
        arena.execute([&] {
            SCOPED_TRACE(threads);
            EXPECT_TRUE(ModelsData::isClean(quadGrid(n, {})));
            for (int flipped : {n + 3, last / 2, last - n - 3})
                EXPECT_FALSE(ModelsData::isClean(quadGrid(n, {flipped}))) << flipped;
        });
    }
}
