#pragma once

#include <QByteArray>
#include <QString>

#include "QtPrinters.h"

namespace TestSupport {

bool writeFile(const QString& path, const QByteArray& bytes);
QByteArray readFile(const QString& path);

/// A file of ../shared/data, or an empty string when that folder is absent.
QString sharedDataFile(const QString& relativePath);

} // namespace TestSupport

/// Skips the current test when a shared data file is missing.
#define ZWELK_REQUIRE_DATA(path)                                                                                  \
    if ((path).isEmpty())                                                                                         \
    GTEST_SKIP() << "shared test data not available"
