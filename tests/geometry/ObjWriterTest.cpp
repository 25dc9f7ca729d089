#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include "geometry/GeomStack.h"
#include "geometry/ProgressInterface.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

using GeometryStack2::GeomStack;

namespace {

struct LabelRecorder : Welk::ProgressInterface
{
    QStringList labels;
    void start(const QString& label, long long) override { labels << label; }
    void setValue(long long, const QString& label) override
    {
        if (!label.isEmpty() && (labels.isEmpty() || labels.last() != label))
            labels << label;
    }
    void end() override {}
};

QStringList lines(const QByteArray& text)
{
    return QString::fromUtf8(text).split(QLatin1Char('\n'));
}

} // namespace

TEST(ObjWriter, WritesTheDocumentedLayout)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.obj"));
    const GeomStack mesh = TestSupport::twoQuads();
    LabelRecorder progress;
    QString error;
    ASSERT_TRUE(mesh.saveObj(path, true, true, &progress, &error)) << error.toStdString();
    const QStringList text = lines(TestSupport::readFile(path));
    ASSERT_GE(text.size(), 30);
    EXPECT_EQ(text[0], QStringLiteral("mtllib two.mtl"));
    EXPECT_EQ(text[1], QString());
    EXPECT_EQ(text[2], QStringLiteral("v 0.000000 0.000000 0.000000"));
    EXPECT_EQ(text[3], QStringLiteral("v 1.000000 0.000000 0.000000"));
    EXPECT_EQ(text[8], QStringLiteral("# 6 vertices"));
    EXPECT_EQ(text[9], QString());
    EXPECT_EQ(text[11], QStringLiteral("vt 0.500000 0.000000"));
    EXPECT_EQ(text[16], QStringLiteral("# 6 texture coords"));
    EXPECT_EQ(text[18], QStringLiteral("vn 0.000000 0.000000 1.000000"));
    EXPECT_EQ(text[24], QStringLiteral("# 6 vertex normals"));
    EXPECT_EQ(text[26], QStringLiteral("g left"));
    EXPECT_EQ(text[27], QStringLiteral("usemtl clay"));
    EXPECT_EQ(text[28], QStringLiteral("f 1/1/1 2/2/2 5/5/5 4/4/4"));
    EXPECT_EQ(text[29], QStringLiteral("g right"));
    // The material did not change: no second usemtl.
    EXPECT_EQ(text[30], QStringLiteral("f 2/2/2 3/3/3 6/6/6 5/5/5"));
    EXPECT_EQ(text[31], QStringLiteral("# 2 polygons"));
    EXPECT_EQ(progress.labels.first(), QStringLiteral("Saving to obj file"));
    EXPECT_TRUE(progress.labels.contains(QStringLiteral("Saving vertices")));
    EXPECT_TRUE(progress.labels.contains(QStringLiteral("Saving texture coordinates")));
    EXPECT_TRUE(progress.labels.contains(QStringLiteral("Saving normals")));
    EXPECT_TRUE(progress.labels.contains(QStringLiteral("Saving polygons")));
}

TEST(ObjWriter, CornerFormsFollowTheFlags)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.obj"));
    const GeomStack mesh = TestSupport::twoQuads();
    const auto faceLine = [&](bool tex, bool normals) {
        EXPECT_TRUE(mesh.saveObj(path, tex, normals));
        for (const QString& line : lines(TestSupport::readFile(path)))
            if (line.startsWith(QLatin1String("f ")))
                return line;
        return QString();
    };
    EXPECT_EQ(faceLine(false, false), QStringLiteral("f 1 2 5 4"));
    EXPECT_EQ(faceLine(true, false), QStringLiteral("f 1/1 2/2 5/5 4/4"));
    EXPECT_EQ(faceLine(false, true), QStringLiteral("f 1//1 2//2 5//5 4//4"));

    // Without texture indices the flag is ignored and no vt lines appear.
    const GeomStack bare = TestSupport::cube();
    ASSERT_TRUE(bare.saveObj(path, true, false));
    const QByteArray text = TestSupport::readFile(path);
    EXPECT_FALSE(text.contains("vt "));
    EXPECT_FALSE(text.contains("texture coords"));
    EXPECT_TRUE(text.contains("f 1 3 4 2\n"));
}

TEST(ObjWriter, WhatItWritesReadsBackTheSame)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("round.obj"));
    const GeomStack mesh = TestSupport::twoQuads();
    ASSERT_TRUE(mesh.saveObj(path));
    QString error;
    const GeomStack back(path, error, nullptr, GeomStack::PlainLoader);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_EQ(back.vertices(), mesh.vertices());
    EXPECT_EQ(back.texCoords(), mesh.texCoords());
    EXPECT_EQ(back.vertexIndices(), mesh.vertexIndices());
    EXPECT_EQ(back.texCoordIndices(), mesh.texCoordIndices());
    EXPECT_EQ(back.polygroupIds(), mesh.polygroupIds());
    EXPECT_EQ(back.polygroupNames(), mesh.polygroupNames());
    EXPECT_EQ(back.materialNames(), mesh.materialNames());
    EXPECT_EQ(back.mtllib(), mesh.mtllib());
}

TEST(ObjWriter, UnwritablePathGivesItsMessage)
{
    QString error;
    EXPECT_FALSE(TestSupport::twoQuads().saveObj(QStringLiteral("/nonexistent-dir/x.obj"), true, true, nullptr,
                                                 &error));
    EXPECT_EQ(error, QStringLiteral("Cannot open file /nonexistent-dir/x.obj"));
}
