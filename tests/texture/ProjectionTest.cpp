// Texture projection between generated meshes whose answer is known in
// closed form: planes a small distance apart with different UV layouts.
#include "TextureMeshes.h"

#include "steps/texture/TextureProjectionWorker.h"
#include "steps/texture/TextureTransferModels.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <opencv2/core.hpp>

#include <cmath>

using namespace TextureTests;
using WelkPlugin::TextureTransferModels;

namespace {

const float FloatMax = std::numeric_limits<float>::max();

/// Source: the unit square at z = 0, UVs a slightly shrunk copy of x, y.
GeometryStack2::GeomStack sourcePlane()
{
    return grid(12, [](float x, float y) { return QVector3D(x, y, 0.0f); },
                [](float x, float y) { return QVector2D(0.05f + 0.9f * x, 0.05f + 0.9f * y); });
}

QVector2D sourceUvAt(float x, float y)
{
    return QVector2D(0.05f + 0.9f * x, 0.05f + 0.9f * y);
}

/// Target: the same square 0.05 above, coarser, with its UVs transposed
/// into [0.1, 0.9] and shifted by whole tiles.
GeometryStack2::GeomStack targetPlane(int tileU = 0, int tileV = 0,
                                      const std::function<float(float, float)>& height = nullptr)
{
    return grid(
        7, [height](float x, float y) { return QVector3D(x, y, height ? height(x, y) : 0.05f); },
        [=](float x, float y) { return QVector2D(tileU + 0.1f + 0.8f * y, tileV + 0.1f + 0.8f * x); });
}

/// Where on the target (x, y) a texel's UV lies; false outside the island
/// or within `margin` of its border.
bool targetPointAt(const QVector2D& uv, float margin, float& x, float& y)
{
    const float lo = 0.1f + margin, hi = 0.9f - margin;
    if (uv.x() < lo || uv.x() > hi || uv.y() < lo || uv.y() > hi)
        return false;
    y = (uv.x() - 0.1f) / 0.8f;
    x = (uv.y() - 0.1f) / 0.8f;
    return true;
}

bool outsideIsland(const QVector2D& uv, float margin)
{
    return uv.x() < 0.1f - margin || uv.x() > 0.9f + margin || uv.y() < 0.1f - margin || uv.y() > 0.9f + margin;
}

struct Transfer
{
    TextureTransferModels models;
    Transfer(const GeometryStack2::GeomStack& source, const GeometryStack2::GeomStack& target)
    {
        QString error;
        EXPECT_TRUE(models.setModels(source, target, error)) << error.toStdString();
    }
    Welk::WImg run(const Welk::WImg& texture, int size, float maxDistance = FloatMax, int u = 0, int v = 0,
                   const QVector<quint8>& mask = {})
    {
        QString error;
        Welk::WImg image = models.project(texture, QSize(size, size), maxDistance, u, v, mask, error);
        EXPECT_TRUE(error.isEmpty()) << error.toStdString();
        return image;
    }
};

TEST(TextureProjection, SameShapeOtherUvsReproducesTheSourceColours)
{
    Transfer transfer(sourcePlane(), targetPlane());
    const Welk::WImg texture = rampImage(256);
    const Welk::WImg out = transfer.run(texture, 256);
    ASSERT_FALSE(out.isNull());
    ASSERT_EQ(out.channels(), 4);
    ASSERT_EQ(out.pixelType(), Welk::WImg::UInt8);
    int checked = 0, empty = 0;
    double worst = 0.0;
    for (int ty = 0; ty < 256; ++ty)
        for (int tx = 0; tx < 256; ++tx) {
            const QVector2D uv = texelUv(tx, ty, 256, 256);
            const cv::Vec4b texel = out.mat().at<cv::Vec4b>(ty, tx);
            float x, y;
            if (targetPointAt(uv, 0.004f, x, y)) {
                const QVector2D st = sourceUvAt(x, y);
                ASSERT_EQ(texel[3], 255) << tx << "," << ty;
                worst = std::max(worst, std::abs(texel[0] - 255.0 * st.x()));
                worst = std::max(worst, std::abs(texel[1] - 255.0 * (1.0 - st.y())));
                EXPECT_NEAR(texel[2], 77, 1);
                ++checked;
            } else if (outsideIsland(uv, 0.004f)) {
                empty += texel[3] == 0 && texel[0] == 0;
                EXPECT_EQ(texel[3], 0) << tx << "," << ty;
            }
        }
    EXPECT_GT(checked, 150 * 150);
    EXPECT_GT(empty, 10000);
    EXPECT_LT(worst, 2.5);
}

TEST(TextureProjection, CheckerEdgesLandWhereTheyShould)
{
    const int size = 256, cell = 32;
    Welk::WImg checker(size, size, 3, Welk::WImg::UInt8);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const uchar c = ((x / cell) + (y / cell)) % 2 ? 255 : 0;
            checker.mat().at<cv::Vec3b>(y, x) = cv::Vec3b(c, c, c);
        }
    Transfer transfer(sourcePlane(), targetPlane());
    const Welk::WImg out = transfer.run(checker, size);
    int wrong = 0, white = 0, black = 0;
    for (int ty = 0; ty < size; ++ty)
        for (int tx = 0; tx < size; ++tx) {
            float x, y;
            if (!targetPointAt(texelUv(tx, ty, size, size), 0.004f, x, y))
                continue;
            const QVector2D st = sourceUvAt(x, y);
            const double px = st.x() * (size - 1), py = (1.0 - st.y()) * (size - 1);
            // Cubic sampling blurs two source texels either side of an edge.
            const double dx = std::abs(px + 0.5 - cell * std::round((px + 0.5) / cell));
            const double dy = std::abs(py + 0.5 - cell * std::round((py + 0.5) / cell));
            if (dx < 2.5 || dy < 2.5)
                continue;
            const bool expectWhite = (int(px + 0.5) / cell + int(py + 0.5) / cell) % 2;
            const int value = out.mat().at<cv::Vec4b>(ty, tx)[0];
            wrong += expectWhite ? value < 240 : value > 15;
            (expectWhite ? white : black)++;
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(white, 5000);
    EXPECT_GT(black, 5000);
}

TEST(TextureProjection, LimitDistanceLeavesFarTexelsEmpty)
{
    // The target's half with x > 0.5 floats 0.5 above the source.
    Transfer transfer(sourcePlane(), targetPlane(0, 0, [](float x, float) { return x < 0.5f ? 0.05f : 0.5f; }));
    const Welk::WImg texture = rampImage(128);
    const Welk::WImg limited = transfer.run(texture, 128, 0.1f);
    const Welk::WImg unlimited = transfer.run(texture, 128);
    int nearFilled = 0, farEmpty = 0, farUnlimitedFilled = 0, nearCount = 0, farCount = 0;
    for (int ty = 0; ty < 128; ++ty)
        for (int tx = 0; tx < 128; ++tx) {
            float x, y;
            if (!targetPointAt(texelUv(tx, ty, 128, 128), 0.01f, x, y))
                continue;
            const uchar a = limited.mat().at<cv::Vec4b>(ty, tx)[3];
            if (x < 0.35f) {
                ++nearCount;
                nearFilled += a == 255;
            } else if (x > 0.65f) {
                ++farCount;
                farEmpty += a == 0;
                farUnlimitedFilled += unlimited.mat().at<cv::Vec4b>(ty, tx)[3] == 255;
            }
        }
    ASSERT_GT(nearCount, 1000);
    ASSERT_GT(farCount, 1000);
    EXPECT_EQ(nearFilled, nearCount);
    EXPECT_EQ(farEmpty, farCount);
    EXPECT_EQ(farUnlimitedFilled, farCount);
}

TEST(TextureProjection, MaskedPolygonsReceiveNothing)
{
    const GeometryStack2::GeomStack target = targetPlane();
    Transfer transfer(sourcePlane(), target);
    // Mask the polygons of the left half (x < 3/7).
    QVector<quint8> polygonMask(target.polygonCount(), 0);
    for (int p = 0; p < polygonMask.size(); ++p)
        polygonMask[p] = (p % 7) < 3 ? 1 : 0;
    EXPECT_TRUE(transfer.models.triangleMask(QVector<quint8>(target.polygonCount(), 0)).isEmpty());
    const QVector<quint8> mask = transfer.models.triangleMask(polygonMask);
    ASSERT_EQ(mask.size(), transfer.models.target().triangleCount());
    const Welk::WImg out = transfer.run(rampImage(128), 128, FloatMax, 0, 0, mask);
    int masked = 0, maskedEmpty = 0, free = 0, freeFilled = 0;
    for (int ty = 0; ty < 128; ++ty)
        for (int tx = 0; tx < 128; ++tx) {
            float x, y;
            if (!targetPointAt(texelUv(tx, ty, 128, 128), 0.01f, x, y))
                continue;
            const uchar a = out.mat().at<cv::Vec4b>(ty, tx)[3];
            if (x < 3.0f / 7 - 0.02f) {
                ++masked;
                maskedEmpty += a == 0;
            } else if (x > 3.0f / 7 + 0.02f) {
                ++free;
                freeFilled += a == 255;
            }
        }
    ASSERT_GT(masked, 500);
    EXPECT_EQ(maskedEmpty, masked);
    EXPECT_EQ(freeFilled, free);
}

TEST(TextureProjection, TileOffsetReadsTheNamedTile)
{
    Transfer home(sourcePlane(), targetPlane());
    Transfer shifted(sourcePlane(), targetPlane(1, 2));
    EXPECT_EQ(shifted.models.occupiedTiles(), QVector<QPoint>{QPoint(1, 2)});
    EXPECT_TRUE(shifted.models.hasTrianglesInTile(1, 2));
    EXPECT_FALSE(shifted.models.hasTrianglesInTile(0, 0));
    EXPECT_EQ(TextureTransferModels::udim(1, 2), 1022);
    EXPECT_EQ(TextureTransferModels::udim(10, 0), -1);
    const Welk::WImg texture = rampImage(96);
    const Welk::WImg reference = home.run(texture, 96);
    const Welk::WImg tiled = shifted.run(texture, 96, FloatMax, 1, 2);
    const Welk::WImg wrongTile = shifted.run(texture, 96, FloatMax, 0, 0);
    cv::Mat difference;
    cv::absdiff(reference.mat(), tiled.mat(), difference);
    double largest = 0.0;
    cv::minMaxLoc(difference.reshape(1), nullptr, &largest);
    EXPECT_LE(largest, 2.0);
    EXPECT_GT(cv::countNonZero(tiled.mat().reshape(1)), 1000);
    EXPECT_EQ(cv::countNonZero(wrongTile.mat().reshape(1)), 0);
}

TEST(TextureProjection, TexCoordsCountedFromTheTopGiveTheUsualImage)
{
    // As GoZ files hold them: v from the top of the image, so tile 1,2 of
    // the usual count lies at v in [-2, -1).
    const auto fromTop = [](const QVector2D& uv) { return QVector2D(uv.x(), 1.0f - uv.y()); };
    const GeometryStack2::GeomStack source = sourcePlane();
    const GeometryStack2::GeomStack sourceFromTop =
        grid(12, [](float x, float y) { return QVector3D(x, y, 0.0f); },
             [&](float x, float y) { return fromTop(sourceUvAt(x, y)); });
    const GeometryStack2::GeomStack targetFromTop =
        grid(7, [](float x, float y) { return QVector3D(x, y, 0.05f); },
             [&](float x, float y) { return fromTop(QVector2D(1.1f + 0.8f * y, 2.1f + 0.8f * x)); });

    Transfer usual(source, targetPlane(1, 2));
    Transfer both(sourceFromTop, targetFromTop);
    both.models.setTexCoordsFromTop(true, true);
    Transfer sourceOnly(sourceFromTop, targetPlane(1, 2));
    sourceOnly.models.setTexCoordsFromTop(true, false);
    EXPECT_EQ(both.models.occupiedTiles(), QVector<QPoint>{QPoint(1, 2)});
    EXPECT_TRUE(both.models.hasTrianglesInTile(1, 2));

    const Welk::WImg texture = rampImage(96);
    const Welk::WImg reference = usual.run(texture, 96, FloatMax, 1, 2);
    ASSERT_GT(cv::countNonZero(reference.mat().reshape(1)), 1000);
    // 1 - v rounds differently: a texel exactly on an island's border may
    // fall on the other side, nothing more.
    for (Transfer* transfer : {&both, &sourceOnly}) {
        const Welk::WImg image = transfer->run(texture, 96, FloatMax, 1, 2);
        ASSERT_FALSE(image.isNull());
        cv::Mat difference;
        cv::absdiff(reference.mat(), image.mat(), difference);
        EXPECT_LE(cv::countNonZero(difference.reshape(1) > 2), 8) << (transfer == &both ? "both" : "source only");
    }
    // Read the usual way, the same files give the ramp upside down.
    Transfer unaware(sourceFromTop, targetPlane(1, 2));
    cv::Mat difference;
    cv::absdiff(reference.mat(), unaware.run(texture, 96, FloatMax, 1, 2).mat(), difference);
    double largest = 0.0;
    cv::minMaxLoc(difference.reshape(1), nullptr, &largest);
    EXPECT_GT(largest, 50.0);
}

TEST(TextureProjection, DepthAndChannelsOfTheSourceAreKept)
{
    Transfer transfer(sourcePlane(), targetPlane());
    Welk::WImg grey(256, 256, 1, Welk::WImg::UInt16);
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x)
            grey.mat().at<ushort>(y, x) = ushort(x * 256);
    const Welk::WImg out = transfer.run(grey, 200);
    ASSERT_EQ(out.channels(), 1);
    ASSERT_EQ(out.pixelType(), Welk::WImg::UInt16);
    ASSERT_EQ(out.width(), 200);
    // Resized nearest from the source's resolution: texel (tx, ty) of the
    // output is working texel (tx * 256 / 200, ty * 256 / 200).
    int checked = 0;
    for (int ty = 0; ty < 200; ++ty)
        for (int tx = 0; tx < 200; ++tx) {
            const int wx = tx * 256 / 200, wy = ty * 256 / 200;
            float x, y;
            const QVector2D uv = texelUv(wx, wy, 256, 256);
            if (targetPointAt(uv, 0.01f, x, y)) {
                EXPECT_NEAR(out.mat().at<ushort>(ty, tx), 256.0 * 255.0 * sourceUvAt(x, y).x(), 2 * 256.0);
                ++checked;
            } else if (outsideIsland(uv, 0.01f)) {
                EXPECT_EQ(out.mat().at<ushort>(ty, tx), 0);
            }
        }
    EXPECT_GT(checked, 10000);

