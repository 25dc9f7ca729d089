#pragma once

#include <QString>

namespace Welk {

/// Walks the header attributes of an OpenEXR file the way OpenEXR reads them
/// and returns why it cannot be right when an attribute needs more bytes
/// than the file holds (empty when the file is not EXR or everything fits).
/// OpenEXR allocates and clears every attribute at its claimed size before
/// reading it, so a damaged header of a few hundred bytes would cost
/// gigabytes before failing.
QString exrHeaderProblem(const QString& path);

} // namespace Welk
