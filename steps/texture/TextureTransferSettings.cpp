#include "TextureTransferSettings.h"

#include <QSettings>

#include <cmath>
#include <limits>

namespace WelkPlugin {

namespace {

const QString Group = QStringLiteral("textureTransferSettings");

int side(const QVariant& value, int fallback)
{
    bool ok = false;
    const int v = value.toInt(&ok);
    return ok && v >= 1 && v <= TextureTransferSettings::MaxSide ? v : fallback;
}

} // namespace

float TextureTransferSettings::maxDistance() const
{
    return limitDistance ? float(distance) : std::numeric_limits<float>::max();
}

TextureTransferSettings TextureTransferSettings::read(QSettings& settings)
{
    const TextureTransferSettings defaults;
    TextureTransferSettings s;
    settings.beginGroup(Group);
    s.width = side(settings.value(QStringLiteral("Width"), defaults.width), defaults.width);
    s.height = side(settings.value(QStringLiteral("Height"), defaults.height), defaults.height);
    s.limitDistance = settings.value(QStringLiteral("LimitDistance"), defaults.limitDistance).toBool();
    bool ok = false;
    const double distance = settings.value(QStringLiteral("Distance"), defaults.distance).toDouble(&ok);
    s.distance = ok && distance > 0.0 && std::isfinite(distance) ? distance : defaults.distance;
    s.uOffset = settings.value(QStringLiteral("UOffset"), defaults.uOffset).toInt();
    s.vOffset = settings.value(QStringLiteral("VOffset"), defaults.vOffset).toInt();
    s.fillEmptyTexels = settings.value(QStringLiteral("FillEmptyTexels"), defaults.fillEmptyTexels).toBool();
    settings.endGroup();
    return s;
}

void TextureTransferSettings::write(QSettings& settings) const
{
    settings.beginGroup(Group);
    settings.setValue(QStringLiteral("Width"), width);
    settings.setValue(QStringLiteral("Height"), height);
    settings.setValue(QStringLiteral("LimitDistance"), limitDistance);
    settings.setValue(QStringLiteral("Distance"), distance);
    settings.setValue(QStringLiteral("UOffset"), uOffset);
    settings.setValue(QStringLiteral("VOffset"), vOffset);
    settings.setValue(QStringLiteral("FillEmptyTexels"), fillEmptyTexels);
    settings.endGroup();
}

TextureTransferSettings TextureTransferSettings::readAtStartup(QSettings& settings)
{
    settings.beginGroup(Group);
    settings.setValue(QStringLiteral("UOffset"), 0);
    settings.setValue(QStringLiteral("VOffset"), 0);
    settings.endGroup();
    settings.sync();
    return read(settings);
}

} // namespace WelkPlugin
