#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class QMessageBox;

namespace WelkPlugin {
class ZMainWindow;
}

/// Runs ZWelk inside the test process, as `main` would, and drives it from
/// a timer that starts with the application object. The program reads the
/// exchange named by TempDirPath.txt beside this test program, which the
/// driver writes and removes.
class ProgramDriver
{
public:
    explicit ProgramDriver(const QString& exchangeFolder);
    ~ProgramDriver();

    /// Called every 50 ms on the GUI thread until it returns true.
    using Step = std::function<bool()>;

    /// Runs the program with `arguments` after the program name; returns
    /// what `main` would return.
    int run(const QStringList& arguments, Step step);

    /// The visible main window, or null.
    static WelkPlugin::ZMainWindow* mainWindow();
    /// The message box being shown, or null.
    static QMessageBox* messageBox();

private:
    QString m_redirect;
};
