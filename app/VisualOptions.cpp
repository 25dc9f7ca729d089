#include "VisualOptions.h"

#include <QSettings>

namespace WelkPlugin {

namespace {

template <typename Options, typename F> void forEachOption(Options& o, F&& f)
{
    f("wireframeBase", o.wireframeBase);
    f("wireframeScan", o.wireframeScan);
    f("textureBase", o.textureBase);
    f("textureScan", o.textureScan);
    f("lightningBase", o.lightningBase);
    f("lightningScan", o.lightningScan);
    f("displayInSRGB", o.displayInSRGB);
    f("wireframeUV", o.wireframeUV);
}

} // namespace

void VisualOptions::load(QSettings& settings)
{
    settings.beginGroup(QStringLiteral("viewportVisualSettings"));
    forEachOption(*this, [&](const char* key, bool& value) {
        value = settings.value(QLatin1String(key), value).toBool();
    });
    settings.endGroup();
}

void VisualOptions::save(QSettings& settings) const
{
    settings.beginGroup(QStringLiteral("viewportVisualSettings"));
    forEachOption(*this,
                  [&](const char* key, const bool& value) { settings.setValue(QLatin1String(key), value); });
    settings.endGroup();
}

} // namespace WelkPlugin
