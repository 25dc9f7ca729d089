#include "Arguments.h"
#include "BatchCommands.h"

#include "exchange/ExchangeFolder.h"
#include "exchange/ModelSummary.h"
#include "exchange/ModelsData.h"
#include "exchange/ResultWriter.h"
#include "exchange/TextureModeValidation.h"

#include <QFileInfo>

namespace ZWelkBatch {

using namespace WelkPlugin;

namespace {

/// Reports a start-up failure as ZWelk would and removes status.txt, so a
/// waiting plug-in stops waiting.
int fail(const ExchangeFolder& exchange, const QString& title, const QString& text)
{
    printError(title + QLatin1Char('\n') + text);
    exchange.removeStatusFile();
    return ExitFailed;
}

QString indented(const QString& text)
{
    QString result;
    for (const QString& line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        result += QStringLiteral("  ") + line + QLatin1Char('\n');
    return result;
}

} // namespace

int runCheck(const QStringList& words)
{
    const Arguments args(words, {}, {QStringLiteral("--write-back")});
    if (!args.ok() || args.positional().size() != 1) {
        printError(args.ok() ? QStringLiteral("usage: zwelk-batch check DIR [--write-back]")
                             : QStringLiteral("zwelk-batch check: ") + args.error());
        return ExitUsage;
    }
    ExchangeFolder exchange;
    exchange.setTemporaryDir(args.positional()[0]);
    QString error;
    if (!exchange.checkFolders(error))
        return fail(exchange, QStringLiteral("Folder for temporary files does not exist:"), error);
    // A run that ends the exchange starts as ZWelk does: an import.txt left
    // by an earlier run must not announce a result this run did not write.
    const bool writeBack = args.flag(QStringLiteral("--write-back"));
    if (writeBack)
        exchange.removeImportFile();

    const ApplicationMode mode = exchange.readApplicationMode({QStringLiteral("zwelk-batch")});
    QString paramsError;
    const PluginGLVisualParams params = exchange.loadViewportParameters(paramsError);
    QVector<bool> textureFlags;
    const QFileInfoList files = exchange.getModelFilenames(textureFlags, error);
    if (!exchange.setModelFiles(files))
        return fail(exchange, QStringLiteral("Can't find mesh files required to start ZWelk in a directory:"),
                    exchange.filesDirPath() + QLatin1Char('\n') + exchange.modelFilesProblem());
    error.clear();
    std::shared_ptr<ModelsData> models = loadModelsData(exchange, textureFlags, error);
    if (!error.isEmpty())
        return fail(exchange, QStringLiteral("Cannot open file"), error);
    QString title, text;
    if (!validateTextureMode(mode, *models, title, text))
        return fail(exchange, title, text);

    QString report;
    report += QStringLiteral("exchange folder: %1\n").arg(exchange.temporaryDirPath());
    report += QStringLiteral("mesh folder: %1\n").arg(exchange.filesDirPath());
    report += QStringLiteral("mode: %1\n").arg(mode == TextureMode ? QStringLiteral("texture") : QStringLiteral("welk"));
    report += QStringLiteral("subtools: %1\n")
                  .arg(textureFlags.isEmpty() ? QStringLiteral("found by scanning the mesh folder")
                                              : QStringLiteral("listed in subtools.txt"));
    report += paramsError.isEmpty()
                  ? QStringLiteral("viewport parameters: field of view %1, perspective %2\n")
                        .arg(double(params.fieldOfView))
                        .arg(params.perspective ? QStringLiteral("on") : QStringLiteral("off"))
                  : QStringLiteral("viewport parameters: defaults (no params.txt)\n");
    if (!text.isEmpty())
        report += QStringLiteral("note: %1 %2\n").arg(title, text);
    const char* roles[2][2] = {{"basemesh", "target"}, {"scan", "source"}};
    for (int side = 0; side < 2; ++side) {
        report += QStringLiteral("%1 subtool (%2):\n")
                      .arg(side == 0 ? QStringLiteral("first") : QStringLiteral("second"),
                           QLatin1String(roles[side][mode == TextureMode ? 1 : 0]));
        report += indented(ModelSummary::of(*models, side).toText());
    }
    printOut(report);

    if (!writeBack)
        return ExitOk;
    if (mode == TextureMode) {
        // Without a transfer there is no texture to send back: the run ends
        // as Done ends it with nothing written.
        printOut(QStringLiteral("texture mode: no transferred texture, nothing written"));
        exchange.removeStatusFile();
        return ExitOk;
    }
    const SaveResult result = writeWelkResult(*models, error);
    if (result != ResultWritten) {
        // The run is over all the same: the plug-in must stop waiting.
        printError(error);
        exchange.removeStatusFile();
        return ExitFailed;
    }
    announceResult(*models);
    exchange.removeStatusFile();
    printOut(QStringLiteral("result written: %1").arg(exchange.resultMeshPath()));
    return ExitOk;
}

} // namespace ZWelkBatch
