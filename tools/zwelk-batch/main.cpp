// zwelk-batch: the program's engines without a window, for pipelines,
// tests and benchmarks.
#include "BatchCommands.h"

#include "exchange/ApplicationIdentity.h"
#include "geometry/HugePages.h"
#include "optimisation/BlasThreads.h"

#include <QCoreApplication>
#include <QLoggingCategory>

namespace {

const char* const Usage = R"(Usage: zwelk-batch COMMAND [ARGUMENTS]
       zwelk-batch help COMMAND     the command's options
       zwelk-batch --version

Commands:
  exchange FIRST SECOND --folder DIR [--mode welk|texture]
           [--texture-first IMAGE] [--texture-second IMAGE] [--app-dir DIR] [--raw]
      Writes an exchange folder as the ZBrush plug-in does: DIR/Files with
      1_<name>.GoZ and 2_<name>.GoZ (from OBJ or GoZ meshes), their textures
      as <name>_TXTR.tif, and subtools.txt, params.txt and status.txt.
      OBJ meshes are stored as ZBrush stores subtools: name "GoZMesh_<name>",
      positions (x, -y, -z), texture coordinates (u, 1 - v); --raw keeps the
      OBJ's numbers and the bare name. GoZ meshes are copied as they are.
      --app-dir also writes TempDirPath.txt there, beside a ZWelk program,
      so that ZWelk started from that folder opens this exchange.

  check DIR [--write-back]
      Loads the exchange folder DIR exactly as ZWelk does and prints what it
      found, or the message ZWelk would show. --write-back then ends the run
      as Done does without a fit: result file, import.txt, status.txt gone.

  demo-models DIR [--base-resolution N] [--scan-subdivisions N]
      Generates a demo pair: DIR/base.obj, a quad basemesh with UVs
      (6 x N^2 quads, N = 24), DIR/scan.obj, a denser triangle scan of a
      different shape (20 x 4^N triangles, N = 6), and DIR/scan_texture.tif.

  welk --base A --target B -o OUT    or    welk --exchange DIR    [options]
      Fits the basemesh A onto the target B and writes OUT, or fits the
      plug-in's exchange folder and writes the result back as Done does.
      See zwelk-batch help welk.

  symmetry MESH [-o PAIRS.json]
      Finds the mesh's topological (posable) symmetry as the point step
      does and prints the pair count and the time; -o writes the map as
      {"vertexCount": N, "pairs": [[vertex, mirror], ...]}, 0-based.

  texture --source MESH --source-texture IMAGE --target MESH -o OUT.png|tif
          [--size WxH] [--max-distance D] [--tiles U,V | --all-tiles] [--no-fill]
  texture --exchange DIR [--size WxH] [--max-distance D] [--tiles U,V] [--no-fill]
      Carries the source's texture onto the target's UV layout along the
      target's normals and fills the texels no ray reached; --all-tiles
      writes one image per UDIM tile (OUT.1001.png, ...); --exchange
      works on the plug-in's folder in the texture mode and writes the
      result back as Done does. See zwelk-batch help texture.

Exit codes: 0 success, 1 the job failed, 2 wrong command line,
130 interrupted by Ctrl+C (the shape reached is written).
)";

/// The commands in the order of the usage text. A new command adds one row.
const ZWelkBatch::Command Commands[] = {
    {"exchange", ZWelkBatch::runExchange, nullptr},
    {"check", ZWelkBatch::runCheck, nullptr},
    {"demo-models", ZWelkBatch::runDemoModels, nullptr},
    {"welk", ZWelkBatch::runWelk, ZWelkBatch::welkUsage},
    {"symmetry", ZWelkBatch::runSymmetry, nullptr},
    {"texture", ZWelkBatch::runTexture, ZWelkBatch::textureUsage},
};

const ZWelkBatch::Command* findCommand(const QString& name)
{
    for (const auto& command : Commands)
        if (name == QLatin1String(command.name))
            return &command;
    return nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    GeometryStack2::configureLargeAllocations();
    LinearSystemsSolvers::parkIdleBlasThreads();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zwelk-batch"));
    // The engines' debug timings are for developers; ZWELK_DEBUG=1 shows them.
    if (qEnvironmentVariableIntValue("ZWELK_DEBUG") == 0)
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    QStringList arguments = QCoreApplication::arguments().mid(1);
    if (!arguments.isEmpty() && arguments[0] == QLatin1String("--version")) {
        const WelkPlugin::ApplicationIdentity identity;
        ZWelkBatch::printOut(QStringLiteral("zwelk-batch %1 (%2)").arg(identity.version, identity.productName));
        return ZWelkBatch::ExitOk;
    }
    if (arguments.size() == 2 && arguments[0] == QLatin1String("help")) {
        const ZWelkBatch::Command* command = findCommand(arguments[1]);
        if (!command) {
            ZWelkBatch::printError(QStringLiteral("zwelk-batch: unknown command '%1'; see zwelk-batch --help").arg(arguments[1]));
            return ZWelkBatch::ExitUsage;
        }
        ZWelkBatch::printOut(command->usage ? command->usage() : QString::fromLatin1(Usage));
        return ZWelkBatch::ExitOk;
    }
    if (arguments.isEmpty() || arguments[0] == QLatin1String("--help") || arguments[0] == QLatin1String("-h") ||
        arguments[0] == QLatin1String("help")) {
        ZWelkBatch::printOut(QString::fromLatin1(Usage));
        return arguments.isEmpty() ? ZWelkBatch::ExitUsage : ZWelkBatch::ExitOk;
    }
    const QString name = arguments.takeFirst();
    const ZWelkBatch::Command* command = findCommand(name);
    if (!command) {
        ZWelkBatch::printError(QStringLiteral("zwelk-batch: unknown command '%1'; see zwelk-batch --help").arg(name));
        return ZWelkBatch::ExitUsage;
    }
    if (command->usage && ZWelkBatch::wantsHelp(arguments)) {
        ZWelkBatch::printOut(command->usage());
        return ZWelkBatch::ExitOk;
    }
    return command->run(arguments);
}
