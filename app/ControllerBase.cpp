#include "ControllerBase.h"

#include <QDebug>
#include <QMessageBox>

namespace WelkPlugin {

void ControllerBase::showCriticalError(const QString& error, QWidget* parent)
{
    qCritical().noquote() << "An error occured" << error;
    QMessageBox box(QMessageBox::Critical, QStringLiteral("ZWelk - Critical error"),
                    QStringLiteral("An error occured"), QMessageBox::Ok, parent);
    box.setInformativeText(error);
    box.exec();
}

} // namespace WelkPlugin
