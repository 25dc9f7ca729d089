#pragma once

#include "ModuleContainerBase.h"

#include <memory>

namespace WelkPlugin {

class ModelsData;
class PluginTextureController;
class PluginTextureWidget;
class ZImageView;
class ZMainWindow;

/// Texture transfer from the second subtool onto the first: the panel, its
/// controller, the Result view beside the two models, and the wiring to the
/// progress bar and Stop. The target model shows the result as its texture.
class ZPluginTexture : public ModuleContainerBase
{
    Q_OBJECT
public:
    ZPluginTexture(std::shared_ptr<ModelsData> models, ZMainWindow* window, const QString& settingsDir);
    ~ZPluginTexture() override;
    QString hint() const override;

    PluginTextureController* controller() const { return m_controller; }
    PluginTextureWidget* textureWidget() const { return m_widget; }
    ZImageView* resultView() const { return m_result; }

private:
    std::shared_ptr<ModelsData> m_models;
    PluginTextureWidget* m_widget;
    PluginTextureController* m_controller;
    ZImageView* m_result;
};

} // namespace WelkPlugin
