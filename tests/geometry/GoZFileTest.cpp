#include "support/GoZBytes.h"
#include "support/TestFiles.h"

#include "geometry/GoZFile.h"
#include "geometry/GoZMappedFile.h"

#include <gtest/gtest.h>

#include <QMap>
#include <QTemporaryDir>
#include <QtEndian>

using GeometryStack2::GoZFile;
using TestSupport::GoZBytes;

namespace {

/// A quad and a triangle with every chunk the format knows, in an order of
/// our own, an unknown chunk in the middle and an oversized one.
QByteArray richFile(int misalignment = 0)
{
    GoZBytes file;
    file.text(GoZFile::TagName, "Head");
    // An unknown chunk of odd length puts every array after it off its
    // natural alignment.
    if (misalignment > 0)
        file.chunk(99998, 0, QByteArray(misalignment, 'x'));
    file.chunk(GoZFile::TagValue5001, 1, GoZBytes::ints({0x12345678}))
        .chunk(GoZFile::TagVertices, 5, GoZBytes::floats({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 2, 2}))
        .chunk(99999, 3, QByteArray("unknown payload!"))
        .chunk(GoZFile::TagQuads, 2, GoZBytes::ints({0, 1, 2, 3, 1, 4, 2, -1}))
        .chunk(GoZFile::TagUVQuads, 2,
               GoZBytes::floats({0, 0, 1, 0, 1, 1, 0, 1, 0.5f, 0.5f, 0.6f, 0.6f, 0.7f, 0.7f, 9, 9}))
        .chunk(GoZFile::TagVertexMask, 5, GoZBytes::shorts({0xFFFF, 0xD000, 0xCFFF, 0, 0xFFFF}), 6)
        .chunk(GoZFile::TagVertexColors, 5, GoZBytes::ints({1, 2, 3, 4, 5}))
        .chunk(GoZFile::TagPolygonGroups, 2, GoZBytes::shorts({0, 7}))
        .text(GoZFile::TagText45001, "first block")
        .text(GoZFile::TagText50001, "second")
        .text(GoZFile::TagText55001, "with float", 2.5f)
        .text(GoZFile::TagSecondName, "Head2")
        .end();
    return file.bytes();
}

class GoZFileTest : public ::testing::Test
{
protected:
    QString path(const QString& name) const { return m_dir.filePath(name); }
    QString write(const QString& name, const QByteArray& bytes) const
    {
        EXPECT_TRUE(TestSupport::writeFile(path(name), bytes));
        return path(name);
    }
    QTemporaryDir m_dir;
};

} // namespace

