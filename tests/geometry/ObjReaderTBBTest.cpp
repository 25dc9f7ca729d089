#include <tbb/global_control.h>

#include "support/TestFiles.h"

#include "geometry/GeomStackTriangulated.h"
#include "geometry/ObjChunk.h"
#include "geometry/ObjReaderTBB.h"
#include "geometry/ProgressInterface.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <random>
#include <QTemporaryDir>

using namespace GeometryStack2;

namespace {

class ObjReaderTBBTest : public ::testing::Test
{
protected:
    /// Reads `text` with the graph reader; chunk size 6144 unless given.
    bool read(const QByteArray& text, MeshLists& lists, QString& error, qint64 chunkSize = 6144)
    {
        const QString path = m_dir.filePath(QStringLiteral("mesh.obj"));
        EXPECT_TRUE(TestSupport::writeFile(path, text));
        return ObjReaderTBB::read(path, lists, error, nullptr, chunkSize);
    }
    QString errorOf(const QByteArray& text, qint64 chunkSize = 6144)
    {
        MeshLists lists;
        QString error;
        read(text, lists, error, chunkSize);
        return error;
    }
    QTemporaryDir m_dir;
};

/// A grid of quads with texture coordinates, long enough for many chunks.
QByteArray grid(int columns, int rows, const QByteArray& beforeFaces = QByteArray(), int groupEvery = 0)
{
    QByteArray text;
    for (int y = 0; y <= rows; ++y)
        for (int x = 0; x <= columns; ++x)
            text += "v " + QByteArray::number(x) + ".5 " + QByteArray::number(y) + " -0.25\n";
    for (int y = 0; y <= rows; ++y)
        for (int x = 0; x <= columns; ++x)
            text += "vt " + QByteArray::number(double(x) / columns) + " " + QByteArray::number(double(y) / rows) + "\n";
    text += beforeFaces;
    int face = 0;
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x, ++face) {
            if (groupEvery > 0 && face % groupEvery == 0)
                text += "g part" + QByteArray::number(face / groupEvery % 3) + "\n";
            const int a = y * (columns + 1) + x + 1, b = a + 1, c = a + columns + 2, d = a + columns + 1;
            text += "f " + QByteArray::number(a) + "/" + QByteArray::number(a) + " " + QByteArray::number(b) + "/" +
                    QByteArray::number(b) + " " + QByteArray::number(c) + "/" + QByteArray::number(c) + " " +
                    QByteArray::number(d) + "/" + QByteArray::number(d) + "\n";
        }
    return text;
}

void expectSameLists(const MeshLists& a, const GeomStack& b)
{
    EXPECT_EQ(a.vertices, b.vertices());
    EXPECT_EQ(a.texCoords, b.texCoords());
    EXPECT_EQ(a.vertexIndices, b.vertexIndices());
    EXPECT_EQ(a.texCoordIndices, b.texCoordIndices());
    EXPECT_EQ(a.polygonOffsets, b.polygonOffsets());
    EXPECT_EQ(a.polygonSizes, b.polygonSizes());
    EXPECT_EQ(a.polygroupIds, b.polygroupIds());
    EXPECT_EQ(a.polygroupNames, b.polygroupNames());
    EXPECT_EQ(a.materialIds, b.materialIds());
    EXPECT_EQ(a.materialNames, b.materialNames());
    EXPECT_EQ(a.mtllib, b.mtllib());
}

} // namespace

