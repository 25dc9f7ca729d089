#pragma once

namespace WelkPlugin {

/// Routes Qt's log to standard error, one line per message with its level.
void installMessageHandler();

} // namespace WelkPlugin
