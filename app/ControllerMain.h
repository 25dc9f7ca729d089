#pragma once

#include "VisualOptions.h"

#include "exchange/ApplicationIdentity.h"
#include "exchange/ApplicationMode.h"
#include "exchange/ExchangeFolder.h"
#include "exchange/PluginGLVisualParams.h"

#include <QObject>
#include <QStringList>

#include <memory>

namespace Welk {
class WGLSharedContext;
}

namespace WelkPlugin {

class ContextSyncController;
class ControllerBase;
class ModelsData;
class ZMainWindow;

/// Lives for the whole run: owns the mode controller, the visual options and
/// the end of the run. At Done the result is written, then import.txt; at
/// destruction status.txt goes, so ZBrush sees them in that order.
class ControllerMain : public QObject
{
    Q_OBJECT
public:
    ControllerMain(const QStringList& arguments, ZMainWindow* window, std::shared_ptr<ModelsData> models,
                   const ExchangeFolder& exchange, const PluginGLVisualParams& visualParams,
                   ApplicationMode mode, const QVector<bool>& textureFlags,
                   const ApplicationIdentity& identity, Welk::WGLSharedContext* glContext,
                   QObject* parent = nullptr);
    ~ControllerMain() override;

    ControllerBase* modeController() const { return m_modeController; }
    ContextSyncController* syncController() const { return m_sync; }
    const VisualOptions& visualOptions() const { return m_options; }

public slots:
    void setNewVisualParams(const WelkPlugin::PluginGLVisualParams& newVisualParams);
    void setVisibleWireframeBasemesh(bool isVisible);
    void setVisibleWireframeScan(bool isVisible);
    void setVisibleWireframeUV(bool isVisible);
    void setEnableLightBasemesh(bool isEnabled);
    void setEnableLightScan(bool isEnabled);
    void setVisibleTextureBase(bool isVisible);
    void setVisibleTextureScan(bool isVisible);
    void setDisplayInSRGB(bool isEnabled);
    /// Deletes earlier exports from the mesh folder, unless it holds files
    /// that are not ours.
    void clearUnusedFiles();

signals:
    void updateVisualParams(WelkPlugin::PluginGLVisualParams params);

private:
    void onDone();
    void onCancel();
    void applyOptionsToViews();

    QStringList m_arguments;
    ZMainWindow* m_window;
    std::shared_ptr<ModelsData> m_models;
    ExchangeFolder m_exchange;
    PluginGLVisualParams m_visualParams;
    ApplicationIdentity m_identity;
    ApplicationMode m_mode;
    QVector<bool> m_textureFlags;
    Welk::WGLSharedContext* m_glContext;
    ContextSyncController* m_sync = nullptr;
    VisualOptions m_options;
    ControllerBase* m_modeController = nullptr;
};

} // namespace WelkPlugin
