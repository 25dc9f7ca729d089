#include "ControllerWelk.h"

#include "ZMainWindow.h"
#include "ZPluginPointSelection.h"
#include "ZPluginSelectPointPairsWithSplines.h"
#include "ZPluginWelking.h"

#include "exchange/ModelsData.h"

#include <limits>

namespace WelkPlugin {

ControllerWelk::ControllerWelk(ZMainWindow* window, std::shared_ptr<ModelsData> models,
                               const ExchangeFolder& exchange, QObject* parent)
    : ControllerBase(parent), m_window(window), m_models(std::move(models)), m_exchange(exchange)
{
    m_points = new ZPluginPointSelection(m_models, window);
    m_splines = new ZPluginSelectPointPairsWithSplines(m_models, window);
    m_welking = new ZPluginWelking(m_models, window);

    for (ModuleContainerBase* page : {static_cast<ModuleContainerBase*>(m_points),
                                      static_cast<ModuleContainerBase*>(m_splines),
                                      static_cast<ModuleContainerBase*>(m_welking)}) {
        connect(window, &ZMainWindow::windowShown, page, &ModuleContainerBase::windowShown);
        window->addPage(page->title(), page);
    }
    const auto showHint = [this](int index) {
        const ModuleContainerBase* pages[] = {m_points, m_splines, m_welking};
        if (index >= 0 && index < 3)
            m_window->setHint(hintToRichText(pages[index]->hint()));
    };
    connect(window, &ZMainWindow::tabClicked, this, showHint);
    connect(window, &ZMainWindow::nextClicked, this, [=] { showHint(m_window->currentPage()); });
    connect(window, &ZMainWindow::prevClicked, this, [=] { showHint(m_window->currentPage()); });

    const auto* base = m_models->geometry(0);
    const auto* scan = m_models->geometry(1);
    if (base->polygonCount() > scan->polygonCount())
        window->showWarning(ZMainWindow::WarningBasemeshResolution,
                            QStringLiteral("The basemesh has higher resolution than the target model. Make sure "
                                           "the order of subtools is not mixed up."));
    if (boundingBoxesMiss(base->vertices(), scan->vertices())) {
        window->showWarning(ZMainWindow::WarningNoIntersection,
                            QStringLiteral("The basemesh and reference have no intersections"));
        m_welking->setComputeEnabled(false);
    }
    window->setPagesComplete();
    showHint(0);
}

bool ControllerWelk::boundingBoxesMiss(const QVector<QVector3D>& a, const QVector<QVector3D>& b)
{
    const auto box = [](const QVector<QVector3D>& points, QVector3D& lo, QVector3D& hi) {
        const float inf = std::numeric_limits<float>::infinity();
        lo = QVector3D(inf, inf, inf);
        hi = -lo;
        for (const QVector3D& p : points)
            for (int k = 0; k < 3; ++k) {
                lo[k] = std::min(lo[k], p[k]);
                hi[k] = std::max(hi[k], p[k]);
            }
    };
    QVector3D loA, hiA, loB, hiB;
    box(a, loA, hiA);
    box(b, loB, hiB);
    for (int k = 0; k < 3; ++k)
        if (hiA[k] <= loB[k] || hiB[k] <= loA[k])
            return true;
    return false;
}

bool ControllerWelk::hasUnsavedWork() const
{
    for (int side = 0; side < 2; ++side)
        if (!m_models->correspondencePoints(side).isEmpty() || !m_models->splinePoints(side).isEmpty())
            return true;
    const auto* base = m_models->geometry(0);
    return !m_models->resultVertices().isEmpty() && m_models->resultVertices() != base->vertices();
}

SaveResult ControllerWelk::saveResult()
{
    QString error;
    const SaveResult result = writeWelkResult(*m_models, error);
    if (!error.isEmpty())
        showCriticalError(error, m_window);
    return result;
}

} // namespace WelkPlugin
