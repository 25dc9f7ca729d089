#include "TextureModeValidation.h"

#include "ModelsData.h"

namespace WelkPlugin {

bool validateTextureMode(ApplicationMode mode, const ModelsData& models, QString& title, QString& text)
{
    if (mode == WelkMode)
        return true;
    if (models.texture(1).isNull()) {
        title = QStringLiteral("The texture for the source mesh is not specified.");
        text = QStringLiteral("Please specify texture before starting texture transfer.");
    }
    if (!models.geometry(0)->hasTexCoords()) {
        title = QStringLiteral("The target model does not contain texture coordinates!");
        text = QStringLiteral("Please check UV map for specified model.");
        return false;
    }
    if (!models.geometry(1)->hasTexCoords()) {
        title = QStringLiteral("The source model does not contain texture coordinates!");
        text = QStringLiteral("Please check UV map for specified model.");
        return false;
    }
    return true;
}

} // namespace WelkPlugin
