#pragma once

#include "ModuleContainerBase.h"

#include <memory>

class QLabel;

namespace WelkPlugin {

class ModelsData;

/// The fit of the basemesh onto the scan.
class ZPluginWelking : public ModuleContainerBase
{
    Q_OBJECT
public:
    explicit ZPluginWelking(std::shared_ptr<ModelsData> models, QWidget* parent = nullptr);
    QString hint() const override;

    /// Off when the two models cannot be fitted (they do not overlap).
    void setComputeEnabled(bool enabled);
    bool isComputeEnabled() const { return m_computeEnabled; }

public slots:
    /// Locks the step bar while a fit runs.
    void setBarLocked(bool isLocked);

signals:
    void doneClicked();
    void barLockedChanged(bool isLocked);

private:
    std::shared_ptr<ModelsData> m_models;
    bool m_computeEnabled = true;
    QLabel* m_disabledNote = nullptr;
};

} // namespace WelkPlugin
