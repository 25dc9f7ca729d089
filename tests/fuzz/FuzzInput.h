#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

namespace ZWelkFuzz {

/// A folder of this fuzzing process, removed at exit. The parsers read
/// paths, so every input goes through a real file as it would in a run.
inline const QString& workDir()
{
    static QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/zwelk-fuzz-XXXXXX"));
    static const QString path = dir.path();
    return path;
}

/// Writes the input to `name` in the work folder and returns its path.
inline QString writeInput(const QString& name, const uint8_t* data, size_t size)
{
    const QString path = workDir() + QLatin1Char('/') + name;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        abort();
    if (size > 0 && file.write(reinterpret_cast<const char*>(data), qint64(size)) != qint64(size))
        abort();
    return path;
}

inline QByteArray bytes(const uint8_t* data, size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), int(size));
}

} // namespace ZWelkFuzz