TEST(ObjReaderTBBLayout, AboutFortyChunksForLargerFiles)
{
    using L = ObjReaderTBB;
    EXPECT_EQ(L::chunkLayout(245760, 0).chunkSize, 6144);
    EXPECT_EQ(L::chunkLayout(245760, 0).chunkCount, 40);
    EXPECT_EQ(L::chunkLayout(245759, 0).chunkSize, 6144);
    EXPECT_EQ(L::chunkLayout(245759, 0).chunkCount, 40);
    EXPECT_EQ(L::chunkLayout(1000000, 0).chunkSize, 25000);
    EXPECT_EQ(L::chunkLayout(1000000, 0).chunkCount, 40);
    EXPECT_EQ(L::chunkLayout(1000001, 0).chunkCount, 41);
    EXPECT_EQ(L::chunkLayout(100, 0).chunkCount, 1);
    EXPECT_EQ(L::chunkLayout(0, 0).chunkCount, 0);
    // A requested size of at least 6144 is taken as it is.
    EXPECT_EQ(L::chunkLayout(1000000, 10000).chunkSize, 10000);
    EXPECT_EQ(L::chunkLayout(1000000, 10000).chunkCount, 100);
    EXPECT_EQ(L::chunkLayout(1000000, 100).chunkSize, 25000);
}

TEST_F(ObjReaderTBBTest, AgreesWithThePlainLoaderAcrossManyChunks)
{
    const QByteArray text = "mtllib scene.mtl\n" + grid(60, 40, "usemtl skin\n", 700);
    ASSERT_GT(text.size(), 20 * 6144);
    for (qint64 chunkSize : {qint64(6144), qint64(7001), qint64(0)}) {
        MeshLists lists;
        QString error;
        ASSERT_TRUE(read(text, lists, error, chunkSize)) << error.toStdString();
        QString plainError;
        const GeomStack plain(m_dir.filePath(QStringLiteral("mesh.obj")), plainError, nullptr, GeomStack::PlainLoader);
        ASSERT_TRUE(plainError.isEmpty());
        expectSameLists(lists, plain);
        EXPECT_EQ(lists.polygonSizes.size(), 2400);
        EXPECT_EQ(lists.polygroupNames,
                  (QStringList{QStringLiteral("part0"), QStringLiteral("part1"), QStringLiteral("part2")}));
    }
}

TEST_F(ObjReaderTBBTest, ReusedChunkBuffersNeverLeakTextIntoTheNextChunk)
{
    // Chunk text buffers are handed from chunk to chunk. With CRLF line ends
    // and chunk sizes one byte apart, a boundary falls on every byte of a
    // line, "\r" | "\n" included, and a stale byte of an earlier chunk left
    // behind the text would show as a wrong value or a wrong line.
    QByteArray text = grid(40, 30, "usemtl skin\n", 90);
    text.replace("\n", "\r\n");
    QString plainError;
    const QString path = m_dir.filePath(QStringLiteral("mesh.obj"));
    ASSERT_TRUE(TestSupport::writeFile(path, text));
    const GeomStack plain(path, plainError, nullptr, GeomStack::PlainLoader);
    ASSERT_TRUE(plainError.isEmpty()) << plainError.toStdString();
    for (qint64 chunkSize = 6144; chunkSize < 6144 + 40; ++chunkSize) {
        SCOPED_TRACE(chunkSize);
        MeshLists lists;
        QString error;
        ASSERT_TRUE(ObjReaderTBB::read(path, lists, error, nullptr, chunkSize)) << error.toStdString();
        expectSameLists(lists, plain);
    }
}

TEST_F(ObjReaderTBBTest, GroupsAndMaterialsCarryAcrossChunkBoundaries)
{
    // One group and one material, set once before thousands of faces; the
    // faces before them belong to none, in every chunk.
    QByteArray text = grid(80, 30);
    const int firstFace = text.indexOf("\nf ") + 1;
    text.insert(firstFace + 40 * 40, "");
    QByteArray faces = text.mid(firstFace);
    const int split = faces.indexOf("\nf ", 8000) + 1;
    text = text.left(firstFace) + faces.left(split) + "g body\nusemtl clay\n" + faces.mid(split);
    MeshLists lists;
    QString error;
    ASSERT_TRUE(read(text, lists, error)) << error.toStdString();
    const int before = faces.left(split).count("\nf ") + (faces.startsWith("f ") ? 1 : 0);
    ASSERT_GT(before, 100);
    for (int f = 0; f < lists.polygroupIds.size(); ++f) {
        ASSERT_EQ(lists.polygroupIds[f], f < before ? -1 : 0) << f;
        ASSERT_EQ(lists.materialIds[f], f < before ? -1 : 0) << f;
    }
    EXPECT_EQ(lists.polygroupNames, QStringList{QStringLiteral("body")});
}

