#include "ZPluginSelectPointPairsWithSplines.h"

namespace WelkPlugin {

ZPluginSelectPointPairsWithSplines::ZPluginSelectPointPairsWithSplines(std::shared_ptr<ModelsData> models,
                                                                       QWidget* parent)
    : ModuleContainerBase(tr("Splines"), parent), m_models(std::move(models))
{
    addSection(tr("Splines"),
               tr("Splines drawn along features on both models add point pairs spaced evenly along them, "
                  "so whole contours (eyelids, lips, edges) follow each other in the fit."));
}

QString ZPluginSelectPointPairsWithSplines::hint() const
{
    return tr("Splines pair whole contours of the two models; *Ctrl+Z* undoes the last edit.");
}

} // namespace WelkPlugin
