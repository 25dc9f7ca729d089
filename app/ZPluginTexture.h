#pragma once

#include "ModuleContainerBase.h"

#include <memory>

namespace WelkPlugin {

class ModelsData;

/// Texture transfer from the second subtool onto the first.
class ZPluginTexture : public ModuleContainerBase
{
    Q_OBJECT
public:
    explicit ZPluginTexture(std::shared_ptr<ModelsData> models, QWidget* parent = nullptr);
    QString hint() const override;

private:
    std::shared_ptr<ModelsData> m_models;
};

} // namespace WelkPlugin
