#include "support/QtPrinters.h"
#include "support/TestFiles.h"
#include "document/BmpHeaderCheck.h"
#include "document/WImg.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>

#include <opencv2/core.hpp>

#include <array>
#include <vector>

using Welk::bmpHeaderProblem;
using Welk::WImg;

namespace {

/// A BMP file with a 40-byte header; `palette` holds blue, green, red.
QByteArray bmpFile(qint32 width, qint32 height, int bits, quint32 compression,
                   const std::vector<std::array<uchar, 3>>& palette, const QByteArray& pixels)
{
    QByteArray header(54, '\0');
    uchar* h = reinterpret_cast<uchar*>(header.data());
    const quint32 offset = 54 + 4 * quint32(palette.size());
    h[0] = 'B';
    h[1] = 'M';
    qToLittleEndian<quint32>(offset + pixels.size(), h + 2);
    qToLittleEndian<quint32>(offset, h + 10);
    qToLittleEndian<quint32>(40, h + 14);
    qToLittleEndian<qint32>(width, h + 18);
    qToLittleEndian<qint32>(height, h + 22);
    qToLittleEndian<quint16>(1, h + 26);
    qToLittleEndian<quint16>(quint16(bits), h + 28);
    qToLittleEndian<quint32>(compression, h + 30);
    qToLittleEndian<quint32>(quint32(pixels.size()), h + 34);
    qToLittleEndian<quint32>(quint32(palette.size()), h + 46);
    for (const auto& colour : palette)
        header.append(char(colour[0])).append(char(colour[1])).append(char(colour[2])).append('\0');
    return header + pixels;
}

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray result;
    for (const int v : values)
        result.append(char(v));
    return result;
}

class BmpHeaderCheck : public ::testing::Test {
protected:
    QString write(const QByteArray& contents)
    {
        const QString path = m_dir.filePath(QStringLiteral("image%1.bmp").arg(m_count++));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(contents);
        return path;
    }

    QTemporaryDir m_dir;
    int m_count = 0;
};

// Two colours that are not grey, blue first.
const std::vector<std::array<uchar, 3>> twoColours = {{{255, 0, 0}}, {{0, 0, 255}}};

} // namespace

// Found by fuzz_image: 62 bytes of BMP whose width, 33556996, made
// OpenImageIO's scanline reader, which converts 64 rows at a time whatever
// the height, ask for 64 rows of 33556996 pixels at 12 bytes: 25.8 GB.
TEST_F(BmpHeaderCheck, RowLongerThanAnyTextureIsRefusedBeforeTheDecoder)
{
    const QString path = QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/image/bmp-row-longer-than-any-texture.bmp");
    const QString expected =
        QStringLiteral("The image is 33556996 x 3 pixels, larger than the 16384 x 16384 that can be read");
    EXPECT_EQ(bmpHeaderProblem(path), expected);
    WImg image;
    QString error;
    EXPECT_FALSE(image.load(path, &error));
    EXPECT_TRUE(image.isNull());
    EXPECT_EQ(error, expected);

    // With a width that fits, its compression field (0x0c000000) is none of
    // BMP's; with none, its 3 rows of 3000 bytes are not in the file.
    QByteArray contents = TestSupport::readFile(path);
    const qint64 pixelBytes = contents.size() - 54;
    qToLittleEndian<qint32>(1000, contents.data() + 18);
    EXPECT_EQ(bmpHeaderProblem(write(contents)),
              QStringLiteral("The BMP file %1 uses compression 201326592, which cannot be read")
                  .arg(m_dir.filePath(QStringLiteral("image0.bmp"))));
    qToLittleEndian<quint32>(0, contents.data() + 30);
    const QString cut = write(contents);
    const QString problem = bmpHeaderProblem(cut);
    EXPECT_TRUE(problem.endsWith(
        QStringLiteral("its 1000 x 3 pixels of 24 bits need 9000 bytes, but only %1 follow its header").arg(pixelBytes)))
        << problem.toStdString();
    EXPECT_FALSE(image.load(cut, &error));
    EXPECT_EQ(error, problem);
}

