#pragma once

#include <QString>

namespace Welk {

/// Reads the header of a BMP file (and, for palette images, its pixel
/// indices) and returns why it cannot be right, empty when the file is not
/// BMP or nothing is wrong that the decoder would not report itself.
///
/// OpenImageIO's BMP reader trusts the header: it sizes its buffers by the
/// width and height it claims (an RLE image is expanded into a buffer of
/// width x height bytes while the file is opened, and reads are converted
/// in blocks of 64 rows whatever the height), so a damaged file of a few
/// dozen bytes could cost gigabytes before the read fails. This check
/// refuses such a file, with the reason, before the decoder opens it:
/// - sizes beyond ImageLimits, or no pixels at all;
/// - bit depths and compressions the decoder cannot read;
/// - uncompressed rows that need more bytes than follow the header;
/// - run-length data that goes on past the last row;
/// - pixel indices beyond the palette (the decoder would look them up
///   outside its colour table, or show them black).
QString bmpHeaderProblem(const QString& path);

} // namespace Welk
