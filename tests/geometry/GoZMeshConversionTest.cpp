#include "support/QtPrinters.h"
#include "support/MeshFactory.h"

#include "geometry/GeomStackTriangulated.h"
#include "geometry/GoZMeshConversion.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

using namespace GeometryStack2;

namespace {

GoZFile quadAndTriangle()
{
    GoZFile goz;
    goz.vertexCount = 5;
    goz.vertices = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 0, 0};
    goz.polygonTag = GoZFile::TagQuads;
    goz.polygonCount = 3;
    goz.polygons = {0, 1, 2, 3, 1, 4, 2, -1, 0, 1, 3, -1};
    goz.uvTag = GoZFile::TagUVQuads;
    goz.uvs = {0, 0, 1, 0, 1, 1, 0, 1, /**/ 5, 5, 6, 6, 7, 7, 8, 8, /**/ 0, 0, 1, 0, 0, 1, 0, 0};
    goz.vertexMask = {0xFFFF, 0xD000, 0xFFFF, 0xFFFF, 0xCFFF};
    goz.polygonGroups = {0, 3, 0};
    return goz;
}

} // namespace

TEST(GoZMeshConversion, EmptySlotsMakeTrianglesAndCornersOwnTheirUVs)
{
    GoZMesh mesh;
    QString error;
    ASSERT_TRUE(meshFromGoZ(quadAndTriangle(), mesh, error));
    EXPECT_EQ(mesh.lists.polygonSizes, (QVector<int>{4, 3, 3}));
    EXPECT_EQ(mesh.lists.polygonOffsets, (QVector<int>{0, 4, 7, 10}));
    EXPECT_EQ(mesh.lists.vertexIndices, (QVector<int>{0, 1, 2, 3, 1, 4, 2, 0, 1, 3}));
    // The triangle takes the first three pairs of its eight floats.
    ASSERT_EQ(mesh.lists.texCoords.size(), 10);
    EXPECT_EQ(mesh.lists.texCoords[4], QVector2D(5, 5));
    EXPECT_EQ(mesh.lists.texCoords[6], QVector2D(7, 7));
    EXPECT_EQ(mesh.lists.texCoordIndices, (QVector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(mesh.lists.materialIds, (QVector<int>{0, 0, 0}));
}

TEST(GoZMeshConversion, MaskThresholdAndGroupNumbers)
{
    GoZMesh mesh;
    QString error;
    ASSERT_TRUE(meshFromGoZ(quadAndTriangle(), mesh, error));
    // 0xD000 on vertex 1 does not mask; 0xCFFF on vertex 4 does.
    EXPECT_EQ(mesh.polygonMaskFlags, (QVector<quint8>{0, 1, 0}));
    EXPECT_EQ(mesh.vertexMask, (QVector<float>{65535, 53248, 65535, 65535, 53247}));
    // Groups are numbers (file value less 1); names list them by first use.
    EXPECT_EQ(mesh.lists.polygroupIds, (QVector<int>{-1, 2, -1}));
    EXPECT_EQ(mesh.lists.polygroupNames, (QStringList{QStringLiteral("-1"), QStringLiteral("2")}));
}

TEST(GoZMeshConversion, MissingMaskAndGroupChunksReadAsFreeAndUngrouped)
{
    GoZFile goz = quadAndTriangle();
    goz.vertexMask.clear();
    goz.polygonGroups.clear();
    goz.uvs.clear();
    GoZMesh mesh;
    QString error;
    ASSERT_TRUE(meshFromGoZ(goz, mesh, error));
    EXPECT_EQ(mesh.polygonMaskFlags, (QVector<quint8>{0, 0, 0}));
    EXPECT_EQ(mesh.lists.polygroupIds, (QVector<int>{-1, -1, -1}));
    EXPECT_TRUE(mesh.lists.polygroupNames.isEmpty());
    EXPECT_TRUE(mesh.lists.texCoordIndices.isEmpty());
}

TEST(GoZMeshConversion, OutOfRangeCornerIsAnError)
{
    GoZFile goz = quadAndTriangle();
    goz.polygons[5] = 99;
    GoZMesh mesh;
    QString error;
    EXPECT_FALSE(meshFromGoZ(goz, mesh, error));
    EXPECT_FALSE(error.isEmpty());
}

TEST(GoZMeshConversion, MeshSurvivesTheTripThroughGoZ)
{
    const GeomStack source = TestSupport::twoQuads();
    const GoZFile goz = gozFromMesh(source, "two");
    EXPECT_EQ(goz.name, QByteArray("two"));
    EXPECT_EQ(goz.vertexMask.size(), size_t(source.vertexCount()));
    EXPECT_EQ(goz.polygonGroups, (std::vector<uint16_t>{1, 2}));

    GoZMesh back;
    QString error;
    ASSERT_TRUE(meshFromGoZ(goz, back, error));
    EXPECT_EQ(back.lists.vertices, source.vertices());
    EXPECT_EQ(back.lists.vertexIndices, source.vertexIndices());
    for (int c = 0; c < source.cornerCount(); ++c)
        EXPECT_EQ(back.lists.texCoords[back.lists.texCoordIndices[c]],
                  source.texCoords()[source.texCoordIndices()[c]]);
    EXPECT_EQ(back.lists.polygroupIds, source.polygroupIds());
}

TEST(GoZMeshConversion, LargePolygonsAreFannedIntoTriangles)
{
    const GeomStack pentagon =
        TestSupport::polygonSoup({{0, 0, 0}, {1, 0, 0}, {1.5f, 1, 0}, {0.5f, 2, 0}, {-0.5f, 1, 0}}, {{0, 1, 2, 3, 4}});
    const GoZFile goz = gozFromMesh(pentagon, "p");
    EXPECT_EQ(goz.polygonCount, 3);
    EXPECT_EQ(goz.polygons, (std::vector<int32_t>{0, 1, 2, -1, 0, 2, 3, -1, 0, 3, 4, -1}));
}

TEST(GoZMeshConversion, NonFiniteOrOverflowingVertexIsRefusedByNumber)
{
    for (float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                      -std::numeric_limits<float>::infinity(), 1e30f}) {
        GoZFile goz = quadAndTriangle();
        goz.vertices[3 * 3 + 1] = bad;
        GoZMesh mesh;
        QString error;
        EXPECT_FALSE(meshFromGoZ(goz, mesh, error)) << bad;
        EXPECT_TRUE(error.startsWith(QStringLiteral("Vertex 3 has a coordinate that is not a finite number")))
            << error.toStdString();
    }
    // Large but usable coordinates pass.
    GoZFile goz = quadAndTriangle();
    goz.vertices[0] = 1e12f;
    GoZMesh mesh;
    QString error;
    EXPECT_TRUE(meshFromGoZ(goz, mesh, error)) << error.toStdString();
}

TEST(GoZMeshConversion, DenseSubtoolConvertsAsASerialWalkWould)
{
    // Enough polygons for the conversion to split them into several blocks:
    // offsets run on across blocks, and group names keep the order of first
    // use in the whole file, not per block.
    constexpr int PolygonCount = 200000, VertexCount = 60000;
    GoZFile goz;
    goz.vertexCount = VertexCount;
    std::mt19937 random(5);
    for (int v = 0; v < VertexCount; ++v)
        for (int axis = 0; axis < 3; ++axis)
            goz.vertices.push_back(float(random() % 1000) * 0.01f);
    goz.polygonTag = GoZFile::TagQuads;
    goz.uvTag = GoZFile::TagUVQuads;
    goz.polygonCount = PolygonCount;
    for (int p = 0; p < PolygonCount; ++p) {
        const bool triangle = random() % 3 == 0;
        for (int k = 0; k < 4; ++k) {
            goz.polygons.push_back(triangle && k == 3 ? -1 : int(random() % VertexCount));
            goz.uvs.push_back(float(p));
            goz.uvs.push_back(float(k));
        }
        // Group 7 first appears in the last block, group 3 in the middle one.
        const uint16_t group = p < 70000 ? uint16_t(1 + p % 2) : p < 150000 ? uint16_t(3 - p % 2) : uint16_t(7);
        goz.polygonGroups.push_back(group);
    }
    goz.vertexMask.assign(VertexCount, 0xFFFF);
    goz.vertexMask[VertexCount - 1] = 0; // masks the polygons that use it

    GoZMesh mesh;
    QString error;
    ASSERT_TRUE(meshFromGoZ(goz, mesh, error)) << error.toStdString();
    QVector<int> offsets{0}, corners, groups;
    QVector<quint8> masked;
    QVector<QVector2D> uvs;
    for (int p = 0; p < PolygonCount; ++p) {
        bool isMasked = false;
        for (int k = 0; k < 4; ++k) {
            const int index = goz.polygons[size_t(p) * 4 + size_t(k)];
            if (index < 0)
                continue;
            corners << index;
            uvs << QVector2D(float(p), float(k));
            isMasked = isMasked || index == VertexCount - 1;
        }
        offsets << corners.size();
        masked << quint8(isMasked);
        groups << int(goz.polygonGroups[size_t(p)]) - 1;
    }
    EXPECT_EQ(mesh.lists.polygonOffsets, offsets);
    EXPECT_EQ(mesh.lists.vertexIndices, corners);
    EXPECT_EQ(mesh.lists.texCoords, uvs);
    EXPECT_EQ(mesh.lists.polygroupIds, groups);
    EXPECT_EQ(mesh.polygonMaskFlags, masked);
    EXPECT_EQ(mesh.lists.polygroupNames,
              (QStringList{QStringLiteral("0"), QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("6")}));
    ASSERT_EQ(mesh.lists.polygonSizes.size(), PolygonCount);
    for (int p = 0; p < PolygonCount; ++p)
        ASSERT_EQ(mesh.lists.polygonSizes[p], offsets[p + 1] - offsets[p]) << p;
    EXPECT_EQ(mesh.lists.materialIds, QVector<int>(PolygonCount, 0));
    EXPECT_EQ(mesh.lists.texCoordIndices.size(), corners.size());
    EXPECT_EQ(mesh.lists.texCoordIndices.last(), corners.size() - 1);
}