TEST_F(ObjReaderTBBTest, LastLineWithoutNewlineAndCarriageReturns)
{
    MeshLists lists;
    QString error;
    ASSERT_TRUE(read("v 0 0 0\r\nv\t1\t0\t0\r\nv 0 1 0\r\nf 1 2 3", lists, error)) << error.toStdString();
    EXPECT_EQ(lists.vertices[1], QVector3D(1, 0, 0));
    EXPECT_EQ(lists.vertexIndices, (QVector<int>{0, 1, 2}));
    EXPECT_TRUE(lists.texCoordIndices.isEmpty());
}

TEST_F(ObjReaderTBBTest, LongLinesOnlyMatterAcrossChunkBoundaries)
{
    const QByteArray head = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
    const QByteArray longComment = "# " + QByteArray(2998, 'x') + "\n";
    QByteArray padding;
    while (head.size() + padding.size() < 3500)
        padding += "v 0 0 0\n";
    // 3000 bytes from 3500 on: more than 2048 of them lie before the first
    // boundary at 6144 and would have to be carried over.
    EXPECT_EQ(errorOf(head + padding + longComment + "f 1 2 3\n" + QByteArray(7000, '\n')),
              QStringLiteral("The file contains too long lines"));
    // The same line inside the first chunk goes unnoticed.
    MeshLists lists;
    QString error;
    EXPECT_TRUE(read(head + longComment + "f 1 2 3\n" + QByteArray(7000, '\n'), lists, error)) << error.toStdString();
}

TEST_F(ObjReaderTBBTest, NegativeIndicesCountFromTheEndOfTheFile)
{
    MeshLists lists;
    QString error;
    ASSERT_TRUE(read("v 0 0 0\nv 1 0 0\nv 0 1 0\nf -1 -2 -3\nv 5 5 5\n", lists, error)) << error.toStdString();
    // -1 is the last vertex of the whole file, not of those read so far.
    EXPECT_EQ(lists.vertexIndices, (QVector<int>{3, 2, 1}));

    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf -1 -2 -4\n"),
              QStringLiteral("File contains invalid negative vertex indexes"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf 0 1 2\n"), QStringLiteral("File contains invalid vertex indexes"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 4\n"), QStringLiteral("File contains invalid vertex indexes"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/-2 3/1\n"),
              QStringLiteral("File contains invalid negative texture vertex indexes"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/2 3/1\n"),
              QStringLiteral("File contains invalid texture vertex indexes"));
}

TEST_F(ObjReaderTBBTest, MixedTextureUseIsRefused)
{
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/1\nf 1 2 3\n"),
              QStringLiteral("File contains both: polygons with attached textures and polygons without them"));
    // Normals alone ("v//vn") are no texture indices.
    MeshLists lists;
    QString error;
    ASSERT_TRUE(read("v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 1\nf 1//1 2//1 3//1\nf 3 2 1\n", lists, error))
        << error.toStdString();
    EXPECT_TRUE(lists.texCoordIndices.isEmpty());
}

