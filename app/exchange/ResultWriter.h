#pragma once

#include <QString>

namespace Welk {
class WImg;
}

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

/// Writes the texture mode's result beside the first mesh as
/// "<first mesh>_TXTR.tif", whole or not at all. On failure `error` is the
/// text shown to the user.
SaveResult writeTextureResult(const ModelsData& models, const Welk::WImg& image, QString& error);

/// The image with 8 bits a channel (16-bit and float scaled to 0..255).
Welk::WImg toEightBit(const Welk::WImg& image);

/// Ends a run as Done does after a written result: import.txt is created,
/// so the plug-in sees the result, then import.txt.
void announceResult(const ModelsData& models);

} // namespace WelkPlugin
