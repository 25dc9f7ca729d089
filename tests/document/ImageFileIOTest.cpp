#include "document/ImageFileIO.h"
#include "document/WImg.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

using Welk::WImg;

namespace {

/// Whether a shared library whose file name contains `name` is mapped into
/// this process.
bool mapped(const std::string& name)
{
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line))
        if (line.find(name) != std::string::npos)
            return true;
    return false;
}

} // namespace

// A process that never reads or writes an image (a fit from the command line)
// must not pay for OpenImageIO's libraries; the first image brings them in.
// The "threadsafe" style runs the body in a fresh run of this program, so no
// earlier test has loaded the module yet.
TEST(ImageFileIODeathTest, OpenImageIOLoadsWithTheFirstImageOnly)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const bool before = mapped("libOpenImageIO");
            QTemporaryDir dir;
            WImg image(6, 4, 3, WImg::UInt8);
            image.mat().at<cv::Vec3b>(2, 3) = cv::Vec3b(10, 200, 30);
            QString error;
            const QString path = dir.filePath(QStringLiteral("probe.png"));
            const bool saved = image.save(path, &error);
            WImg back;
            const bool loaded = back.load(path, &error);
            const bool same = loaded && back.mat().at<cv::Vec3b>(2, 3) == cv::Vec3b(10, 200, 30);
            const bool after = mapped("libOpenImageIO");
            std::fprintf(stderr, "before %d saved %d loaded %d same %d after %d %s\n", before, saved, loaded, same,
                         after, error.toStdString().c_str());
            dir.remove();
            std::exit(!before && saved && same && after ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "before 0 saved 1 loaded 1 same 1 after 1");
}

TEST(ImageFileIO, ModuleIsFoundAndErrorsStillReachTheCaller)
{
    QString error;
    EXPECT_NE(Welk::ImageFileIO::reader(&error), nullptr) << error.toStdString();
    EXPECT_NE(Welk::ImageFileIO::writer(&error), nullptr) << error.toStdString();
    bool found = false;
    for (const QString& path : Welk::ImageFileIO::modulePaths())
        found = found || QFile::exists(path);
    EXPECT_TRUE(found);

    // OpenImageIO's own reasons come back through the module.
    QTemporaryDir dir;
    const QString text = dir.filePath(QStringLiteral("not-an-image.png"));
    QFile file(text);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("plain text, no image");
    file.close();
    WImg image;
    EXPECT_FALSE(image.load(text, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(image.isNull());
    error.clear();
    EXPECT_FALSE(WImg(3, 3, 1, WImg::UInt8).save(dir.filePath(QStringLiteral("x.no-such-format")), &error));
    EXPECT_FALSE(error.isEmpty());
    // The failed write leaves no temporary file behind.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1);
}
