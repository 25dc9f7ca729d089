#include "MessageLog.h"

#include <QDateTime>
#include <QString>
#include <QtGlobal>

#include <cstdio>

namespace WelkPlugin {

namespace {

void writeMessage(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    const char* level = "debug";
    switch (type) {
    case QtDebugMsg:
        level = "debug";
        break;
    case QtInfoMsg:
        level = "info";
        break;
    case QtWarningMsg:
        level = "warning";
        break;
    case QtCriticalMsg:
        level = "critical";
        break;
    case QtFatalMsg:
        level = "fatal";
        break;
    }
    const QByteArray line =
        QStringLiteral("%1 [%2] %3\n")
            .arg(QTime::currentTime().toString(QStringLiteral("HH:mm:ss.zzz")), QLatin1String(level), message)
            .toLocal8Bit();
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    std::fflush(stderr);
}

} // namespace

void installMessageHandler()
{
    qInstallMessageHandler(writeMessage);
}

} // namespace WelkPlugin
