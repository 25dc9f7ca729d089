#pragma once

#include "ModelsData.h"

namespace WelkPlugin {

/// Models exported as OBJ. Textures are optional: a missing or unreadable
/// one is ignored.
class ModelsDataObj : public ModelsData
{
public:
    ModelsDataObj(const ExchangeFolder& exchange, QString& error);

    /// Writes the first mesh with the result vertices (its own vertices when
    /// no fit has set any), with texture coordinates and normals.
    bool saveGeometry(const QString& path, QString& error) override;
    bool loadGeometry(const QString& path, QString& error, int index) override;
};

} // namespace WelkPlugin
