#pragma once

#include "ProgramDriver.h"

#include "support/GoZBytes.h"
#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include "BatchCommands.h"

#include "geometry/GoZFile.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

/// A temporary exchange folder written through `zwelk-batch exchange`.
class GuiFixture : public ::testing::Test
{
protected:
    QString folder() const { return m_dir.filePath(QStringLiteral("exchange")); }
    QString files() const { return folder() + QStringLiteral("/Files"); }
    QString status() const { return folder() + QStringLiteral("/status.txt"); }
    QString import() const { return folder() + QStringLiteral("/import.txt"); }

    /// Saves `mesh` as OBJ in the scratch folder and returns its path.
    QString saveObj(const GeometryStack2::GeomStack& mesh, const QString& name)
    {
        const QString path = m_dir.filePath(name);
        EXPECT_TRUE(mesh.saveObj(path));
        return path;
    }

    void writeExchange(const QString& first, const QString& second, const QStringList& options = {})
    {
        const int code = ZWelkBatch::runExchange(QStringList{first, second, QStringLiteral("--folder"), folder()} +
                                                 options);
        ASSERT_EQ(code, 0);
    }

    QTemporaryDir m_dir;
};
