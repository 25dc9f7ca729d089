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
#include <QtEndian>

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

// Found by fuzz_image (tests/fuzz/regressions/image): 631 bytes of EXR whose
// "Software" attribute claims 1.6 GB, which OpenEXR allocated and cleared
// before failing (a minute and 2 GB under the fuzzer).
TEST(WImg, ExrAttributeLargerThanTheFileIsRefused)
{
    WImg image;
    QString error;
    EXPECT_FALSE(image.load(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/image/exr-attribute-larger-than-file.exr"), &error));
    EXPECT_TRUE(image.isNull());
    EXPECT_TRUE(error.contains(QStringLiteral("attribute \"Software\" claims 1635214444 bytes"))) << error.toStdString();
    // OpenEXR reads a channel list to its empty name, whatever its size
    // field says; here it runs on into an attribute of 1.8 GB.
    EXPECT_FALSE(image.load(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/image/exr-channel-list-past-its-size.exr"), &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("The EXR header of "))) << error.toStdString();

    // A file the writer made loads; its first attribute made one byte too
    // long for the file is refused, and back at its size loads again.
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("image.exr"));
    WImg written(6, 3, 3, WImg::Float32);
    cv::randu(written.mat(), 0.0, 1.0);
    ASSERT_TRUE(written.save(path, &error)) << error.toStdString();
    QByteArray bytes = TestSupport::readFile(path);
    // Magic and version, then the first attribute's name and type.
    const int nameEnd = bytes.indexOf('\0', 8);
    const int sizeAt = bytes.indexOf('\0', nameEnd + 1) + 1;
    ASSERT_GT(nameEnd, 8);
    ASSERT_GT(sizeAt, nameEnd + 1);
    const qint32 size = qFromLittleEndian<qint32>(bytes.constData() + sizeAt);
    const qint32 tooLong = qint32(bytes.size() - (sizeAt + 4)) + 1;
    ASSERT_LT(size, tooLong);
    for (const qint32 claimed : {tooLong, qint32(-1), size}) {
        SCOPED_TRACE(claimed);
        qToLittleEndian<qint32>(claimed, bytes.data() + sizeAt);
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        WImg back;
        const bool loaded = back.load(path, &error);
        EXPECT_EQ(loaded, claimed == size) << error.toStdString();
        if (loaded) {
            EXPECT_LT(cv::norm(back.mat(), written.mat(), cv::NORM_INF), 1e-3); // EXR may store halves
        } else {
            EXPECT_TRUE(error.contains(QStringLiteral("claims %1 bytes").arg(claimed))) << error.toStdString();
        }
    }
}

// Found by fuzz_image: 90 bytes of BMP claiming 4 x 268435459 pixels made
// the decoder ask for 3 GB. Sizes are refused from the header alone.
TEST(WImg, ImagesBeyondTheLargestTextureAreRefusedFromTheHeader)
{
    WImg image;
    QString error;
    EXPECT_FALSE(image.load(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/image/bmp-height-beyond-any-texture.bmp"), &error));
    EXPECT_TRUE(image.isNull());
    EXPECT_EQ(error, QStringLiteral("The image is 4 x 268435459 pixels, larger than the 16384 x 16384 that can be read"));

    // The same header with a height that fits reads until the data runs out.
    QByteArray bytes = TestSupport::readFile(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/image/bmp-height-beyond-any-texture.bmp"));
    qToLittleEndian<qint32>(3, bytes.data() + 22);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("small.bmp"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    file.close();
    error.clear();
    if (image.load(path, &error)) {
        EXPECT_EQ(image.height(), 3);
    } else {
        EXPECT_FALSE(error.isEmpty());
        EXPECT_FALSE(error.contains(QStringLiteral("larger than"))) << error.toStdString();
    }
}

// Found by fuzz_image: an EXR of 20000516 x 3 pixels written over an image
// just read under the same name. OpenImageIO's shared cache still gave the
// old file's header, so the size check passed and the read of the new file
// asked for 30.7 GB. The header checked must be the file's own.
TEST(WImg, ImageReplacedUnderItsNameIsCheckedAnew)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("texture.exr"));
    WImg small(4, 3, 3, WImg::Float32);
    QString error;
    ASSERT_TRUE(small.save(path, &error)) << error.toStdString();
    WImg image;
    ASSERT_TRUE(image.load(path, &error)) << error.toStdString();
    const QByteArray wide =
        TestSupport::readFile(QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/image/exr-replacing-a-read-image-under-its-name.exr"));
    ASSERT_FALSE(wide.isEmpty());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(wide);
    file.close();
    EXPECT_FALSE(image.load(path, &error));
    EXPECT_TRUE(image.isNull());
    EXPECT_TRUE(error.startsWith(QStringLiteral("The image is 20000516 x 3 pixels"))) << error.toStdString();
}
