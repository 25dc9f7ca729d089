#pragma once

namespace WelkPlugin {

/// What the run is for: fitting the first subtool onto the second, or
/// moving a texture from the second subtool onto the first.
enum ApplicationMode
{
    WelkMode = 0,
    TextureMode = 1,
};

} // namespace WelkPlugin
