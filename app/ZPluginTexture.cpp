#include "ZPluginTexture.h"

#include "ModelsText.h"

namespace WelkPlugin {

ZPluginTexture::ZPluginTexture(std::shared_ptr<ModelsData> models, QWidget* parent)
    : ModuleContainerBase(tr("Texture"), parent), m_models(std::move(models))
{
    addSection(tr("Texture transfer"),
               tr("The second subtool's texture is projected onto the first subtool's UV layout; "
                  "texels that stay empty are filled from their neighbours."));
    addSection(tr("Models"), modelsText(*m_models));
}

QString ZPluginTexture::hint() const
{
    return tr("The left model receives the texture of the right one. *Done* sends the result to ZBrush.");
}

} // namespace WelkPlugin
