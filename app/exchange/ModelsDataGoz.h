#pragma once

#include "ModelsData.h"

#include "geometry/GoZFile.h"

namespace WelkPlugin {

/// Models exported as GoZ. The first file's image stays in memory until the
/// end of the run: the result is that image with only its vertices replaced.
class ModelsDataGoz : public ModelsData
{
public:
    /// Loads both subtools and their textures. A subtool flagged in
    /// subtools.txt as textured must have a readable texture.
    ModelsDataGoz(const ExchangeFolder& exchange, const QVector<bool>& textureFlags, QString& error);
    ~ModelsDataGoz() override;

    bool saveGeometry(const QString& path, QString& error) override;
    bool loadGeometry(const QString& path, QString& error, int index) override;
    bool texCoordsFromTop() const override { return true; }

    const GeometryStack2::GoZFile* gozFile(int index) const { return m_gozFiles[index].get(); }

private:
    std::unique_ptr<GeometryStack2::GoZFile> m_gozFiles[2];
};

} // namespace WelkPlugin
