#include "support/QtPrinters.h"
#include "support/MeshFactory.h"

#include "geometry/GeomStackTriangulated.h"

#include <gtest/gtest.h>

using GeometryStack2::GeomStackTriangulated;

TEST(GeomStackTriangulated, FansEachPolygonFromItsFirstCorner)
{
    const GeomStackTriangulated mesh(TestSupport::polygonSoup(
        {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {-1, 0.5f, 0}, {2, 2, 2}, {3, 3, 3}},
        {{0, 1, 2}, {0, 1, 2, 3}, {0, 1, 2, 3, 4}, {5, 6}}));
    EXPECT_EQ(mesh.triangleVertexIndices(),
              (QVector<int>{0, 1, 2, 0, 1, 2, 0, 2, 3, 0, 1, 2, 0, 2, 3, 0, 3, 4}));
    // The two-corner polygon gives no triangle.
    EXPECT_EQ(mesh.trianglePolygonIndices(), (QVector<int>{0, 1, 1, 2, 2, 2}));
    EXPECT_EQ(mesh.triangleCount(), 6);
    EXPECT_TRUE(mesh.triangleTexCoordIndices().isEmpty());
}

TEST(GeomStackTriangulated, TextureCornersFollowVertexCorners)
{
    const GeomStackTriangulated mesh(TestSupport::twoQuads());
    ASSERT_EQ(mesh.triangleTexCoordIndices().size(), mesh.triangleVertexIndices().size());
    // twoQuads uses the same numbers for both lists.
    EXPECT_EQ(mesh.triangleTexCoordIndices(), mesh.triangleVertexIndices());
    EXPECT_EQ(mesh.triangleVertexIndices(), (QVector<int>{0, 1, 4, 0, 4, 3, 1, 2, 5, 1, 5, 4}));
}

TEST(GeomStackTriangulated, PolygonMaskBecomesTriangleMask)
{
    const GeomStackTriangulated mesh(TestSupport::twoQuads());
    const QVector<quint8> polygonMask = {0, 1};
    EXPECT_EQ(mesh.triangleMask(polygonMask), (QVector<quint8>{0, 0, 1, 1}));
    EXPECT_EQ(GeomStackTriangulated::invertedMask(polygonMask), (QVector<quint8>{1, 0}));
    // Only bit 0 flips.
    EXPECT_EQ(GeomStackTriangulated::invertedMask({0xF0}), (QVector<quint8>{0xF1}));
}

TEST(GeomStackTriangulated, StreamRebuildsTriangles)
{
    const GeomStackTriangulated mesh(TestSupport::cube());
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        mesh.serialize(out);
    }
    QDataStream in(bytes);
    QString error;
    const GeomStackTriangulated copy(in, error);
    ASSERT_TRUE(error.isEmpty());
    EXPECT_EQ(copy.triangleVertexIndices(), mesh.triangleVertexIndices());
    EXPECT_EQ(copy.triangleCount(), 12);
}