TEST_F(BmpHeaderCheck, WrittenImagesPassAndCutOnesAreRefused)
{
    WImg written(7, 5, 3, WImg::UInt8);
    cv::randu(written.mat(), 0, 256);
    const QString path = m_dir.filePath(QStringLiteral("written.bmp"));
    QString error;
    ASSERT_TRUE(written.save(path, &error)) << error.toStdString();
    EXPECT_EQ(bmpHeaderProblem(path), QString());
    WImg back;
    ASSERT_TRUE(back.load(path, &error)) << error.toStdString();
    EXPECT_EQ(cv::norm(back.mat(), written.mat(), cv::NORM_INF), 0.0);

    // Rows of 7 pixels take 21 bytes and are padded to 24.
    QByteArray contents = TestSupport::readFile(path);
    contents.chop(1);
    const QString cut = write(contents);
    EXPECT_TRUE(bmpHeaderProblem(cut).endsWith(QStringLiteral("need 120 bytes, but only 119 follow its header")))
        << bmpHeaderProblem(cut).toStdString();
    EXPECT_FALSE(back.load(cut, &error));
    EXPECT_TRUE(back.isNull());

    // Files that are not BMP are left to their own readers.
    EXPECT_EQ(bmpHeaderProblem(m_dir.filePath(QStringLiteral("missing.bmp"))), QString());
    EXPECT_EQ(bmpHeaderProblem(write("BM")), QString());
    EXPECT_EQ(bmpHeaderProblem(write(QByteArray(100, 'x'))), QString());
}

TEST_F(BmpHeaderCheck, HeadersTheDecoderCannotReadAreRefused)
{
    const QByteArray row = bytes({0, 0, 0, 0});
    EXPECT_EQ(bmpHeaderProblem(write(bmpFile(1, 1, 24, 0, {}, row))), QString());
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(0, 1, 24, 0, {}, row))).endsWith(QStringLiteral("claims 0 x 1 pixels")));
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(-1, 1, 24, 0, {}, row))).endsWith(QStringLiteral("claims -1 x 1 pixels")));
    // A negative height only puts the top row first.
    EXPECT_EQ(bmpHeaderProblem(write(bmpFile(1, -1, 24, 0, {}, row))), QString());
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(1, 1, 2, 0, twoColours, row)))
                    .endsWith(QStringLiteral("has 2 bits per pixel, which cannot be read")));
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(1, 1, 24, 4, {}, row))).contains(QStringLiteral("compression 4")));
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(1, 1, 24, 1, {}, row)))
                    .endsWith(QStringLiteral("run-length data of 24 bits per pixel")));
    // 16384 x 16384 and strips as long fit; one more row does not, and is
    // refused without the file holding any of those pixels.
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(16384, 16384, 24, 0, {}, row))).contains(QStringLiteral("need")));
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(16384, 16385, 24, 0, {}, row))).startsWith(QStringLiteral("The image is")));
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(65536, 4096, 24, 0, {}, row))).contains(QStringLiteral("need")));
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(65537, 1, 24, 0, {}, row))).startsWith(QStringLiteral("The image is")));
}

TEST_F(BmpHeaderCheck, PaletteIndicesMustNameAColour)
{
    // 8 bits, rows of 3 pixels padded to 4 bytes, two rows.
    const QByteArray valid = bytes({0, 1, 1, 0, 1, 0, 0, 0});
    const QString good = write(bmpFile(3, 2, 8, 0, twoColours, valid));
    EXPECT_EQ(bmpHeaderProblem(good), QString());
    WImg image;
    QString error;
    ASSERT_TRUE(image.load(good, &error)) << error.toStdString();
    ASSERT_EQ(image.channels(), 3);
    // The first row in the file is the bottom one; colour 1 is red.
    EXPECT_EQ(image.mat().at<cv::Vec3b>(1, 1), cv::Vec3b(255, 0, 0));
    EXPECT_EQ(image.mat().at<cv::Vec3b>(0, 0), cv::Vec3b(255, 0, 0));
    EXPECT_EQ(image.mat().at<cv::Vec3b>(0, 1), cv::Vec3b(0, 0, 255));

    // Padding bytes are no pixels; an index beyond the two colours is refused.
    EXPECT_EQ(bmpHeaderProblem(write(bmpFile(3, 2, 8, 0, twoColours, bytes({0, 1, 1, 9, 1, 0, 0, 9})))), QString());
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(3, 2, 8, 0, twoColours, bytes({0, 1, 1, 0, 1, 0, 7, 0}))))
                    .endsWith(QStringLiteral("a pixel uses colour 7 of a palette of 2")));
    // Four bits: the second pixel of the first row is the low half of a byte.
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(2, 1, 4, 0, twoColours, bytes({0x03, 0, 0, 0}))))
                    .endsWith(QStringLiteral("colour 3 of a palette of 2")));
    EXPECT_EQ(bmpHeaderProblem(write(bmpFile(1, 1, 4, 0, twoColours, bytes({0x03, 0, 0, 0})))), QString());
    // One bit with a palette of one colour.
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(8, 1, 1, 0, {twoColours[0]}, bytes({0x01, 0, 0, 0}))))
                    .endsWith(QStringLiteral("colour 1 of a palette of 1")));
}

