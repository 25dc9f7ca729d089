#include "support/TestFiles.h"

#include "steps/points/PointFile.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

using namespace WelkPlugin;
using Welk::WPointOnTriangle;

TEST(PointFile, RoundTripAndTheTriangleCountCheck)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("points.txt"));
    const QVector<WPointOnTriangle> points = {{1204, 0.25f, 0.5f}, {77, 1.0f, 0.0f}};
    EXPECT_EQ(PointFile::savePointsToFile(path, points), QString());
    QVector<WPointOnTriangle> read;
    EXPECT_EQ(PointFile::loadPointsFromFile(path, 2000, read), QString());
    EXPECT_EQ(read, points);
    // An index equal to the count passes, one more does not.
    EXPECT_EQ(PointFile::loadPointsFromFile(path, 1204, read), QString());
    EXPECT_EQ(PointFile::loadPointsFromFile(path, 1203, read), QStringLiteral("Points don't match the current geometry"));
    QVector<quint8> usable(2000, 1);
    usable[77] = 0;
    EXPECT_EQ(PointFile::loadPointsFromFile(path, 2000, read, &usable),
              QStringLiteral("Points don't match the current geometry"));
}

TEST(PointFile, ErrorsNameTheFirstBadPoint)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("points.json"));
    QVector<WPointOnTriangle> read = {{5, 0, 0}};
    const auto load = [&](const QByteArray& text) {
        TestSupport::writeFile(path, text);
        return PointFile::loadPointsFromFile(path, 100, read);
    };
    EXPECT_EQ(load("[]"), QString());
    EXPECT_TRUE(read.isEmpty());
    read = {{5, 0, 0}};
    EXPECT_EQ(load("[[1, 0.2]]"), QStringLiteral("Point #1 contains invalid number of elements"));
    EXPECT_EQ(read.size(), 1) << "a failed load leaves the points alone";
    EXPECT_EQ(load("[[1, 0.2, 0.3], 4]"), QStringLiteral("Point #2 is not a Json array"));
    EXPECT_EQ(load("[[\"1\", 0.2, 0.3]]"), QStringLiteral("Point #1 triangle index is not a number"));
    EXPECT_EQ(load("[[1, null, 0.3]]"), QStringLiteral("Point #1 u-coordinate is not a number"));
    EXPECT_EQ(load("[[1, 0.2, true]]"), QStringLiteral("Point #1 v-coordinate is not a number"));
    EXPECT_EQ(load("{\"a\": 1}"), QStringLiteral("Json document is not an array"));
    EXPECT_FALSE(load("[[1, 0.2,").isEmpty());
    // A fractional triangle index reads as 0 through toInt.
    EXPECT_EQ(load("[[1.5, 2.0, -1.0]]"), QString());
    EXPECT_EQ(read, (QVector<WPointOnTriangle>{{0, 2.0f, -1.0f}}));

    EXPECT_EQ(PointFile::loadPointsFromFile(QString(), 10, read), QStringLiteral("File name is empty"));
    EXPECT_EQ(PointFile::loadPointsFromFile(dir.filePath(QStringLiteral("none")), 10, read),
              QStringLiteral("File doesn't exist: \"%1\"").arg(dir.filePath(QStringLiteral("none"))));
    EXPECT_EQ(PointFile::savePointsToFile(path, {}), QStringLiteral("Invalid points"));
    EXPECT_EQ(PointFile::savePointsToFile(QString(), {{1, 0, 0}}), QStringLiteral("File name is empty"));
    EXPECT_EQ(PointFile::savePointsToFile(QStringLiteral("/no/such/dir/p.txt"), {{1, 0, 0}}),
              QStringLiteral("Can't open file for writing"));
}
