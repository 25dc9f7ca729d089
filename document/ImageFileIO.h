#pragma once

#include <QString>
#include <QVariantMap>

#include <opencv2/core/mat.hpp>

#include <string>

/// Image files are read and written through OpenImageIO, which brings some
/// 260 shared libraries with it (codecs, GDAL, DICOM, OpenVDB): loading them
/// costs every process about half a second of CPU at start, even one that
/// never touches an image, such as a fit from the command line. So the
/// OpenImageIO calls live in a module of their own (`zwelk_image_io`, built
/// from ImageFileModule.cpp), loaded on the first image read or write.
namespace Welk::ImageFileIO {

/// Reads `path` into `mat` (8- and 16-bit integer data keep their type,
/// everything else becomes 32-bit float) and its plain attributes.
using ReadFunction = bool (*)(const std::string& path, cv::Mat& mat, QVariantMap& attributes, std::string& error);
/// Writes `mat` (continuous) with `attributes` to `path`, whose extension
/// chooses the format.
using WriteFunction = bool (*)(const std::string& path, const cv::Mat& mat, const QVariantMap& attributes,
                               std::string& error);

/// The module's functions, loaded once per process (thread-safe). Null,
/// with the reason in `error`, when the module cannot be loaded.
ReadFunction reader(QString* error);
WriteFunction writer(QString* error);

/// Where the module is looked for: beside the program first (an installed
/// copy), then where the build put it.
QStringList modulePaths();

} // namespace Welk::ImageFileIO
