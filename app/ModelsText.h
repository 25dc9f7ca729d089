#pragma once

#include <QString>

namespace WelkPlugin {

class ModelsData;

/// Both models' summaries as rich text for a step panel.
QString modelsText(const ModelsData& models);

} // namespace WelkPlugin
