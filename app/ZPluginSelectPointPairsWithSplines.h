#pragma once

#include "ModuleContainerBase.h"

#include <memory>

namespace WelkPlugin {

class ModelsData;

/// Point pairs drawn as splines on both models.
class ZPluginSelectPointPairsWithSplines : public ModuleContainerBase
{
    Q_OBJECT
public:
    explicit ZPluginSelectPointPairsWithSplines(std::shared_ptr<ModelsData> models,
                                                QWidget* parent = nullptr);
    QString hint() const override;

private:
    std::shared_ptr<ModelsData> m_models;
};

} // namespace WelkPlugin
