#pragma once

class QSettings;

namespace WelkPlugin {

/// How the two models are drawn; kept per installation.
struct VisualOptions
{
    bool wireframeBase = false;
    bool wireframeScan = false;
    bool textureBase = true;
    bool textureScan = true;
    bool lightningBase = true;
    bool lightningScan = true;
    bool displayInSRGB = false;
    bool wireframeUV = false;

    /// Reads the group "viewportVisualSettings"; absent keys keep defaults.
    void load(QSettings& settings);
    void save(QSettings& settings) const;
};

} // namespace WelkPlugin
