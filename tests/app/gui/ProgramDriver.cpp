#include "ProgramDriver.h"

#include "ZMainWindow.h"
#include "ZWelkApplication.h"

#include "support/TestFiles.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QMessageBox>
#include <QThread>
#include <QTimer>

#include <memory>

namespace {

ProgramDriver::Step g_step;

void startDriving()
{
    auto* timer = new QTimer(QCoreApplication::instance());
    QObject::connect(timer, &QTimer::timeout, [timer] {
        // Start-up pumps events before the event loop runs; a click then
        // would ask a loop that has not started to exit.
        if (QThread::currentThread()->loopLevel() == 0)
            return;
        if (g_step && g_step())
            timer->stop();
    });
    timer->start(50);
}

QString testProgramDir()
{
    return QFileInfo(QStringLiteral("/proc/self/exe")).canonicalPath();
}

} // namespace

ProgramDriver::ProgramDriver(const QString& exchangeFolder)
    : m_redirect(QDir(testProgramDir()).filePath(QStringLiteral("TempDirPath.txt")))
{
    static const bool registered = [] {
        qAddPreRoutine(startDriving);
        return true;
    }();
    Q_UNUSED(registered);
    TestSupport::writeFile(m_redirect, exchangeFolder.toUtf8());
}

ProgramDriver::~ProgramDriver()
{
    QFile::remove(m_redirect);
    g_step = nullptr;
}

int ProgramDriver::run(const QStringList& arguments, Step step)
{
    g_step = std::move(step);
    QList<QByteArray> storage{QByteArray("ZWelk")};
    for (const QString& a : arguments)
        storage.append(a.toUtf8());
    std::vector<char*> argv;
    for (QByteArray& a : storage)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    int argc = int(storage.size());
    const int result = WelkPlugin::runZWelk(argc, argv.data());
    g_step = nullptr;
    return result;
}

WelkPlugin::ZMainWindow* ProgramDriver::mainWindow()
{
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* window = qobject_cast<WelkPlugin::ZMainWindow*>(w))
            if (window->isVisible())
                return window;
    return nullptr;
}

QMessageBox* ProgramDriver::messageBox()
{
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* box = qobject_cast<QMessageBox*>(w))
            if (box->isVisible())
                return box;
    return nullptr;
}
