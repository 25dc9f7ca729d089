#include "TextureTexels.h"

#include <opencv2/core.hpp>

namespace WelkPlugin {

long long reachedTexelCount(const Welk::WImg& image)
{
    if (image.isNull())
        return 0;
    if (image.channels() != 4)
        return static_cast<long long>(image.width()) * image.height();
    cv::Mat alpha;
    cv::extractChannel(image.mat(), alpha, 3);
    return cv::countNonZero(alpha);
}

bool canFillEmptyTexels(const Welk::WImg& image)
{
    if (image.isNull() || image.channels() != 4)
        return false;
    const long long reached = reachedTexelCount(image);
    return reached > 0 && reached < static_cast<long long>(image.width()) * image.height();
}

Welk::WImg flippedVertically(const Welk::WImg& image)
{
    if (image.isNull())
        return image;
    cv::Mat flipped;
    cv::flip(image.mat(), flipped, 0);
    return Welk::WImg(flipped, image.attributes());
}

} // namespace WelkPlugin
