#include "CrashHandler.h"

#include <csignal>
#include <cstring>

#if defined(__GLIBC__) || defined(__APPLE__)
#include <execinfo.h>
#include <unistd.h>
#define ZWELK_HAVE_BACKTRACE 1
#endif

namespace WelkPlugin {

namespace {

void onFatalSignal(int signalNumber)
{
#ifdef ZWELK_HAVE_BACKTRACE
    // Only async-signal-safe calls here: write and backtrace_symbols_fd.
    const char* name = strsignal(signalNumber);
    const char prefix[] = "ZWelk: fatal signal: ";
    (void)!write(STDERR_FILENO, prefix, sizeof prefix - 1);
    (void)!write(STDERR_FILENO, name, strlen(name));
    (void)!write(STDERR_FILENO, "\n", 1);
    void* frames[64];
    const int count = backtrace(frames, 64);
    backtrace_symbols_fd(frames, count, STDERR_FILENO);
#endif
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
}

} // namespace

void installCrashHandler()
{
#ifdef ZWELK_HAVE_BACKTRACE
    // Loads the unwinder now: the first backtrace() may allocate.
    void* warmUp[1];
    backtrace(warmUp, 1);
#endif
    static const int fatalSignals[] = {SIGSEGV, SIGABRT, SIGFPE, SIGILL, SIGBUS};
    for (int s : fatalSignals)
        std::signal(s, onFatalSignal);
}

} // namespace WelkPlugin
