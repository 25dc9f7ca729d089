#pragma once

#include "ControllerBase.h"

#include <memory>

namespace WelkPlugin {

class ModelsData;
class ZMainWindow;
class ZPluginTexture;

/// The texture mode: one step that moves the second subtool's texture onto
/// the first.
class ControllerTexture : public ControllerBase
{
    Q_OBJECT
public:
    ControllerTexture(ZMainWindow* window, std::shared_ptr<ModelsData> models, QObject* parent = nullptr);

    bool hasUnsavedWork() const override { return false; }
    /// Without a transferred texture there is nothing to send: the user is
    /// asked whether to close anyway.
    SaveResult saveResult() override;

private:
    ZMainWindow* m_window;
    std::shared_ptr<ModelsData> m_models;
    ZPluginTexture* m_page;
};

} // namespace WelkPlugin