TEST_F(ObjReaderTBBTest, WrongLinesAreNumberedWithoutEmptyLines)
{
    EXPECT_EQ(errorOf("v 0 0 0\n\n\nv 1 2\n"), QStringLiteral("Wrong vertex coordinate in line 2"));
    EXPECT_EQ(errorOf("v 0 0 0\nvt 1\n"), QStringLiteral("Wrong texture coordinate in line 2"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\n\nf 1 2\n"), QStringLiteral("Wrong face in line 3"));
    EXPECT_EQ(errorOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 /2 3\n"), QStringLiteral("Wrong vertex index in line 4"));
    EXPECT_EQ(errorOf("v 0 0 0\nusemtl \n"), QStringLiteral("Wrong material name in line: 2"));
    EXPECT_EQ(errorOf("v 0 0 0\nusemtl\n"), QStringLiteral("Wrong material name in line: 2"));
    EXPECT_EQ(errorOf("mtllib\n"), QStringLiteral("Wrong material library name in line: 1"));
    // Deep inside a file of many chunks the line is still found.
    QByteArray big = grid(60, 40);
    const int at = big.indexOf("\nf ", big.size() / 2) + 1;
    big.insert(at, "f 1 2\n");
    const int line = big.left(at).count('\n') + 1;
    EXPECT_EQ(errorOf(big), QStringLiteral("Wrong face in line %1").arg(line));
}

TEST_F(ObjReaderTBBTest, EmptyAndFacelessFiles)
{
    EXPECT_EQ(errorOf(""), QStringLiteral("The file contains no vertices"));
    EXPECT_EQ(errorOf("v 1 2 3\n"), QStringLiteral("The file contains no polygons"));
    MeshLists lists;
    QString error;
    EXPECT_FALSE(ObjReaderTBB::read(m_dir.filePath(QStringLiteral("missing.obj")), lists, error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("Can not load file: ")));
}

TEST_F(ObjReaderTBBTest, ReportsThreeStepsPerChunk)
{
    struct Recorder : Welk::ProgressInterface
    {
        QString label;
        long long maximum = 0;
        std::atomic<long long> last{0};
        void start(const QString& l, long long max) override
        {
            label = l;
            maximum = max;
        }
        void setValue(long long value, const QString&) override { last = std::max<long long>(last, value); }
        void end() override {}
    } progress;
    const QString path = m_dir.filePath(QStringLiteral("p.obj"));
    ASSERT_TRUE(TestSupport::writeFile(path, grid(60, 40)));
    MeshLists lists;
    QString error;
    ASSERT_TRUE(ObjReaderTBB::read(path, lists, error, &progress));
    EXPECT_EQ(progress.label, QStringLiteral("Loading OBJ file"));
    const qint64 chunks = ObjReaderTBB::chunkLayout(QFileInfo(path).size(), 0).chunkCount;
    EXPECT_GT(chunks, 10);
    EXPECT_EQ(progress.maximum, 3 * chunks);
    EXPECT_EQ(progress.last, 3 * chunks);
}

TEST(ObjReaderTBBData, AgreesWithThePlainLoaderOnRealFiles)
{
    const QString folder = TestSupport::sharedDataFile(QString());
    ZWELK_REQUIRE_DATA(folder);
    int compared = 0;
    QDirIterator it(folder, {QStringLiteral("*.obj")}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QString plainError, graphError;
        const GeomStack plain(path, plainError, nullptr, GeomStack::PlainLoader);
        MeshLists graph;
        ObjReaderTBB::read(path, graph, graphError);
        EXPECT_EQ(graphError, plainError) << path.toStdString();
        if (graphError != plainError)
            continue;
        if (plainError.isEmpty() && graphError.isEmpty()) {
            SCOPED_TRACE(path.toStdString());
            expectSameLists(graph, plain);
            ++compared;
        }
    }
    EXPECT_GE(compared, 10);
}

TEST(ObjNonFiniteCoordinates, BothLoadersRefuseThemNamingTheLine)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("bad.obj"));
    // The graph reader's number parser turns garbage into NaN and 1e39 into
    // infinity without complaint; the mesh must still not load.
    for (const char* bad : {"nan", "inf", "-inf", "1e39", "1e30", "1.5x"}) {
        const QByteArray text = QByteArray("# comment\nv 0 0 0\n\nv 1 0 0\nv 0 ") + bad + " 0\nf 1 2 3\n";
        ASSERT_TRUE(TestSupport::writeFile(path, text));
        for (int loader : {int(GeomStack::GraphLoader), int(GeomStack::PlainLoader)}) {
            QString error;
            const GeomStack mesh(path, error, nullptr, loader);
            // Line 4 counting non-empty lines from 1, as the other line messages do.
            EXPECT_TRUE(error.startsWith(QStringLiteral("Wrong vertex coordinate in line 4")))
                << bad << " loader " << loader << ": " << error.toStdString();
        }
    }
    ASSERT_TRUE(TestSupport::writeFile(path, "v 0 0 0\nv 1e12 0 0\nv 0 1 0\nf 1 2 3\n"));
    QString error;
    const GeomStack mesh(path, error);
    EXPECT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_EQ(GeomStack::withFileName(QStringLiteral("Wrong face in line 3"), path),
              QStringLiteral("Wrong face in line 3: \n%1").arg(path));
    EXPECT_EQ(GeomStack::withFileName(QStringLiteral("Can not load file: %1").arg(path), path),
              QStringLiteral("Can not load file: %1").arg(path));
}

TEST_F(ObjReaderTBBTest, ALargeFileReadsBackTheExactMeshItWasWrittenFrom)
{
    // About 10 MB: every number written with nine significant digits, so
    // the mesh that comes back must be the one written, bit for bit.
    const int columns = 400, rows = 300;
    std::mt19937 random(2);
    std::uniform_real_distribution<float> jitter(-0.4f, 0.4f);
    QVector<QVector3D> vertices;
    QVector<QVector2D> texCoords;
    QByteArray text;
    char line[128];
    for (int y = 0; y <= rows; ++y)
        for (int x = 0; x <= columns; ++x) {
            const QVector3D v(0.0137f * (float(x) + jitter(random)), 0.79029f * float(y) + jitter(random),
                              std::sin(0.05f * float(x * y)) * 1e-3f);
            vertices.append(v);
            text.append(line, std::snprintf(line, sizeof line, "v %.9g %.9g %.9g\n", double(v.x()), double(v.y()),
                                            double(v.z())));
        }
    for (const QVector3D& v : vertices) {
        texCoords.append(QVector2D(v.x() / 6.0f, v.y() / 240.0f));
        text.append(line, std::snprintf(line, sizeof line, "vt %.9g %.9g\n", double(texCoords.last().x()),
                                        double(texCoords.last().y())));
    }
    QVector<int> corners;
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x) {
            const int a = y * (columns + 1) + x, b = a + 1, c = a + columns + 2, d = a + columns + 1;
            corners << a << b << c << d;
            text.append(line, std::snprintf(line, sizeof line, "f %d/%d %d/%d %d/%d %d/%d\n", a + 1, a + 1, b + 1,
                                            b + 1, c + 1, c + 1, d + 1, d + 1));
        }
    ASSERT_GT(text.size(), 8 << 20);
    MeshLists lists;
    QString error;
    ASSERT_TRUE(read(text, lists, error, 0)) << error.toStdString();
    EXPECT_TRUE(lists.vertices == vertices);
    EXPECT_TRUE(lists.texCoords == texCoords);
    EXPECT_TRUE(lists.vertexIndices == corners);
    EXPECT_TRUE(lists.texCoordIndices == corners);
    ASSERT_EQ(lists.polygonSizes.size(), columns * rows);
    EXPECT_EQ(lists.polygonOffsets.last(), corners.size());
}

