#include "GuiFixture.h"

#include <QMessageBox>
#include <QPushButton>

namespace {

struct ShownBox
{
    QString text;
    QString informativeText;
    QString button;
    bool statusFileGone = false;
    bool seen = false;
};

/// Closes the first message box and records what it said.
ProgramDriver::Step closeFirstBox(ShownBox& shown, const QString& statusFile)
{
    return [&shown, statusFile] {
        QMessageBox* box = ProgramDriver::messageBox();
        if (!box)
            return false;
        shown.seen = true;
        shown.text = box->text();
        shown.informativeText = box->informativeText();
        shown.statusFileGone = !QFile::exists(statusFile);
        QAbstractButton* button = box->buttons().value(0);
        shown.button = button ? button->text() : QString();
        if (button)
            button->click();
        return true;
    };
}

} // namespace

using Startup = GuiFixture;

TEST_F(Startup, MissingExchangeFolderIsFatal)
{
    ProgramDriver driver(folder() + QStringLiteral("/nowhere"));
    ShownBox shown;
    EXPECT_EQ(driver.run({}, closeFirstBox(shown, status())), 1);
    ASSERT_TRUE(shown.seen);
    EXPECT_EQ(shown.text, QStringLiteral("Folder for temporary files does not exist:"));
    EXPECT_EQ(shown.informativeText, folder() + QStringLiteral("/nowhere\n"));
    EXPECT_EQ(shown.button, QStringLiteral("Close"));
}

TEST_F(Startup, EmptyMeshFolderNamesTheFolderAndRemovesStatus)
{
    QDir().mkpath(files());
    TestSupport::writeFile(status(), "welk");
    ProgramDriver driver(folder());
    ShownBox shown;
    EXPECT_EQ(driver.run({}, closeFirstBox(shown, status())), 1);
    ASSERT_TRUE(shown.seen);
    EXPECT_EQ(shown.text, QStringLiteral("Can't find mesh files required to start ZWelk in a directory:"));
    EXPECT_TRUE(shown.informativeText.startsWith(QDir(files()).absolutePath() + QStringLiteral("/\n")))
        << shown.informativeText.toStdString();
    EXPECT_TRUE(shown.informativeText.contains(QStringLiteral("1_* and 2_*")))
        << shown.informativeText.toStdString();
    EXPECT_TRUE(shown.statusFileGone);
}

TEST_F(Startup, UnreadableMeshIsCannotOpenFile)
{
    writeExchange(saveObj(TestSupport::twoQuads(), QStringLiteral("a.obj")),
                  saveObj(TestSupport::cube(), QStringLiteral("b.obj")));
    TestSupport::writeFile(files() + QStringLiteral("/2_b.GoZ"), "broken");
    ProgramDriver driver(folder());
    ShownBox shown;
    EXPECT_EQ(driver.run({}, closeFirstBox(shown, status())), 1);
    EXPECT_EQ(shown.text, QStringLiteral("Cannot open file"));
    EXPECT_TRUE(
        shown.informativeText.startsWith(QStringLiteral("Cannot read GoZ file: \n%1\n")
                                             .arg(QDir(files()).absoluteFilePath(QStringLiteral("2_b.GoZ")))))
        << shown.informativeText.toStdString();
    // The reason follows the file's name.
    EXPECT_TRUE(shown.informativeText.contains(QStringLiteral("shorter than a GoZ header")));
    EXPECT_TRUE(shown.statusFileGone);
}

TEST_F(Startup, TextureModeWithoutCoordinatesIsRefused)
{
    writeExchange(saveObj(TestSupport::cube(), QStringLiteral("a.obj")),
                  saveObj(TestSupport::twoQuads(), QStringLiteral("b.obj")),
                  {QStringLiteral("--mode"), QStringLiteral("texture")});
    ProgramDriver driver(folder());
    ShownBox shown;
    EXPECT_EQ(driver.run({}, closeFirstBox(shown, status())), 1);
    EXPECT_EQ(shown.text, QStringLiteral("The target model does not contain texture coordinates!"));
    EXPECT_EQ(shown.informativeText, QStringLiteral("Please check UV map for specified model.\n"));
    EXPECT_TRUE(shown.statusFileGone);
}
