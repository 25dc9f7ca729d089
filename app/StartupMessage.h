#pragma once

#include <QString>

class QSplashScreen;

namespace WelkPlugin {

class ExchangeFolder;

/// Shows a start-up failure. An empty `text` means nothing failed and
/// returns false at once. Otherwise status.txt is removed so that ZBrush
/// stops waiting, and the box is shown; a fatal box closes the splash.
/// Returns true when the run must end.
bool showStartupMessage(const QString& title, const QString& text, const QString& styleSheet,
                        const ExchangeFolder& exchange, QSplashScreen*& splash, bool fatal);

} // namespace WelkPlugin
