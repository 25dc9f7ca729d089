#pragma once

#include <QString>

namespace WelkPlugin {

class ModelsData;

/// The facts about a loaded subtool that the window and `zwelk-batch check`
/// show.
struct ModelSummary
{
    QString fileName;
    int vertices = 0;
    int polygons = 0;
    int triangles = 0;
    int maskedPolygons = 0;
    int polygroups = 0;
    bool hasTexCoords = false;
    QString textureFile; ///< empty without a texture
    int textureWidth = 0;
    int textureHeight = 0;
    int textureChannels = 0;

    static ModelSummary of(const ModelsData& models, int index);
    /// One line per fact, in English.
    QString toText() const;
};

} // namespace WelkPlugin