TEST_F(BmpHeaderCheck, RunLengthDataMustStayInsideTheImage)
{
    // 4 x 2 pixels: a run of four of colour 1, end of line, a literal run of
    // 0 1 0 (padded to four bytes), end of image.
    const QByteArray valid = bytes({4, 1, 0, 0, 0, 3, 0, 1, 0, 0, 0, 1});
    const QString good = write(bmpFile(4, 2, 8, 1, twoColours, valid));
    EXPECT_EQ(bmpHeaderProblem(good), QString());
    WImg image;
    QString error;
    ASSERT_TRUE(image.load(good, &error)) << error.toStdString();
    EXPECT_EQ(image.mat().at<cv::Vec3b>(1, 3), cv::Vec3b(255, 0, 0));
    EXPECT_EQ(image.mat().at<cv::Vec3b>(0, 1), cv::Vec3b(255, 0, 0));
    EXPECT_EQ(image.mat().at<cv::Vec3b>(0, 2), cv::Vec3b(0, 0, 255));

    // A run after the last row, reached by ends of lines or by a move.
    const QByteArray pastByLines = bytes({4, 1, 0, 0, 4, 1, 0, 0, 2, 1, 0, 1});
    const QString problem = bmpHeaderProblem(write(bmpFile(4, 2, 8, 1, twoColours, pastByLines)));
    EXPECT_TRUE(problem.endsWith(QStringLiteral("its run-length data goes on past the last of its 2 rows")))
        << problem.toStdString();
    EXPECT_FALSE(bmpHeaderProblem(write(bmpFile(4, 2, 8, 1, twoColours, bytes({0, 2, 0, 5, 0, 3, 0, 1, 0, 0}))))
                     .isEmpty());
    // Moving past the end without writing there is harmless, and runs past
    // the right edge are cut by the decoder.
    EXPECT_EQ(bmpHeaderProblem(write(bmpFile(4, 2, 8, 1, twoColours, bytes({0, 2, 0, 5, 0, 1})))), QString());
    EXPECT_EQ(bmpHeaderProblem(write(bmpFile(4, 2, 8, 1, twoColours, bytes({9, 1, 0, 1})))), QString());
    // Colours beyond the palette, in a run, in a literal run, and in the low
    // half of a four-bit run.
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(4, 2, 8, 1, twoColours, bytes({2, 5, 0, 1}))))
                    .endsWith(QStringLiteral("colour 5 of a palette of 2")));
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(4, 2, 8, 1, twoColours, bytes({0, 3, 1, 0, 6, 0, 0, 1}))))
                    .endsWith(QStringLiteral("colour 6 of a palette of 2")));
    EXPECT_TRUE(bmpHeaderProblem(write(bmpFile(4, 2, 4, 2, twoColours, bytes({2, 0x12, 0, 1}))))
                    .endsWith(QStringLiteral("colour 2 of a palette of 2")));
    EXPECT_EQ(bmpHeaderProblem(write(bmpFile(4, 2, 4, 2, twoColours, bytes({1, 0x12, 0, 1})))), QString());
}
