#include "support/QtPrinters.h"
#include "support/TestFiles.h"
#include "document/PngHeaderCheck.h"
#include "document/WImg.h"

#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>

using Welk::pngHeaderProblem;
using Welk::WImg;

// Found by fuzz_image: 331 bytes of PNG whose second text chunk claims
// 1728053357 bytes; libpng allocated and cleared that much before failing
// (72 s and 2 GB under the fuzzer).
TEST(PngHeaderCheck, ChunkLargerThanTheFileIsRefusedBeforeTheDecoder)
{
    const QString path = QStringLiteral(ZWELK_FUZZ_REGRESSIONS "/image/png-text-chunk-larger-than-file.png");
    const QString expected = QStringLiteral("The PNG file %1 is damaged: its chunk \"tEXt\" claims 1728053357 bytes, "
                                            "more than the file holds")
                                 .arg(path);
    EXPECT_EQ(pngHeaderProblem(path), expected);
    WImg image;
    QString error;
    EXPECT_FALSE(image.load(path, &error));
    EXPECT_TRUE(image.isNull());
    EXPECT_EQ(error, expected);
}

TEST(PngHeaderCheck, WrittenImagesPassAndTheirChunksMustFit)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("written.png"));
    WImg written(5, 4, 3, WImg::UInt8);
    cv::randu(written.mat(), 0, 256);
    QString error;
    ASSERT_TRUE(written.save(path, &error)) << error.toStdString();
    EXPECT_EQ(pngHeaderProblem(path), QString());

    // The first chunk (IHDR, 13 bytes) made one byte longer than the file
    // holds after it is refused; at its size, and with its checksum cut
    // from the end of the file, the file is left to libpng.
    QByteArray bytes = TestSupport::readFile(path);
    ASSERT_EQ(qFromBigEndian<quint32>(bytes.constData() + 8), 13u);
    const quint32 tooLong = quint32(bytes.size() - 16) + 1;
    for (const quint32 claimed : {tooLong, quint32(0xffffffffu), tooLong - 1, 13u}) {
        SCOPED_TRACE(claimed);
        qToBigEndian<quint32>(claimed, bytes.data() + 8);
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        const QString problem = pngHeaderProblem(path);
        if (claimed >= tooLong) {
            EXPECT_EQ(problem, QStringLiteral("The PNG file %1 is damaged: its chunk \"IHDR\" claims %2 bytes, more "
                                              "than the file holds")
                                   .arg(path)
                                   .arg(claimed));
        } else {
            EXPECT_EQ(problem, QString());
        }
    }
    WImg back;
    ASSERT_TRUE(back.load(path, &error)) << error.toStdString();
    EXPECT_EQ(cv::norm(back.mat(), written.mat(), cv::NORM_INF), 0.0);

    bytes.chop(4);
    QFile cut(path);
    ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
    cut.write(bytes);
    cut.close();
    EXPECT_EQ(pngHeaderProblem(path), QString());

    // Files that are not PNG are left to their own readers.
    EXPECT_EQ(pngHeaderProblem(dir.filePath(QStringLiteral("missing.png"))), QString());
}
