#include "WExtrapolateImage.h"

#include <QDebug>
#include <QElapsedTimer>

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

/// Colour pyramid of the known texels only: each coarser level is the
/// alpha-weighted average of the finer one, so empty texels never darken
/// the colours; a coarse texel is known when any finer texel under it was.
void buildPyramids(const cv::Mat& colour, const cv::Mat& known, std::vector<cv::Mat>& colours,
                   std::vector<cv::Mat>& knowns)
{
    colours.assign(1, colour);
    knowns.assign(1, known);
    // Unknown texels are zero in the finest level already (see the caller),
    // so it is its own alpha-weighted colour.
    cv::Mat weighted = colour;
    cv::Mat weight = known.clone();
    while (std::min(weight.rows, weight.cols) > 2) {
        cv::Mat smallerWeighted, smallerWeight;
        cv::pyrDown(weighted, smallerWeighted);
        cv::pyrDown(weight, smallerWeight);
        weighted = smallerWeighted;
        weight = smallerWeight;
        cv::Mat levelKnown;
        cv::threshold(weight, levelKnown, 1e-6, 1.0, cv::THRESH_BINARY);
        cv::Mat safeWeight = cv::max(weight, 1e-6);
        std::vector<cv::Mat> planes;
        cv::split(weighted, planes);
        for (cv::Mat& p : planes)
            cv::divide(p, safeWeight, p);
        cv::Mat levelColour;
        cv::merge(planes, levelColour);
        colours.push_back(levelColour);
        knowns.push_back(levelKnown);
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
        cv::Mat colour;
        {
            std::vector<cv::Mat> rgb(channels.begin(), channels.begin() + 3);
            cv::Mat merged;
            cv::merge(rgb, merged);
            merged.convertTo(colour, CV_32FC3);
        }
        cv::Mat known;
        cv::Mat alphaMask = alpha != 0;
        alphaMask.convertTo(known, CV_32F, 1.0 / 255.0);
        colour.setTo(cv::Scalar::all(0), alpha == 0);
        report(0.05);

        std::vector<cv::Mat> colours, knowns;
        buildPyramids(colour, known, colours, knowns);
        std::vector<cv::Mat> masks(knowns.size());
        for (size_t i = 0; i < knowns.size(); ++i) {
            masks[i] = knowns[i] > 0.5f;
            writeStage(writeIntermediate, QStringLiteral("mipmap_%1_rgb").arg(i), colours[i], full);
            writeStage(writeIntermediate, QStringLiteral("mipmap_%1_alpha").arg(i), knowns[i], 1.0);
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
                    cv::parallel_for_(cv::Range(0, stripes), Utils::ParallelLaplas(result, delta, stripes), -1.0);
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
