// The spline step driven with mouse and key events in both views: splines
// drawn by clicks, finished with Enter, paired by name into the fit's point
// pairs, edited by the panel's tools and undone.
#include "GuiEvents.h"
#include "GuiFixture.h"

#include "DemoModels.h"
#include "ZMainWindow.h"
#include "ZModelView.h"
#include "SplineViewHost.h"
#include "ZGLViewport.h"
#include "ZPluginSelectPointPairsWithSplines.h"

#include "exchange/ModelsData.h"
#include "steps/splines/SplineSelectionModel.h"

#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

using WelkPlugin::SplineSelectionModel;
using WelkPlugin::ZMainWindow;

using GuiEvents::click;

namespace {

void key(QWidget* w, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QKeyEvent press(QEvent::KeyPress, key, modifiers);
    QApplication::sendEvent(w, &press);
    QKeyEvent release(QEvent::KeyRelease, key, modifiers);
    QApplication::sendEvent(w, &release);
}

/// Four clicks across the middle of a view, then Enter.
void drawSpline(QWidget* view)
{
    const QPoint centre(view->width() / 2, view->height() / 2);
    for (int i = 0; i < 4; ++i)
        click(view, centre + QPoint(-60 + 40 * i, (i % 2) * 12));
    key(view, Qt::Key_Return);
}

struct Seen
{
    QStringList names[2];
    int controls = -1;
    QString pairs;
    int lastTriangle = -1;
    int reversedFirstTriangle = -2;
    int afterUndo = -1;
    QString stateWhileDrawing;
    QString cancelQuestion;
};

} // namespace

using SplineStep = GuiFixture;

TEST_F(SplineStep, SplinesDrawnInBothViewsBecomePointPairsOfTheFit)
{
    writeExchange(saveObj(ZWelkBatch::makeDemoBasemesh(8), QStringLiteral("base.obj")),
                  saveObj(ZWelkBatch::makeDemoScan(3), QStringLiteral("scan.obj")));
    ProgramDriver driver(folder());
    Seen seen;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        GuiEvents::button(window, QStringLiteral("Next"))->click();
        auto* page = window->findChild<WelkPlugin::ZPluginSelectPointPairsWithSplines*>();
        QWidget* left = window->modelView(0)->viewport();
        QWidget* right = window->modelView(1)->viewport();

        const QPoint centre(left->width() / 2, left->height() / 2);
        click(left, centre);
        seen.stateWhileDrawing = page->host(0)->controller().stateName();
        key(left, Qt::Key_Escape);
        drawSpline(left);
        drawSpline(right);
        for (int side = 0; side < 2; ++side)
            seen.names[side] = page->splines(side)->order();
        const SplineSelectionModel& base = *page->splines(0);
        if (!base.order().isEmpty())
            seen.controls = base.splines().value(base.order().first()).size();
        seen.pairs = page->findChild<QLabel*>(QStringLiteral("splinePairs"))->text();

        // Reverse acts on the scan, the view worked in last; two undos take
        // back the reverse and the drawing.
        const SplineSelectionModel& scan = *page->splines(1);
        if (!scan.order().isEmpty())
            seen.lastTriangle = scan.splines().value(scan.order().first()).last().triangle;
        GuiEvents::button(window, QStringLiteral("Reverse"))->click();
        if (!scan.order().isEmpty())
            seen.reversedFirstTriangle = scan.splines().value(scan.order().first()).first().triangle;
        GuiEvents::button(window, QStringLiteral("Undo"))->click();
        GuiEvents::button(window, QStringLiteral("Undo"))->click();
        seen.afterUndo = scan.order().size();
        // The basemesh's spline has no partner now, and Cancel still asks.
        GuiEvents::answerNextBox(QMessageBox::Close, 200, &seen.cancelQuestion);
        window->cancelButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(seen.stateWhileDrawing, QStringLiteral("DrawSpline"));
    EXPECT_EQ(seen.names[0], QStringList{QStringLiteral("Spline 1")}) << "Esc drops the first start";
    EXPECT_EQ(seen.names[1], QStringList{QStringLiteral("Spline 1")});
    EXPECT_EQ(seen.controls, 4);
    EXPECT_EQ(seen.pairs, QStringLiteral("1 spline pair(s) give the fit 20 point pairs."));
    EXPECT_GE(seen.lastTriangle, 0);
    EXPECT_EQ(seen.reversedFirstTriangle, seen.lastTriangle);
    EXPECT_EQ(seen.afterUndo, 0);
    EXPECT_FALSE(seen.cancelQuestion.isEmpty());
}
