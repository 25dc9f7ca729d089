#include "Arguments.h"
#include "BatchCommands.h"
#include "ExchangeInput.h"
#include "MeshInput.h"
#include "OutputPath.h"
#include "TerminalProgress.h"

#include "exchange/ExchangeFolder.h"
#include "exchange/ModelsData.h"
#include "exchange/ResultWriter.h"
#include "geometry/GeomStackTriangulated.h"
#include "geometry/GoZMeshConversion.h"
#include "steps/fitting/WelkingFit.h"
#include "steps/fitting/WelkingSettingsFile.h"
#include "steps/points/LandmarkFile.h"
#include "steps/points/PointFile.h"
#include "steps/splines/SplineFile.h"
#include "steps/splines/SplinePointPairs.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <atomic>
#include <csignal>

#include <sys/resource.h>
#include <unistd.h>

namespace ZWelkBatch {

using namespace WelkPlugin;
using GeometryStack2::GeomStack;
using GeometryStack2::GeomStackTriangulated;

QString welkUsage()
{
    return QStringLiteral(R"(Usage: zwelk-batch welk --base A --target B -o OUT [options]
       zwelk-batch welk --exchange DIR [options]

Fits the basemesh A onto the target B: the result keeps A's topology and
takes B's shape. A and B are OBJ or GoZ files; OUT is written as OBJ or GoZ
by its extension (.obj, .goz). With --exchange the plug-in's folder DIR is
read and the result written back as the window's Done does.

Models:
  --base FILE             the basemesh (side 0)
  --target FILE           the target scan (side 1)
  -o FILE                 the result, .obj or .goz; never one of the inputs
  --exchange DIR          read and write an exchange folder instead

Fit:
  --engine fast|cartoon|classic
                          fast (default): nodes rotate and move; cartoon:
                          nodes may also shear and scale, for stylised targets;
                          classic: the double-precision reference fit with a
                          direct solve (much slower)
  --cartoon               the same as --engine cartoon
  --classic-params F.json the classic fit's settings (a JSON object; missing
                          keys read as 0)
  --settings FILE.ini     fit settings (group "welkingSettings"); missing
                          keys keep their defaults
  --exclude-masked        leave vertices of polygons masked in ZBrush out of
                          matching (GoZ input)

Correspondences (pair i of one side goes with pair i of the other):
  --points-base FILE      points on the basemesh: a JSON array of
  --points-target FILE    [triangle, u, v] arrays, as the window saves them
  --landmarks-base FILE   landmark positions, one "x y z" or "x,y,z" row
  --landmarks-target FILE each, projected onto the nearest surface point
  --splines-base FILE     splines on the basemesh and on the target, as the
  --splines-target FILE   window exports them (any of the four forms): named
                          splines pair by name, unnamed ones by their place
                          in the file; each pair adds --spline-points point
                          pairs after the correspondences
  --spline-points N       samples along each spline pair (2 to 1000, default
                          20)
  --rigid                 first align the basemesh by the pairs (3 or more)
  --scale                 also match the scale; without --rigid only scales

Checks:
  --force                 fit even when the models' bounding boxes do not
                          meet or their sizes differ more than 10x; without
                          it these refuse (a basemesh denser than the
                          target only warns)

Report:
  --report FILE.json      write the full report there
  --json                  print the full report on standard output
  The terminal shows a short summary: time, fold-overs added, the output
  path, and with --report or --json the RMS distances both ways. See docs/zwelk-batch.md for the
  report's keys.

Ctrl+C stops the fit at its next step (within about a second), writes the
shape reached and exits with 130.

Exit codes: 0 success, 1 the job failed (nothing written), 2 wrong command
line, 130 interrupted.
)");
}

