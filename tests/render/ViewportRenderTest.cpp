#include "RenderFixture.h"

#include "WCamera3D.h"
#include "WGLBuffer.h"
#include "WGLDataGeomStackTriangulated.h"
#include "WGLMarkers.h"
#include "WGLMaterialCavity.h"
#include "WGLMaterialSurface.h"
#include "WGLObjectShadow.h"
#include "WGLSharedContext.h"
#include "WGLTexBuffer.h"
#include "WGLTextureImg.h"
#include "ZGLBackground.h"
#include "ZGLViewport.h"

#include "document/WImg.h"

#include <gtest/gtest.h>

#include <QTest>

#include <opencv2/core.hpp>

using RenderTest::Scene;

TEST(ViewportRender, FittedCameraShowsTheWholeModel)
{
    Scene scene(RenderTest::sphere(3.0f, 24, 32, {10, -4, 2}));
    const QImage image = scene.render();
    const QRect bounds = RenderTest::contentBounds(image, scene.flatBackground());
    ASSERT_FALSE(bounds.isEmpty());
    // Inside the frame, touching no border, and filling most of the height.
    EXPECT_GT(bounds.left(), 0);
    EXPECT_GT(bounds.top(), 0);
    EXPECT_LT(bounds.right(), image.width() - 1);
    EXPECT_LT(bounds.bottom(), image.height() - 1);
    EXPECT_GT(bounds.height(), image.height() / 2);
    EXPECT_NEAR(bounds.center().x(), image.width() / 2, 3);
    EXPECT_NEAR(bounds.center().y(), image.height() / 2, 3);
    const QString baseline = RenderTest::checkBaseline(image, QStringLiteral("sphere-fitted"));
    EXPECT_TRUE(baseline.isEmpty()) << baseline.toStdString();
}

TEST(ViewportRender, WireframeDrawsEdgesOverTheSurface)
{
    Scene scene(RenderTest::sphere(1.0f, 12, 16));
    const QImage plain = scene.render();
    scene.setWireframe(true);
    const QImage wire = scene.render();
    const auto d = RenderTest::compareImages(plain, wire, 25);
    EXPECT_GT(d.strongShare, 0.01) << "edges must show";
    // Outside the model nothing changes.
    EXPECT_EQ(plain.pixel(2, 2), wire.pixel(2, 2));
    const QString baseline = RenderTest::checkBaseline(wire, QStringLiteral("sphere-wireframe"));
    EXPECT_TRUE(baseline.isEmpty()) << baseline.toStdString();
}

TEST(ViewportRender, CavityDarkensACrease)
{
    Scene scene(RenderTest::valley(60, 0.5f));
    scene.shadow().setEnabled(false);
    auto creaseContrast = [&] {
        const QImage image = scene.render();
        const int cx = image.width() / 2;
        const int cy = image.height() / 2;
        double crease = 0, flank = 0;
        for (int dy = -20; dy <= 20; ++dy) {
            crease += RenderTest::luminance(image.pixel(cx, cy + dy));
            flank += RenderTest::luminance(image.pixel(cx + 40, cy + dy));
        }
        return crease / flank;
    };
    scene.surface().setCavityEnabled(false);
    const double without = creaseContrast();
    scene.surface().setCavityEnabled(true);
    const double with = creaseContrast();
    EXPECT_LT(with, without - 0.03) << "crease/flank lightness " << with << " with cavity, " << without
                                    << " without";
    const QString baseline = RenderTest::checkBaseline(scene.render(), QStringLiteral("valley-cavity"));
    EXPECT_TRUE(baseline.isEmpty()) << baseline.toStdString();
}

TEST(ViewportRender, TextureShowsTheRightWayUp)
{
    // Quadrants: red top left, green top right, blue bottom left, white bottom right (image rows go down).
    cv::Mat pixels(64, 64, CV_8UC3);
    pixels(cv::Rect(0, 0, 32, 32)).setTo(cv::Scalar(255, 0, 0));
    pixels(cv::Rect(32, 0, 32, 32)).setTo(cv::Scalar(0, 255, 0));
    pixels(cv::Rect(0, 32, 32, 32)).setTo(cv::Scalar(0, 0, 255));
    pixels(cv::Rect(32, 32, 32, 32)).setTo(cv::Scalar(255, 255, 255));
    Scene scene(RenderTest::texturedQuad(), QSize(240, 240));
    scene.setTexture(Welk::WImg(pixels));
    scene.surface().setLightingEnabled(false);
    scene.surface().setCavityEnabled(false);
    scene.shadow().setEnabled(false);
    const QImage image = scene.render();
    const int a = image.width() / 2 - 30;
    const int b = image.width() / 2 + 30;
    EXPECT_EQ(QColor(image.pixel(a, a)), QColor(255, 0, 0));
    EXPECT_EQ(QColor(image.pixel(b, a)), QColor(0, 255, 0));
    EXPECT_EQ(QColor(image.pixel(a, b)), QColor(0, 0, 255));
    EXPECT_EQ(QColor(image.pixel(b, b)), QColor(255, 255, 255));
    // The texture toggle brings the clay colour back.
    scene.surface().setTextureEnabled(false);
    const QImage clay = scene.render();
    EXPECT_EQ(clay.pixel(a, a), clay.pixel(b, b));
}

