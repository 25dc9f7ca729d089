#pragma once

#include <QString>

namespace WelkPlugin {

class ModelsData;

/// What a result writer answers at Done.
enum SaveResult
{
    ResultWritten = 0,   ///< written: import.txt follows and the run ends
    ResultNotWritten = 1, ///< nothing written, end the run anyway
    ResultCancelled = 2, ///< the user goes on working
};

/// Writes the fit's result beside the first mesh, under its name less the
/// "1_" prefix. On failure `error` is the text shown to the user.
SaveResult writeWelkResult(ModelsData& models, QString& error);

/// Ends a run as Done does after a written result: import.txt is created,
/// so the plug-in sees the result, then import.txt.
void announceResult(const ModelsData& models);

} // namespace WelkPlugin
