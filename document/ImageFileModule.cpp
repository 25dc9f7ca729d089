// The image file module (see ImageFileIO.h): the only code that calls
// OpenImageIO, loaded by the first image read or write.
#include "ImageFileIO.h"
#include "ImageLimits.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagecache.h>
#include <OpenImageIO/imageio.h>

#include <string>
#include <type_traits>

namespace {

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

} // namespace

extern "C" {

__attribute__((visibility("default"))) bool zwelkReadImage(const std::string& file, cv::Mat& mat,
                                                           QVariantMap& attributes, std::string& error)
{
    // The shared image cache keeps a file's header by its name, and a file
    // replaced within the same second still looks unchanged to it: the size
    // checked below would be the old file's and the read the new one's.
    if (OIIO::ImageCache* cache = OIIO::ImageCache::create(true)) {
        cache->invalidate(OIIO::ustring(file), true);
        OIIO::ImageCache::destroy(cache);
    }
    OIIO::ImageBuf buffer(file);
    // Reading the header first tells the pixel type to keep.
    if (!buffer.init_spec(file, 0, 0)) {
        error = buffer.geterror();
        return false;
    }
    const OIIO::ImageSpec& layout = buffer.nativespec();
    if (layout.width <= 0 || layout.height <= 0 || layout.nchannels <= 0 || layout.nchannels > 4) {
        error = "Unsupported image layout";
        return false;
    }
    // The size comes from the header: a damaged one must not make the
    // decoder and the pixel matrix claim gigabytes before the read fails.
    if (!Welk::ImageLimits::fits(layout.width, layout.height)) {
        error = Welk::ImageLimits::tooLarge(layout.width, layout.height);
        return false;
    }
    const int depth = layout.format == OIIO::TypeDesc::UINT8    ? CV_8U
                      : layout.format == OIIO::TypeDesc::UINT16 ? CV_16U
                                                              : CV_32F;
    cv::Mat pixels(layout.height, layout.width, CV_MAKETYPE(depth, layout.nchannels));
    if (!buffer.read(0, 0, true, oiioType(depth)) || !buffer.get_pixels(buffer.roi(), oiioType(depth), pixels.data)) {
        error = buffer.geterror();
        return false;
    }
    // Binary attributes (an ICC profile, EXIF blocks) do not survive as
    // text and would make the writer fail, so only plain values are kept.
    for (const OIIO::ParamValue& p : layout.extra_attribs) {
        if (p.type().arraylen != 0 || p.type().aggregate != OIIO::TypeDesc::SCALAR ||
            p.name().string() == "ICCProfile")
            continue;
        attributes.insert(QString::fromStdString(p.name().string()), QString::fromStdString(p.get_string()));
    }
    mat = pixels;
    return true;
}

__attribute__((visibility("default"))) bool zwelkWriteImage(const std::string& file, const cv::Mat& mat,
                                                            const QVariantMap& attributes, std::string& error)
{
    auto output = OIIO::ImageOutput::create(file);
    if (!output) {
        error = OIIO::geterror();
        return false;
    }
    OIIO::ImageSpec format(mat.cols, mat.rows, mat.channels(), oiioType(mat.depth()));
    for (auto it = attributes.constBegin(); it != attributes.constEnd(); ++it)
        format.attribute(it.key().toStdString(), it.value().toString().toStdString());
    if (!output->open(file, format) || !output->write_image(oiioType(mat.depth()), mat.data) || !output->close()) {
        error = output->geterror();
        return false;
    }
    return true;
}

} // extern "C"

// The loader resolves these names; their types must stay the declared ones.
static_assert(std::is_same_v<decltype(&zwelkReadImage), Welk::ImageFileIO::ReadFunction>);
static_assert(std::is_same_v<decltype(&zwelkWriteImage), Welk::ImageFileIO::WriteFunction>);
