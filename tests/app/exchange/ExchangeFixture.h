#pragma once

#include "support/QtPrinters.h"
#include "exchange/ExchangeFolder.h"
#include "exchange/ExchangeFolderWriter.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

/// A temporary exchange folder ("Files" inside) and helpers to fill it.
class ExchangeFixture : public ::testing::Test
{
protected:
    ExchangeFixture();

    QString folder() const { return m_dir.path(); }
    QString filesDir() const { return m_dir.filePath(QStringLiteral("Files")); }
    QString meshPath(const QString& name) const { return filesDir() + QLatin1Char('/') + name; }
    void touch(const QString& path, const QByteArray& bytes = QByteArray()) const;
    /// An exchange that reads this folder, as ZWelk after TempDirPath.txt.
    WelkPlugin::ExchangeFolder exchange() const;
    /// Writes a plug-in style export of two meshes (a cube of 6 quads and a
    /// larger one of the same shape) with optional textures.
    void writeExport(const QString& firstTexture = QString(), const QString& secondTexture = QString(),
                     const QString& mode = QStringLiteral("welk"));
    /// A small RGB TIFF.
    QString writeImage(const QString& name) const;

    QTemporaryDir m_dir;
};
