#pragma once

#include "ControllerBase.h"

#include <memory>

namespace WelkPlugin {

class ModelsData;
class ZMainWindow;
class ZPluginTexture;

/// The texture mode: one step that moves the second subtool's texture onto
/// the first, and the writer of the result texture at Done.
class ControllerTexture : public ControllerBase
{
    Q_OBJECT
public:
    /// `settingsDir` names the installation whose settings keep the step's
    /// values.
    ControllerTexture(ZMainWindow* window, std::shared_ptr<ModelsData> models, const QString& settingsDir,
                      QObject* parent = nullptr);

    bool hasUnsavedWork() const override;
    QString unsavedWorkQuestion() const override;
    /// Writes the result as the first subtool's texture, after asking
    /// whether a deeper image goes as 8-bit. Without a result the user is
    /// asked whether to close anyway.
    SaveResult saveResult() override;

    ZPluginTexture* page() const { return m_page; }

private:
    ZMainWindow* m_window;
    std::shared_ptr<ModelsData> m_models;
    ZPluginTexture* m_page;
};

} // namespace WelkPlugin
