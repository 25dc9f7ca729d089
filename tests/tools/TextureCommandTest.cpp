// zwelk-batch texture: the real program on meshes and images written by the
// test, compared with the library's own projection.
#include "document/WImg.h"
#include "geometry/GeomStack.h"
#include "geometry/GoZFile.h"
#include "steps/texture/TextureTransferModels.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <opencv2/core.hpp>

#include <functional>

namespace {

struct BatchOutput
{
    int code = -1;
    QString out;
    QString err;
};

BatchOutput batch(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(ZWELK_BATCH_PROGRAM), arguments);
    EXPECT_TRUE(process.waitForFinished(120000));
    return {process.exitCode(), QString::fromLocal8Bit(process.readAllStandardOutput()),
            QString::fromLocal8Bit(process.readAllStandardError())};
}

BatchOutput texture(const QStringList& arguments)
{
    return batch(QStringList{QStringLiteral("texture")} + arguments);
}

/// An n by n quad grid over the unit square at height z; `uv` maps (x, y)
/// to texture coordinates, or the grid has none when it is empty.
GeometryStack2::GeomStack grid(int n, float z, const std::function<QVector2D(float, float)>& uv)
{
    QVector<QVector3D> vertices;
    QVector<QVector2D> uvs;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) {
            vertices.append(QVector3D(float(i) / n, float(j) / n, z));
            if (uv)
                uvs.append(uv(float(i) / n, float(j) / n));
        }
    QVector<int> corners, sizes, offsets;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const int a = j * (n + 1) + i;
            offsets.append(corners.size());
            sizes.append(4);
            corners += {a, a + 1, a + n + 2, a + n + 1};
        }
    offsets.append(corners.size());
    const int count = sizes.size();
    return GeometryStack2::GeomStack(vertices, corners, sizes, offsets, uvs, uv ? corners : QVector<int>(), {},
                                     QVector<int>(count, -1), {}, QVector<int>(count, -1), {}, QString());
}

class TextureCommand : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_source = grid(10, 0.0f, [](float x, float y) { return QVector2D(0.05f + 0.9f * x, 0.05f + 0.9f * y); });
        // The target's UVs: the left half in tile 0,0 and the right half in
        // tile 1,0, each transposed.
        m_target = grid(8, 0.03f, [](float x, float y) {
            return x < 0.5f ? QVector2D(0.1f + 0.8f * y, 0.1f + 1.6f * x) : QVector2D(1.1f + 0.8f * y, 1.6f * x - 0.7f);
        });
        ASSERT_TRUE(m_source.saveObj(path("source.obj")));
        ASSERT_TRUE(m_target.saveObj(path("target.obj")));
        m_texture = Welk::WImg(128, 128, 3, Welk::WImg::UInt8);
        for (int y = 0; y < 128; ++y)
            for (int x = 0; x < 128; ++x)
                m_texture.mat().at<cv::Vec3b>(y, x) = cv::Vec3b(uchar(2 * x), uchar(2 * y), 90);
        ASSERT_TRUE(m_texture.save(path("texture.png")));
    }

    QString path(const QString& name) const { return m_dir.filePath(name); }
    QStringList common(const QString& output) const
    {
        return {QStringLiteral("--source"), path("source.obj"), QStringLiteral("--source-texture"),
                path("texture.png"), QStringLiteral("--target"), path("target.obj"), QStringLiteral("-o"), output};
    }
    QStringList writtenFiles() const
    {
        return QDir(m_dir.path()).entryList({QStringLiteral("out*")}, QDir::Files);
    }

    QTemporaryDir m_dir;
    GeometryStack2::GeomStack m_source, m_target;
    Welk::WImg m_texture;
};

