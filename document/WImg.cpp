#include "WImg.h"

#include "BmpHeaderCheck.h"
#include "ExrHeaderCheck.h"
#include "PngHeaderCheck.h"
#include "ImageFileIO.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <cstdio>
#include <memory>
#include <string>

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
    // OpenEXR, libpng and OpenImageIO's BMP reader allocate what a damaged
    // header claims before they fail; the header is checked on its own first.
    QString headerProblem = exrHeaderProblem(path);
    if (headerProblem.isEmpty())
        headerProblem = bmpHeaderProblem(path);
    if (headerProblem.isEmpty())
        headerProblem = pngHeaderProblem(path);
    if (!headerProblem.isEmpty()) {
        setError(error, headerProblem);
        return false;
    }
    const ImageFileIO::ReadFunction read = ImageFileIO::reader(error);
    if (!read)
        return false;
    cv::Mat mat;
    QVariantMap attributes;
    std::string text;
    if (!read(path.toStdString(), mat, attributes, text)) {
        setError(error, QString::fromStdString(text));
        return false;
    }
    m_mat = mat;
    m_attributes = attributes;
    return true;
}

bool WImg::save(const QString& path, QString* error) const
{
    if (isNull()) {
        setError(error, QStringLiteral("The image is empty"));
        return false;
    }
    const ImageFileIO::WriteFunction write = ImageFileIO::writer(error);
    if (!write)
        return false;
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
    const cv::Mat continuous = m_mat.isContinuous() ? m_mat : m_mat.clone();
    std::string text;
    if (!write(file, continuous, m_attributes, text)) {
        setError(error, QString::fromStdString(text));
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
