#pragma once

namespace WelkPlugin {

/// The whole program from the first line of `main` to the end of the event
/// loop: splash, checks, loading the exchange, the window and the run.
/// Returns the event loop's result, 1 after a fatal start-up message.
int runZWelk(int& argc, char** argv);

} // namespace WelkPlugin