    Welk::WImg rgba(64, 64, 4, Welk::WImg::UInt8);
    rgba.mat().setTo(cv::Scalar(10, 20, 30, 128));
    const Welk::WImg keptAlpha = transfer.run(rgba, 64);
    EXPECT_EQ(keptAlpha.mat().at<cv::Vec4b>(32, 32), cv::Vec4b(10, 20, 30, 128));

    QString error;
    const Welk::WImg twoChannels(64, 64, 2, Welk::WImg::UInt8);
    EXPECT_TRUE(transfer.models.project(twoChannels, QSize(64, 64), FloatMax, 0, 0, {}, error).isNull());
    EXPECT_EQ(error, QStringLiteral("Input texture should be 1-, 3- or 4- channel"));
    EXPECT_TRUE(transfer.models.project(rgba, QSize(0, 64), FloatMax, 0, 0, {}, error).isNull());
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(transfer.models.project(rgba, QSize(64, 64), FloatMax, 0, 0, QVector<quint8>(3, 1), error).isNull());
    EXPECT_FALSE(error.isEmpty());
}

TEST(TextureProjection, SourceFacingAwayIsPassedThrough)
{
    // A second sheet between the target and the source, wound the other
    // way and carrying a black texture area: rays go through it.
    GeometryStack2::GeomStack near = grid(
        4, [](float x, float y) { return QVector3D(y, x, 0.02f); }, [](float, float) { return QVector2D(0.99f, 0.99f); });
    const GeometryStack2::GeomStack far = sourcePlane();
    QVector<QVector3D> vertices = far.vertices() + near.vertices();
    QVector<QVector2D> uvs = far.texCoords() + near.texCoords();
    QVector<int> corners = far.vertexIndices();
    for (int c : near.vertexIndices())
        corners.append(c + far.vertices().size());
    QVector<int> sizes = far.polygonSizes() + near.polygonSizes();
    QVector<int> offsets;
    int at = 0;
    for (int s : sizes) {
        offsets.append(at);
        at += s;
    }
    offsets.append(at);
    const GeometryStack2::GeomStack both(vertices, corners, sizes, offsets, uvs, corners, {},
                                         QVector<int>(sizes.size(), -1), {}, QVector<int>(sizes.size(), -1), {},
                                         QString());
    Transfer transfer(both, targetPlane());
    Welk::WImg texture = rampImage(128);
    texture.mat()(cv::Rect(120, 0, 8, 8)).setTo(cv::Scalar(0, 0, 0));
    const Welk::WImg out = transfer.run(texture, 128);
    float x, y;
    ASSERT_TRUE(targetPointAt(texelUv(64, 64, 128, 128), 0.0f, x, y));
    const cv::Vec4b texel = out.mat().at<cv::Vec4b>(64, 64);
    EXPECT_EQ(texel[3], 255);
    EXPECT_EQ(texel[2], 77);
}

