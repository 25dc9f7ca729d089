#pragma once

#include <string>

/// The largest image the program reads. Textures are at most 16384 pixels
/// square; a strip as long may be wider. Sizes come from a file's header,
/// so they are checked before anything is allocated for the pixels.
namespace Welk::ImageLimits {

constexpr int largestSquare = 16384;
constexpr long long maxPixels = (long long)largestSquare * largestSquare;
constexpr long long maxSide = 4 * largestSquare;

inline bool fits(long long width, long long height)
{
    return width <= maxSide && height <= maxSide && width * height <= maxPixels;
}

/// The refusal of an image of `width` x `height` pixels that does not fit.
inline std::string tooLarge(long long width, long long height)
{
    return "The image is " + std::to_string(width) + " x " + std::to_string(height) + " pixels, larger than the " +
           std::to_string(largestSquare) + " x " + std::to_string(largestSquare) + " that can be read";
}

} // namespace Welk::ImageLimits
