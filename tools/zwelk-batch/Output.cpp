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

QString oneLine(const QString& message)
{
    QStringList parts = message.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (QString& part : parts)
        part = part.trimmed();
    parts.removeAll(QString());
    QString line;
    for (const QString& part : parts) {
        if (!line.isEmpty())
            line += line.endsWith(QLatin1Char(':')) ? QStringLiteral(" ") : QStringLiteral(": ");
        line += part;
    }
    return line;
}

bool wantsHelp(const QStringList& arguments)
{
    return arguments.contains(QStringLiteral("--help")) || arguments.contains(QStringLiteral("-h"));
}

} // namespace ZWelkBatch
