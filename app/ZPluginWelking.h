#pragma once

#include "ModuleContainerBase.h"

#include <memory>

namespace WelkPlugin {

class ModelsData;
class PluginWelkingController;
class PluginWelkingWidget;
class ZMainWindow;

/// The fit of the basemesh onto the scan: the panel, its controller, and
/// the wiring to the left model view, the progress bar and Stop.
class ZPluginWelking : public ModuleContainerBase
{
    Q_OBJECT
public:
    ZPluginWelking(std::shared_ptr<ModelsData> models, ZMainWindow* window, const QString& settingsDir);
    QString hint() const override;

    /// Off when the two models cannot be fitted (they do not overlap, or
    /// the basemesh is the denser one).
    void setComputeEnabled(bool enabled);
    bool isComputeEnabled() const;

    PluginWelkingController* controller() const { return m_controller; }
    PluginWelkingWidget* welkingWidget() const { return m_widget; }

public slots:
    /// Entering the step: take the points as they stand.
    void enter();
    /// Locks the step bar while a fit runs.
    void setBarLocked(bool isLocked);

signals:
    void doneClicked();
    void barLockedChanged(bool isLocked);

private:
    std::shared_ptr<ModelsData> m_models;
    PluginWelkingWidget* m_widget;
    PluginWelkingController* m_controller;
    bool m_computeEnabled = true;
};

} // namespace WelkPlugin
