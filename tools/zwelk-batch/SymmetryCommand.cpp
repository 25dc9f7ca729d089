#include "Arguments.h"
#include "BatchCommands.h"
#include "MeshInput.h"
#include "TerminalProgress.h"

#include "steps/points/WSymmetryPoints.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace ZWelkBatch {

namespace {

QString writePairs(const QString& path, const QVector<int>& map)
{
    QJsonArray pairs;
    for (int v = 0; v < map.size(); ++v)
        pairs.append(QJsonArray{v, map[v]});
    const QJsonObject root{{QStringLiteral("vertexCount"), map.size()}, {QStringLiteral("pairs"), pairs}};
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QStringLiteral("Can't open file for writing: \"%1\"").arg(path);
    if (file.write(QJsonDocument(root).toJson(QJsonDocument::Compact)) < 0)
        return QStringLiteral("Can't write file: \"%1\"").arg(path);
    return QString();
}

} // namespace

int runSymmetry(const QStringList& words)
{
    const Arguments args(words, {QStringLiteral("-o")}, {});
    if (!args.ok() || args.positional().size() != 1) {
        printError(args.ok() ? QStringLiteral("usage: zwelk-batch symmetry MESH [-o pairs.json]")
                             : QStringLiteral("zwelk-batch symmetry: ") + args.error());
        return ExitUsage;
    }
    QElapsedTimer clock;
    clock.start();
    MeshInput input;
    QString error;
    if (!MeshInput::load(args.positional()[0], input, error)) {
        printError(error);
        return ExitFailed;
    }
    const double loadSeconds = clock.nsecsElapsed() * 1e-9;
    const GeometryStack2::GeomStack& mesh = input.mesh;

    Welk::WSymmetryPoints symmetry;
    symmetry.setGeometry(mesh.vertices(), mesh.polygonOffsets(), mesh.vertexIndices());
    TerminalProgress progress;
    clock.restart();
    symmetry.setSymmetryMode(Welk::WSymmetryPoints::TopologicalSymmetry, &progress);
    const double seconds = clock.nsecsElapsed() * 1e-9;
    if (symmetry.detectionState() != 0) {
        printError(symmetry.message());
        printOut(QStringLiteral("vertices: %1\npolygons: %2\ndetection: %3 s (failed)")
                     .arg(mesh.vertexCount())
                     .arg(mesh.polygonCount())
                     .arg(seconds, 0, 'f', 3));
        return ExitFailed;
    }
    const QVector<int>& map = symmetry.vertexMap();
    int onPlane = 0;
    for (int v = 0; v < map.size(); ++v)
        onPlane += map[v] == v;
    printOut(QStringLiteral("vertices: %1\npolygons: %2\nload: %3 s\ndetection: %4 s\n"
                            "pairs: %5\nvertices on the plane: %6")
                 .arg(mesh.vertexCount())
                 .arg(mesh.polygonCount())
                 .arg(loadSeconds, 0, 'f', 3)
                 .arg(seconds, 0, 'f', 3)
                 .arg((map.size() - onPlane) / 2)
                 .arg(onPlane));
    const QString output = args.value(QStringLiteral("-o"));
    if (!output.isEmpty()) {
        error = writePairs(output, map);
        if (!error.isEmpty()) {
            printError(error);
            return ExitFailed;
        }
    }
    return ExitOk;
}

} // namespace ZWelkBatch
