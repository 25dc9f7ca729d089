// zwelk-batch: the program's engines without a window, for pipelines,
// tests and benchmarks.
#include "BatchCommands.h"

#include <QCoreApplication>
#include <QLoggingCategory>

namespace {

const char* const Usage = R"(Usage: zwelk-batch COMMAND [ARGUMENTS]

Commands:
  exchange FIRST SECOND --folder DIR [--mode welk|texture]
           [--texture-first IMAGE] [--texture-second IMAGE] [--app-dir DIR]
      Writes an exchange folder as the ZBrush plug-in does: DIR/Files with
      1_<name>.GoZ and 2_<name>.GoZ (from OBJ or GoZ meshes), their textures
      as <name>_TXTR.tif, and subtools.txt, params.txt and status.txt.
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

  welk --base A --target B -o OUT    or    welk --exchange DIR
           [--points-base F --points-target F] [--rigid] [--scale]
           [--exclude-masked] [--engine fast|cartoon|classic] [--cartoon]
           [--settings F.ini] [--classic-params F.json] [--report F.json]
      Fits the basemesh A (OBJ or GoZ) onto the target B with the fast fit
      and writes OUT (OBJ, or GoZ by its extension); with --exchange the
      plug-in's folder is read and the result written back as Done does.
      Point files pair landmarks (side by side, in order); --rigid and
      --scale first align the basemesh by those pairs. --exclude-masked
      leaves vertices of polygons masked in ZBrush out of matching.
      --cartoon (or --engine cartoon) runs the cartoon fit, whose nodes may
      shear and scale; --engine classic runs the double-precision reference
      fit with a direct solve, its settings from --classic-params (a JSON
      object; missing keys read as 0).
      Prints a report (stage times, distances result->target and back,
      landmark errors, flipped triangles); Ctrl+C stops the fit at the next
      step and still writes the shape reached.

Exit codes: 0 success, 1 the job failed, 2 wrong command line.
)";

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zwelk-batch"));
    // The engines' debug timings are for developers; ZWELK_DEBUG=1 shows them.
    if (qEnvironmentVariableIntValue("ZWELK_DEBUG") == 0)
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.isEmpty() || arguments[0] == QLatin1String("--help") || arguments[0] == QLatin1String("-h") ||
        arguments[0] == QLatin1String("help")) {
        ZWelkBatch::printOut(QString::fromLatin1(Usage));
        return arguments.isEmpty() ? ZWelkBatch::ExitUsage : ZWelkBatch::ExitOk;
    }
    const QString command = arguments.takeFirst();
    if (command == QLatin1String("exchange"))
        return ZWelkBatch::runExchange(arguments);
    if (command == QLatin1String("check"))
        return ZWelkBatch::runCheck(arguments);
    if (command == QLatin1String("welk"))
        return ZWelkBatch::runWelk(arguments);
    if (command == QLatin1String("demo-models"))
        return ZWelkBatch::runDemoModels(arguments);
    ZWelkBatch::printError(QStringLiteral("zwelk-batch: unknown command '%1'; see zwelk-batch --help").arg(command));
    return ZWelkBatch::ExitUsage;
}
