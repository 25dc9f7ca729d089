#include "ControllerMain.h"

#include "ControllerTexture.h"
#include "ControllerWelk.h"
#include "ZMainWindow.h"
#include "ZModelView.h"

#include "ContextSyncController.h"
#include "WContextNavigation2WithGeom.h"

#include "exchange/InstallationSettings.h"
#include "exchange/ModelsData.h"

#include <QApplication>
#include <QCheckBox>
#include <QDebug>
#include <QMessageBox>

namespace WelkPlugin {

ControllerMain::ControllerMain(const QStringList& arguments, ZMainWindow* window,
                               std::shared_ptr<ModelsData> models, const ExchangeFolder& exchange,
                               const PluginGLVisualParams& visualParams, ApplicationMode mode,
                               const QVector<bool>& textureFlags, const ApplicationIdentity& identity,
                               Welk::WGLSharedContext* glContext, QObject* parent)
    : QObject(parent), m_arguments(arguments), m_window(window), m_models(std::move(models)),
      m_exchange(exchange), m_visualParams(visualParams), m_identity(identity), m_mode(mode),
      m_textureFlags(textureFlags), m_glContext(glContext)
{
    // A leftover import.txt would announce a result before there is one.
    m_exchange.removeImportFile();
    InstallationSettings::registerInstallation(m_exchange.applicationDirPath(), m_exchange.filesDirPath());

    connect(window, &ZMainWindow::doneClicked, this, &ControllerMain::onDone);
    connect(window, &ZMainWindow::cancelClicked, this, &ControllerMain::onCancel);
    connect(window, &ZMainWindow::clearUnusedFiles, this, &ControllerMain::clearUnusedFiles);
    m_options.load(*InstallationSettings::open(m_exchange.applicationDirPath()));

    for (int side = 0; side < 2; ++side) {
        ZModelView* view = window->modelView(side);
        view->setVisualParams(m_visualParams);
        view->setGoZConventions(m_models->texCoordsFromTop());
        view->setModel(m_models->geometry(side), m_exchange.meshFileName(side), m_glContext,
                       m_models->texture(side));
        view->setPolygonMask(m_models->polygonMaskFlags(side));
    }
    ZModelView* base = window->modelView(0);
    ZModelView* scan = window->modelView(1);
    connect(base, &ZModelView::wireframeToggled, this, &ControllerMain::setVisibleWireframeBasemesh);
    connect(base, &ZModelView::textureToggled, this, &ControllerMain::setVisibleTextureBase);
    connect(base, &ZModelView::lightingToggled, this, &ControllerMain::setEnableLightBasemesh);
    connect(scan, &ZModelView::wireframeToggled, this, &ControllerMain::setVisibleWireframeScan);
    connect(scan, &ZModelView::textureToggled, this, &ControllerMain::setVisibleTextureScan);
    connect(scan, &ZModelView::lightingToggled, this, &ControllerMain::setEnableLightScan);
    applyOptionsToViews();

    // "Sync Views" locks the two cameras; its state is kept per installation.
    if (base->navigation() && scan->navigation()) {
        m_sync = new ContextSyncController(base->navigation(), scan->navigation(), this);
        const bool synced = InstallationSettings::open(m_exchange.applicationDirPath())
                                ->value(QStringLiteral("syncViewIsChecked"), false)
                                .toBool();
        m_sync->setEnabled(synced);
        window->syncViewsBox()->setChecked(synced);
        connect(window, &ZMainWindow::syncViewsToggled, this, [this](bool on) {
            m_sync->setEnabled(on);
            InstallationSettings::open(m_exchange.applicationDirPath())
                ->setValue(QStringLiteral("syncViewIsChecked"), on);
        });
    }

    if (m_mode == TextureMode)
        m_modeController = new ControllerTexture(window, m_models, m_exchange.applicationDirPath(), this);
    else
        m_modeController = new ControllerWelk(window, m_models, m_exchange, this);
    connect(m_modeController, &ControllerBase::updateVisualParams, this, &ControllerMain::setNewVisualParams);
}

ControllerMain::~ControllerMain()
{
    m_exchange.removeStatusFile();
    m_options.save(*InstallationSettings::open(m_exchange.applicationDirPath()));
}

void ControllerMain::onDone()
{
    const SaveResult result = m_modeController->saveResult();
    if (result == ResultCancelled)
        return;
    if (result == ResultWritten)
        announceResult(*m_models);
    QApplication::exit(0);
}

void ControllerMain::onCancel()
{
    if (m_modeController->hasUnsavedWork()) {
        const auto answer = QMessageBox::question(
            m_window, QStringLiteral("ZWelk"), m_modeController->unsavedWorkQuestion(),
            QMessageBox::Close | QMessageBox::Cancel, QMessageBox::Cancel);
        if (answer != QMessageBox::Close)
            return;
    }
    QApplication::exit(0);
}

void ControllerMain::clearUnusedFiles()
{
    const ExchangeFolder::Cleanup plan = m_exchange.planCleanup();
    if (plan.foreign) {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("ZWelk"),
                        QStringLiteral("Specified temporary directory\n") + m_exchange.filesDirPath() +
                            QStringLiteral("\ncontains files non-related to ZWelk plugin."),
                        QMessageBox::Ok, m_window);
        box.setInformativeText(QStringLiteral("Any temporary files will not be removed!"));
        box.setButtonText(QMessageBox::Ok, QStringLiteral("Continue"));
        box.exec();
        return;
    }
    ExchangeFolder::deleteFiles(plan.filesToDelete);
}

void ControllerMain::setNewVisualParams(const PluginGLVisualParams& newVisualParams)
{
    m_visualParams = newVisualParams;
    for (int side = 0; side < 2; ++side)
        m_window->modelView(side)->setVisualParams(m_visualParams);
    Q_EMIT updateVisualParams(m_visualParams);
}

void ControllerMain::applyOptionsToViews()
{
    m_window->modelView(0)->setToggles(m_options.wireframeBase, m_options.textureBase,
                                       m_options.lightningBase);
    m_window->modelView(1)->setToggles(m_options.wireframeScan, m_options.textureScan,
                                       m_options.lightningScan);
}

void ControllerMain::setVisibleWireframeBasemesh(bool isVisible)
{
    m_options.wireframeBase = isVisible;
    applyOptionsToViews();
}
void ControllerMain::setVisibleWireframeScan(bool isVisible)
{
    m_options.wireframeScan = isVisible;
    applyOptionsToViews();
}
void ControllerMain::setVisibleWireframeUV(bool isVisible)
{
    m_options.wireframeUV = isVisible;
}
void ControllerMain::setEnableLightBasemesh(bool isEnabled)
{
    m_options.lightningBase = isEnabled;
    applyOptionsToViews();
}
void ControllerMain::setEnableLightScan(bool isEnabled)
{
    m_options.lightningScan = isEnabled;
    applyOptionsToViews();
}
void ControllerMain::setVisibleTextureBase(bool isVisible)
{
    m_options.textureBase = isVisible;
    applyOptionsToViews();
}
void ControllerMain::setVisibleTextureScan(bool isVisible)
{
    m_options.textureScan = isVisible;
    applyOptionsToViews();
}
void ControllerMain::setDisplayInSRGB(bool isEnabled)
{
    m_options.displayInSRGB = isEnabled;
}

} // namespace WelkPlugin