namespace {

/// Peak resident memory of this process since the last reset, in bytes
/// (Linux: VmHWM; reset through /proc/self/clear_refs).
qint64 residentPeak()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong() * 1024;
    return -1;
}

bool resetResidentPeak()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    return clear.open(QIODevice::WriteOnly) && clear.write("5") == 1;
}

qint64 arrayBytes(const MeshLists& l)
{
    return qint64(l.vertices.size()) * 12 + qint64(l.texCoords.size()) * 8 +
           4 * qint64(l.vertexIndices.size() + l.texCoordIndices.size() + l.polygonOffsets.size() +
                      l.polygonSizes.size() + l.polygroupIds.size() + l.materialIds.size());
}

} // namespace

// With one thread nothing parses while the read loop runs, unless the loop
// itself waits for the graph: the worst case for the window of chunks.
TEST_F(ObjReaderTBBTest, OneThreadReadsTheSameMeshThroughTheWindow)
{
    tbb::global_control one(tbb::global_control::max_allowed_parallelism, 1);
    const QByteArray text = grid(60, 40, "usemtl skin\n", 700);
    for (qint64 chunkSize : {qint64(6144), qint64(0)}) {
        MeshLists lists;
        QString error;
        ASSERT_TRUE(read(text, lists, error, chunkSize)) << error.toStdString();
        QString plainError;
        const GeomStack plain(m_dir.filePath(QStringLiteral("mesh.obj")), plainError, nullptr, GeomStack::PlainLoader);
        ASSERT_TRUE(plainError.isEmpty());
        expectSameLists(lists, plain);
    }
}

