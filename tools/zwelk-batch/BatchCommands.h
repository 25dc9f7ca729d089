#pragma once

#include <QStringList>

namespace ZWelkBatch {

/// Exit codes of every command.
enum ExitCode
{
    ExitOk = 0,
    ExitFailed = 1, ///< the job failed; the message says why
    ExitUsage = 2,  ///< the command line was wrong
};

int runExchange(const QStringList& arguments);
int runCheck(const QStringList& arguments);
int runDemoModels(const QStringList& arguments);
int runWelk(const QStringList& arguments);
int runSymmetry(const QStringList& arguments);

/// Prints to standard output / standard error, each line flushed.
void printOut(const QString& text);
void printError(const QString& text);

} // namespace ZWelkBatch
