#include "ZPluginPointSelection.h"

#include "ModelsText.h"

namespace WelkPlugin {

ZPluginPointSelection::ZPluginPointSelection(std::shared_ptr<ModelsData> models, QWidget* parent)
    : ModuleContainerBase(tr("Points"), parent), m_models(std::move(models))
{
    addSection(tr("Correspondence points"),
               tr("Pairs of points tell the fit which part of the basemesh belongs where on the scan: "
                  "the i-th point on the basemesh pairs with the i-th point on the scan."));
    addSection(tr("Models"), modelsText(*m_models));
}

QString ZPluginPointSelection::hint() const
{
    return tr("*F* fits the view, *S* snaps to the nearest axis; right drag rotates, *Alt* + right drag pans.");
}

} // namespace WelkPlugin
