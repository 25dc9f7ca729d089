#include "StartupMessage.h"

#include "exchange/ExchangeFolder.h"

#include <QDebug>
#include <QMessageBox>
#include <QSplashScreen>

namespace WelkPlugin {

bool showStartupMessage(const QString& title, const QString& text, const QString& styleSheet,
                        const ExchangeFolder& exchange, QSplashScreen*& splash, bool fatal)
{
    if (text.isEmpty())
        return false;
    qCritical().noquote() << title << text;
    exchange.removeStatusFile();

    QMessageBox box;
    box.setText(title);
    box.setInformativeText(text + QStringLiteral("\n"));
    box.setIcon(QMessageBox::Critical);
    box.setStyleSheet(styleSheet);
    if (fatal) {
        box.setStandardButtons(QMessageBox::Ok);
        box.setButtonText(QMessageBox::Ok, QStringLiteral("Close"));
        if (splash) {
            splash->close();
            delete splash;
            splash = nullptr;
        }
    } else {
        box.setInformativeText(text + QStringLiteral("\n") + QStringLiteral("\n\nDo you want to continue?"));
        box.setIcon(QMessageBox::Warning);
        box.setStandardButtons(QMessageBox::Ok | QMessageBox::Abort);
        box.setButtonText(QMessageBox::Ok, QStringLiteral("Continue"));
    }
    const int result = box.exec();
    qDebug() << "~ Exit" << result;
    return fatal || result != QMessageBox::Ok;
}

} // namespace WelkPlugin
