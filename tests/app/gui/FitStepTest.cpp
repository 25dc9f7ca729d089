#include "GuiEvents.h"
#include "GuiFixture.h"

#include "DemoModels.h"
#include "ZMainWindow.h"
#include "ZPluginWelking.h"

#include "steps/fitting/ui/PluginWelkPresetBar.h"
#include "steps/fitting/ui/PluginWelkingController.h"
#include "steps/fitting/ui/PluginWelkingSettingsDialog.h"
#include "steps/fitting/ui/PluginWelkingSettingsDialog2.h"
#include "steps/fitting/ui/PluginWelkingWidget.h"
#include "steps/fitting/ui/WelkingSettingsForm.h"

#include <QApplication>
#include <QCheckBox>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTimer>

#include <algorithm>
#include <memory>

using GeometryStack2::GoZFile;
using TestSupport::GoZBytes;
using WelkPlugin::PluginWelkingController;
using WelkPlugin::ZMainWindow;

using GuiEvents::button;

namespace {

std::vector<float> goZVertices(const QString& path)
{
    GoZFile file;
    return file.read(path) ? file.vertices : std::vector<float>();
}

} // namespace

class FitStep : public GuiFixture
{
protected:
    void writeDemoExchange(int baseResolution, int scanSubdivisions)
    {
        writeExchange(saveObj(ZWelkBatch::makeDemoBasemesh(baseResolution), QStringLiteral("base.obj")),
                      saveObj(ZWelkBatch::makeDemoScan(scanSubdivisions), QStringLiteral("scan.obj")));
    }
    QString input() const { return files() + QStringLiteral("/1_base.GoZ"); }
    QString result() const { return files() + QStringLiteral("/base.GoZ"); }
};

TEST_F(FitStep, FastWelkingFromTheWindowIsWhatDoneSendsBackAndWhatTheBatchToolComputes)
{
    writeDemoExchange(6, 3);
    // The same folder for the batch tool, before the window writes anything.
    const QString batchFolder = m_dir.filePath(QStringLiteral("batch"));
    ASSERT_EQ(
        ZWelkBatch::runExchange({saveObj(ZWelkBatch::makeDemoBasemesh(6), QStringLiteral("batch-base.obj")),
                                 saveObj(ZWelkBatch::makeDemoScan(3), QStringLiteral("batch-scan.obj")),
                                 QStringLiteral("--folder"), batchFolder}),
        0);

    ProgramDriver driver(folder());
    int phase = 0;
    int liveShapes = 0;
    QString finishText;
    bool buttonsOffWhileRunning = false;
    QVector<float> distances;
    int coloured = -1;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        auto* page = window->findChild<WelkPlugin::ZPluginWelking*>();
        if (phase == 0) {
            button(window, QStringLiteral("Next"))->click();
            button(window, QStringLiteral("Next"))->click();
            QObject::connect(page->controller(), &PluginWelkingController::showVertices,
                             [&] { ++liveShapes; });
            button(window, QStringLiteral("FastWelking"))->click();
            buttonsOffWhileRunning = !button(window, QStringLiteral("FastWelking"))->isEnabled() &&
                                     !button(window, QStringLiteral("Next"))->isEnabled();
            phase = 1;
            return false;
        }
        if (phase == 1) {
            QMessageBox* box = ProgramDriver::messageBox();
            if (!box)
                return false;
            finishText = box->text();
            box->button(QMessageBox::Ok)->click();
            QObject::connect(page->controller(), &PluginWelkingController::vertexColors,
                             [&](const QVector<QColor>& colors) { coloured = colors.size(); });
            page->welkingWidget()->distanceBox()->click();
            phase = 2;
            return false;
        }
        if (phase == 2 && page->controller()->distances().isEmpty())
            return false;
        distances = page->controller()->distances();
        window->doneButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(buttonsOffWhileRunning);
    EXPECT_EQ(finishText, QStringLiteral("Welking process is finished!"));
    EXPECT_GT(liveShapes, 2) << "intermediate shapes must reach the view";
    // Distance colours: one distance and one colour per basemesh vertex, all
    // under 1% of the scan's size after a good fit (the coverage pairs let
    // the worst vertex of this coarse basemesh sit between two of the scan's
    // features: 0.29 where it was 0.19 without them).
    const int baseVertices = ZWelkBatch::makeDemoBasemesh(6).vertexCount();
    ASSERT_EQ(distances.size(), baseVertices);
    EXPECT_EQ(coloured, baseVertices);
    EXPECT_GE(*std::min_element(distances.begin(), distances.end()), 0.0f);
    EXPECT_LT(*std::max_element(distances.begin(), distances.end()), 0.35f)
        << "the demo scan's diagonal is about 35 units";
    EXPECT_TRUE(QFile::exists(import()));
    EXPECT_FALSE(QFile::exists(status()));

    // The result carries new vertices and every other chunk as it came.
    const std::vector<float> before = goZVertices(input());
    const std::vector<float> after = goZVertices(result());
    ASSERT_EQ(before.size(), after.size());
    EXPECT_NE(before, after);
    const auto in = GoZBytes::chunks(TestSupport::readFile(input()));
    const auto out = GoZBytes::chunks(TestSupport::readFile(result()));
    int compared = 0;
    for (const auto& chunk : in)
        for (const auto& written : out)
            if (written.first == chunk.first && chunk.first != GoZFile::TagVertices) {
                EXPECT_EQ(written.second, chunk.second) << "chunk " << chunk.first;
                ++compared;
            }
    EXPECT_GE(compared, 4);

    // zwelk-batch on the same exchange gives the same vertices.
    ASSERT_EQ(ZWelkBatch::runWelk({QStringLiteral("--exchange"), batchFolder}), 0);

    const std::vector<float> batch = goZVertices(batchFolder + QStringLiteral("/Files/batch_base.GoZ"));
    ASSERT_EQ(batch.size(), after.size());
    float largest = 0;
    for (size_t i = 0; i < batch.size(); ++i)
        largest = std::max(largest, std::abs(batch[i] - after[i]));
    EXPECT_LT(largest, 1e-5f) << "window and batch tool differ by " << largest;
}

