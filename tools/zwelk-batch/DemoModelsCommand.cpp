#include "Arguments.h"
#include "BatchCommands.h"
#include "DemoModels.h"

#include <QDir>

namespace ZWelkBatch {

int runDemoModels(const QStringList& words)
{
    const Arguments args(words, {QStringLiteral("--base-resolution"), QStringLiteral("--scan-subdivisions")}, {});
    if (!args.ok() || args.positional().size() != 1) {
        printError(args.ok() ? QStringLiteral("usage: zwelk-batch demo-models DIR [options]")
                             : QStringLiteral("zwelk-batch demo-models: ") + args.error());
        return ExitUsage;
    }
    bool okResolution = true, okSubdivisions = true;
    const int resolution = args.value(QStringLiteral("--base-resolution"), QStringLiteral("24")).toInt(&okResolution);
    const int subdivisions =
        args.value(QStringLiteral("--scan-subdivisions"), QStringLiteral("6")).toInt(&okSubdivisions);
    if (!okResolution || resolution < 2 || resolution > 400 || !okSubdivisions || subdivisions < 1 ||
        subdivisions > 9) {
        printError(QStringLiteral("zwelk-batch demo-models: --base-resolution is 2 to 400, "
                                  "--scan-subdivisions 1 to 9"));
        return ExitUsage;
    }
    const QDir dir(args.positional()[0]);
    if (!QDir().mkpath(dir.absolutePath())) {
        printError(QStringLiteral("Cannot create folder %1").arg(dir.absolutePath()));
        return ExitFailed;
    }
    QString error;
    const GeometryStack2::GeomStack base = makeDemoBasemesh(resolution);
    const GeometryStack2::GeomStack scan = makeDemoScan(subdivisions);
    if (!base.saveObj(dir.filePath(QStringLiteral("base.obj")), true, false, nullptr, &error) ||
        !scan.saveObj(dir.filePath(QStringLiteral("scan.obj")), true, false, nullptr, &error) ||
        !writeDemoTexture(dir.filePath(QStringLiteral("scan_texture.tif")), 512, error)) {
        printError(error);
        return ExitFailed;
    }
    printOut(QStringLiteral("Demo models written to %1\n  base.obj: %2 vertices, %3 quads\n"
                            "  scan.obj: %4 vertices, %5 triangles\n  scan_texture.tif: 512 x 512")
                 .arg(dir.absolutePath())
                 .arg(base.vertexCount())
                 .arg(base.polygonCount())
                 .arg(scan.vertexCount())
                 .arg(scan.polygonCount()));
    return ExitOk;
}

} // namespace ZWelkBatch