TEST_F(TextureCommand, WritesWhatTheLibraryProjects)
{
    const BatchOutput run =
        texture(common(path("out.png")) + QStringList{QStringLiteral("--size"), QStringLiteral("128x128"),
                                                      QStringLiteral("--no-fill")});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    Welk::WImg written;
    ASSERT_TRUE(written.load(path("out.png")));
    ASSERT_EQ(written.channels(), 4);
    ASSERT_EQ(written.width(), 128);

    // The same run in process, as the window makes it.
    QString error;
    const GeometryStack2::GeomStack source(path("source.obj"), error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    const GeometryStack2::GeomStack target(path("target.obj"), error);
    Welk::WImg texture;
    ASSERT_TRUE(texture.load(path("texture.png")));
    WelkPlugin::TextureTransferModels models;
    ASSERT_TRUE(models.setModels(source, target, error)) << error.toStdString();
    const Welk::WImg direct =
        models.project(texture, QSize(128, 128), std::numeric_limits<float>::max(), 0, 0, {}, error);
    ASSERT_FALSE(direct.isNull());
    cv::Mat difference;
    cv::absdiff(direct.mat(), written.mat(), difference);
    EXPECT_EQ(cv::countNonZero(difference.reshape(1)), 0);
    EXPECT_GT(cv::countNonZero(direct.mat().reshape(1)), 1000);
}

TEST_F(TextureCommand, FillsEmptyTexelsAndKeepsSixteenBitGrey)
{
    BatchOutput run = texture(common(path("out.png")) + QStringList{QStringLiteral("--size"), QStringLiteral("64x64")});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    Welk::WImg filled;
    ASSERT_TRUE(filled.load(path("out.png")));
    std::vector<cv::Mat> planes;
    cv::split(filled.mat(), planes);
    EXPECT_EQ(cv::countNonZero(planes[3] != 255), 0);

    Welk::WImg grey(128, 128, 1, Welk::WImg::UInt16);
    grey.mat().setTo(cv::Scalar(40000));
    ASSERT_TRUE(grey.save(path("grey.tif")));
    QStringList arguments = common(path("out_grey.tif"));
    arguments[3] = path("grey.tif");
    run = texture(arguments);
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    Welk::WImg result;
    ASSERT_TRUE(result.load(path("out_grey.tif")));
    EXPECT_EQ(result.channels(), 1);
    EXPECT_EQ(result.pixelType(), Welk::WImg::UInt16);
    EXPECT_EQ(result.width(), 1024);
    double largest = 0.0;
    cv::minMaxLoc(result.mat(), nullptr, &largest);
    EXPECT_NEAR(largest, 40000.0, 2.0);
}

TEST_F(TextureCommand, AllTilesWritesOneImagePerUdimTile)
{
    BatchOutput run = texture(common(path("out.png")) +
                              QStringList{QStringLiteral("--size"), QStringLiteral("64x64"), QStringLiteral("--all-tiles")});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    EXPECT_EQ(writtenFiles(), (QStringList{QStringLiteral("out.1001.png"), QStringLiteral("out.1002.png")}));

    run = texture(common(path("out_one.png")) +
                  QStringList{QStringLiteral("--size"), QStringLiteral("64x64"), QStringLiteral("--tiles"),
                              QStringLiteral("1,0"), QStringLiteral("--no-fill")});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    Welk::WImg tile, single;
    ASSERT_TRUE(single.load(path("out_one.png")));
    ASSERT_TRUE(tile.load(path("out.1002.png")));
    // The filled tile agrees with the unfilled one wherever a ray hit.
    std::vector<cv::Mat> planes;
    cv::split(single.mat(), planes);
    cv::Mat hit = planes[3] != 0;
    EXPECT_GT(cv::countNonZero(hit), 500);
    cv::Mat difference;
    cv::absdiff(tile.mat(), single.mat(), difference);
    std::vector<cv::Mat> differences;
    cv::split(difference, differences);
    for (int c = 0; c < 3; ++c)
        EXPECT_EQ(cv::countNonZero(differences[c] & hit), 0);
}

TEST_F(TextureCommand, BadInputGetsAMessageAndWritesNothing)
{
    const GeometryStack2::GeomStack noUv = grid(4, 0.0f, nullptr);
    ASSERT_TRUE(noUv.saveObj(path("nouv.obj"), false));
    QFile broken(path("broken.png"));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("not an image");
    broken.close();

    struct Case
    {
        const char* what;
        int index; ///< argument to replace, -1 for none
        QString value;
        QStringList extra;
        QString message;
    };
    const Case cases[] = {
        {"target without UVs", 5, path("nouv.obj"), {}, QStringLiteral("no UVs")},
        {"source without UVs", 1, path("nouv.obj"), {}, QStringLiteral("no texture coordinates")},
        {"unreadable texture", 3, path("broken.png"), {}, QStringLiteral("can't be read")},
        {"missing texture", 3, path("absent.png"), {}, QStringLiteral("can't be read")},
        {"size 0", -1, {}, {QStringLiteral("--size"), QStringLiteral("0x64")}, QStringLiteral("between 1 and 16384")},
        {"size too large", -1, {}, {QStringLiteral("--size"), QStringLiteral("16385x16")}, QStringLiteral("between 1 and 16384")},
        {"empty tile", -1, {}, {QStringLiteral("--tiles"), QStringLiteral("0,1")}, QStringLiteral("no triangles in UV tile 0,1")},
        {"both tile options", -1, {}, {QStringLiteral("--tiles"), QStringLiteral("0,0"), QStringLiteral("--all-tiles")},
         QStringLiteral("exclude each other")},
        {"wrong extension", 7, path("out.jpg"), {}, QStringLiteral(".png or .tif")},
    };
    for (const Case& c : cases) {
        QStringList arguments = common(path("out.png")) + c.extra;
        if (c.index >= 0)
            arguments[c.index] = c.value;
        const BatchOutput run = texture(arguments);
        EXPECT_NE(run.code, 0) << c.what;
        EXPECT_TRUE(run.err.contains(c.message)) << c.what << ": " << run.err.toStdString();
        EXPECT_TRUE(writtenFiles().isEmpty()) << c.what;
    }
}

TEST_F(TextureCommand, ExchangeWritesSubtoolsInZBrushsFrameOrRawOnRequest)
{
    for (const bool raw : {false, true}) {
        const QString folder = path(raw ? "raw" : "zbrush");
        QStringList arguments{QStringLiteral("exchange"), path("target.obj"), path("source.obj"),
                              QStringLiteral("--folder"), folder};
        if (raw)
            arguments << QStringLiteral("--raw");
        const BatchOutput run = batch(arguments);
        ASSERT_EQ(run.code, 0) << run.err.toStdString();
        GeometryStack2::GoZFile goz;
        ASSERT_TRUE(goz.read(folder + QStringLiteral("/Files/1_target.GoZ")));
        // The name chunk is padded with zeros.
        EXPECT_EQ(goz.name.left(goz.name.indexOf('\0')), raw ? QByteArray("target") : QByteArray("GoZMesh_target"));
        ASSERT_EQ(goz.vertexCount, m_target.vertexCount());
        const float sign = raw ? 1.0f : -1.0f;
        for (int i = 0; i < goz.vertexCount; ++i) {
            const QVector3D v = m_target.vertices()[i];
            ASSERT_FLOAT_EQ(goz.vertices[size_t(3 * i)], v.x());
            ASSERT_FLOAT_EQ(goz.vertices[size_t(3 * i + 1)], sign * v.y());
            ASSERT_FLOAT_EQ(goz.vertices[size_t(3 * i + 2)], sign * v.z());
        }
        // Corner 0 of polygon 0 is the grid's corner at x = y = 0.
        const QVector2D uv = m_target.texCoords()[m_target.texCoordIndices()[0]];
        ASSERT_FALSE(goz.uvs.empty());
        EXPECT_FLOAT_EQ(goz.uvs[0], uv.x());
        EXPECT_FLOAT_EQ(goz.uvs[1], raw ? uv.y() : 1.0f - uv.y());
    }
}

TEST_F(TextureCommand, TextureThroughAZBrushExchangeLandsAsFromTheObjFiles)
{
    // ZBrush's GoZ files turn the mesh half about x and count v from the top
    // of the image, while the _TXTR image keeps the usual orientation. A
    // transfer through such a folder must give the image a transfer between
    // the OBJ files gives, which the projection tests check texel by texel.
    const QString folder = path("exchange");
    const BatchOutput written =
        batch({QStringLiteral("exchange"), path("target.obj"), path("source.obj"), QStringLiteral("--folder"), folder,
               QStringLiteral("--mode"), QStringLiteral("texture"), QStringLiteral("--texture-second"),
               path("texture.png")});
    ASSERT_EQ(written.code, 0) << written.err.toStdString();
    const QStringList size{QStringLiteral("--size"), QStringLiteral("128x128"), QStringLiteral("--no-fill")};
    const BatchOutput throughExchange = texture(QStringList{QStringLiteral("--exchange"), folder} + size);
    ASSERT_EQ(throughExchange.code, 0) << throughExchange.err.toStdString();
    const BatchOutput direct = texture(common(path("out.png")) + size);
    ASSERT_EQ(direct.code, 0) << direct.err.toStdString();

    Welk::WImg fromExchange, fromObj;
    ASSERT_TRUE(fromExchange.load(folder + QStringLiteral("/Files/1_target_TXTR.tif")));
    ASSERT_TRUE(fromObj.load(path("out.png")));
    ASSERT_EQ(fromExchange.width(), 128);
    ASSERT_EQ(fromExchange.channels(), fromObj.channels());
    // 1 - v rounds differently from v, so a texel right on an island's
    // border may fall on the other side; nothing else may differ.
    const auto differingTexels = [](const cv::Mat& a, const cv::Mat& b) {
        cv::Mat difference;
        cv::absdiff(a, b, difference);
        std::vector<cv::Mat> channels;
        cv::split(difference, channels);
        cv::Mat largest = channels[0];
        for (const cv::Mat& c : channels)
            largest = cv::max(largest, c);
        return cv::countNonZero(largest > 2);
    };
    const int reached = cv::countNonZero(fromObj.mat().reshape(1, fromObj.height() * fromObj.width()).col(3));
    ASSERT_GT(reached, 3000);
    EXPECT_LT(differingTexels(fromExchange.mat(), fromObj.mat()), reached / 40);
    // Upside down it would differ wherever the ramp's green changes.
    cv::Mat flipped;
    cv::flip(fromObj.mat(), flipped, 0);
    EXPECT_GT(differingTexels(fromExchange.mat(), flipped), reached / 3);
    // The run ends as Done does.
    EXPECT_TRUE(QFile::exists(folder + QStringLiteral("/import.txt")));
    EXPECT_FALSE(QFile::exists(folder + QStringLiteral("/status.txt")));
}

TEST_F(TextureCommand, ExchangeWithoutSourceTextureWritesNothing)
{
    const QString folder = path("exchange");
    ASSERT_EQ(batch({QStringLiteral("exchange"), path("target.obj"), path("source.obj"), QStringLiteral("--folder"),
                     folder, QStringLiteral("--mode"), QStringLiteral("texture")})
                  .code,
              0);
    const BatchOutput run = texture({QStringLiteral("--exchange"), folder});
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("The texture for the source mesh is not specified."))) << run.err.toStdString();
    EXPECT_FALSE(QFile::exists(folder + QStringLiteral("/Files/1_target_TXTR.tif")));
    EXPECT_FALSE(QFile::exists(folder + QStringLiteral("/import.txt")));
    const BatchOutput mixed = texture({QStringLiteral("--exchange"), folder, QStringLiteral("-o"), path("out.png")});
    EXPECT_EQ(mixed.code, 2);
    EXPECT_TRUE(mixed.err.contains(QStringLiteral("--exchange replaces"))) << mixed.err.toStdString();
}

} // namespace
