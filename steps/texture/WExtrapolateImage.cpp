#include "WExtrapolateImage.h"

#include <QDebug>
#include <QElapsedTimer>

#include "ThreadHandOver.h"
#include "document/WImg.h"
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <vector>

namespace Welk {

namespace Utils {

/// One smoothing pass over horizontal stripes of a large image: `smoothed`
/// receives the source plus its 3 x 3 Laplacian, which is the 3 x 3 mean,
/// row stripes in parallel. Each stripe reads one row beyond its ends, so
/// the seams between stripes are exact; the image's own edges replicate.
class ParallelLaplas : public cv::ParallelLoopBody
{
public:
    ParallelLaplas(const cv::Mat& source, cv::Mat& smoothed, int stripes)
        : m_source(source), m_smoothed(smoothed), m_stripes(stripes)
    {
    }

    void operator()(const cv::Range& range) const override
    {
        const int rows = m_source.rows;
        for (int s = range.start; s < range.end; ++s) {
            const int r0 = int((long long)rows * s / m_stripes);
            const int r1 = int((long long)rows * (s + 1) / m_stripes);
            if (r1 <= r0)
                continue;
            const int p0 = std::max(0, r0 - 1), p1 = std::min(rows, r1 + 1);
            cv::Mat padded;
            cv::blur(m_source.rowRange(p0, p1), padded, cv::Size(3, 3), cv::Point(-1, -1),
                     cv::BORDER_REPLICATE | cv::BORDER_ISOLATED);
            padded.rowRange(r0 - p0, r1 - p0).copyTo(m_smoothed.rowRange(r0, r1));
        }
        handOverFrom(this);
    }

private:
    const cv::Mat& m_source;
    cv::Mat& m_smoothed;
    int m_stripes;
};

} // namespace Utils

namespace {

double fullValue(int depth)
{
    return depth == 0 ? 255.0 : depth == 1 ? 65535.0 : 1.0;
}

void writeStage(bool enabled, const QString& name, const cv::Mat& image, double scale)
{
    if (!enabled)
        return;
    cv::Mat out;
    image.convertTo(out, CV_8U, 255.0 / scale);
    WImg(out).save(name + QStringLiteral(".png"));
}

/// Appends the level whose alpha-weighted colour sum is `weighted` and
/// whose weight is `weight`: its colour is the weighted average of the known
/// texels under it, so empty texels never darken the colours, and a texel
/// is known when any finer texel under it was.
void appendLevel(const cv::Mat& weighted, const cv::Mat& weight, std::vector<cv::Mat>& colours,
                 std::vector<cv::Mat>& masks)
{
    cv::Mat safeWeight = cv::max(weight, 1e-6);
    std::vector<cv::Mat> planes;
    cv::split(weighted, planes);
    for (cv::Mat& p : planes)
        cv::divide(p, safeWeight, p);
    cv::Mat colour;
    cv::merge(planes, colour);
    colours.push_back(colour);
    masks.push_back(weight > 1e-6);
}

/// Reduces `weighted` and `weight` by Gaussian pyramid steps down to a side
/// of two texels, appending a level for each.
void appendCoarserLevels(cv::Mat weighted, cv::Mat weight, std::vector<cv::Mat>& colours,
                         std::vector<cv::Mat>& masks)
{
    while (std::min(weight.rows, weight.cols) > 2) {
        cv::Mat smallerWeighted, smallerWeight;
        cv::pyrDown(weighted, smallerWeighted);
        cv::pyrDown(weight, smallerWeight);
        weighted = smallerWeighted;
        weight = smallerWeight;
        appendLevel(weighted, weight, colours, masks);
    }
}

} // namespace

bool WExtrapolateImage::extrapolate(cv::Mat& image, int depth, int iterations, ProgressInterface* progress,
                                    bool writeIntermediate)
{
    m_error.clear();
    if (image.empty() || image.channels() != 4) {
        m_error = QStringLiteral("Only 4 channel images are supported");
        return false;
    }
    std::vector<cv::Mat> channels;
    cv::split(image, channels);
    cv::Mat alpha = channels[3];
    const int transparent = alpha.total() - cv::countNonZero(alpha);
    if (transparent == 0) {
        m_error = QStringLiteral("Image does not contain transparent pixels for extrapolation");
        return false;
    }
    if (transparent == int(alpha.total())) {
        m_error = QStringLiteral("Image is completely transparent");
        return false;
    }
    const auto stopped = [&]() {
        if (progress && progress->isCancelled()) {
            m_error = QStringLiteral("Extrapolation was stopped");
            return true;
        }
        return false;
    };
    if (progress) {
        progress->start(QStringLiteral("Extrapolation..."), 100);
        progress->setValue(0);
    }
    const auto report = [&](double value) {
        if (progress)
            progress->setValue(std::llround(100.0 * value));
    };
    bool ok = false;
    try {
        QElapsedTimer timer;
        timer.start();
        const double full = fullValue(depth);
        cv::Mat alphaMask = alpha != 0;
        cv::Mat nativeColour;
        {
            std::vector<cv::Mat> rgb(channels.begin(), channels.begin() + 3);
            cv::merge(rgb, nativeColour);
            nativeColour.setTo(cv::Scalar::all(0), alpha == 0);
        }
        // Large integer images are smoothed at the finest level in their
        // own type: a quarter of the memory of floats and a faster box
        // filter, at a rounding that a fill does not show. Coarser levels
        // and small images work in floats.
        const bool nativeFinest = image.rows > 128 && image.depth() != CV_32F;
        std::vector<cv::Mat> colours, masks;
        if (nativeFinest) {
            // The first reduction averages 2 x 2 blocks in the image's own
            // type, which spares a float copy of the full image.
            colours.push_back(nativeColour);
            masks.push_back(alphaMask);
            const cv::Size half((image.cols + 1) / 2, (image.rows + 1) / 2);
            cv::Mat halfColour, halfCover, weighted, weight;
            cv::resize(nativeColour, halfColour, half, 0, 0, cv::INTER_AREA);
            cv::resize(alphaMask, halfCover, half, 0, 0, cv::INTER_AREA);
            halfColour.convertTo(weighted, CV_32FC3);
            halfCover.convertTo(weight, CV_32F, 1.0 / 255.0);
            report(0.05);
            appendLevel(weighted, weight, colours, masks);
            appendCoarserLevels(weighted, weight, colours, masks);
        } else {
            cv::Mat colour, known;
            nativeColour.convertTo(colour, CV_32FC3);
            alphaMask.convertTo(known, CV_32F, 1.0 / 255.0);
            report(0.05);
            colours.push_back(colour);
            masks.push_back(alphaMask);
            appendCoarserLevels(colour, known, colours, masks);
        }
        for (size_t i = 0; i < colours.size(); ++i) {
            writeStage(writeIntermediate, QStringLiteral("mipmap_%1_rgb").arg(i), colours[i], full);
            writeStage(writeIntermediate, QStringLiteral("mipmap_%1_alpha").arg(i), masks[i], 255.0);
        }
        report(0.1);
        qDebug() << "> Start extrapolation";

        cv::Mat kernel = cv::Mat::ones(3, 3, CV_32F) / 9.0;
        kernel.at<float>(1, 1) = float(-8.0 / 9.0);
        const int levels = int(colours.size());
        cv::Mat result = colours.back().clone();
        cv::Mat delta;
        for (int level = levels - 1; level >= 0; --level) {
            if (stopped())
                break;
            if (result.type() != colours[level].type())
                result.convertTo(result, colours[level].type());
            cv::resize(cv::Mat(result), result, colours[level].size(), 0, 0, cv::INTER_LINEAR);
            writeStage(writeIntermediate, QStringLiteral("iter_%1_a_rescaled").arg(level), result, full);
            for (int i = 0; i < iterations; ++i) {
                colours[level].copyTo(result, masks[level]);
                if (result.rows <= 128) {
                    cv::filter2D(result, delta, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
                    cv::add(result, delta, result);
                } else {
                    delta.create(result.size(), result.type());
                    const int stripes = std::max(1, cv::getNumThreads());
                    const Utils::ParallelLaplas smoothing(result, delta, stripes);
                    cv::parallel_for_(cv::Range(0, stripes), smoothing, -1.0);
                    handOverTo(&smoothing);
                    std::swap(result, delta);
                }
                writeStage(writeIntermediate, QStringLiteral("iter_%1_b_iter_%2").arg(level).arg(i), result, full);
            }
            report(0.1 + 0.8 * double(levels - level) / levels);
            writeStage(writeIntermediate, QStringLiteral("res_%1").arg(level), result, full);
        }
        if (!stopped()) {
            qDebug() << "> End. Time:" << timer.elapsed();
            // Known texels come back exactly as they were, in their own type.
            cv::Mat filled;
            result.convertTo(filled, CV_MAKETYPE(image.depth(), 3));
            std::vector<cv::Mat> out;
            cv::split(filled, out);
            for (int c = 0; c < 3; ++c)
                channels[c].copyTo(out[c], alphaMask);
            out.push_back(cv::Mat(image.size(), CV_MAKETYPE(image.depth(), 1), cv::Scalar(full)));
            cv::Mat merged;
            cv::merge(out, merged);
            report(0.9);
            writeStage(writeIntermediate, QStringLiteral("res_fin"), result, full);
            image = merged;
            qDebug() << "> Image extrapolation total time: " << timer.elapsed();
            ok = true;
        }
    } catch (const cv::Exception& e) {
        m_error = QStringLiteral("Extrapolation failed: %1").arg(QString::fromStdString(e.msg));
        ok = false;
    }
    if (progress) {
        if (ok)
            progress->setValue(100);
        progress->end();
    }
    return ok;
}

} // namespace Welk
