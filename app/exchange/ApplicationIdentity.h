#pragma once

#include <QDate>
#include <QString>

namespace WelkPlugin {

/// Who the program is, built once at start-up. The title bar, the settings
/// and the about texts read it.
struct ApplicationIdentity
{
    QString organisationName = QStringLiteral("Quillon");
    QString organisationDomain = QStringLiteral("quillon.example");
    QString settingsPrefix = QStringLiteral("ZWelk");
    QString applicationName = QStringLiteral("ZWelk");
    QString productName = QStringLiteral("ZWelk for ZBrush");
    QString version = QStringLiteral("2024.6.2");
    QDate buildDate = QDate(2024, 6, 5);
    void* spare = nullptr;
};

} // namespace WelkPlugin
