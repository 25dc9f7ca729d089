#pragma once

#include "fitting/accelerated/AcceleratedParameters.h"
#include "fitting/accelerated/EmbeddedGraphLevel.h"

#include <QString>

namespace WelkPlugin {

/// Every fit setting at once: what the settings file and dialog hold.
struct WelkingSettings
{
    WelkingAcceleratedVersion::AcceleratedParameters accelerated;
    WelkingAcceleratedVersion::GraphSamplingParameters sampling;
    float rigidity = 0.0f; ///< the cartoon fit's "Rigity"; read and written, weight 0 in the energy
};

/// The ".ini" settings file, group "welkingSettings". Missing keys take the
/// defaults of the reading dialog; values outside a key's range are clamped
/// into it.
namespace WelkingSettingsFile {

/// Whose defaults and keys apply: the current settings dialog's, or the
/// older preset dialog's (other sampling defaults and 5 ICP iterations; it
/// knows neither "Normalize_sampling_radius" nor "Rigity").
enum class Dialog
{
    Current,
    Preset,
};

/// The defaults of a fresh installation for `dialog`.
WelkingSettings defaults(Dialog dialog = Dialog::Current);

/// False with `error` when the file cannot be read.
bool load(const QString& path, WelkingSettings& settings, QString& error, Dialog dialog = Dialog::Current);
bool save(const QString& path, const WelkingSettings& settings, QString& error);

} // namespace WelkingSettingsFile
} // namespace WelkPlugin