namespace {

/// What Ctrl+C does depends on how far the run is: before the fit nothing
/// is written yet and the program ends at once; during the fit it stops at
/// the next boundary and the shape reached is written; while writing it
/// waits, so that no file is left half written.
enum Phase
{
    Preparing,
    Fitting,
    Writing,
};
std::atomic<int> g_phase{Preparing};
std::atomic<WelkingFit*> g_runningFit{nullptr};
std::atomic<TerminalProgress*> g_progress{nullptr};

void onInterrupt(int)
{
    if (g_phase.load() == Preparing) {
        static const char message[] = "\ninterrupted; nothing was written\n";
        (void)!::write(STDERR_FILENO, message, sizeof message - 1);
        ::_exit(ExitInterrupted);
    }
    if (g_phase.load() != Fitting)
        return;
    if (auto* progress = g_progress.load())
        progress->cancel();
    if (auto* fit = g_runningFit.load())
        fit->stop();
}

/// Installs the handler for one run and puts the previous one back.
class InterruptScope
{
public:
    InterruptScope()
    {
        g_phase = Preparing;
        m_previous = std::signal(SIGINT, onInterrupt);
    }
    ~InterruptScope()
    {
        std::signal(SIGINT, m_previous);
        g_runningFit = nullptr;
        g_progress = nullptr;
    }

private:
    void (*m_previous)(int) = nullptr;
};

/// The models of one run, wherever they came from.
struct Models
{
    GeomStackTriangulated base;
    GeomStackTriangulated target;
    QVector<quint8> basePolygonMask;
    MeshInput baseInput; ///< file mode only
    std::shared_ptr<ModelsData> exchangeModels;
    ExchangeFolder exchange;
};

/// Writes through a temporary file beside the result, so that a failed
/// write leaves any earlier file of that name as it was.
bool writeResultFile(const QString& path, const Models& models, const QVector<QVector3D>& vertices, QString& error)
{
    const QString partial = path + QStringLiteral(".partial");
    bool written = false;
    if (QFileInfo(path).suffix().compare(QLatin1String("goz"), Qt::CaseInsensitive) == 0) {
        GeometryStack2::GoZFile goz;
        if (models.baseInput.goz) {
            goz = models.baseInput.goz->toFile();
        } else {
            GeomStack mesh(models.base);
            mesh.setVertices(vertices);
            goz = GeometryStack2::gozFromMesh(mesh, QFileInfo(path).completeBaseName().toUtf8());
        }
        goz.vertices.clear();
        for (const QVector3D& v : vertices)
            goz.vertices.insert(goz.vertices.end(), {v.x(), v.y(), v.z()});
        written = goz.write(partial);
        if (!written)
            error = QStringLiteral("Cannot save result mesh: \n%1").arg(path);
    } else {
        GeomStack mesh(models.base);
        mesh.setVertices(vertices);
        written = mesh.saveObj(partial, true, true, nullptr, &error);
        if (!written)
            error = QStringLiteral("Cannot save result mesh: \n%1\n%2").arg(path, error);
    }
    if (written && (!QFile::exists(path) || QFile::remove(path)) && QFile::rename(partial, path))
        return true;
    QFile::remove(partial);
    if (error.isEmpty())
        error = QStringLiteral("Cannot save result mesh: \n%1").arg(path);
    return false;
}

bool loadModels(const Arguments& args, Models& models, QString& error)
{
    const QString exchangeDir = args.value(QStringLiteral("--exchange"));
    if (!exchangeDir.isEmpty()) {
        models.exchangeModels = loadExchangeModels(exchangeDir, models.exchange, error);
        if (!models.exchangeModels)
            return false;
        models.base = *models.exchangeModels->geometry(0);
        models.target = *models.exchangeModels->geometry(1);
        models.basePolygonMask = models.exchangeModels->polygonMaskFlags(0);
        return true;
    }
    MeshInput target;
    if (!MeshInput::load(args.value(QStringLiteral("--base")), models.baseInput, error) ||
        !MeshInput::load(args.value(QStringLiteral("--target")), target, error))
        return false;
    models.base = GeomStackTriangulated(models.baseInput.mesh);
    models.target = GeomStackTriangulated(target.mesh);
    models.basePolygonMask = models.baseInput.polygonMaskFlags;
    return true;
}

/// One side's correspondences from a point file or a landmark file.
bool loadSide(const Arguments& args, const QString& pointsOption, const QString& landmarksOption,
              const GeomStackTriangulated& mesh, const QString& side, QVector<Welk::WPointOnTriangle>& points,
              QJsonArray& moved, QString& error)
{
    const QString pointsPath = args.value(pointsOption);
    const QString landmarksPath = args.value(landmarksOption);
    if (!pointsPath.isEmpty()) {
        error = PointFile::loadPointsFromFile(pointsPath, mesh.triangleCount(), points);
        if (!error.isEmpty())
            error = QStringLiteral("%1: %2").arg(pointsPath, error);
        return error.isEmpty();
    }
    if (landmarksPath.isEmpty())
        return true;
    QVector<QVector3D> positions;
    if (!LandmarkFile::readPositions(landmarksPath, positions, error))
        return false;
    const LandmarkFile::Projected projected =
        LandmarkFile::projectOntoSurface(positions, mesh.vertices(), mesh.triangleVertexIndices());
    points = projected.points;
    float worst = 0;
    for (float d : projected.distances) {
        moved.append(double(d));
        worst = std::max(worst, d);
    }
    printError(QStringLiteral("%1 landmarks on the %2 placed on its surface; the farthest moved by %3")
                   .arg(points.size())
                   .arg(side)
                   .arg(double(worst), 0, 'g', 4));
    return true;
}

/// One side's spline file, in whatever form it was written.
bool loadSplineFile(const QString& option, const QString& path, const GeomStackTriangulated& mesh,
                    const ClosestPointLookup& lookup, SplineFile::Contents& contents, bool& named, QString& error)
{
    QFile file(path);
    if (!file.exists()) {
        error = QStringLiteral("%1 %2: File doesn't exist").arg(option, path);
        return false;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("%1 %2: Can't read file").arg(option, path);
        return false;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    SplineFile::Form form = SplineFile::NamedPointsOnTriangles;
    if (parseError.error != QJsonParseError::NoError)
        error = parseError.errorString();
    else if (SplineFile::detectForm(document, form, error))
        SplineFile::readDocument(document, form, mesh,
                                 SplineFile::isOnTriangles(form) ? ClosestPointLookup() : lookup,
                                 contents, error);
    if (!error.isEmpty()) {
        error = QStringLiteral("%1 %2: %3").arg(option, path, error);
        return false;
    }
    named = SplineFile::isNamed(form);
    return true;
}

/// Spline pairs from `--splines-base` and `--splines-target`, appended to
/// the point pairs. Prints what was left unpaired.
bool loadSplinePairs(const Arguments& args, const GeomStackTriangulated& base, const GeomStackTriangulated& target,
                     int count, FitInput& input, QJsonObject& report, QString& error)
{
    const QString basePath = args.value(QStringLiteral("--splines-base"));
    const QString targetPath = args.value(QStringLiteral("--splines-target"));
    if (basePath.isEmpty() && targetPath.isEmpty())
        return true;
    // One nearest-point search per side serves the files of positions and the
    // samples of the curves.
    const SplinePointPairs::Side baseSide{&base, makeEmbreeClosestPointLookup(base)};
    const SplinePointPairs::Side targetSide{&target, makeEmbreeClosestPointLookup(target)};
    SplineFile::Contents baseSplines, targetSplines;
    bool baseNamed = false, targetNamed = false;
    if (!loadSplineFile(QStringLiteral("--splines-base"), basePath, base, baseSide.lookup, baseSplines, baseNamed,
                        error) ||
        !loadSplineFile(QStringLiteral("--splines-target"), targetPath, target, targetSide.lookup, targetSplines,
                        targetNamed, error))
        return false;
    const WSpline::CatmullRomSpline curve;
    SplinePointPairs::Result pairs;
    if (baseNamed && targetNamed) {
        pairs = SplinePointPairs::byName(baseSplines.splines, targetSplines.splines, baseSide, targetSide, count, curve);
    } else {
        if (baseNamed != targetNamed)
            printError(QStringLiteral("Only one spline file names its splines: splines pair by their place in the "
                                      "files"));
        QVector<QVector<Welk::WPointOnTriangle>> a, b;
        for (const QString& name : baseSplines.order)
            a.append(baseSplines.splines.value(name));
        for (const QString& name : targetSplines.order)
            b.append(targetSplines.splines.value(name));
        pairs = SplinePointPairs::byIndex(a, b, baseSplines.order, targetSplines.order, baseSide, targetSide, count,
                                          curve);
    }
    if (!pairs.unpairedBase.isEmpty())
        printError(QStringLiteral("Warning: splines on the basemesh without a partner on the target, left out: %1")
                       .arg(pairs.unpairedBase.join(QStringLiteral(", "))));
    if (!pairs.unpairedTarget.isEmpty())
        printError(QStringLiteral("Warning: splines on the target without a partner on the basemesh, left out: %1")
                       .arg(pairs.unpairedTarget.join(QStringLiteral(", "))));
    if (!pairs.empty.isEmpty())
        printError(QStringLiteral("Warning: splines without control points on one side, left out: %1")
                       .arg(pairs.empty.join(QStringLiteral(", "))));
    if (pairs.paired.isEmpty()) {
        error = QStringLiteral("No spline of %1 pairs with one of %2").arg(basePath, targetPath);
        return false;
    }
    input.basePoints += pairs.base;
    input.targetPoints += pairs.target;
    // As in the window: the basemesh vertices the splines select are held by
    // their pairs and left out of closest-point matching.
    input.excludedVertices = WelkingFit::verticesNearestPoints(base, pairs.base);
    report = QJsonObject{{QStringLiteral("paired"), QJsonArray::fromStringList(pairs.paired)},
                         {QStringLiteral("points"), pairs.base.size()},
                         {QStringLiteral("selectedVertices"),
                          int(std::count(input.excludedVertices.begin(), input.excludedVertices.end(), 1))}};
    return true;
}

QString warningAdvice(const ModelWarning& warning)
{
    switch (warning.kind) {
    case ModelWarning::NoIntersection:
    case ModelWarning::ScaleDiffers:
        return QStringLiteral("Place three or more point pairs (--points-* or --landmarks-*) and add --rigid --scale.");
    case ModelWarning::HigherResolution:
        return QStringLiteral("Check that --base is the basemesh and --target the scan (the subtool order).");
    }
    return QString();
}

QJsonObject secondsJson(const FitResult& result, const TerminalProgress& progress, double load)
{
    QJsonObject seconds{{QStringLiteral("load"), load}};
    for (const auto& stage : result.seconds)
        seconds[stage.first] = stage.second;
    for (const auto& stage : progress.stages())
        if (stage.first.startsWith(QLatin1String("Welking (")))
            seconds[stage.first] = stage.second;
    return seconds;
}

} // namespace

int runWelk(const QStringList& words)
{
    const Arguments args(words,
                         {QStringLiteral("--base"), QStringLiteral("--target"), QStringLiteral("--exchange"),
                          QStringLiteral("--points-base"), QStringLiteral("--points-target"),
                          QStringLiteral("--landmarks-base"), QStringLiteral("--landmarks-target"),
                          QStringLiteral("--engine"), QStringLiteral("--settings"), QStringLiteral("-o"),
                          QStringLiteral("--report"), QStringLiteral("--classic-params"),
                          QStringLiteral("--splines-base"), QStringLiteral("--splines-target"),
                          QStringLiteral("--spline-points")},
                         {QStringLiteral("--exclude-masked"), QStringLiteral("--rigid"), QStringLiteral("--scale"),
                          QStringLiteral("--cartoon"), QStringLiteral("--json"), QStringLiteral("--force")});
    const auto usageError = [](const QString& text) {
        printError(QStringLiteral("zwelk-batch welk: %1; see zwelk-batch help welk").arg(text));
        return ExitUsage;
    };
    if (!args.ok())
        return usageError(args.error());
    if (!args.positional().isEmpty())
        return usageError(QStringLiteral("unexpected argument %1").arg(args.positional().first()));
    const QString exchangeDir = args.value(QStringLiteral("--exchange"));
    const QString basePath = args.value(QStringLiteral("--base"));
    const QString targetPath = args.value(QStringLiteral("--target"));
    const QString outPath = args.value(QStringLiteral("-o"));
    const QString reportPath = args.value(QStringLiteral("--report"));
    const bool fromExchange = !exchangeDir.isEmpty();
    if (fromExchange && (!basePath.isEmpty() || !targetPath.isEmpty() || !outPath.isEmpty()))
        return usageError(QStringLiteral("--exchange replaces --base, --target and -o"));
    if (!fromExchange && (basePath.isEmpty() || targetPath.isEmpty() || outPath.isEmpty()))
        return usageError(QStringLiteral("give --base, --target and -o, or --exchange"));
    FitOptions options;
    if (args.flag(QStringLiteral("--cartoon")))
        options.engine = FitEngine::Cartoon;
    const QString engine = args.value(QStringLiteral("--engine"));
    if (!engine.isEmpty() && !fitEngineFromName(engine, options.engine))
        return usageError(QStringLiteral("unknown engine '%1' (known: %2)")
                              .arg(engine, fitEngineNames().join(QStringLiteral(", "))));
    for (const QString& side : {QStringLiteral("base"), QStringLiteral("target")})
        if (!args.value(QStringLiteral("--points-") + side).isEmpty() &&
            !args.value(QStringLiteral("--landmarks-") + side).isEmpty())
            return usageError(QStringLiteral("--points-%1 and --landmarks-%1 both given").arg(side));

    if (args.value(QStringLiteral("--splines-base")).isEmpty() != args.value(QStringLiteral("--splines-target")).isEmpty())
        return usageError(QStringLiteral("--splines-base and --splines-target go together"));
    int splinePoints = 20;
    const QString splinePointsText = args.value(QStringLiteral("--spline-points"));
    if (!splinePointsText.isEmpty()) {
        bool isNumber = false;
        splinePoints = splinePointsText.toInt(&isNumber);
        if (!isNumber || splinePoints < 2 || splinePoints > 1000)
            return usageError(QStringLiteral("--spline-points takes a whole number from 2 to 1000, not '%1'")
                                  .arg(splinePointsText));
    }

    // Every path to be written is checked before any work, so that a long
    // fit never ends in a write that was bound to fail.
    QStringList inputs{basePath, targetPath};
    for (const char* option : {"--points-base", "--points-target", "--landmarks-base", "--landmarks-target",
                               "--settings", "--splines-base", "--splines-target"})
        inputs.append(args.value(QLatin1String(option)));
    inputs.removeAll(QString());
    QString error;
    if (!fromExchange && !checkOutputPath(QStringLiteral("-o"), outPath, {QStringLiteral("obj"), QStringLiteral("goz")},
                                          inputs, error)) {
        printError(error);
        return ExitFailed;
    }
    if (!reportPath.isEmpty() &&
        !checkOutputPath(QStringLiteral("--report"), reportPath, {QStringLiteral("json")}, inputs + QStringList{outPath},
                         error)) {
        printError(error);
        return ExitFailed;
    }
    if (fromExchange && !reportPath.isEmpty() && QFileInfo(reportPath).absolutePath().startsWith(QDir(exchangeDir).absolutePath() + QStringLiteral("/Files"))) {
        printError(QStringLiteral("--report %1: the exchange's mesh folder belongs to the plug-in").arg(reportPath));
        return ExitFailed;
    }

    TerminalProgress progress;
    const InterruptScope interruptScope;
    QElapsedTimer clock;
    clock.start();
    Models models;
    if (!loadModels(args, models, error)) {
        printError(oneLine(error));
        // ZWelk ends such a start the same way, so that the plug-in stops waiting.
        if (fromExchange)
            models.exchange.removeStatusFile();
        return ExitFailed;
    }
    const double loadSeconds = double(clock.nsecsElapsed()) / 1e9;
    if (fromExchange && !QFileInfo(models.exchange.filesDirPath()).isWritable()) {
        printError(QStringLiteral("Cannot write the result into %1").arg(models.exchange.filesDirPath()));
        return ExitFailed;
    }

    const QString settingsPath = args.value(QStringLiteral("--settings"));
    if (!settingsPath.isEmpty() && !WelkingSettingsFile::load(settingsPath, options.settings, error)) {
        printError(error);
        return ExitFailed;
    }
    const QString classicPath = args.value(QStringLiteral("--classic-params"));
    if (!classicPath.isEmpty() && !Welk::WelkingParameters::load(classicPath, options.classicParameters, error)) {
        printError(error);
        return ExitFailed;
    }
    if (options.engine == FitEngine::Classic && !options.classicParameters.validate().isEmpty()) {
        printError(options.classicParameters.validate());
        return ExitFailed;
    }
    options.rigid = args.flag(QStringLiteral("--rigid"));
    options.scale = args.flag(QStringLiteral("--scale"));
    options.excludeMasked = args.flag(QStringLiteral("--exclude-masked"));
    // Distances to the target cost a second pass over the scan: only for a report.
    options.measure = !reportPath.isEmpty() || args.flag(QStringLiteral("--json"));

    FitInput input;
    input.base = models.base;
    input.target = models.target;
    input.basePolygonMask = models.basePolygonMask;
    QJsonObject landmarkMoves;
    QJsonArray movedBase, movedTarget;
    if (!loadSide(args, QStringLiteral("--points-base"), QStringLiteral("--landmarks-base"), models.base,
                  QStringLiteral("basemesh"), input.basePoints, movedBase, error) ||
        !loadSide(args, QStringLiteral("--points-target"), QStringLiteral("--landmarks-target"), models.target,
                  QStringLiteral("target"), input.targetPoints, movedTarget, error)) {
        printError(error);
        return ExitFailed;
    }
    if (!movedBase.isEmpty())
        landmarkMoves[QStringLiteral("base")] = movedBase;
    if (!movedTarget.isEmpty())
        landmarkMoves[QStringLiteral("target")] = movedTarget;
    if (input.basePoints.size() != input.targetPoints.size()) {
        printError(QStringLiteral("The basemesh has %1 points and the target %2: they must pair up one to one")
                       .arg(input.basePoints.size())
                       .arg(input.targetPoints.size()));
        return ExitFailed;
    }
    QJsonObject splineReport;
    if (!loadSplinePairs(args, models.base, models.target, splinePoints, input, splineReport, error)) {
        printError(error);
        return ExitFailed;
    }
    if ((options.rigid || options.scale) && input.basePoints.size() < 3) {
        printError(QStringLiteral("--rigid and --scale need three or more point pairs; %1 given")
                       .arg(input.basePoints.size()));
        return ExitFailed;
    }

    WelkingFit fit(input, options, &progress);
    error = fit.checkInput();
    if (!error.isEmpty()) {
        printError(error);
        return ExitFailed;
    }
    // Models that do not meet or differ wildly in size give a useless fit:
    // refused unless forced. A denser basemesh is only worth a word, since
    // here the user named each side explicitly.
    const bool force = args.flag(QStringLiteral("--force"));
    bool refused = false;
    QJsonArray warningTexts;
    for (const ModelWarning& warning : fit.warnings()) {
        const bool blocks = warning.kind != ModelWarning::HigherResolution && !force;
        refused = refused || blocks;
        printError(QStringLiteral("%1: %2 %3")
                       .arg(blocks ? QStringLiteral("Error") : QStringLiteral("Warning"), warning.message,
                            warningAdvice(warning)));
        warningTexts.append(warning.message);
    }
    if (refused) {
        printError(QStringLiteral("Nothing was fitted; --force fits anyway."));
        return ExitFailed;
    }

    g_progress = &progress;
    g_runningFit = &fit;
    g_phase = Fitting;
    fit.run();
    g_phase = Writing;
    g_runningFit = nullptr;
    const FitResult& result = fit.result();
    if (result.status == FitResult::Failed) {
        printError(result.error);
        if (fromExchange)
            models.exchange.removeStatusFile();
        return ExitFailed;
    }
    const bool interrupted = result.status == FitResult::Interrupted;

    QString written;
    if (fromExchange) {
        models.exchangeModels->setResultVertices(result.transform, result.welked);
        if (writeWelkResult(*models.exchangeModels, error) != ResultWritten) {
            // The run is over all the same: the plug-in must stop waiting.
            printError(oneLine(error));
            models.exchange.removeStatusFile();
            return ExitFailed;
        }
        announceResult(*models.exchangeModels);
        models.exchange.removeStatusFile();
        written = models.exchange.filesDirPath();
    } else {
        if (!writeResultFile(outPath, models, result.vertices, error)) {
            printError(oneLine(error));
            return ExitFailed;
        }
        written = outPath;
    }

    QJsonArray nodeCounts;
    for (int count : result.graphNodes)
        nodeCounts.append(count);
    QJsonObject report{{QStringLiteral("fit"), fitEngineName(options.engine)},
                       {QStringLiteral("interrupted"), interrupted},
                       {QStringLiteral("output"), QFileInfo(written).absoluteFilePath()},
                       {QStringLiteral("baseVertices"), models.base.vertexCount()},
                       {QStringLiteral("targetTriangles"), models.target.triangleCount()},
                       {QStringLiteral("graphNodes"), nodeCounts},
                       {QStringLiteral("seconds"), secondsJson(result, progress, loadSeconds)},
                       {QStringLiteral("warnings"), warningTexts}};
    if (result.measured) {
        const QJsonObject measured = result.report.toJson();
        for (auto it = measured.begin(); it != measured.end(); ++it)
            report[it.key()] = it.value();
    }
    if (result.hasCourse)
        report[QStringLiteral("course")] = fitCourseJson(result.course);
    if (!landmarkMoves.isEmpty())
        report[QStringLiteral("landmarkProjection")] = landmarkMoves;
    if (!splineReport.isEmpty())
        report[QStringLiteral("splines")] = splineReport;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    report[QStringLiteral("peakResidentMB")] = double(usage.ru_maxrss) / 1024.0;
    const QByteArray json = QJsonDocument(report).toJson();
    if (!reportPath.isEmpty()) {
        QFile file(reportPath);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(json) != json.size()) {
            printError(QStringLiteral("Cannot write report %1: %2").arg(reportPath, file.errorString()));
            return ExitFailed;
        }
    }
    if (args.flag(QStringLiteral("--json")))
        printOut(QString::fromUtf8(json));

