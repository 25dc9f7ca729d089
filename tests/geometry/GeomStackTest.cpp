#include "support/QtPrinters.h"
#include "support/MeshFactory.h"

#include "geometry/GeomStack.h"

#include <gtest/gtest.h>

#include <QBuffer>

#include <cmath>

using GeometryStack2::GeomStack;
using TestSupport::polygonSoup;

namespace {

void expectNear(const QVector3D& a, const QVector3D& b, float tolerance = 1e-5f)
{
    EXPECT_NEAR(a.x(), b.x(), tolerance);
    EXPECT_NEAR(a.y(), b.y(), tolerance);
    EXPECT_NEAR(a.z(), b.z(), tolerance);
}

} // namespace

TEST(GeomStackNormals, CounterClockwisePolygonFacesTowardsViewer)
{
    const GeomStack quad = polygonSoup({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, {{0, 1, 2, 3}});
    for (const QVector3D& n : quad.normals())
        expectNear(n, {0, 0, 1});
}

TEST(GeomStackNormals, EveryCornerCountsOnceWhateverItsArea)
{
    // Vertex 0 is shared by a large triangle in the XY plane and a tiny one
    // in the YZ plane: unweighted corners give the exact bisector.
    const GeomStack mesh = polygonSoup({{0, 0, 0}, {100, 0, 0}, {0, 100, 0}, {0, 0.01f, 0}, {0, 0, 0.01f}},
                                       {{0, 1, 2}, {0, 3, 4}});
    const float s = std::sqrt(0.5f);
    expectNear(mesh.normals()[0], {s, 0, s});
}

TEST(GeomStackNormals, DegeneratePolygonsAndIsolatedVerticesGiveZero)
{
    // A two-corner polygon has zero-length cross products; vertex 2 is used
    // by nothing.
    const GeomStack mesh = polygonSoup({{0, 0, 0}, {1, 0, 0}, {5, 5, 5}}, {{0, 1}});
    for (const QVector3D& n : mesh.normals()) {
        EXPECT_FALSE(std::isnan(n.x()));
        expectNear(n, {0, 0, 0});
    }
}

TEST(GeomStackNormals, SurviveSubMillimetreEdges)
{
    // QVector3D::normalized treats squared lengths below 1e-12 as zero; the
    // scale of the edges keeps such triangles' normals alive.
    const float e = 1e-4f;
    const GeomStack tiny = polygonSoup({{0, 0, 0}, {e, 0, 0}, {0, e, 0}}, {{0, 1, 2}});
    expectNear(tiny.normals()[0], {0, 0, 1});
}

TEST(GeomStackValidation, ReportsTheFirstBadIndexWithItsText)
{
    EXPECT_EQ(GeomStack::validateIndices({0, 1, 2}, 3, {0, 1, 2}, 3), QString());
    EXPECT_EQ(GeomStack::validateIndices({0, -1, 7}, 3, {}, 0), QStringLiteral("Vertex index can not be negative"));
    EXPECT_EQ(GeomStack::validateIndices({0, 3}, 3, {}, 0),
              QStringLiteral("Invalid vertex index 3 The model only has 3 vertices."));
    EXPECT_EQ(GeomStack::validateIndices({0}, 3, {-2}, 1),
              QStringLiteral("Texture coordinate index can not be negative"));
    EXPECT_EQ(GeomStack::validateIndices({0}, 3, {0, 4}, 4),
              QStringLiteral("Invalid texture coordinate index 4 The model only has 4 texture coordinates."));
}

TEST(GeomStackTransform, IdentityOrNoTransformSharesTheList)
{
    const QVector<QVector3D> vertices = {{1, 2, 3}, {4, 5, 6}};
    EXPECT_EQ(GeomStack::transformedVertices(std::nullopt, vertices).constData(), vertices.constData());
    EXPECT_EQ(GeomStack::transformedVertices(QMatrix4x4(), vertices).constData(), vertices.constData());

    QMatrix4x4 move;
    move.translate(1, 0, -1);
    const QVector<QVector3D> moved = GeomStack::transformedVertices(move, vertices);
    EXPECT_NE(moved.constData(), vertices.constData());
    expectNear(moved[1], {5, 5, 5});
}

TEST(GeomStackStream, RoundTripKeepsEveryList)
{
    const GeomStack mesh = TestSupport::twoQuads();
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        mesh.serialize(out);
    }
    QDataStream in(bytes);
    QString error;
    const GeomStack copy(in, error);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_EQ(copy.vertices(), mesh.vertices());
    EXPECT_EQ(copy.texCoords(), mesh.texCoords());
    EXPECT_EQ(copy.normals(), mesh.normals());
    EXPECT_EQ(copy.vertexIndices(), mesh.vertexIndices());
    EXPECT_EQ(copy.texCoordIndices(), mesh.texCoordIndices());
    EXPECT_EQ(copy.polygonOffsets(), mesh.polygonOffsets());
    EXPECT_EQ(copy.polygroupIds(), mesh.polygroupIds());
    EXPECT_EQ(copy.polygroupNames(), mesh.polygroupNames());
    EXPECT_EQ(copy.materialNames(), mesh.materialNames());

    QDataStream truncated(bytes.left(bytes.size() / 2));
    const GeomStack broken(truncated, error);
    EXPECT_EQ(error, QStringLiteral("Cannot create GeomStack: byteStream reading error"));
}

TEST(GeomStackLoader, UnknownLoaderNumberLoadsNothing)
{
    QString error;
    const GeomStack mesh(QStringLiteral("/nonexistent.obj"), error, nullptr, 7);
    EXPECT_EQ(error, QStringLiteral("Unknown OBJ loader 7"));
    EXPECT_EQ(mesh.vertexCount(), 0);
    EXPECT_EQ(mesh.polygonCount(), 0);
}
