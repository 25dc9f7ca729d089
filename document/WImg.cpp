#include "WImg.h"

#include "ExrHeaderCheck.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imageio.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <cstdio>
#include <memory>

namespace Welk {

namespace {

int cvDepth(WImg::PixelType type)
{
    switch (type) {
    case WImg::UInt8:
        return CV_8U;
    case WImg::UInt16:
        return CV_16U;
    case WImg::Float32:
        break;
    }
    return CV_32F;
}

OIIO::TypeDesc oiioType(int cvDepthValue)
{
    switch (cvDepthValue) {
    case CV_8U:
        return OIIO::TypeDesc::UINT8;
    case CV_16U:
        return OIIO::TypeDesc::UINT16;
    default:
        return OIIO::TypeDesc::FLOAT;
    }
}

// Textures are at most 16384 pixels square; a strip as long may be wider.
constexpr int largestSquare = 16384;
constexpr qint64 maxPixels = qint64(largestSquare) * largestSquare;
constexpr int maxSide = 4 * largestSquare;

void setError(QString* error, const QString& text)
{
    if (error)
        *error = text;
}

} // namespace

WImg::WImg(int width, int height, int channels, PixelType type)
    : m_mat(height, width, CV_MAKETYPE(cvDepth(type), channels), cv::Scalar::all(0))
{
}

WImg::WImg(const cv::Mat& mat, const QVariantMap& attributes) : m_mat(mat), m_attributes(attributes) {}

WImg::PixelType WImg::pixelType() const
{
    switch (m_mat.depth()) {
    case CV_8U:
        return UInt8;
    case CV_16U:
        return UInt16;
    default:
        return Float32;
    }
}

bool WImg::load(const QString& path, QString* error)
{
    m_mat.release();
    m_attributes.clear();
    const QString headerProblem = exrHeaderProblem(path);
    if (!headerProblem.isEmpty()) {
        setError(error, headerProblem);
        return false;
    }
    const std::string file = path.toStdString();
    OIIO::ImageBuf buffer(file);
    // Reading the header first tells the pixel type to keep.
    if (!buffer.init_spec(file, 0, 0)) {
        setError(error, QString::fromStdString(buffer.geterror()));
        return false;
    }
    const OIIO::ImageSpec& layout = buffer.nativespec();
    if (layout.width <= 0 || layout.height <= 0 || layout.nchannels <= 0 || layout.nchannels > 4) {
        setError(error, QStringLiteral("Unsupported image layout"));
        return false;
    }
    // The size comes from the header: a damaged one must not make the
    // decoder and the pixel matrix claim gigabytes before the read fails.
    if (layout.width > maxSide || layout.height > maxSide || qint64(layout.width) * layout.height > maxPixels) {
        setError(error, QStringLiteral("The image is %1 x %2 pixels, larger than the %3 x %3 that can be read")
                            .arg(layout.width)
                            .arg(layout.height)
                            .arg(largestSquare));
        return false;
    }
    const PixelType type = layout.format == OIIO::TypeDesc::UINT8    ? UInt8
                           : layout.format == OIIO::TypeDesc::UINT16 ? UInt16
                                                                   : Float32;
    cv::Mat mat(layout.height, layout.width, CV_MAKETYPE(cvDepth(type), layout.nchannels));
    if (!buffer.read(0, 0, true, oiioType(mat.depth())) ||
        !buffer.get_pixels(buffer.roi(), oiioType(mat.depth()), mat.data)) {
        setError(error, QString::fromStdString(buffer.geterror()));
        return false;
    }
    // Binary attributes (an ICC profile, EXIF blocks) do not survive as
    // text and would make the writer fail, so only plain values are kept.
    for (const OIIO::ParamValue& p : layout.extra_attribs) {
        if (p.type().arraylen != 0 || p.type().aggregate != OIIO::TypeDesc::SCALAR ||
            p.name().string() == "ICCProfile")
            continue;
        m_attributes.insert(QString::fromStdString(p.name().string()),
                            QString::fromStdString(p.get_string()));
    }
    m_mat = mat;
    return true;
}

bool WImg::save(const QString& path, QString* error) const
{
    if (isNull()) {
        setError(error, QStringLiteral("The image is empty"));
        return false;
    }
    auto output = OIIO::ImageOutput::create(path.toStdString());
    if (!output) {
        setError(error, QString::fromStdString(OIIO::geterror()));
        return false;
    }
    // The image goes to a hidden file beside the target, with the same
    // extension for the format, and is renamed over it once complete: a
    // reader never sees half an image and a failed write keeps the old file.
    const QFileInfo target(path);
    QTemporaryFile temporary(target.absolutePath() + QStringLiteral("/.") + target.completeBaseName() +
                             QStringLiteral(".XXXXXX.") + target.suffix());
    if (!temporary.open()) {
        setError(error, QStringLiteral("Cannot write into the folder of %1").arg(path));
        return false;
    }
    temporary.close();
    const std::string file = temporary.fileName().toStdString();
    OIIO::ImageSpec format(width(), height(), channels(), oiioType(m_mat.depth()));
    for (auto it = m_attributes.constBegin(); it != m_attributes.constEnd(); ++it)
        format.attribute(it.key().toStdString(), it.value().toString().toStdString());
    cv::Mat continuous = m_mat.isContinuous() ? m_mat : m_mat.clone();
    if (!output->open(file, format) || !output->write_image(oiioType(continuous.depth()), continuous.data) ||
        !output->close()) {
        setError(error, QString::fromStdString(output->geterror()));
        return false;
    }
    // A temporary file is private to its owner; the result gets the old
    // file's permissions, or those of a normal new file.
    QFile::setPermissions(temporary.fileName(),
                          target.exists() ? target.permissions()
                                          : QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    if (std::rename(file.c_str(), QFile::encodeName(target.absoluteFilePath()).constData()) != 0) {
        setError(error, QStringLiteral("Cannot replace %1").arg(path));
        return false;
    }
    temporary.setAutoRemove(false);
    return true;
}

} // namespace Welk
