#include "RenderFixture.h"

#include "WGLBuffer.h"
#include "WGLDataGeomStackTriangulated.h"
#include "WGLSharedContext.h"
#include "WGLTexBuffer.h"

#include <gtest/gtest.h>

#include <QOpenGLContext>
#include <QOpenGLFunctions_2_1>

using Welk::WGLTexBuffer;
using Welk::WGLTexBufferVector3D;

TEST(WGLTexBufferLayout, SideIsTheSmallestSquareThatHoldsEveryElement)
{
    EXPECT_EQ(WGLTexBuffer::sideFor(0), 0);
    EXPECT_EQ(WGLTexBuffer::sideFor(1), 1);
    EXPECT_EQ(WGLTexBuffer::sideFor(10), 4);
    EXPECT_EQ(WGLTexBuffer::sideFor(16), 4);
    EXPECT_EQ(WGLTexBuffer::sideFor(17), 5);
    // Large perfect squares and their neighbours, where sqrt may round.
    for (qint64 side : {1297LL, 4096LL, 16383LL}) {
        EXPECT_EQ(WGLTexBuffer::sideFor(int(side * side)), side);
        EXPECT_EQ(WGLTexBuffer::sideFor(int(side * side + 1)), side + 1);
        EXPECT_EQ(WGLTexBuffer::sideFor(int(side * side - 1)), side);
    }
    int x = 0, y = 0;
    WGLTexBuffer::texelOf(9, 4, x, y);
    EXPECT_EQ(QPoint(x, y), QPoint(1, 2));
}

namespace {

/// Reads the whole texture of `buffer` back as RGB floats, row by row.
QVector<QVector3D> readBack(const WGLTexBuffer& buffer)
{
    auto* f = QOpenGLContext::currentContext()->versionFunctions<QOpenGLFunctions_2_1>();
    if (!f)
        return {};
    QVector<QVector3D> texels(buffer.side() * buffer.side());
    f->glBindTexture(GL_TEXTURE_2D, buffer.textureId());
    f->glGetTexImage(GL_TEXTURE_2D, 0, GL_RGB, GL_FLOAT, texels.data());
    f->glBindTexture(GL_TEXTURE_2D, 0);
    return texels;
}

} // namespace

TEST(WGLTexBufferUpload, ElementsLandRowByRowWithThePartialRowLast)
{
    RenderTest::sharedContext()->makeCurrentIfNeeded();
    for (int count : {10, 16, 1}) {
        QVector<QVector3D> data;
        for (int i = 0; i < count; ++i)
            data << QVector3D(i, -i, 0.5f * i);
        WGLTexBufferVector3D buffer(data);
        const QVector<QVector3D> texels = readBack(buffer);
        ASSERT_EQ(texels.size(), buffer.side() * buffer.side()) << count;
        for (int i = 0; i < count; ++i) {
            int x = 0, y = 0;
            WGLTexBuffer::texelOf(i, buffer.side(), x, y);
            EXPECT_EQ(texels[y * buffer.side() + x], data[i]) << "element " << i << " of " << count;
        }
        // An update replaces the values in place.
        for (QVector3D& v : data)
            v += QVector3D(100, 0, 0);
        buffer.update(data);
        EXPECT_EQ(readBack(buffer)[count - 1], data[count - 1]);
    }
}

TEST(WGLDataGeomBuffers, GpuMemoryIsTheAttributeTexturesAndIndexStreams)
{
    RenderTest::sharedContext()->makeCurrentIfNeeded();
    const auto mesh = RenderTest::sphere(1.0f, 40, 50);
    Welk::WGLDataGeomStackTriangulated data(RenderTest::sharedContext(), mesh);
    const qint64 side = WGLTexBuffer::sideFor(mesh.vertexCount());
    const qint64 expected = 2 * side * side * 12 + qint64(mesh.triangleVertexIndices().size()) * 4;
    EXPECT_EQ(data.gpuBytes(), expected);
    // Edges are built only when a wireframe asks, once per edge.
    ASSERT_NE(data.edgeVertexIndices(), nullptr);
    // Rings of 50 around 41 latitudes, joined by 40 bands: every shared edge once.
    const int edges = 41 * 50 + 40 * 50;
    EXPECT_EQ(data.edgeVertexIndices()->count(), 2 * edges);
    EXPECT_EQ(data.indexStreamBuilds(), 1);
}
