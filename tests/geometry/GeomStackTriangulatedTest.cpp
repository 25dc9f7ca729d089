#include "support/QtPrinters.h"
#include "support/MeshFactory.h"

#include "geometry/GeomStackTriangulated.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

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

namespace {

/// Polygons of 3 to 6 corners over random vertices, with a few of fewer
/// than 3 corners where `withDegenerate`: enough of them to span many of the
/// blocks the parallel passes work in.
struct RandomPolygons
{
    QVector<QVector3D> vertices;
    QVector<int> corners, offsets{0};

    RandomPolygons(int polygonCount, bool withDegenerate, int vertexCount = 5000)
    {
        std::mt19937 random(7);
        std::uniform_real_distribution<float> coordinate(-1.0f, 1.0f);
        for (int v = 0; v < vertexCount; ++v)
            vertices.append(QVector3D(coordinate(random), coordinate(random), coordinate(random)));
        for (int p = 0; p < polygonCount; ++p) {
            int size = 3 + int(random() % 4);
            if (withDegenerate && p % 997 == 5)
                size = int(random() % 3);
            for (int k = 0; k < size; ++k)
                corners.append(int(random() % unsigned(vertexCount)));
            offsets.append(corners.size());
        }
    }
};

} // namespace

TEST(GeomStackTriangulated, ParallelFansMatchASerialWalk)
{
    for (bool withDegenerate : {false, true}) {
        SCOPED_TRACE(withDegenerate);
        const RandomPolygons mesh(150000, withDegenerate);
        QVector<int> expected, expectedOwners;
        for (int p = 0; p + 1 < mesh.offsets.size(); ++p)
            for (int k = mesh.offsets[p] + 1; k + 1 < mesh.offsets[p + 1]; ++k) {
                expected << mesh.corners[mesh.offsets[p]] << mesh.corners[k] << mesh.corners[k + 1];
                expectedOwners << p;
            }
        QVector<int> owners;
        EXPECT_EQ(GeomStackTriangulated::triangulate(mesh.corners, mesh.offsets, &owners), expected);
        EXPECT_EQ(owners, expectedOwners);
    }
    EXPECT_TRUE(GeomStackTriangulated::triangulate({}, {}, nullptr).isEmpty());
    EXPECT_TRUE(GeomStackTriangulated::triangulate({}, {0}, nullptr).isEmpty());
}

TEST(GeomStackTriangulated, ParallelNormalsAreTheSerialSumsBitForBit)
{
    // Each corner adds its normalised corner normal to its vertex, in
    // polygon order; the parallel form must give the same floats, so that
    // a mesh's normals do not depend on the machine it was loaded on. Enough
    // vertices to be split among threads; each is shared by a few polygons.
    RandomPolygons mesh(150000, true, 200000);
    // A quad whose opposite corners are one vertex adds two opposite unit
    // vectors to it: the order of the two additions shows in the bits.
    for (int p = 0; p + 1 < mesh.offsets.size(); p += 37)
        if (mesh.offsets[p + 1] - mesh.offsets[p] == 4)
            mesh.corners[mesh.offsets[p] + 2] = mesh.corners[mesh.offsets[p]];
    QVector<QVector3D> expected(mesh.vertices.size(), QVector3D());
    for (int p = 0; p + 1 < mesh.offsets.size(); ++p) {
        const int first = mesh.offsets[p], size = mesh.offsets[p + 1] - first;
        for (int i = 0; i < size; ++i) {
            const int previous = mesh.corners[first + i];
            const int centre = mesh.corners[first + (i + 1) % size];
            const int next = mesh.corners[first + (i + 2) % size];
            const QVector3D a = (mesh.vertices[next] - mesh.vertices[centre]) * 1000.0f;
            const QVector3D b = (mesh.vertices[previous] - mesh.vertices[centre]) * 1000.0f;
            expected[centre] += QVector3D::crossProduct(a, b).normalized();
        }
    }
    for (QVector3D& n : expected)
        n.normalize();
    const QVector<QVector3D> normals =
        GeometryStack2::GeomStack::computeNormals(mesh.vertices, mesh.corners, mesh.offsets);
    ASSERT_EQ(normals.size(), expected.size());
    int different = 0;
    for (int v = 0; v < normals.size(); ++v)
        different += std::memcmp(&normals[v], &expected[v], sizeof(QVector3D)) != 0;
    EXPECT_EQ(different, 0);
}

TEST(GeomStackTriangulated, ATriangleMeshSharesItsCornersAsItsTriangles)
{
    const QVector<int> corners = {0, 1, 2, 2, 1, 3};
    const QVector<int> offsets = {0, 3, 6};
    QVector<int> owners;
    QVector<int> triangles = GeomStackTriangulated::triangulate(corners, offsets, &owners);
    EXPECT_EQ(triangles, corners);
    EXPECT_EQ(owners, (QVector<int>{0, 1}));
    EXPECT_EQ(triangles.constData(), corners.constData()); // shared, not copied
    // Changing the triangles must not change the corners they came from.
    triangles[0] = 3;
    EXPECT_EQ(corners[0], 0);
    // Offsets that do not start at 0 describe other corners: no sharing.
    EXPECT_EQ(GeomStackTriangulated::triangulate({9, 0, 1, 2}, {1, 4}, nullptr), (QVector<int>{0, 1, 2}));
}
