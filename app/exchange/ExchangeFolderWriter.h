#pragma once

#include "PluginGLVisualParams.h"

#include "geometry/GoZFile.h"

#include <QString>

namespace WelkPlugin {

/// One subtool as the ZBrush plug-in exports it.
struct SubtoolExport
{
    QString name;          ///< base name with its prefix, such as "1_Head"
    GeometryStack2::GoZFile goz; ///< written when `copyFrom` is empty
    QString copyFrom;      ///< a GoZ file copied byte for byte instead
    QString texturePath;   ///< optional image, stored as <name>_TXTR.tif
};

/// Everything the plug-in writes before it starts ZWelk.
struct ExchangeExport
{
    QString folder;                ///< the exchange folder; meshes go to its "Files"
    QString modeWord = QStringLiteral("welk");
    SubtoolExport subtools[2];
    PluginGLVisualParams params;
    QString applicationDir;        ///< when set, TempDirPath.txt is written there
};

/// Writes an exchange folder the way the ZBrush plug-in does: the mesh
/// folder with both subtools and their textures, subtools.txt, params.txt
/// and status.txt. Used by tests, demos and pipelines; ZWelk only reads.
class ExchangeFolderWriter
{
public:
    static bool write(const ExchangeExport& exchange, QString& error);

    /// The 44 bytes of params.txt for `params`.
    static QByteArray viewportParametersBytes(const PluginGLVisualParams& params);
    /// One 248-byte subtools.txt record.
    static QByteArray subtoolRecord(int index, bool hasTexture, const QString& name);
};

} // namespace WelkPlugin
