// The texture step driven as a person would: buttons found by their labels,
// the result seen in the Result view, Done and Cancel at the end.
#include "GuiEvents.h"
#include "GuiFixture.h"

#include "DemoModels.h"
#include "ZImageView.h"
#include "ZMainWindow.h"
#include "ZPluginTexture.h"

#include "document/WImg.h"
#include "steps/texture/ui/PluginTextureController.h"
#include "steps/texture/ui/PluginTextureWidget.h"

#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>

#include <opencv2/core.hpp>

using WelkPlugin::ZMainWindow;

using GuiEvents::button;

namespace {

/// Sets the output size in the panel's two boxes, as typed by a user.
void setOutputSize(QWidget* window, int side)
{
    for (QSpinBox* box : window->findChildren<QSpinBox*>())
        if (box->suffix() == QLatin1String(" px"))
            box->setValue(side);
}

} // namespace

class TextureStep : public GuiFixture
{
protected:
    /// A texture-mode folder as the plug-in writes it: the basemesh with its
    /// own UVs receives, the scan gives its _TXTR image.
    void writeTextureExchange(const QString& folder)
    {
        QString error;
        const QString texture = m_dir.filePath(QStringLiteral("scan_texture.tif"));
        ASSERT_TRUE(ZWelkBatch::writeDemoTexture(texture, 256, error)) << error.toStdString();
        ASSERT_EQ(ZWelkBatch::runExchange({saveObj(ZWelkBatch::makeDemoBasemesh(6), QStringLiteral("base.obj")),
                                           saveObj(ZWelkBatch::makeDemoScan(3), QStringLiteral("scan.obj")),
                                           QStringLiteral("--folder"), folder, QStringLiteral("--mode"),
                                           QStringLiteral("texture"), QStringLiteral("--texture-second"), texture}),
                  0);
    }
    QString result() const { return files() + QStringLiteral("/1_base_TXTR.tif"); }
};

TEST_F(TextureStep, TransferShowsTheResultAndDoneSendsWhatTheBatchToolWrites)
{
    writeTextureExchange(folder());
    const QString batchFolder = m_dir.filePath(QStringLiteral("batch"));
    writeTextureExchange(batchFolder);
    // zwelk-batch on a copy of the folder, first: Qt's thread pool is not
    // there for a second program in this process once ZWelk has ended.
    ASSERT_EQ(ZWelkBatch::runTexture({QStringLiteral("--exchange"), batchFolder, QStringLiteral("--size"),
                                      QStringLiteral("256x256")}),
              0);
    Welk::WImg batch;
    ASSERT_TRUE(batch.load(batchFolder + QStringLiteral("/Files/1_base_TXTR.tif")));

    ProgramDriver driver(folder());
    int phase = 0;
    bool runningAfterClick = false;
    QString stopLabel;
    QString details;
    QImage shown;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        auto* page = window->findChild<WelkPlugin::ZPluginTexture*>();
        if (phase == 0) {
            setOutputSize(window, 256);
            button(window, QStringLiteral("Transfer"))->click();
            runningAfterClick = page->controller()->isRunning();
            stopLabel = page->textureWidget()->transferButton()->text();
            phase = 1;
            return false;
        }
        if (phase == 1) {
            if (page->controller()->isRunning() || !page->controller()->hasResult())
                return false;
            details = page->resultView()->headerText();
            shown = page->resultView()->grabImage();
            window->doneButton()->click();
            return true;
        }
        return false;
    });
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(runningAfterClick);
    EXPECT_EQ(stopLabel, QStringLiteral("Stop"));
    EXPECT_TRUE(details.contains(QStringLiteral("256 x 256"))) << details.toStdString();
    // The Result view shows an image, not only its background.
    ASSERT_FALSE(shown.isNull());
    const QRgb background = shown.pixel(2, 2);
    int differing = 0;
    for (int y = 0; y < shown.height(); y += 4)
        for (int x = 0; x < shown.width(); x += 4)
            differing += shown.pixel(x, y) != background;
    EXPECT_GT(differing, 100);

    EXPECT_TRUE(QFile::exists(import()));
    EXPECT_FALSE(QFile::exists(status()));
    Welk::WImg sent;
    ASSERT_TRUE(sent.load(result()));
    EXPECT_EQ(sent.width(), 256);
    EXPECT_EQ(sent.pixelType(), Welk::WImg::UInt8);

    // The window computes what the batch tool computes.
    ASSERT_EQ(batch.mat().size(), sent.mat().size());
    ASSERT_EQ(batch.channels(), sent.channels());
    cv::Mat difference;
    cv::absdiff(batch.mat(), sent.mat(), difference);
    EXPECT_EQ(cv::countNonZero(difference.reshape(1)), 0);
}

TEST_F(TextureStep, StopEndsTheRunAndCancelWritesNothing)
{
    writeTextureExchange(folder());
    ProgramDriver driver(folder());
    int phase = 0;
    QString buttonAfterStop;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        auto* page = window->findChild<WelkPlugin::ZPluginTexture*>();
        if (phase == 0) {
            // Large enough that the fill runs for a while.
            setOutputSize(window, 8192);
            button(window, QStringLiteral("Transfer"))->click();
            phase = 1;
            return false;
        }
        if (phase == 1) {
            if (QPushButton* stop = button(window, QStringLiteral("Stop")))
                stop->click();
            phase = 2;
            return false;
        }
        if (page->controller()->isRunning())
            return false;
        buttonAfterStop = page->textureWidget()->transferButton()->text();
        // A projection that finished before Stop reached the fill stays, and
        // Cancel asks before throwing it away.
        if (page->controller()->hasResult())
            GuiEvents::answerNextBox(QMessageBox::Close);
        window->cancelButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(buttonAfterStop, QStringLiteral("Transfer"));
    EXPECT_FALSE(QFile::exists(result()));
    EXPECT_FALSE(QFile::exists(import()));
    EXPECT_FALSE(QFile::exists(status()));
}
