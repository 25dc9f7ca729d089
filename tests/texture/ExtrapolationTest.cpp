// Filling the empty texels of a projected texture.
#include "TextureMeshes.h"

#include "steps/texture/ImageExtrapolationWorker.h"
#include "steps/texture/WExtrapolateImage.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <opencv2/imgproc.hpp>

using TextureTests::application;

namespace {

/// Transparent image with two opaque islands of flat colour.
cv::Mat islands(int depth, double full)
{
    cv::Mat image(200, 300, CV_MAKETYPE(depth, 4), cv::Scalar::all(0));
    cv::circle(image, cv::Point(70, 100), 30, cv::Scalar(0.8 * full, 0.4 * full, 0.2 * full, full), cv::FILLED);
    cv::rectangle(image, cv::Rect(200, 40, 60, 120), cv::Scalar(0.1 * full, 0.9 * full, 0.5 * full, full),
                  cv::FILLED);
    return image;
}

TEST(ImageExtrapolation, FillsEveryEmptyTexelAndKeepsTheKnownOnes)
{
    const cv::Mat original = islands(CV_8U, 255.0);
    cv::Mat image = original.clone();
    Welk::WExtrapolateImage extrapolation;
    ASSERT_TRUE(extrapolation.extrapolate(image, 0)) << extrapolation.error().toStdString();
    ASSERT_EQ(image.type(), CV_8UC4);
    std::vector<cv::Mat> planes, before;
    cv::split(image, planes);
    cv::split(original, before);
    EXPECT_EQ(cv::countNonZero(planes[3] != 255), 0);
    // Known texels unchanged.
    cv::Mat known = before[3] != 0;
    for (int c = 0; c < 3; ++c) {
        cv::Mat changed = (planes[c] != before[c]) & known;
        EXPECT_EQ(cv::countNonZero(changed), 0);
    }
    // Next to an island, the island's colour; between them, something in
    // between.
    const cv::Vec4b nearCircle = image.at<cv::Vec4b>(100, 70 - 33);
    EXPECT_NEAR(nearCircle[0], 0.8 * 255, 12);
    EXPECT_NEAR(nearCircle[1], 0.4 * 255, 12);
    const cv::Vec4b nearBox = image.at<cv::Vec4b>(100, 263);
    EXPECT_NEAR(nearBox[1], 0.9 * 255, 12);
    const cv::Vec4b middle = image.at<cv::Vec4b>(100, 150);
    EXPECT_GT(middle[1], 0.4 * 255 - 5);
    EXPECT_LT(middle[1], 0.9 * 255 + 5);
}

TEST(ImageExtrapolation, SixteenBitAndFloatKeepTheirDepth)
{
    for (const auto& [depth, code, full] : {std::make_tuple(CV_16U, 1, 65535.0), std::make_tuple(CV_32F, 2, 1.0)}) {
        cv::Mat image = islands(depth, full);
        Welk::WExtrapolateImage extrapolation;
        ASSERT_TRUE(extrapolation.extrapolate(image, code)) << extrapolation.error().toStdString();
        ASSERT_EQ(image.depth(), depth);
        std::vector<cv::Mat> planes;
        cv::split(image, planes);
        double lowest = 0.0;
        cv::minMaxLoc(planes[3], &lowest);
        EXPECT_EQ(lowest, full);
        cv::Mat pixel;
        image(cv::Rect(70 - 33, 100, 1, 1)).convertTo(pixel, CV_64FC4);
        EXPECT_NEAR(pixel.at<cv::Vec4d>(0, 0)[0], 0.8 * full, 0.05 * full);
    }
}

TEST(ImageExtrapolation, RefusesWhatItCannotFill)
{
    Welk::WExtrapolateImage extrapolation;
    cv::Mat rgb(16, 16, CV_8UC3, cv::Scalar::all(0));
    EXPECT_FALSE(extrapolation.extrapolate(rgb, 0));
    EXPECT_EQ(extrapolation.error(), QStringLiteral("Only 4 channel images are supported"));
    cv::Mat opaque(16, 16, CV_8UC4, cv::Scalar::all(255));
    EXPECT_FALSE(extrapolation.extrapolate(opaque, 0));
    EXPECT_EQ(extrapolation.error(), QStringLiteral("Image does not contain transparent pixels for extrapolation"));
    cv::Mat empty(16, 16, CV_8UC4, cv::Scalar::all(0));
    const cv::Mat copy = empty.clone();
    EXPECT_FALSE(extrapolation.extrapolate(empty, 0));
    EXPECT_EQ(extrapolation.error(), QStringLiteral("Image is completely transparent"));
    EXPECT_EQ(cv::countNonZero(empty.reshape(1) != copy.reshape(1)), 0);
}

TEST(ImageExtrapolation, WorkerFillsOnItsThreadAndReportsRefusals)
{
    QObject* app = application();
    const auto run = [&](const Welk::WImg& input) {
        QEventLoop loop;
        std::pair<Welk::WImg, QString> out;
        WelkPlugin::ImageExtrapolationWorker::launch(new WelkPlugin::ImageExtrapolationWorker(input), app,
                                                     [&](Welk::WImg image, QString message) {
                                                         out = {image, message};
                                                         loop.quit();
                                                     });
        QTimer::singleShot(60000, &loop, &QEventLoop::quit);
        loop.exec();
        return out;
    };
    const cv::Mat original = islands(CV_8U, 255.0);
    const auto filled = run(Welk::WImg(original.clone()));
    EXPECT_TRUE(filled.second.isEmpty()) << filled.second.toStdString();
    ASSERT_FALSE(filled.first.isNull());
    std::vector<cv::Mat> planes;
    cv::split(filled.first.mat(), planes);
    EXPECT_EQ(cv::countNonZero(planes[3] != 255), 0);

    const cv::Mat opaque(8, 8, CV_8UC4, cv::Scalar::all(255));
    const auto refused = run(Welk::WImg(opaque));
    EXPECT_EQ(refused.second, QStringLiteral("Image does not contain transparent pixels for extrapolation"));
    EXPECT_EQ(refused.first.mat().data, opaque.data);
}

} // namespace