TEST_F(ObjReaderTBBTest, PeakMemoryStaysNearTheFinalArrays)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer keeps freed memory in quarantine";
#elif defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer's allocator keeps freed memory and adds its own per thread";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    GTEST_SKIP() << "AddressSanitizer keeps freed memory in quarantine";
#endif
#endif
    const QString path = m_dir.filePath(QStringLiteral("large.obj"));
    qint64 fileSize = 0;
    {
        // Long comments make the text ten times the final arrays, so that
        // holding the whole text would show plainly in the peak.
        const QByteArray comment = "# " + QByteArray(400, 'c') + "\n";
        QByteArray text;
        for (const QByteArray& line : grid(200, 200, QByteArray(), 10000).split('\n'))
            text += line + "\n" + comment;
        fileSize = text.size();
        ASSERT_TRUE(TestSupport::writeFile(path, text));
    }
    if (!resetResidentPeak() || residentPeak() < 0)
        GTEST_SKIP() << "no /proc/self/clear_refs";
    tbb::global_control one(tbb::global_control::max_allowed_parallelism, 1);
    MeshLists lists;
    QString error;
    const qint64 before = residentPeak();
    ASSERT_TRUE(ObjReaderTBB::read(path, lists, error)) << error.toStdString();
    const qint64 growth = residentPeak() - before;
    const qint64 arrays = arrayBytes(lists);
    const qint64 chunk = ObjReaderTBB::chunkLayout(fileSize, 0).chunkSize;
    RecordProperty("file_bytes", QByteArray::number(fileSize).constData());
    RecordProperty("arrays_bytes", QByteArray::number(arrays).constData());
    RecordProperty("peak_growth_bytes", QByteArray::number(growth).constData());
    std::printf("file %lld arrays %lld peak growth %lld\n", fileSize, arrays, growth);
    ASSERT_GT(fileSize, 8 * arrays);
    EXPECT_LT(growth, 2 * arrays + 8 * chunk);
}

TEST(ChunkListArena, ListsFallBackOnTheHeapWhenTheReservationIsUsedUp)
{
    // Room for one list of 1000 ints: the second list must come from the
    // heap, both must hold what was written, and giving them back must not
    // disturb a list still in use.
    ChunkListArena arena(4096);
    ChunkArray<int32_t> first, second, third;
    first.allocate(1000, &arena);
    second.allocate(1000, &arena);
    third.allocate(10, nullptr);
    for (int i = 0; i < 1000; ++i) {
        first[size_t(i)] = i;
        second[size_t(i)] = -i;
    }
    EXPECT_NE(first.data() + 1000, second.data());
    second.reset();
    EXPECT_TRUE(second.empty());
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(first[size_t(i)], i);

    ChunkListArena none(0);
    EXPECT_EQ(none.take(16), nullptr);
    ChunkArray<QVector3D> onHeap;
    onHeap.allocate(3, &none);
    onHeap[2] = QVector3D(1, 2, 3);
    EXPECT_EQ(onHeap[2], QVector3D(1, 2, 3));

    // The reservation holds the lists of the worst file: a face line "f 1"
    // of 4 bytes carries a face and a corner, 24 bytes of lists.
    EXPECT_GE(ChunkListArena::capacityFor(4000, 1), size_t(1000 * 24));
    EXPECT_EQ(ChunkListArena::capacityFor(0, 0), size_t(0));
}
