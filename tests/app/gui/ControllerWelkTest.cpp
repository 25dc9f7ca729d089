#include "GuiFixture.h"

#include "ControllerWelk.h"
#include "ZErrorBar.h"
#include "ZMainWindow.h"
#include "ZPluginWelking.h"

#include <QPushButton>

using WelkPlugin::ControllerWelk;
using WelkPlugin::ZMainWindow;

TEST(ControllerWelkBoxes, TouchingBoxesCountAsMissing)
{
    const QVector<QVector3D> a = {{0, 0, 0}, {1, 1, 1}};
    EXPECT_FALSE(ControllerWelk::boundingBoxesMiss(a, {{0.5f, 0.5f, 0.5f}, {2, 2, 2}}));
    EXPECT_TRUE(ControllerWelk::boundingBoxesMiss(a, {{1, 0, 0}, {2, 1, 1}}));
    EXPECT_TRUE(ControllerWelk::boundingBoxesMiss(a, {{0, 0, -3}, {1, 1, -1}}));
    EXPECT_FALSE(ControllerWelk::boundingBoxesMiss(a, {{-5, -5, -5}, {5, 5, 5}}));
}

namespace {

struct Warnings
{
    bool shown[2] = {false, false};
    QString text[2];
    bool computeEnabled = true;
    int pages = 0;
};

ProgramDriver::Step readWarningsAndCancel(Warnings& w)
{
    return [&w] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        for (int n = 0; n < 2; ++n) {
            w.shown[n] = window->errorBar()->isWarningShown(n);
            w.text[n] = window->errorBar()->warningText(n);
        }
        w.computeEnabled = window->findChild<WelkPlugin::ZPluginWelking*>()->isComputeEnabled();
        w.pages = window->pageCount();
        window->cancelButton()->click();
        return true;
    };
}

} // namespace

using ModelWarnings = GuiFixture;

TEST_F(ModelWarnings, DenseFarBasemeshRaisesBothWarnings)
{
    // The first subtool has more polygons and lies away from the second.
    writeExchange(saveObj(TestSupport::cube({10, 10, 10}, {11, 11, 11}), QStringLiteral("base.obj")),
                  saveObj(TestSupport::twoQuads(), QStringLiteral("scan.obj")));
    ProgramDriver driver(folder());
    Warnings w;
    EXPECT_EQ(driver.run({}, readWarningsAndCancel(w)), 0);
    EXPECT_EQ(w.pages, 3);
    ASSERT_TRUE(w.shown[0]);
    ASSERT_TRUE(w.shown[1]);
    EXPECT_EQ(w.text[0], QStringLiteral("The basemesh and reference have no intersections"));
    EXPECT_EQ(w.text[1],
              QStringLiteral("The basemesh has higher resolution than the target model. Make sure the "
                             "order of subtools is not mixed up."));
    EXPECT_FALSE(w.computeEnabled);
}

TEST_F(ModelWarnings, OverlappingModelsOfEqualResolutionRaiseNone)
{
    writeExchange(saveObj(TestSupport::cube(), QStringLiteral("base.obj")),
                  saveObj(TestSupport::cube({0, 0, 0}, {2, 2, 2}), QStringLiteral("scan.obj")));
    ProgramDriver driver(folder());
    Warnings w;
    EXPECT_EQ(driver.run({}, readWarningsAndCancel(w)), 0);
    EXPECT_FALSE(w.shown[0]);
    EXPECT_FALSE(w.shown[1]);
    EXPECT_TRUE(w.computeEnabled);
}
