#include "WGLTextureImg.h"

#include "document/WImg.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace Welk {

namespace {

int maxTextureSide()
{
    GLint side = 4096;
    if (QOpenGLContext* context = QOpenGLContext::currentContext())
        context->functions()->glGetIntegerv(GL_MAX_TEXTURE_SIZE, &side);
    return side;
}

} // namespace

cv::Mat WGLTextureImg::toRgbaBottomUp(const WImg& image, int maxSide)
{
    if (image.isNull())
        return cv::Mat(1, 1, CV_8UC4, cv::Scalar(255, 255, 255, 255));
    cv::Mat source = image.mat();
    cv::Mat bytes;
    switch (source.depth()) {
    case CV_8U:
        bytes = source;
        break;
    case CV_16U:
        source.convertTo(bytes, CV_8U, 1.0 / 257.0);
        break;
    default:
        // Float images are taken as 0..1, as OpenImageIO reads them.
        source.convertTo(bytes, CV_8U, 255.0);
        break;
    }
    cv::Mat rgba;
    switch (bytes.channels()) {
    case 1:
        cv::cvtColor(bytes, rgba, cv::COLOR_GRAY2RGBA);
        break;
    case 2: {
        // Grey with alpha.
        cv::Mat planes[2];
        cv::split(bytes, planes);
        cv::Mat out[4] = {planes[0], planes[0], planes[0], planes[1]};
        cv::merge(out, 4, rgba);
        break;
    }
    case 3:
        cv::cvtColor(bytes, rgba, cv::COLOR_RGB2RGBA);
        break;
    default: {
        cv::Mat planes[4];
        std::vector<cv::Mat> all;
        cv::split(bytes, all);
        all.resize(4);
        cv::merge(all, rgba);
        break;
    }
    }
    const int longest = std::max(rgba.cols, rgba.rows);
    if (longest > maxSide) {
        const double scale = static_cast<double>(maxSide) / longest;
        cv::resize(rgba, rgba,
                   cv::Size(std::max(1, static_cast<int>(rgba.cols * scale)),
                            std::max(1, static_cast<int>(rgba.rows * scale))),
                   0, 0, cv::INTER_AREA);
    }
    cv::Mat flipped;
    cv::flip(rgba, flipped, 0);
    return flipped.isContinuous() ? flipped : flipped.clone();
}

WGLTextureImg::WGLTextureImg(const WImg& image) : WGLTextureImg(toRgbaBottomUp(image, maxTextureSide())) {}

WGLTextureImg::WGLTextureImg(const cv::Mat& rgba)
    : WGLTextureBase(QSize(rgba.cols, rgba.rows), GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, GL_LINEAR, rgba.data)
{
}

} // namespace Welk
