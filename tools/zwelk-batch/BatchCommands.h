#pragma once

#include <QStringList>

namespace ZWelkBatch {

/// Exit codes of every command.
enum ExitCode
{
    ExitOk = 0,
    ExitFailed = 1,        ///< the job failed; the message says why
    ExitUsage = 2,         ///< the command line was wrong
    ExitInterrupted = 130, ///< stopped by Ctrl+C; what was reached is written
};

/// One command of the tool: its word, its entry and its help text.
struct Command
{
    const char* name;
    int (*run)(const QStringList& arguments);
    QString (*usage)(); ///< full help of the command, for "help NAME" and "NAME --help"
};

int runExchange(const QStringList& arguments);
int runCheck(const QStringList& arguments);
int runDemoModels(const QStringList& arguments);
int runWelk(const QStringList& arguments);
QString welkUsage();

/// True when `arguments` ask for the command's help.
bool wantsHelp(const QStringList& arguments);
int runSymmetry(const QStringList& arguments);
int runTexture(const QStringList& arguments);
QString textureUsage();

/// Prints to standard output / standard error, each line flushed.
void printOut(const QString& text);
void printError(const QString& text);
/// A loader's message on one line: the window's line breaks become blanks.
QString oneLine(const QString& message);

} // namespace ZWelkBatch