TEST_F(GoZFileTest, ReadsEveryKnownChunkAndSkipsUnknownOnes)
{
    GoZFile goz;
    ASSERT_TRUE(goz.read(write(QStringLiteral("rich.GoZ"), richFile())));
    EXPECT_TRUE(goz.readError().isEmpty());
    EXPECT_EQ(goz.name, QByteArray("Head\0\0\0\0", 8));
    EXPECT_EQ(goz.secondName.left(5), QByteArray("Head2"));
    EXPECT_EQ(goz.value5001, 0x12345678u);
    EXPECT_EQ(goz.vertexCount, 5);
    EXPECT_EQ(goz.vertices.size(), 15u);
    EXPECT_FLOAT_EQ(goz.vertices[12], 2.0f);
    EXPECT_EQ(goz.polygonTag, GoZFile::TagQuads);
    EXPECT_EQ(goz.polygonCount, 2);
    EXPECT_EQ(goz.polygons, (std::vector<int32_t>{0, 1, 2, 3, 1, 4, 2, -1}));
    EXPECT_EQ(goz.uvTag, GoZFile::TagUVQuads);
    EXPECT_EQ(goz.uvs.size(), 16u);
    // The mask chunk was larger than its data; the rest was skipped.
    EXPECT_EQ(goz.vertexMask, (std::vector<uint16_t>{0xFFFF, 0xD000, 0xCFFF, 0, 0xFFFF}));
    EXPECT_EQ(goz.vertexColors, (std::vector<uint32_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(goz.polygonGroups, (std::vector<uint16_t>{0, 7}));
    EXPECT_EQ(goz.string45001.left(11), QByteArray("first block"));
    EXPECT_EQ(goz.string50001.left(6), QByteArray("second"));
    EXPECT_EQ(goz.string55001.left(10), QByteArray("with float"));
    EXPECT_FLOAT_EQ(goz.float55001, 2.5f);
}

TEST_F(GoZFileTest, WrittenBackEveryKnownChunkIsByteIdentical)
{
    const QByteArray input = richFile();
    GoZFile goz;
    ASSERT_TRUE(goz.read(write(QStringLiteral("in.GoZ"), input)));
    ASSERT_TRUE(goz.write(path(QStringLiteral("out.GoZ"))));
    const QByteArray output = TestSupport::readFile(path(QStringLiteral("out.GoZ")));

    QMap<int32_t, QByteArray> in, out;
    for (const auto& c : GoZBytes::chunks(input))
        in.insert(c.first, c.second);
    for (const auto& c : GoZBytes::chunks(output))
        out.insert(c.first, c.second);
    EXPECT_FALSE(out.contains(99999));
    for (auto it = in.constBegin(); it != in.constEnd(); ++it) {
        if (it.key() == 99999)
            continue;
        QByteArray expected = it.value();
        if (it.key() == GoZFile::TagVertexMask) {
            // Written at its exact size: the surplus bytes are gone.
            expected = expected.left(16 + 10);
            qToLittleEndian<qint32>(26, expected.data() + 4);
        }
        EXPECT_EQ(out.value(it.key()), expected) << "chunk " << it.key();
    }
    // The writer's fixed order, and the header description.
    QVector<int32_t> order;
    for (const auto& c : GoZBytes::chunks(output))
        order.append(c.first);
    EXPECT_EQ(order, (QVector<int32_t>{1, 2, 5001, 10001, 20001, 25001, 30002, 35001, 40001, 45001, 50001, 55001}));
    EXPECT_EQ(output.mid(4, 20), QByteArray("Exported by GoZ SDK\0", 20));
    EXPECT_EQ(output.right(16), QByteArray(16, '\0'));
}

TEST_F(GoZFileTest, TextChunksArePaddedToFourBytes)
{
    const auto sizeFor = [this](const QByteArray& name) {
        GoZFile goz;
        goz.name = name;
        const QString file = path(QStringLiteral("pad.GoZ"));
        EXPECT_TRUE(goz.write(file));
        const auto chunks = GoZBytes::chunks(TestSupport::readFile(file));
        return chunks.isEmpty() ? -1 : chunks.first().second.size();
    };
    EXPECT_EQ(sizeFor("abc"), 20);   // 3 + 1, no padding
    EXPECT_EQ(sizeFor("abcd"), 24);  // 4 + 1 + 3
    EXPECT_EQ(sizeFor("abcdefg"), 24);
    // A stored buffer with its old padding still measures by its text.
    EXPECT_EQ(sizeFor(QByteArray("ab\0\0\0\0\0\0\0\0", 10)), 20);
}

TEST_F(GoZFileTest, RejectsBrokenFiles)
{
    GoZFile goz;
    EXPECT_FALSE(goz.read(path(QStringLiteral("missing.GoZ"))));
    EXPECT_FALSE(goz.readError().isEmpty());
    EXPECT_FALSE(goz.read(write(QStringLiteral("short.GoZ"), QByteArray("GoZb", 4))));
    EXPECT_TRUE(goz.readError().contains(QStringLiteral("shorter than a GoZ header")));

    QByteArray wrongMagic = GoZBytes().end().bytes();
    wrongMagic[0] = 'X';
    EXPECT_FALSE(goz.read(write(QStringLiteral("magic.GoZ"), wrongMagic)));
    EXPECT_TRUE(goz.readError().contains(QStringLiteral("not a GoZ file")));

    GoZBytes noEnd;
    noEnd.text(GoZFile::TagName, "x");
    EXPECT_FALSE(goz.read(write(QStringLiteral("noend.GoZ"), noEnd.bytes())));
    EXPECT_TRUE(goz.readError().contains(QStringLiteral("without an end chunk")));

    GoZBytes truncated;
    truncated.chunk(GoZFile::TagVertices, 10, GoZBytes::floats({1, 2, 3}));
    EXPECT_FALSE(goz.read(write(QStringLiteral("trunc.GoZ"), truncated.bytes())));
    EXPECT_TRUE(goz.readError().contains(QStringLiteral("inside chunk 10001")));

    // A failed read leaves nothing of an earlier file behind.
    ASSERT_TRUE(goz.read(write(QStringLiteral("rich.GoZ"), richFile())));
    EXPECT_TRUE(goz.readError().isEmpty());
    EXPECT_FALSE(goz.read(write(QStringLiteral("noend2.GoZ"), noEnd.bytes())));
    EXPECT_EQ(goz.vertexCount, 0);
    EXPECT_TRUE(goz.vertices.empty());
}

TEST_F(GoZFileTest, MagicIgnoresCaseAndStopsAtZero)
{
    QByteArray lower = GoZBytes().end().bytes();
    lower.replace(0, 4, "gozB");
    GoZFile goz;
    EXPECT_TRUE(goz.read(write(QStringLiteral("lower.GoZ"), lower)));
    QByteArray shortMagic = GoZBytes().end().bytes();
    shortMagic.replace(0, 4, QByteArray("Go\0\0", 4));
    EXPECT_TRUE(goz.read(write(QStringLiteral("zero.GoZ"), shortMagic)));
}

TEST_F(GoZFileTest, EmptyCountChunksKeepTagAndCount)
{
    GoZBytes file;
    file.chunk(GoZFile::TagVertices, 1, GoZBytes::floats({1, 2, 3}))
        .chunk(GoZFile::TagTriangles, 0, QByteArray())
        .chunk(GoZFile::TagUVTriangles, 0, QByteArray())
        .text(GoZFile::TagName, "first")
        .text(GoZFile::TagName, "second")
        .chunk(GoZFile::TagText45001, 1, QByteArray())
        .end();
    GoZFile goz;
    ASSERT_TRUE(goz.read(write(QStringLiteral("empty.GoZ"), file.bytes())));
    EXPECT_EQ(goz.polygonTag, GoZFile::TagTriangles);
    EXPECT_EQ(goz.polygonCount, 0);
    EXPECT_TRUE(goz.polygons.empty());
    EXPECT_EQ(goz.uvTag, GoZFile::TagUVTriangles);
    // A repeated tag replaces the earlier chunk; an empty text chunk is absent.
    EXPECT_EQ(goz.name.left(6), QByteArray("second"));
    EXPECT_TRUE(goz.string45001.isNull());
}

TEST_F(GoZFileTest, RefusesToWriteVerticesThatDoNotMatchTheCount)
{
    GoZFile goz;
    goz.vertexCount = 3;
    goz.vertices = {1, 2, 3};
    EXPECT_FALSE(goz.write(path(QStringLiteral("bad.GoZ"))));
}

namespace {

template <typename T> std::vector<T> toList(const GeometryStack2::GoZArray<T>& array)
{
    std::vector<T> list;
    for (size_t i = 0; i < array.size(); ++i)
        list.push_back(array[i]);
    return list;
}

} // namespace

TEST_F(GoZFileTest, AMappedFileHoldsTheSameContentAtAnyAlignment)
{
    for (int misalignment : {0, 1, 2, 3}) {
        SCOPED_TRACE(misalignment);
        const QString file = write(QStringLiteral("rich%1.GoZ").arg(misalignment), richFile(misalignment));
        GoZFile read;
        ASSERT_TRUE(read.read(file));
        GeometryStack2::GoZMappedFile mapped;
        ASSERT_TRUE(mapped.open(file)) << mapped.readError().toStdString();
        const GoZFile& fields = mapped.fields();
        EXPECT_EQ(fields.name, read.name);
        EXPECT_EQ(fields.secondName, read.secondName);
        EXPECT_EQ(fields.value5001, read.value5001);
        EXPECT_EQ(fields.string55001, read.string55001);
        EXPECT_EQ(fields.float55001, read.float55001);
        EXPECT_TRUE(fields.vertices.empty()) << "the arrays stay in the file";
        const GeometryStack2::GoZArrays& a = mapped.arrays();
        EXPECT_EQ(a.vertexCount, read.vertexCount);
        EXPECT_EQ(a.polygonCount, read.polygonCount);
        EXPECT_EQ(a.polygonTag, read.polygonTag);
        EXPECT_EQ(a.uvTag, read.uvTag);
        EXPECT_EQ(toList(a.vertices), read.vertices);
        EXPECT_EQ(toList(a.polygons), read.polygons);
        EXPECT_EQ(toList(a.uvs), read.uvs);
        EXPECT_EQ(toList(a.vertexMask), read.vertexMask);
        EXPECT_EQ(toList(a.vertexColors), read.vertexColors);
        EXPECT_EQ(toList(a.polygonGroups), read.polygonGroups);
        // And the copy reads the right values, whatever the alignment.
        EXPECT_EQ(read.polygons, (std::vector<int32_t>{0, 1, 2, 3, 1, 4, 2, -1}));
        EXPECT_EQ(read.vertexColors, (std::vector<uint32_t>{1, 2, 3, 4, 5}));
        EXPECT_FLOAT_EQ(read.uvs[10], 0.6f);
    }
    GeometryStack2::GoZMappedFile missing;
    EXPECT_FALSE(missing.open(path(QStringLiteral("missing.GoZ"))));
    EXPECT_FALSE(missing.readError().isEmpty());
}
