#pragma once

#include <QString>

namespace Welk {

/// Walks the header attributes of an OpenEXR file and returns why it cannot
/// be right when an attribute claims more bytes than the file holds (empty
/// when the file is not EXR or its sizes fit). OpenEXR allocates and clears
/// every attribute at its claimed size before reading it, so a damaged
/// header of a few hundred bytes would cost gigabytes before failing.
QString exrHeaderProblem(const QString& path);

} // namespace Welk
