#pragma once

#include "ApplicationMode.h"

#include <QString>

namespace WelkPlugin {

class ModelsData;

/// Checks that a texture run has what it needs: texture coordinates on both
/// models (the first is the target, the second the source). A missing source
/// texture sets `title` and `text` without failing: the texture step says so
/// itself. Always true in the welk mode.
bool validateTextureMode(ApplicationMode mode, const ModelsData& models, QString& title, QString& text);

} // namespace WelkPlugin
