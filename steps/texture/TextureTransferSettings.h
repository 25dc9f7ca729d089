#pragma once

#include <QString>

class QSettings;

namespace WelkPlugin {

/// What the texture step remembers between runs, in the group
/// `textureTransferSettings` of the installation's settings file.
struct TextureTransferSettings
{
    static constexpr int MaxSide = 16384;

    int width = 1024;
    int height = 1024;
    bool limitDistance = false;
    double distance = 1.0;
    int uOffset = 0;
    int vOffset = 0;
    /// Fill the texels no ray reached after each transfer.
    bool fillEmptyTexels = true;

    /// The ray length handed to the projection: unlimited unless
    /// `limitDistance` is on.
    float maxDistance() const;

    /// Reads the group; missing or unusable values take their defaults.
    static TextureTransferSettings read(QSettings& settings);
    void write(QSettings& settings) const;

    /// What a run starts with: the UV tile offsets are reset to 0 (and
    /// synced) before anything is read, so a tile chosen for one model is
    /// never carried to the next.
    static TextureTransferSettings readAtStartup(QSettings& settings);
};

} // namespace WelkPlugin
