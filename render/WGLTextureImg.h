#pragma once

#include "WGLTexture.h"

#include <opencv2/core/mat.hpp>

namespace Welk {

class WImg;

/// A colour texture made from an image of any depth and channel count,
/// shown as 8-bit RGBA. The image's first row lands at texture coordinate
/// v = 1, so mesh UVs (v up) read it the right way up. Images larger than
/// the GL limit are scaled down to fit.
class WGLTextureImg : public WGLTextureBase
{
public:
    explicit WGLTextureImg(const WImg& image);

    /// The 8-bit RGBA pixels, bottom row first, that the texture is made of.
    static cv::Mat toRgbaBottomUp(const WImg& image, int maxSide);

private:
    WGLTextureImg(const cv::Mat& rgba);
};

} // namespace Welk
