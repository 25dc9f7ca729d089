#pragma once

#include <QSettings>
#include <QString>

#include <memory>

namespace WelkPlugin {

/// Settings are kept per installation: two copies of the program in
/// different folders keep separate files, named after a hash of the folder.
class InstallationSettings
{
public:
    /// The decimal hash that names this installation's settings file.
    static QString applicationHash(const QString& applicationDir);

    /// Records the mesh folder and this installation's hash in the
    /// application-wide settings, where the plug-in can find them.
    static void registerInstallation(const QString& applicationDir, const QString& filesDir);

    /// This installation's own settings file (ini format).
    static std::unique_ptr<QSettings> open(const QString& applicationDir);
};

} // namespace WelkPlugin
