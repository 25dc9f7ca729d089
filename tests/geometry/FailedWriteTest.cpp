// A result file is replaced whole or not at all: when the disk refuses a
// write halfway, the previous file stays as it was and nothing else remains
// in the folder.
#include "support/FileSizeLimit.h"
#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include "geometry/GeomStack.h"
#include "geometry/GoZFile.h"
#include "geometry/GoZMeshConversion.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

using namespace GeometryStack2;

namespace {

/// A mesh large enough that its files are several times the limit below.
GeomStack largeMesh()
{
    QVector<QVector3D> vertices;
    QVector<int> indices, sizes, offsets{0};
    for (int i = 0; i < 2000; ++i)
        vertices << QVector3D(float(i), float(i % 7), float(i % 13) * 0.5f);
    for (int i = 0; i + 2 < 2000; ++i) {
        indices << i << i + 1 << i + 2;
        sizes << 3;
        offsets << indices.size();
    }
    return GeomStack(vertices, indices, sizes, offsets, {}, {}, {}, {}, {}, {}, {}, QString());
}

constexpr rlim_t Limit = 16 * 1024;

QStringList folderEntries(const QTemporaryDir& dir)
{
    return QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

} // namespace

TEST(FailedWrite, GoZKeepsThePreviousResult)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Result.GoZ"));
    const GoZFile small = gozFromMesh(TestSupport::twoQuads(), "Small");
    ASSERT_TRUE(small.write(path));
    const QByteArray before = TestSupport::readFile(path);

    const GoZFile large = gozFromMesh(largeMesh(), "Large");
    {
        TestSupport::FileSizeLimit limit(Limit);
        ASSERT_TRUE(limit.active());
        EXPECT_FALSE(large.write(path));
    }
    EXPECT_EQ(TestSupport::readFile(path), before);
    EXPECT_EQ(folderEntries(dir), QStringList{QStringLiteral("Result.GoZ")});

    // Without the limit the same write goes through and replaces the file.
    ASSERT_TRUE(large.write(path));
    GoZFile back;
    ASSERT_TRUE(back.read(path)) << back.readError().toStdString();
    EXPECT_EQ(back.vertices, large.vertices);
}

TEST(FailedWrite, ObjKeepsThePreviousFileAndSaysWhy)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("result.obj"));
    ASSERT_TRUE(TestSupport::twoQuads().saveObj(path));
    const QByteArray before = TestSupport::readFile(path);

    QString error;
    {
        TestSupport::FileSizeLimit limit(Limit);
        ASSERT_TRUE(limit.active());
        EXPECT_FALSE(largeMesh().saveObj(path, true, true, nullptr, &error));
    }
    EXPECT_EQ(error, QStringLiteral("Cannot write file %1").arg(path));
    EXPECT_EQ(TestSupport::readFile(path), before);
    EXPECT_EQ(folderEntries(dir), QStringList{QStringLiteral("result.obj")});
}

TEST(FailedWrite, NewFileIsNotCreatedWhenTheWriteFails)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("New.GoZ"));
    const GoZFile large = gozFromMesh(largeMesh(), "Large");
    {
        TestSupport::FileSizeLimit limit(Limit);
        ASSERT_TRUE(limit.active());
        EXPECT_FALSE(large.write(path));
    }
    EXPECT_TRUE(folderEntries(dir).isEmpty()) << folderEntries(dir).join(QLatin1Char(' ')).toStdString();
}