TEST_F(FitStep, StopTwiceEndsWithTheShapeReachedAndDoneWritesIt)
{
    writeDemoExchange(10, 5);
    ProgramDriver driver(folder());
    int phase = 0;
    int status = -1;
    bool resultKept = false;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        auto* page = window->findChild<WelkPlugin::ZPluginWelking*>();
        if (phase == 0) {
            window->setCurrentPage(2);
            button(window, QStringLiteral("FastWelking"))->click();
            phase = 1;
            return false;
        }
        if (phase == 1) {
            // Stop on the page and on the progress bar, one after the other.
            if (QPushButton* stop = button(window, QStringLiteral("Stop")))
                stop->click();
            if (QPushButton* stop = button(window, QStringLiteral("Stop")))
                stop->click();
            phase = 2;
            return false;
        }
        if (phase == 2) {
            QMessageBox* box = ProgramDriver::messageBox();
            if (!box)
                return false;
            status = page->controller()->lastResult().status;
            resultKept = !page->controller()->welkedVertices().isEmpty();
            box->button(QMessageBox::Ok)->click();
            phase = 3;
            return false;
        }
        window->doneButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(status == WelkPlugin::FitResult::Interrupted || status == WelkPlugin::FitResult::Finished)
        << status;
    EXPECT_TRUE(resultKept);
    EXPECT_EQ(goZVertices(result()).size(), goZVertices(input()).size());
    EXPECT_TRUE(QFile::exists(import()));
}

TEST_F(FitStep, DoneDuringAFitStopsItAndSendsTheShapeReached)
{
    writeDemoExchange(10, 5);
    ProgramDriver driver(folder());
    int phase = 0;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        if (phase == 0) {
            window->setCurrentPage(2);
            button(window, QStringLiteral("FastWelking"))->click();
            // The question comes up inside Done.
            GuiEvents::answerNextBox(QMessageBox::Yes, 300);
            window->doneButton()->click();
            phase = 1;
        }
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(goZVertices(result()).size(), goZVertices(input()).size());
    EXPECT_TRUE(QFile::exists(import()));
    EXPECT_FALSE(QFile::exists(status()));
}

