#pragma once

#include "ModelsData.h"

#include "geometry/GoZMappedFile.h"

#include <memory>

namespace WelkPlugin {

/// Models exported as GoZ. The first file stays mapped until the end of the
/// run: the result is that file with only its vertices replaced. (The result
/// goes to another file of the folder, so the mapping never stands in the way
/// of writing it.)
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

    /// The first subtool's file, mapped; null until it is loaded.
    const GeometryStack2::GoZMappedFile* sourceFile() const { return m_source.get(); }

private:
    std::unique_ptr<GeometryStack2::GoZMappedFile> m_source;
};

} // namespace WelkPlugin
