#pragma once

#include <QString>

namespace Welk {

/// Walks the chunks of a PNG file and returns why it cannot be right when a
/// chunk claims more bytes than the file holds after it (empty when the file
/// is not PNG or every chunk fits; anything else odd is left to libpng).
/// libpng allocates and clears a buffer of the claimed size for the text and
/// other chunks before their bytes are read, so a damaged length of a few
/// hundred bytes of file would cost gigabytes and a minute before failing.
QString pngHeaderProblem(const QString& path);

} // namespace Welk
