#include "ControllerWelk.h"

#include "ZMainWindow.h"
#include "ZPluginPointSelection.h"
#include "ZPluginSelectPointPairsWithSplines.h"
#include "ZPluginWelking.h"

#include "exchange/ModelsData.h"
#include "steps/fitting/ModelWarnings.h"
#include "steps/fitting/ui/PluginWelkingController.h"

#include <QMessageBox>

namespace WelkPlugin {

ControllerWelk::ControllerWelk(ZMainWindow* window, std::shared_ptr<ModelsData> models,
                               const ExchangeFolder& exchange, QObject* parent)
    : ControllerBase(parent), m_window(window), m_models(std::move(models)), m_exchange(exchange)
{
    m_points = new ZPluginPointSelection(m_models, window);
    m_splines = new ZPluginSelectPointPairsWithSplines(m_models, window, m_points->model());
    m_welking = new ZPluginWelking(m_models, window, m_exchange.applicationDirPath());

    for (ModuleContainerBase* page :
         {static_cast<ModuleContainerBase*>(m_points), static_cast<ModuleContainerBase*>(m_splines),
          static_cast<ModuleContainerBase*>(m_welking)}) {
        connect(window, &ZMainWindow::windowShown, page, &ModuleContainerBase::windowShown);
        window->addPage(page->title(), page);
    }
    const auto showHint = [this](int index) {
        const ModuleContainerBase* pages[] = {m_points, m_splines, m_welking};
        if (index >= 0 && index < 3)
            m_window->setHint(hintToRichText(pages[index]->hint()));
        m_points->setActive(index == 0);
        m_splines->setActive(index == 1);
        if (index == 2)
            m_welking->enter();
    };
    connect(window, &ZMainWindow::tabClicked, this, showHint);
    connect(window, &ZMainWindow::nextClicked, this, [=] { showHint(m_window->currentPage()); });
    connect(window, &ZMainWindow::prevClicked, this, [=] { showHint(m_window->currentPage()); });

    // The same warnings as zwelk-batch prints, from the same function.
    for (const ModelWarning& warning : modelWarnings(*m_models->geometry(0), *m_models->geometry(1))) {
        switch (warning.kind) {
        case ModelWarning::HigherResolution:
            window->showWarning(ZMainWindow::WarningBasemeshResolution, warning.message);
            m_welking->setComputeEnabled(false);
            break;
        case ModelWarning::NoIntersection:
            window->showWarning(ZMainWindow::WarningNoIntersection, warning.message);
            m_welking->setComputeEnabled(false);
            break;
        case ModelWarning::ScaleDiffers:
            window->showWarning(ZMainWindow::WarningScale,
                                warning.message +
                                    QStringLiteral(" Place three or more point pairs and use Rigid "
                                                   "Alignment and Match Scale."));
            break;
        }
    }
    window->setPagesComplete();
    showHint(0);
}

bool ControllerWelk::boundingBoxesMiss(const QVector<QVector3D>& a, const QVector<QVector3D>& b)
{
    for (const ModelWarning& warning : modelWarnings(a, 0, b, 0))
        if (warning.kind == ModelWarning::NoIntersection)
            return true;
    return false;
}

bool ControllerWelk::hasUnsavedWork() const
{
    if (m_welking->controller()->isRunning())
        return true;
    for (int side = 0; side < 2; ++side)
        if (!m_models->correspondencePoints(side).isEmpty())
            return true;
    // A spline without a partner gives the fit nothing yet, but it is work.
    if (m_splines->hasSplines())
        return true;
    const auto* base = m_models->geometry(0);
    return !m_models->resultVertices().isEmpty() && m_models->resultVertices() != base->vertices();
}

SaveResult ControllerWelk::saveResult()
{
    PluginWelkingController* fit = m_welking->controller();
    if (fit->isRunning()) {
        const auto answer = QMessageBox::question(
            m_window, QStringLiteral("ZWelk"),
            QStringLiteral("A fit is running.\nStop it and send the shape reached to ZBrush?"),
            QMessageBox::Yes | QMessageBox::Cancel, QMessageBox::Cancel);
        if (answer != QMessageBox::Yes)
            return ResultCancelled;
        fit->stopAndWait();
    }
    QString error;
    const SaveResult result = writeWelkResult(*m_models, error);
    if (!error.isEmpty())
        showCriticalError(error, m_window);
    return result;
}

} // namespace WelkPlugin