TEST(TextureProjection, WorkerRunsOnItsThreadAndCanBeStopped)
{
    QObject* app = application();
    TextureTransferModels models;
    QString error;
    ASSERT_TRUE(models.setModels(sourcePlane(), targetPlane(), error));
    const Welk::WImg texture = rampImage(256);
    const auto makeWorker = [&]() {
        const auto& s = models.source();
        const auto& t = models.target();
        return new WelkPlugin::TextureProjectionWorker(
            &texture, s.texCoords(), s.triangleTexCoordIndices(), &models.sourceRayTracer(), t.vertices(),
            t.normals(), t.triangleVertexIndices(), QSize(256, 256), &models.targetUvRayTracer(), FloatMax, 0, 0, {});
    };
    const auto runAndWait = [&](bool stop) {
        QEventLoop loop;
        Welk::WImg result;
        QString message = QStringLiteral("not finished");
        auto* worker = WelkPlugin::TextureProjectionWorker::launch(makeWorker(), app, [&](Welk::WImg image, QString m) {
            result = image;
            message = m;
            loop.quit();
        });
        if (stop)
            worker->requestStop();
        QTimer::singleShot(60000, &loop, &QEventLoop::quit);
        loop.exec();
        return std::make_pair(result, message);
    };
    const auto done = runAndWait(false);
    EXPECT_TRUE(done.second.isEmpty()) << done.second.toStdString();
    ASSERT_FALSE(done.first.isNull());
    const Welk::WImg direct = models.project(texture, QSize(256, 256), FloatMax, 0, 0, {}, error);
    cv::Mat difference;
    cv::absdiff(direct.mat(), done.first.mat(), difference);
    EXPECT_EQ(cv::countNonZero(difference.reshape(1)), 0);

    const auto stopped = runAndWait(true);
    EXPECT_TRUE(stopped.first.isNull());
    EXPECT_EQ(stopped.second, WelkPlugin::projectionStoppedMessage());
}

TEST(TextureProjection, ModelsWithoutUvsAreRefused)
{
    TextureTransferModels models;
    QString error;
    const GeometryStack2::GeomStack noUv(sourcePlane().vertices(), sourcePlane().vertexIndices(),
                                         sourcePlane().polygonSizes(), sourcePlane().polygonOffsets(), {}, {}, {},
                                         QVector<int>(sourcePlane().polygonCount(), -1), {},
                                         QVector<int>(sourcePlane().polygonCount(), -1), {}, QString());
    EXPECT_FALSE(models.setModels(sourcePlane(), noUv, error));
    EXPECT_TRUE(error.contains(QStringLiteral("target"))) << error.toStdString();
    EXPECT_FALSE(models.setModels(noUv, sourcePlane(), error));
    EXPECT_TRUE(error.contains(QStringLiteral("source"))) << error.toStdString();
    EXPECT_FALSE(models.isValid());
}

} // namespace