TEST(ViewportRender, BackgroundGradientFollowsTheViewportParameters)
{
    Scene scene(RenderTest::sphere(0.01f, 4, 4, {0, 0, 0}), QSize(200, 400));
    scene.background().setColor(QColor(100, 60, 30));
    scene.background().setGradient(0.5f, 0.75f, 0.25f);
    const QImage image = scene.render();
    // The plain colour a quarter of the height from the bottom.
    const QColor atCentre(image.pixel(5, 300));
    EXPECT_NEAR(atCentre.red(), 100, 2);
    EXPECT_NEAR(atCentre.green(), 60, 2);
    EXPECT_NEAR(atCentre.blue(), 30, 2);
    EXPECT_LT(QColor(image.pixel(5, 150)).red(), 100 - 10) << "darker above";
    EXPECT_GT(QColor(image.pixel(5, 390)).red(), 100 + 5) << "lighter below";
    scene.background().setColor(QColor(20, 120, 200));
    EXPECT_NEAR(QColor(scene.render().pixel(5, 300)).blue(), 200, 2);
}

TEST(ViewportRender, VertexUpdateChangesTheShapeNotTheIndexStreams)
{
    const auto mesh = RenderTest::sphere(1.0f, 16, 24);
    Scene scene(mesh);
    const QImage before = scene.render();
    QVector<QVector3D> squashed = mesh.vertices();
    for (QVector3D& v : squashed)
        v.setX(v.x() * 0.4f);
    scene.data().setVertices(squashed);
    const QImage after = scene.render();
    const QRect a = RenderTest::contentBounds(before, scene.flatBackground());
    const QRect b = RenderTest::contentBounds(after, scene.flatBackground());
    EXPECT_LT(b.width(), a.width() * 0.6);
    EXPECT_NEAR(b.height(), a.height(), 3);
    EXPECT_EQ(scene.data().indexStreamBuilds(), 1);
}

TEST(ViewportRender, FramebufferStrategyMatchesTheBasicOne)
{
    const auto mesh = RenderTest::sphere(1.0f, 16, 24);
    Scene basic(mesh);
    Scene planes(mesh, QSize(320, 240), Welk::WViewport::RenderStrategy_UseFramebuffer);
    const QImage a = basic.render();
    const QImage b = planes.render();
    EXPECT_EQ(planes.viewport().renderStrategy(), Welk::WViewport::RenderStrategy_UseFramebuffer);
    // No multisampling in the planes: edges differ slightly, nothing else.
    const auto d = RenderTest::compareImages(a, b);
    EXPECT_LT(d.meanAbsolute, 1.5);
    EXPECT_LT(d.strongShare, 0.01);
}

TEST(ViewportRender, MarkersStandOnTopOfTheModel)
{
    Scene scene(RenderTest::sphere(1.0f, 16, 24));
    Welk::WGLMarkers markers;
    scene.viewport().addObject(&markers, 1);
    const QImage before = scene.render();
    // A marker on the far side still shows: markers are never hidden.
    markers.setMarkers({{QVector3D(0, 0, -1), QColor(255, 0, 0), 7, false}});
    const QImage after = scene.render();
    const QPoint centre(after.width() / 2, after.height() / 2);
    const QColor c(after.pixel(centre + QPoint(-7, 0)));
    EXPECT_GT(c.red(), 150);
    EXPECT_LT(c.green(), 100);
    EXPECT_GT(RenderTest::compareImages(before, after).strongShare, 0.001);
    scene.viewport().removeObject(&markers);
}

