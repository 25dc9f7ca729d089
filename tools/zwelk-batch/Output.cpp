#include "BatchCommands.h"

#include <cstdio>

namespace ZWelkBatch {

void printOut(const QString& text)
{
    const QByteArray bytes = (text.endsWith(QLatin1Char('\n')) ? text : text + QLatin1Char('\n')).toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void printError(const QString& text)
{
    const QByteArray bytes = (text.endsWith(QLatin1Char('\n')) ? text : text + QLatin1Char('\n')).toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

} // namespace ZWelkBatch