    double total = loadSeconds;
    for (const auto& stage : result.seconds)
        total += stage.second;
    if (interrupted) {
        printError(QStringLiteral("interrupted after %1 s; the shape reached is written to %2")
                       .arg(total, 0, 'f', 1)
                       .arg(written));
        return ExitInterrupted;
    }
    if (result.hasCourse && result.course.diverged())
        printError(QStringLiteral("Warning: ") + divergenceMessage(result.course));
    const int triangles = models.base.triangleCount();
    if (result.report.addedFolds() > std::max(1, triangles / 100))
        printError(QStringLiteral("Warning: %1 of %2 triangles folded over in the fit; %3")
                       .arg(result.report.addedFolds())
                       .arg(triangles)
                       .arg(options.rigid && options.scale
                                ? QStringLiteral("check that the point pairs match, or fit more stiffly (a higher "
                                                 "Smoothness_final in --settings).")
                                : QStringLiteral("the models may differ in pose or scale. Place point pairs and add "
                                                 "--rigid --scale.")));
    if (!args.flag(QStringLiteral("--json")) && result.measured)
        printOut(QStringLiteral("%1 fit in %2 s: RMS distance result->target %3, target->result %4; "
                                "%5 fold-overs added\nwritten: %6")
                     .arg(fitEngineName(options.engine))
                     .arg(total, 0, 'f', 1)
                     .arg(result.report.resultToTarget.rms, 0, 'g', 4)
                     .arg(result.report.targetToResult.rms, 0, 'g', 4)
                     .arg(result.report.addedFolds())
                     .arg(written));
    else if (!args.flag(QStringLiteral("--json")))
        printOut(QStringLiteral("%1 fit in %2 s: %3 fold-overs added (--report measures the distances)\nwritten: %4")
                     .arg(fitEngineName(options.engine))
                     .arg(total, 0, 'f', 1)
                     .arg(result.report.addedFolds())
                     .arg(written));
    return ExitOk;
}

} // namespace ZWelkBatch
