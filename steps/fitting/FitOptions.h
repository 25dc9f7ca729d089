#pragma once

#include "WelkingSettingsFile.h"

#include "fitting/classic/WelkingParameters.h"

#include <QString>
#include <QStringList>

namespace WelkPlugin {

/// Which fit runs: "FastWelking" (rigid nodes) or "CartoonWelking" (nodes
/// that may shear and scale).
enum class FitEngine
{
    Fast,
    Cartoon,
    Classic, ///< the double-precision reference fit with a direct solve
};

/// "fast", "cartoon": the names the command line and reports use.
QString fitEngineName(FitEngine engine);
/// False for an unknown name.
bool fitEngineFromName(const QString& name, FitEngine& engine);
/// Every known name, in the enum's order.
QStringList fitEngineNames();

/// Everything that decides a fit besides the two models and their points.
/// The window maps its buttons, boxes and preferences onto it; the batch
/// tool its options.
struct FitOptions
{
    FitEngine engine = FitEngine::Fast;
    /// Worker parameters, graph sampling and the cartoon fit's "Rigity".
    /// `settings.sampling.levels` follows `settings.accelerated.subdivisions`.
    WelkingSettings settings;
    /// Align the basemesh by the point pairs first (three pairs at least):
    /// rotation and translation, and with `scale` a uniform scale too. A
    /// scale without `rigid` applies only the scale.
    bool rigid = false;
    bool scale = false;
    /// Leave the vertices of polygons masked in ZBrush out of matching.
    bool excludeMasked = false;
    /// Both models are scaled so that the basemesh's largest extent is this
    /// during the fit; results come back in the models' own units.
    float normalisedSize = 100.0f;
    /// Measure the result against the target when the fit ends (distances
    /// both ways, folded triangles, landmark errors); a stopped fit is not
    /// measured, so that it hands back its shape at once.
    bool measure = false;
    /// The classic fit's own settings (it builds its graph from them).
    Welk::WelkingParameters classicParameters;
};

} // namespace WelkPlugin
