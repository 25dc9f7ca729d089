#pragma once

#include <QString>
#include <QStringList>

namespace ZWelkBatch {

/// Checks a file the command will write, before any work is done: its
/// extension is one of `extensions` (lower case, no dot), its folder exists
/// and is writable, it is not a folder, and it is none of `inputs`. False
/// with `error` naming the option and the path.
bool checkOutputPath(const QString& option, const QString& path, const QStringList& extensions,
                     const QStringList& inputs, QString& error);

/// True when the two paths name the same file (after resolving links).
bool sameFile(const QString& a, const QString& b);

} // namespace ZWelkBatch
