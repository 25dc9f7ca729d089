#include "ZPluginTexture.h"

#include "ModelsText.h"
#include "ZImageView.h"
#include "ZMainWindow.h"
#include "ZModelView.h"

#include "exchange/ModelsData.h"
#include "steps/texture/ui/PluginTextureController.h"
#include "steps/texture/ui/PluginTextureWidget.h"

#include <QVBoxLayout>

namespace WelkPlugin {

ZPluginTexture::ZPluginTexture(std::shared_ptr<ModelsData> models, ZMainWindow* window, const QString& settingsDir)
    : ModuleContainerBase(tr("Texture"), window), m_models(std::move(models))
{
    m_widget = new PluginTextureWidget(this);
    panelLayout()->addWidget(m_widget);
    addSection(tr("Models"), modelsText(*m_models));
    m_controller = new PluginTextureController(m_models, m_widget, settingsDir, this);

    m_result = new ZImageView(tr("Result"), window->modelView(0)->sharedContext(), window);
    m_result->setObjectName(QStringLiteral("resultView"));
    m_result->setDetails(tr("Press Transfer to fill this image"));
    window->addViewPane(m_result);

    ZModelView* target = window->modelView(0);
    connect(m_controller, &PluginTextureController::resultChanged, this, [this, target](const Welk::WImg& image) {
        m_result->setImage(image);
        m_result->setDetails(image.isNull() ? tr("No result")
                                            : tr("%1 x %2 px").arg(image.width()).arg(image.height()));
        // The target shows what ZBrush will receive; without a result it
        // goes back to its own texture.
        target->setTexture(image.isNull() ? m_models->texture(0) : image);
    });
    connect(
        m_controller, &PluginTextureController::progressChanged, window,
        [window](const QString& text, int value, int maximum) { window->setProgress(value, maximum, text); });
    connect(window, &ZMainWindow::stopClicked, m_controller, &PluginTextureController::stop);
    connect(m_controller, &PluginTextureController::runningChanged, window, &ZMainWindow::setStepsLocked);
}

ZPluginTexture::~ZPluginTexture()
{
    // The controller writes the panel's settings when it goes, so it must go
    // before the panel, which QWidget would delete first (children go in the
    // order they were made).
    delete m_controller;
}

QString ZPluginTexture::hint() const
{
    return PluginTextureWidget::hint() +
           tr(" *Done* sends the result to ZBrush, *Cancel* closes without a result.");
}

} // namespace WelkPlugin
