#pragma once

#include "exchange/ExchangeFolder.h"
#include "exchange/ModelsData.h"

#include <memory>

namespace ZWelkBatch {

/// Reads the plug-in's exchange folder `dir` as ZWelk does at start-up:
/// the folders, the two mesh files named by subtools.txt (or found by
/// their prefixes), and the models with their textures. On failure the
/// result is null and `error` holds the text ZWelk would show.
std::shared_ptr<WelkPlugin::ModelsData> loadExchangeModels(const QString& dir, WelkPlugin::ExchangeFolder& exchange,
                                                           QString& error);

} // namespace ZWelkBatch
