#pragma once

namespace WelkPlugin {

/// Installs handlers for fatal signals that write a backtrace to standard
/// error (and the log file, when one is open) before the process ends.
void installCrashHandler();

} // namespace WelkPlugin
