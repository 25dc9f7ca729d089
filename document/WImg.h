#pragma once

#include <QString>
#include <QVariantMap>

#include <opencv2/core/mat.hpp>

namespace Welk {

/// An image: width, height, channels, a pixel type and the file's
/// attributes, over a `cv::Mat` (rows top to bottom, channels interleaved in
/// the file's order). Copies share pixels, as `cv::Mat` does.
class WImg
{
public:
    enum PixelType
    {
        UInt8 = 0,
        UInt16 = 1,
        Float32 = 2,
    };

    WImg() = default;
    WImg(int width, int height, int channels, PixelType type);
    explicit WImg(const cv::Mat& mat, const QVariantMap& attributes = {});

    /// Reads any file OpenImageIO knows. 8- and 16-bit integer data keep
    /// their type, everything else becomes 32-bit float. False with `error`
    /// on failure; the image is then null.
    bool load(const QString& path, QString* error = nullptr);
    /// Writes through OpenImageIO; the file's extension chooses the format.
    bool save(const QString& path, QString* error = nullptr) const;

    bool isNull() const { return m_mat.empty(); }
    int width() const { return m_mat.cols; }
    int height() const { return m_mat.rows; }
    int channels() const { return m_mat.empty() ? 0 : m_mat.channels(); }
    PixelType pixelType() const;

    const QVariantMap& attributes() const { return m_attributes; }
    void setAttribute(const QString& name, const QVariant& value) { m_attributes.insert(name, value); }

    const cv::Mat& mat() const { return m_mat; }
    cv::Mat& mat() { return m_mat; }

private:
    cv::Mat m_mat;
    QVariantMap m_attributes;
};

} // namespace Welk
