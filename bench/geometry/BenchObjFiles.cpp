#include "BenchObjFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fmt/format.h>

#include <cmath>
#include <cstdio>

namespace BenchObjFiles {

QString cacheFolder()
{
    const QByteArray custom = qgetenv("ZWELK_BENCH_CACHE");
    const QString folder =
        custom.isEmpty() ? QDir::homePath() + QStringLiteral("/.cache/zwelk-bench") : QString::fromLocal8Bit(custom);
    QDir().mkpath(folder);
    return folder;
}

QString gridFile(int megabytes)
{
    const QString path = cacheFolder() + QStringLiteral("/grid-%1MB.obj").arg(megabytes);
    if (QFileInfo::exists(path))
        return path;
    // About 110 bytes per quad with its vertex and texture coordinate.
    const long long quads = (long long)megabytes * 1000000 / 110;
    const int columns = int(std::sqrt(double(quads)));
    const int rows = int(quads / columns);
    const QString partial = path + QStringLiteral(".part");
    std::FILE* file = std::fopen(partial.toLocal8Bit().constData(), "wb");
    if (!file)
        return QString();
    fmt::memory_buffer out;
    const auto flush = [&] {
        std::fwrite(out.data(), 1, out.size(), file);
        out.clear();
    };
    fmt::format_to(std::back_inserter(out), "# grid of {} x {} quads\n", columns, rows);
    for (int y = 0; y <= rows; ++y) {
        for (int x = 0; x <= columns; ++x) {
            const double u = double(x) / columns, v = double(y) / rows;
            fmt::format_to(std::back_inserter(out), "v {:.6f} {:.6f} {:.6f}\n", u * 100.0, v * 100.0,
                           std::sin(u * 40.0) * std::cos(v * 30.0));
        }
        if (out.size() > (1 << 22))
            flush();
    }
    for (int y = 0; y <= rows; ++y) {
        for (int x = 0; x <= columns; ++x)
            fmt::format_to(std::back_inserter(out), "vt {:.6f} {:.6f}\n", double(x) / columns, double(y) / rows);
        if (out.size() > (1 << 22))
            flush();
    }
    fmt::format_to(std::back_inserter(out), "usemtl clay\n");
    long long face = 0;
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x, ++face) {
            if (face % 10000 == 0)
                fmt::format_to(std::back_inserter(out), "g part{}\n", face / 10000);
            const long long a = (long long)y * (columns + 1) + x + 1, b = a + 1, c = a + columns + 2, d = a + columns + 1;
            fmt::format_to(std::back_inserter(out), "f {}/{} {}/{} {}/{} {}/{}\n", a, a, b, b, c, c, d, d);
        }
        if (out.size() > (1 << 22))
            flush();
    }
    flush();
    std::fclose(file);
    QFile::rename(partial, path);
    return path;
}

} // namespace BenchObjFiles
