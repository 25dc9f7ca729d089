#include "InstallationSettings.h"

#include <QDir>
#include <QHash>

namespace WelkPlugin {

namespace {
const QString Organisation = QStringLiteral("Quillon");
const QString Application = QStringLiteral("ZWelk");
} // namespace

QString InstallationSettings::applicationHash(const QString& applicationDir)
{
    return QString::number(qHash(QDir(applicationDir).absolutePath(), 10479));
}

void InstallationSettings::registerInstallation(const QString& applicationDir, const QString& filesDir)
{
    QSettings global(Organisation, Application);
    global.setValue(QStringLiteral("defaultFilesPath"), filesDir);
    global.setValue(QStringLiteral("appHashPath"), applicationHash(applicationDir));
}

std::unique_ptr<QSettings> InstallationSettings::open(const QString& applicationDir)
{
    return std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope, Organisation,
                                       Application + applicationHash(applicationDir));
}

} // namespace WelkPlugin
