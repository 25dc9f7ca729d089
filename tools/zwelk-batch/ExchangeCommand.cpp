#include "Arguments.h"
#include "BatchCommands.h"
#include "MeshInput.h"

#include "exchange/ExchangeFolder.h"
#include "exchange/ExchangeFolderWriter.h"

#include "geometry/GoZMeshConversion.h"

#include <QFileInfo>

namespace ZWelkBatch {

using namespace WelkPlugin;

namespace {

/// The subtool's name without a "1_" / "2_" prefix it may already carry.
QString subtoolName(const QString& path)
{
    QString name = ExchangeFolder::sanitizedName(QFileInfo(path).completeBaseName());
    if (name.startsWith(QLatin1String("1_")) || name.startsWith(QLatin1String("2_")))
        name = name.mid(2);
    return name.isEmpty() ? QStringLiteral("Subtool") : name;
}

bool prepareSubtool(const QString& path, int index, const QString& texture, GeometryStack2::GoZFrame frame,
                    SubtoolExport& subtool, QString& error)
{
    MeshInput input;
    if (!MeshInput::load(path, input, error))
        return false;
    const QString name = subtoolName(path);
    subtool.name = QStringLiteral("%1_%2").arg(index + 1).arg(name);
    subtool.texturePath = texture;
    if (input.goz) {
        // ZWelk needs the mask and group chunks; a file that has them goes
        // over unchanged, unknown chunks included.
        GeometryStack2::GoZFile goz = input.goz->toFile();
        if (!goz.vertexMask.empty() && !goz.polygonGroups.empty()) {
            subtool.copyFrom = path;
            return true;
        }
        if (goz.vertexMask.empty())
            goz.vertexMask.assign(size_t(goz.vertexCount), 0xFFFF);
        if (goz.polygonGroups.empty())
            goz.polygonGroups.assign(size_t(goz.polygonCount), 0);
        subtool.goz = goz;
        return true;
    }
    subtool.goz = GeometryStack2::gozFromMesh(input.mesh, name.toUtf8(), frame);
    return true;
}

} // namespace

int runExchange(const QStringList& words)
{
    const Arguments args(words,
                         {QStringLiteral("--folder"), QStringLiteral("--mode"), QStringLiteral("--texture-first"),
                          QStringLiteral("--texture-second"), QStringLiteral("--app-dir")},
                         {QStringLiteral("--raw")});
    if (!args.ok() || args.positional().size() != 2 || args.value(QStringLiteral("--folder")).isEmpty()) {
        printError(args.ok() ? QStringLiteral("usage: zwelk-batch exchange FIRST SECOND --folder DIR [options]")
                             : QStringLiteral("zwelk-batch exchange: ") + args.error());
        return ExitUsage;
    }
    const QString mode = args.value(QStringLiteral("--mode"), QStringLiteral("welk"));
    if (mode != QLatin1String("welk") && mode != QLatin1String("texture")) {
        printError(QStringLiteral("zwelk-batch exchange: --mode is welk or texture, not '%1'").arg(mode));
        return ExitUsage;
    }

    ExchangeExport exchange;
    exchange.folder = args.value(QStringLiteral("--folder"));
    exchange.modeWord = mode;
    exchange.applicationDir = args.value(QStringLiteral("--app-dir"));
    const QString textures[2] = {args.value(QStringLiteral("--texture-first")),
                                 args.value(QStringLiteral("--texture-second"))};
    // OBJ meshes go into ZBrush's frame, as the plug-in's files come;
    // --raw keeps their numbers.
    const GeometryStack2::GoZFrame frame =
        args.flag(QStringLiteral("--raw")) ? GeometryStack2::GoZFrame::AsGiven : GeometryStack2::GoZFrame::ZBrush;
    QString error;
    for (int i = 0; i < 2; ++i) {
        if (!prepareSubtool(args.positional()[i], i, textures[i], frame, exchange.subtools[i], error)) {
            printError(error);
            return ExitFailed;
        }
    }
    if (!ExchangeFolderWriter::write(exchange, error)) {
        printError(error);
        return ExitFailed;
    }
    printOut(QStringLiteral("Exchange folder written: %1\n  %2.GoZ\n  %3.GoZ\n  mode: %4")
                 .arg(QFileInfo(exchange.folder).absoluteFilePath(), exchange.subtools[0].name,
                      exchange.subtools[1].name, mode));
    return ExitOk;
}

} // namespace ZWelkBatch
