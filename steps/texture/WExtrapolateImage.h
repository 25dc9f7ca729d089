#pragma once

#include "geometry/ProgressInterface.h"

#include <QString>

#include <opencv2/core/mat.hpp>

namespace Welk {

/// Fills the transparent texels of a four-channel image by diffusing the
/// known colours outwards, coarse to fine, so that seams between UV islands
/// show no dark border. Opaque (alpha > 0) texels keep their colour exactly;
/// afterwards every texel is opaque.
///
/// Holds no state beyond its error text, so one object per thread; the
/// operation may run on any thread. `progress` (may be null) gets
/// "Extrapolation..." from 0 to 100 and may stop it: the image is then left
/// unchanged and the error says so.
class WExtrapolateImage
{
public:
    /// `depth` is the pixel type code: 0 8-bit, 1 16-bit, 2 32-bit float.
    /// `iterations` is the number of smoothing passes per pyramid level.
    /// `writeIntermediate` saves every stage as an image in the working
    /// folder, for debugging. False with `error()` on failure, the image
    /// unchanged.
    bool extrapolate(cv::Mat& image, int depth, int iterations = DefaultIterations,
                     ProgressInterface* progress = nullptr, bool writeIntermediate = false);

    const QString& error() const { return m_error; }

    static constexpr int DefaultIterations = 4;

private:
    QString m_error;
};

} // namespace Welk
