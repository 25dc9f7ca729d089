#include "ZPluginWelking.h"

#include "ModelsText.h"
#include "WFrameThrottle.h"
#include "WGLMarkers.h"
#include "ZGLViewport.h"
#include "ZMainWindow.h"
#include "ZModelView.h"

#include "exchange/ModelsData.h"
#include "steps/fitting/ui/PluginWelkingController.h"
#include "steps/fitting/ui/PluginWelkingWidget.h"

#include <QVBoxLayout>

namespace WelkPlugin {

ZPluginWelking::ZPluginWelking(std::shared_ptr<ModelsData> models, ZMainWindow* window,
                               const QString& settingsDir)
    : ModuleContainerBase(tr("Welk"), window), m_models(std::move(models))
{
    m_widget = new PluginWelkingWidget(this);
    panelLayout()->addWidget(m_widget);
    addSection(tr("Models"), modelsText(*m_models));
    m_controller = new PluginWelkingController(m_models, m_widget, settingsDir, this);

    ZModelView* base = window->modelView(0);
    // A few shapes a second show the fit's progress; more would slow the fit
    // where OpenGL runs in software.
    auto* throttle = new Welk::WFrameThrottle(1000, this);
    connect(m_controller, &PluginWelkingController::showVertices, throttle,
            [this, throttle](const QVector<QVector3D>& v) {
                throttle->push(v);
                if (!m_controller->isRunning())
                    throttle->flush();
            });
    connect(throttle, &Welk::WFrameThrottle::ready, base, &ZModelView::setVertices);
    connect(m_controller, &PluginWelkingController::welkingStarted, this, [base] {
        if (base->viewport())
            base->viewport()->setLightweight(true);
    });
    connect(m_controller, &PluginWelkingController::welkingFinish, this, [base, throttle] {
        throttle->flush();
        if (base->viewport())
            base->viewport()->setLightweight(false);
    });
    connect(m_controller, &PluginWelkingController::vertexColors, base, &ZModelView::setVertexColors);
    connect(m_controller, &PluginWelkingController::showNodes, base, [base](const QVector<QVector3D>& nodes) {
        QVector<Welk::WGLMarkers::Marker> markers;
        markers.reserve(nodes.size());
        for (const QVector3D& n : nodes)
            markers.append({n, QColor(255, 200, 60), -1, false});
        base->nodeMarkers()->setMarkers(markers);
        if (base->viewport())
            base->viewport()->update();
    });
    connect(
        m_controller, &PluginWelkingController::progressChanged, window,
        [window](const QString& text, int value, int maximum) { window->setProgress(value, maximum, text); });
    connect(window, &ZMainWindow::stopClicked, m_controller, &PluginWelkingController::terminate);
    connect(window, &ZMainWindow::presetSettingsRequested, m_controller,
            &PluginWelkingController::onPresetDialogOpen);
    connect(m_controller, &PluginWelkingController::welkingStarted, this, [this] { setBarLocked(true); });
    connect(m_controller, &PluginWelkingController::welkingFinish, this, [this] { setBarLocked(false); });
    connect(this, &ZPluginWelking::barLockedChanged, window, &ZMainWindow::setStepsLocked);
    const auto showLabels = [window](bool shown) {
        for (int side = 0; side < 2; ++side) {
            window->modelView(side)->markers()->setLabelsShown(shown);
            if (window->modelView(side)->viewport())
                window->modelView(side)->viewport()->update();
        }
    };
    showLabels(m_controller->showLabels());
    connect(m_controller, &PluginWelkingController::showLabelsChanged, this, showLabels);
}

QString ZPluginWelking::hint() const
{
    return PluginWelkingWidget::hint() +
           tr(" *Done* sends the basemesh back to ZBrush, *Cancel* closes without a result.");
}

void ZPluginWelking::setComputeEnabled(bool enabled)
{
    m_computeEnabled = enabled;
    m_controller->setWelkAvailable(enabled);
}

bool ZPluginWelking::isComputeEnabled() const
{
    return m_computeEnabled && m_widget->isComputeEnabled();
}

void ZPluginWelking::enter()
{
    m_controller->updatePointsOnTr();
}

void ZPluginWelking::setBarLocked(bool isLocked)
{
    Q_EMIT barLockedChanged(isLocked);
}

} // namespace WelkPlugin