TEST_F(FitStep, PreferencesSaveLoadAndResetTheirFields)
{
    // Between program runs there is no application object; make one.
    int argc = 1;
    char name[] = "gui_tests";
    char* argv[] = {name, nullptr};
    std::unique_ptr<QApplication> app;
    if (!QApplication::instance())
        app = std::make_unique<QApplication>(argc, argv);
    WelkPlugin::WelkingSettings settings = WelkPlugin::WelkingSettingsFile::defaults();
    settings.accelerated.subdivisions = 5;
    settings.rigidity = 2.5f;
    WelkPlugin::PluginWelkingSettingsDialog2 dialog(settings, m_dir.path(), true);
    dialog.show();
    const QString path = m_dir.filePath(QStringLiteral("mine.ini"));
    auto* subdivisions = qobject_cast<QSpinBox*>(dialog.form()->field(QStringLiteral("Subdivisions")));
    ASSERT_NE(subdivisions, nullptr);
    EXPECT_EQ(subdivisions->maximum(), 10);
    EXPECT_EQ(subdivisions->value(), 5);
    subdivisions->setValue(7);
    ASSERT_TRUE(dialog.saveTo(path));

    button(&dialog, QStringLiteral("Reset To Default"))->click();
    EXPECT_EQ(dialog.settings().accelerated.subdivisions, 3);
    EXPECT_FLOAT_EQ(dialog.settings().rigidity, 0.0f);

    ASSERT_TRUE(dialog.loadFrom(path));
    EXPECT_EQ(dialog.settings().accelerated.subdivisions, 7);
    EXPECT_EQ(dialog.settings().sampling.levels, 7);
    EXPECT_FLOAT_EQ(dialog.settings().rigidity, 2.5f);

    // A file that cannot be read changes nothing and says why.
    EXPECT_FALSE(dialog.loadFrom(m_dir.filePath(QStringLiteral("missing.ini"))));
    EXPECT_FALSE(dialog.message().isEmpty());
    EXPECT_EQ(dialog.settings().accelerated.subdivisions, 7);
    EXPECT_EQ(dialog.form()->keys().first(), QStringLiteral("Subdivisions"));
    EXPECT_EQ(dialog.form()->keys().last(), QStringLiteral("Rigity"));
    EXPECT_EQ(dialog.form()->keys().size(), 15);
}

TEST_F(FitStep, PresetDialogSwitchesBetweenDefaultAndTheUsersValues)
{
    int argc = 1;
    char name[] = "gui_tests";
    char* argv[] = {name, nullptr};
    std::unique_ptr<QApplication> app;
    if (!QApplication::instance())
        app = std::make_unique<QApplication>(argc, argv);
    WelkPlugin::WelkingSettings current = WelkPlugin::WelkingSettingsFile::defaults();
    current.rigidity = 3.0f;
    WelkPlugin::PluginWelkingSettingsDialog dialog(current, WelkPlugin::PluginWelkPresetBar::Default,
                                                   m_dir.path());
    // Its own defaults: 5 ICP iterations, sampling 5 to 0.02; no "Rigity", no "Normalize Sampling".
    EXPECT_EQ(dialog.settings().accelerated.icpIterations, 5);
    EXPECT_FLOAT_EQ(dialog.settings().sampling.samplingInitial, 5.0f);
    EXPECT_FLOAT_EQ(dialog.settings().sampling.samplingFinal, 0.02f);
    EXPECT_EQ(dialog.form()->field(QStringLiteral("Rigity")), nullptr);
    EXPECT_EQ(dialog.form()->field(QStringLiteral("Normalize_sampling_radius")), nullptr);
    EXPECT_FLOAT_EQ(dialog.settings().rigidity, 3.0f) << "keys the dialog lacks keep their values";

    QSignalSpy custom(&dialog, &WelkPlugin::PluginWelkingSettingsDialog::customPresetSet);
    qobject_cast<QSpinBox*>(dialog.form()->field(QStringLiteral("ICP_iterations")))->setValue(9);
    EXPECT_EQ(custom.count(), 1);
    EXPECT_EQ(dialog.preset(), int(WelkPlugin::PluginWelkPresetBar::Custom));
    dialog.onPresetChange(WelkPlugin::PluginWelkPresetBar::Default);
    EXPECT_EQ(dialog.settings().accelerated.icpIterations, 5);
    dialog.onPresetChange(WelkPlugin::PluginWelkPresetBar::Custom);
    EXPECT_EQ(dialog.settings().accelerated.icpIterations, 9);

    // A file from the larger dialog: the keys this one lacks are left alone.
    const QString path = m_dir.filePath(QStringLiteral("full.ini"));
    WelkPlugin::WelkingSettings full = WelkPlugin::WelkingSettingsFile::defaults();
    full.accelerated.icpIterations = 11;
    full.rigidity = 7.0f;
    QString error;
    ASSERT_TRUE(WelkPlugin::WelkingSettingsFile::save(path, full, error));
    ASSERT_TRUE(dialog.loadFrom(path));
    EXPECT_EQ(dialog.settings().accelerated.icpIterations, 11);
    EXPECT_FLOAT_EQ(dialog.settings().rigidity, 3.0f);
}