TEST(ViewportRender, DenseMeshesDrawACoarseVersionWhileTheCameraMoves)
{
    const auto dense = RenderTest::sphere(1.0f, 560, 560);
    ASSERT_GT(dense.triangleCount(), Welk::WGLDataGeomBuffers::CoarseThreshold);
    Scene scene(dense);
    Welk::WGLBufferFloat* coarse = scene.data().coarseTriangleVertexIndices();
    ASSERT_NE(coarse, nullptr);
    const int coarseTriangles = coarse->count() / 3;
    EXPECT_GT(coarseTriangles, Welk::WGLDataGeomBuffers::CoarseTriangles / 5);
    EXPECT_LT(coarseTriangles, 2 * Welk::WGLDataGeomBuffers::CoarseTriangles);
    const QImage full = scene.render();
    scene.viewport().beginInteraction();
    const QImage moving = scene.render();
    scene.viewport().endInteraction();
    // The same silhouette and shading, give or take the lost detail and the shadow.
    const QRect a = RenderTest::contentBounds(full, scene.flatBackground());
    const QRect b = RenderTest::contentBounds(moving, scene.flatBackground());
    EXPECT_LE((a.topLeft() - b.topLeft()).manhattanLength(), 4);
    EXPECT_LE((a.bottomRight() - b.bottomRight()).manhattanLength(), 4);
    EXPECT_LT(RenderTest::compareImages(full, moving).meanAbsolute, 4.0);
    // Small meshes have no coarse version.
    Scene small(RenderTest::sphere(1.0f, 20, 20));
    EXPECT_EQ(small.data().coarseTriangleVertexIndices(), nullptr);
}

TEST(Materials, TextureSwitchFollowsWhatTheMeshOffers)
{
    RenderTest::sharedContext()->makeCurrentIfNeeded();
    cv::Mat pixels(4, 4, CV_8UC3, cv::Scalar(10, 20, 30));
    Welk::WGLTextureImg texture{Welk::WImg(pixels)};
    Welk::WGLDataGeomStackTriangulated plain(RenderTest::sharedContext(), RenderTest::sphere(1.0f, 6, 8));
    Welk::WGLDataGeomStackTriangulated textured(RenderTest::sharedContext(), RenderTest::texturedQuad());
    EXPECT_EQ(plain.texCoords(), nullptr) << "no texture buffer without texture coordinates";
    Welk::WGLMaterialSurface surface;
    Welk::WGLMaterialCavity cavity;
    surface.setTexture(&texture);
    cavity.setTexture(&texture);
    const QString tex = QStringLiteral("isTextureEnabled");
    EXPECT_FALSE(surface.definesFor(plain).contains(tex));
    EXPECT_FALSE(cavity.definesFor(plain).contains(tex));
    EXPECT_TRUE(surface.definesFor(textured).contains(tex));
    EXPECT_TRUE(cavity.definesFor(textured).contains(tex));
    // Per-vertex colours (the distance view) take the texture's place.
    textured.setVertexColors(QVector<QColor>(textured.vertices()->count(), Qt::red));
    EXPECT_FALSE(cavity.definesFor(textured).contains(tex));
    EXPECT_TRUE(cavity.definesFor(textured).contains(QStringLiteral("isIndexColorEnabled")));
    surface.setGhostEffectEnabled(true);
    surface.setLightingEnabled(false);
    EXPECT_EQ(surface.definesFor(textured),
              QStringList({QStringLiteral("isGhostEffectEnabled"), QStringLiteral("isIndexColorEnabled")}));
}

namespace {
QStringList g_messages;
void recordMessage(QtMsgType, const QMessageLogContext&, const QString& text)
{
    g_messages << text;
}
} // namespace

// Found under UBSan (the vptr check): the context's aboutToBeDestroyed,
// emitted by QOpenGLWidget's destructor, reached the viewport's slot after
// the viewport's own destructor had run. Destroying a viewport must not.
TEST(ViewportRender, DestroyedViewportIsNotCalledByItsDyingContext)
{
    g_messages.clear();
    const QtMessageHandler previous = qInstallMessageHandler(recordMessage);
    auto scene = std::make_unique<Scene>(RenderTest::sphere());
    scene->render();
    // The viewport's debug lines reach the handler, so a call would show.
    const bool seen = g_messages.join(QLatin1Char('\n')).contains(QStringLiteral("WViewport::initializeGL"));
    g_messages.clear();
    scene.reset();
    qInstallMessageHandler(previous);
    ASSERT_TRUE(seen);
    EXPECT_FALSE(g_messages.join(QLatin1Char('\n')).contains(QStringLiteral("glContextAboutToBeDestroyed")))
        << g_messages.join(QLatin1Char('\n')).toStdString();
}
