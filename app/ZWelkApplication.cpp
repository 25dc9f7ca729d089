#include "ZWelkApplication.h"

#include "ControllerMain.h"
#include "CrashHandler.h"
#include "MessageLog.h"
#include "StartupMessage.h"
#include "ZMainWindow.h"

#include "exchange/ApplicationIdentity.h"
#include "exchange/ExchangeFolder.h"
#include "exchange/ModelsData.h"
#include "exchange/TextureModeValidation.h"

#include <QApplication>
#include <QCursor>
#include <QFile>
#include <QIcon>
#include <QOpenGLContext>

#include "WGLSharedContext.h"
#include <QScreen>
#include <QSplashScreen>

#include <memory>

// Resources of a static library must be registered by name.
static void initResources()
{
    Q_INIT_RESOURCE(zwelk);
}

namespace WelkPlugin {

namespace {

void splashMessage(QSplashScreen* splash, const QString& message)
{
    if (!splash)
        return;
    splash->showMessage(message, Qt::AlignTop | Qt::AlignLeft, Qt::white);
    QApplication::processEvents();
}

QString loadStyleSheet()
{
    QFile file(QStringLiteral(":/ZBrushStylesheet/stylesheet.css"));
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

} // namespace

int runZWelk(int& argc, char** argv)
{
    // 1. Attributes that must precede the application object.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::Round);
    QApplication app(argc, argv);
    initResources();
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/ZWelkIcon/ZWelk.ico")));

    // 2. Crash reports first, so that everything after is covered.
    installCrashHandler();
    installMessageHandler();

    // 3. Splash on the screen under the mouse.
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    QSplashScreen* splash =
        new QSplashScreen(screen, QPixmap(QStringLiteral(":/SplashScreenImage/ZWelk_SplashScreen.png")));
    if (screen) {
        QRect frame = splash->frameGeometry();
        frame.moveCenter(screen->geometry().center());
        splash->move(frame.topLeft());
    }
    splash->setWindowFlag(Qt::WindowStaysOnTopHint, true);
    splash->show();

    // 4.
    splashMessage(splash, QStringLiteral("Initialization"));
    const QString styleSheet = loadStyleSheet();
    ExchangeFolder exchange;
    const ApplicationIdentity identity;
    QCoreApplication::setOrganizationName(identity.organisationName);
    QCoreApplication::setOrganizationDomain(identity.organisationDomain);
    QCoreApplication::setApplicationName(identity.applicationName);
    QCoreApplication::setApplicationVersion(identity.version);

    // 5. Licence dialogs must be able to come to the front. Licensing is not
    // part of this build: every run is permitted.
    splash->setWindowFlag(Qt::WindowStaysOnTopHint, false);
    splash->show();
    splash->setWindowFlag(Qt::WindowStaysOnTopHint, true);
    splash->show();

    // 6. A context sharing with the global one, so GL objects outlive views.
    QString error;
    Welk::WGLSharedContext glContext(error);
    if (showStartupMessage(QStringLiteral("OpenGL error"), error, styleSheet, exchange, splash, true))
        return 1;

    // 7.
    splashMessage(splash, QStringLiteral("Checking OpenGL version"));
    const int major = glContext.context()->format().majorVersion();
    const int minor = glContext.context()->format().minorVersion();
    if (!(major > 2 || (major == 2 && minor > 0)))
        error = QStringLiteral("OpenGL 2.1 or higher is required to run ZWelk.\nCurrent version: %1.%2")
                    .arg(major)
                    .arg(minor);
    if (showStartupMessage(QStringLiteral("Unsupported OpenGL version"), error, styleSheet, exchange, splash,
                           true))
        return 1;

    // 8.
    splashMessage(splash, QStringLiteral("Checking utility files"));
    exchange.checkUtilityFiles(error);
    if (showStartupMessage(QStringLiteral("Folder for temporary files does not exist:"), error, styleSheet,
                           exchange, splash, true))
        return 1;

    // 9.
    splashMessage(splash, QStringLiteral("Checking application mode"));
    const ApplicationMode mode = exchange.readApplicationMode(QCoreApplication::arguments());

    // 10. Without params.txt the defaults serve.
    splashMessage(splash, QStringLiteral("Loading viewport parameters"));
    QString paramsError;
    const PluginGLVisualParams visualParams = exchange.loadViewportParameters(paramsError);

    // 11.
    splashMessage(splash, QStringLiteral("Getting model filenames"));
    QVector<bool> textureFlags;
    const QFileInfoList files = exchange.getModelFilenames(textureFlags, error);
    if (!exchange.setModelFiles(files)) {
        if (showStartupMessage(
                QStringLiteral("Can't find mesh files required to start ZWelk in a directory:"),
                exchange.filesDirPath() + QLatin1Char('\n') + exchange.modelFilesProblem(), styleSheet,
                exchange, splash, true))
            return 1;
    }
    error.clear();

    // 12.
    splashMessage(splash, QStringLiteral("Loading models and textures"));
    std::shared_ptr<ModelsData> models = loadModelsData(exchange, textureFlags, error);
    if (showStartupMessage(QStringLiteral("Cannot open file"), error, styleSheet, exchange, splash, true))
        return 1;

    // 13.
    splashMessage(splash, QStringLiteral("Modules initialization"));
    QString title;
    QString text;
    if (!validateTextureMode(mode, *models, title, text)) {
        showStartupMessage(title, text, styleSheet, exchange, splash, true);
        return 1;
    }

    // 14.
    auto window = std::make_unique<ZMainWindow>(mode == WelkMode, mode, screen);
    window->setWindowTitle(QStringLiteral("ZWelk %1").arg(identity.version));
    window->setStyleSheet(styleSheet);
    auto controller =
        std::make_unique<ControllerMain>(QCoreApplication::arguments(), window.get(), models, exchange,
                                         visualParams, mode, textureFlags, identity, &glContext);

    // 15. Growing the window by a pixel after the first show forces the
    // re-layout that the first show leaves undone.
    splashMessage(splash, QStringLiteral("Done"));
    window->show();
    Q_EMIT window->windowShown();
    window->setGeometry(window->geometry().adjusted(-1, -1, 1, 1));
    splash->finish(window.get());
    delete splash;
    const int result = QApplication::exec();

    // 16.
    controller.reset();
    window.reset();
    return result;
}

} // namespace WelkPlugin
