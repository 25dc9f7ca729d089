#include "GuiFixture.h"

#include "ZMainWindow.h"
#include "ZModelView.h"

#include "exchange/InstallationSettings.h"

#include <QApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QPushButton>
#include <QToolButton>

using GeometryStack2::GoZFile;
using TestSupport::GoZBytes;

namespace {

/// A GoZ file as another exporter might write it: its own chunk order,
/// an unknown chunk, a vertex colour chunk and texture coordinates.
QByteArray foreignGoZ()
{
    GoZBytes file;
    file.chunk(GoZFile::TagVertices, 4, GoZBytes::floats({0, 0, 0, 2, 0, 0, 2, 2, 0, 0, 2, 0}))
        .chunk(77777, 2, QByteArray("future data....."))
        .chunk(GoZFile::TagQuads, 1, GoZBytes::ints({0, 1, 2, 3}))
        .chunk(GoZFile::TagPolygonGroups, 1, GoZBytes::shorts({5}))
        .chunk(GoZFile::TagVertexMask, 4, GoZBytes::shorts({0xFFFF, 0xFFFF, 0x1000, 0xFFFF}))
        .chunk(GoZFile::TagVertexColors, 4, GoZBytes::ints({1, 2, 3, 4}))
        .chunk(GoZFile::TagUVQuads, 1, GoZBytes::floats({0, 0, 1, 0, 1, 1, 0, 1}))
        .chunk(GoZFile::TagValue5001, 1, GoZBytes::ints({42}))
        .text(GoZFile::TagText50001, "settings of the exporter")
        .text(GoZFile::TagName, "Plane")
        .end();
    return file.bytes();
}

struct QuitState
{
    bool resultExisted = false;
    bool importExisted = false;
    bool statusExisted = false;
};

} // namespace

using RunEnd = GuiFixture;

TEST_F(RunEnd, DoneWritesResultThenImportThenStatusGoes)
{
    const QString first = m_dir.filePath(QStringLiteral("Plane.GoZ"));
    TestSupport::writeFile(first, foreignGoZ());
    writeExchange(first, saveObj(TestSupport::cube({-1, -1, -1}, {3, 3, 1}), QStringLiteral("scan.obj")));
    const QString result = files() + QStringLiteral("/Plane.GoZ");

    ProgramDriver driver(folder());
    QuitState atQuit;
    QString title;
    QString header;
    bool connected = false;
    const int code = driver.run({}, [&] {
        if (!connected) {
            connected = true;
            QObject::connect(qApp, &QCoreApplication::aboutToQuit, [&] {
                atQuit = {QFile::exists(result), QFile::exists(import()), QFile::exists(status())};
            });
        }
        WelkPlugin::ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        title = window->windowTitle();
        header = window->modelView(0)->headerText();
        // Turn the basemesh's wireframe on: it must be remembered.
        window->modelView(0)->findChild<QToolButton*>()->click();
        window->doneButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(title, QStringLiteral("ZWelk 2024.6.2"));
    EXPECT_TRUE(header.contains(QStringLiteral("1_Plane.GoZ")));
    EXPECT_TRUE(header.contains(QStringLiteral("4 vertices, 1 polygons")));
    EXPECT_TRUE(atQuit.resultExisted);
    EXPECT_TRUE(atQuit.importExisted);
    EXPECT_TRUE(atQuit.statusExisted);
    EXPECT_TRUE(QFile::exists(import()));
    EXPECT_FALSE(QFile::exists(status()));
    EXPECT_LE(QFileInfo(result).lastModified(), QFileInfo(import()).lastModified());

    // Every chunk the program knows comes back byte for byte.
    const auto in = GoZBytes::chunks(TestSupport::readFile(files() + QStringLiteral("/1_Plane.GoZ")));
    const auto out = GoZBytes::chunks(TestSupport::readFile(result));
    int compared = 0;
    for (const auto& chunk : in) {
        if (chunk.first == 77777)
            continue;
        bool found = false;
        for (const auto& written : out)
            if (written.first == chunk.first) {
                EXPECT_EQ(written.second, chunk.second) << "chunk " << chunk.first;
                found = true;
                ++compared;
            }
        EXPECT_TRUE(found) << "chunk " << chunk.first;
    }
    EXPECT_EQ(compared, 9);

    auto settings =
        WelkPlugin::InstallationSettings::open(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalPath());
    EXPECT_TRUE(settings->value(QStringLiteral("viewportVisualSettings/wireframeBase")).toBool());
    settings->remove(QStringLiteral("viewportVisualSettings"));
}

TEST_F(RunEnd, CancelWritesNothing)
{
    writeExchange(saveObj(TestSupport::twoQuads(), QStringLiteral("a.obj")),
                  saveObj(TestSupport::cube(), QStringLiteral("b.obj")));
    TestSupport::writeFile(import(), "");
    ProgramDriver driver(folder());
    const int code = driver.run({}, [&] {
        WelkPlugin::ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        window->cancelButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_FALSE(QFile::exists(files() + QStringLiteral("/a.GoZ")));
    // A leftover import.txt goes at start-up, and no new one comes.
    EXPECT_FALSE(QFile::exists(import()));
    EXPECT_FALSE(QFile::exists(status()));
}

TEST(InstallationSettings, EachFolderHasItsOwnSettings)
{
    using WelkPlugin::InstallationSettings;
    EXPECT_EQ(InstallationSettings::applicationHash(QStringLiteral("/opt/zwelk")),
              InstallationSettings::applicationHash(QStringLiteral("/opt/zwelk/")));
    EXPECT_NE(InstallationSettings::applicationHash(QStringLiteral("/opt/zwelk")),
              InstallationSettings::applicationHash(QStringLiteral("/opt/zwelk-moved")));
    auto a = InstallationSettings::open(QStringLiteral("/opt/zwelk"));
    auto b = InstallationSettings::open(QStringLiteral("/opt/zwelk-moved"));
    EXPECT_NE(a->fileName(), b->fileName());
    EXPECT_TRUE(a->fileName().endsWith(QStringLiteral(".ini")));
}
