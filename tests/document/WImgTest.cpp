#include "support/FileSizeLimit.h"
#include "support/QtPrinters.h"
#include "support/TestFiles.h"
#include "document/WImg.h"

#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

using Welk::WImg;

TEST(WImg, KeepsPixelTypeAndValuesThroughTiff)
{
    QTemporaryDir dir;
    const struct
    {
        WImg::PixelType type;
        int channels;
    } cases[] = {{WImg::UInt8, 3}, {WImg::UInt16, 4}, {WImg::Float32, 1}};
    for (const auto& c : cases) {
        WImg image(7, 5, c.channels, c.type);
        cv::Mat& mat = image.mat();
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7 * c.channels; ++x) {
                const double value = (x + 3 * y) % 200 + 0.25;
                if (c.type == WImg::UInt8)
                    mat.ptr<uchar>(y)[x] = uchar(value);
                else if (c.type == WImg::UInt16)
                    mat.ptr<ushort>(y)[x] = ushort(value * 300);
                else
                    mat.ptr<float>(y)[x] = float(value);
            }
        const QString path = dir.filePath(QStringLiteral("image%1.tif").arg(int(c.type)));
        QString error;
        ASSERT_TRUE(image.save(path, &error)) << error.toStdString();

        WImg back;
        ASSERT_TRUE(back.load(path, &error)) << error.toStdString();
        EXPECT_EQ(back.width(), 7);
        EXPECT_EQ(back.height(), 5);
        EXPECT_EQ(back.channels(), c.channels);
        EXPECT_EQ(back.pixelType(), c.type);
        EXPECT_EQ(cv::norm(back.mat(), image.mat(), cv::NORM_INF), 0.0);
        EXPECT_FALSE(back.attributes().isEmpty());
    }
}

TEST(WImg, UnreadableFilesLeaveANullImage)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("broken.tif"));
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("this is not an image");
    }
    WImg image(2, 2, 1, WImg::UInt8);
    QString error;
    EXPECT_FALSE(image.load(path, &error));
    EXPECT_TRUE(image.isNull());
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(image.load(dir.filePath(QStringLiteral("missing.png"))));
    EXPECT_TRUE(WImg().isNull());
    EXPECT_FALSE(WImg().save(dir.filePath(QStringLiteral("empty.tif")), &error));
}

TEST(WImg, FailedSaveKeepsThePreviousFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("result.tif"));
    WImg small(4, 4, 3, WImg::UInt8);
    QString error;
    ASSERT_TRUE(small.save(path, &error)) << error.toStdString();
    const QByteArray before = TestSupport::readFile(path);
    const QFile::Permissions permissions = QFileInfo(path).permissions();

    WImg large(512, 512, 4, WImg::Float32);
    cv::randu(large.mat(), 0.0, 1.0); // noise does not compress
    {
        TestSupport::FileSizeLimit limit(64 * 1024);
        ASSERT_TRUE(limit.active());
        EXPECT_FALSE(large.save(path, &error));
    }
    EXPECT_EQ(TestSupport::readFile(path), before);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{QStringLiteral("result.tif")});

    ASSERT_TRUE(large.save(path, &error)) << error.toStdString();
    EXPECT_EQ(QFileInfo(path).permissions(), permissions);
    WImg back;
    ASSERT_TRUE(back.load(path, &error)) << error.toStdString();
    EXPECT_EQ(back.width(), 512);
}
