#pragma once

#include "ModuleContainerBase.h"

#include <memory>

namespace WelkPlugin {

class ModelsData;

/// Correspondence points: pairs of points on the basemesh and the scan.
class ZPluginPointSelection : public ModuleContainerBase
{
    Q_OBJECT
public:
    explicit ZPluginPointSelection(std::shared_ptr<ModelsData> models, QWidget* parent = nullptr);
    QString hint() const override;

private:
    std::shared_ptr<ModelsData> m_models;
};

} // namespace WelkPlugin
