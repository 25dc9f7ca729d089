#include "Arguments.h"
#include "BatchCommands.h"
#include "MeshInput.h"
#include "SurfaceDistance.h"
#include "TerminalProgress.h"

#include "exchange/ExchangeFolder.h"
#include "exchange/ModelsData.h"
#include "exchange/ModelsDataGoz.h"
#include "exchange/ResultWriter.h"
#include "fitting/accelerated/CartoonWelkingWorker.h"
#include "fitting/accelerated/EmbeddedGraphSampler.h"
#include "fitting/accelerated/WelkingWorker.h"
#include "fitting/classic/ClassicWelking.h"
#include "fitting/classic/ICPRoutine.h"
#include "geometry/GeomStackTriangulated.h"
#include "geometry/GoZMeshConversion.h"
#include "steps/fitting/WelkingSettingsFile.h"
#include "steps/points/PointFile.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>
#include <csignal>

#include <sys/resource.h>

namespace ZWelkBatch {

using namespace WelkPlugin;
using GeometryStack2::GeomStack;
using GeometryStack2::GeomStackTriangulated;

namespace {

std::atomic<WelkingAcceleratedVersion::WelkingWorker*> g_runningWorker{nullptr};
std::atomic<TerminalProgress*> g_runningProgress{nullptr};

void onInterrupt(int)
{
    // Stops the fit at its next boundary; the shape reached is still written.
    if (auto* worker = g_runningWorker.load())
        worker->callback().interrupt();
    if (auto* progress = g_runningProgress.load())
        progress->cancel();
}

/// The models of one run, wherever they came from.
struct Models
{
    std::unique_ptr<GeomStackTriangulated> base;
    std::unique_ptr<GeomStackTriangulated> target;
    QVector<quint8> basePolygonMask;
    MeshInput baseInput; ///< file mode only
    std::shared_ptr<ModelsData> exchangeModels;
    ExchangeFolder exchange;
};

QMatrix4x4 pairTransform(const QVector<QVector3D>& source, const QVector<QVector3D>& target, bool rigid, bool scale)
{
    QMatrix4x4 transform;
    if ((!rigid && !scale) || source.size() < 3 || source.size() != target.size())
        return transform;
    QQuaternion rotation;
    QVector3D translation;
    float s = 1.0f;
    if (scale)
        ICPRoutine::similarityTransform(source, target, rotation, translation, s);
    else
        ICPRoutine::rigidTransform(source, target, rotation, translation);
    if (rigid) {
        transform.translate(translation);
        transform.rotate(rotation);
    }
    if (scale)
        transform.scale(s);
    return transform;
}

QVector<QVector3D> pointPositions(const QVector<Welk::WPointOnTriangle>& points, const GeomStackTriangulated& mesh)
{
    QVector<QVector3D> positions;
    for (const auto& p : points)
        positions.append(p.position(mesh.vertices(), mesh.triangleVertexIndices()));
    return positions;
}

int flippedTriangles(const GeomStackTriangulated& mesh, const QVector<QVector3D>& before, const QVector<QVector3D>& after)
{
    const QVector<int>& t = mesh.triangleVertexIndices();
    int flipped = 0;
    for (int i = 0; i + 2 < t.size(); i += 3) {
        const QVector3D n0 = QVector3D::crossProduct(before[t[i + 1]] - before[t[i]], before[t[i + 2]] - before[t[i]]);
        const QVector3D n1 = QVector3D::crossProduct(after[t[i + 1]] - after[t[i]], after[t[i + 2]] - after[t[i]]);
        if (QVector3D::dotProduct(n0, n1) < 0)
            ++flipped;
    }
    return flipped;
}

QJsonObject summaryJson(const SurfaceDistance::Summary& s)
{
    return QJsonObject{{QStringLiteral("mean"), s.mean}, {QStringLiteral("rms"), s.rms},
                       {QStringLiteral("p95"), s.p95}, {QStringLiteral("max"), s.max},
                       {QStringLiteral("points"), s.count}};
}

bool writeResultFile(const QString& path, const Models& models, const QVector<QVector3D>& vertices, QString& error)
{
    if (path.endsWith(QLatin1String(".goz"), Qt::CaseInsensitive)) {
        GeometryStack2::GoZFile goz;
        if (models.baseInput.goz) {
            goz = *models.baseInput.goz;
        } else {
            GeomStack mesh(*models.base);
            mesh.setVertices(vertices);
            goz = GeometryStack2::gozFromMesh(mesh, QFileInfo(path).completeBaseName().toUtf8());
        }
        goz.vertices.clear();
        for (const QVector3D& v : vertices)
            goz.vertices.insert(goz.vertices.end(), {v.x(), v.y(), v.z()});
        if (!goz.write(path)) {
            error = QStringLiteral("Cannot save result mesh: \n%1").arg(path);
            return false;
        }
        return true;
    }
    GeomStack mesh(*models.base);
    mesh.setVertices(vertices);
    return mesh.saveObj(path, true, true, nullptr, &error);
}

bool loadModels(const Arguments& args, Models& models, QString& error)
{
    const QString exchangeDir = args.value(QStringLiteral("--exchange"));
    if (!exchangeDir.isEmpty()) {
        models.exchange.setTemporaryDir(exchangeDir);
        if (!models.exchange.checkFolders(error)) {
            error = QStringLiteral("Folder for temporary files does not exist:\n") + error;
            return false;
        }
        QVector<bool> flags;
        QString listError;
        if (!models.exchange.setModelFiles(models.exchange.getModelFilenames(flags, listError))) {
            error = QStringLiteral("Can't find mesh files required to start ZWelk in a directory:\n") +
                    models.exchange.filesDirPath();
            return false;
        }
        models.exchangeModels = loadModelsData(models.exchange, flags, error);
        if (!error.isEmpty()) {
            error = QStringLiteral("Cannot open file\n") + error;
            return false;
        }
        models.base = std::make_unique<GeomStackTriangulated>(*models.exchangeModels->geometry(0));
        models.target = std::make_unique<GeomStackTriangulated>(*models.exchangeModels->geometry(1));
        models.basePolygonMask = models.exchangeModels->polygonMaskFlags(0);
        return true;
    }
    MeshInput target;
    if (!MeshInput::load(args.value(QStringLiteral("--base")), models.baseInput, error) ||
        !MeshInput::load(args.value(QStringLiteral("--target")), target, error))
        return false;
    models.base = std::make_unique<GeomStackTriangulated>(models.baseInput.mesh);
    models.target = std::make_unique<GeomStackTriangulated>(target.mesh);
    models.basePolygonMask = models.baseInput.polygonMaskFlags;
    return true;
}

} // namespace

int runWelk(const QStringList& words)
{
    const Arguments args(words,
                         {QStringLiteral("--base"), QStringLiteral("--target"), QStringLiteral("--exchange"),
                          QStringLiteral("--points-base"), QStringLiteral("--points-target"),
                          QStringLiteral("--settings"), QStringLiteral("-o"), QStringLiteral("--report"),
                          QStringLiteral("--engine"), QStringLiteral("--classic-params")},
                         {QStringLiteral("--exclude-masked"), QStringLiteral("--rigid"), QStringLiteral("--scale"),
                          QStringLiteral("--cartoon")});
    const bool fromExchange = !args.value(QStringLiteral("--exchange")).isEmpty();
    const bool fromFiles = !args.value(QStringLiteral("--base")).isEmpty() && !args.value(QStringLiteral("--target")).isEmpty();
    if (!args.ok() || !args.positional().isEmpty() || fromExchange == fromFiles ||
        (fromFiles && args.value(QStringLiteral("-o")).isEmpty())) {
        printError(args.ok() ? QStringLiteral("usage: zwelk-batch welk (--base A --target B -o OUT | --exchange DIR) "
                                              "[options]; see zwelk-batch --help")
                             : QStringLiteral("zwelk-batch welk: ") + args.error());
        return ExitUsage;
    }

    const QString engine = args.flag(QStringLiteral("--cartoon")) ? QStringLiteral("cartoon")
                           : args.value(QStringLiteral("--engine")).isEmpty() ? QStringLiteral("fast")
                                                                               : args.value(QStringLiteral("--engine"));
    if (engine != QLatin1String("fast") && engine != QLatin1String("cartoon") && engine != QLatin1String("classic")) {
        printError(QStringLiteral("zwelk-batch welk: unknown engine '%1' (fast, cartoon or classic)").arg(engine));
        return ExitUsage;
    }
    Welk::WelkingParameters classicParameters;
    if (!args.value(QStringLiteral("--classic-params")).isEmpty()) {
        QString paramsError;
        if (!Welk::WelkingParameters::load(args.value(QStringLiteral("--classic-params")), classicParameters, paramsError)) {
            printError(paramsError);
            return ExitFailed;
        }
    }
    if (engine == QLatin1String("classic") && !classicParameters.validate().isEmpty()) {
        printError(classicParameters.validate());
        return ExitFailed;
    }

    TerminalProgress progress;
    QElapsedTimer clock;
    clock.start();
    QJsonObject stages;
    Models models;
    QString error;
    if (!loadModels(args, models, error)) {
        printError(error);
        return ExitFailed;
    }
    stages[QStringLiteral("load")] = double(clock.nsecsElapsed()) / 1e9;

    WelkingSettings settings;
    if (!args.value(QStringLiteral("--settings")).isEmpty() &&
        !WelkingSettingsFile::load(args.value(QStringLiteral("--settings")), settings, error)) {
        printError(error);
        return ExitFailed;
    }
    settings.sampling.levels = settings.accelerated.subdivisions;

    QVector<Welk::WPointOnTriangle> basePoints, targetPoints;
    for (const auto& [option, mesh, points] :
         {std::make_tuple(QStringLiteral("--points-base"), models.base.get(), &basePoints),
          std::make_tuple(QStringLiteral("--points-target"), models.target.get(), &targetPoints)}) {
        const QString path = args.value(option);
        if (path.isEmpty())
            continue;
        error = PointFile::loadPointsFromFile(path, mesh->triangleCount(), *points);
        if (!error.isEmpty()) {
            printError(QStringLiteral("%1: %2").arg(path, error));
            return ExitFailed;
        }
    }
    if (basePoints.size() != targetPoints.size()) {
        printError(QStringLiteral("The point files hold %1 and %2 points: they must pair up")
                       .arg(basePoints.size())
                       .arg(targetPoints.size()));
        return ExitFailed;
    }
    const QMatrix4x4 transform = pairTransform(pointPositions(basePoints, *models.base),
                                               pointPositions(targetPoints, *models.target),
                                               args.flag(QStringLiteral("--rigid")), args.flag(QStringLiteral("--scale")));

    // Vertices of polygons masked in ZBrush take no part in matching.
    QVector<quint8> excluded(models.base->vertexCount(), 0);
    if (args.flag(QStringLiteral("--exclude-masked"))) {
        const QVector<int>& offsets = models.base->polygonOffsets();
        for (int p = 0; p < models.basePolygonMask.size() && p + 1 < offsets.size(); ++p)
            if (models.basePolygonMask[p])
                for (int c = offsets[p]; c < offsets[p + 1]; ++c)
                    excluded[models.base->vertexIndices()[c]] = 1;
    }

    QVector<QVector3D> welked;
    QJsonArray nodeCounts;
    bool interrupted = false;
    bool fitFailed = false;
    if (engine == QLatin1String("classic")) {
        // The classic fit builds its own graph levels from its settings.
        clock.restart();
        Welk::ClassicWelkingInput input;
        input.vertices = models.base->vertices();
        input.triangles = models.base->triangleVertexIndices();
        input.transform = transform;
        input.targetVertices = models.target->vertices();
        input.targetNormals = models.target->normals();
        input.targetTriangles = models.target->triangleVertexIndices();
        input.basePoints = basePoints;
        input.targetPoints = targetPoints;
        for (quint8 e : excluded)
            input.mask.append(e != 0);
        input.parameters = classicParameters;
        g_runningProgress = &progress;
        auto previous = std::signal(SIGINT, onInterrupt);
        const Welk::ClassicWelkingResult classic = Welk::runClassicWelking(input, &progress);
        std::signal(SIGINT, previous);
        g_runningProgress = nullptr;
        // A fit that stopped on bad numbers still writes the last good shape.
        if (!classic.error.isEmpty()) {
            printError(classic.error);
            fitFailed = true;
        }
        welked = classic.vertices;
        interrupted = classic.interrupted;
        for (int count : classic.levelNodeCounts)
            nodeCounts.append(count);
        double graphSeconds = 0;
        for (const auto& stage : progress.stages())
            if (stage.first == QLatin1String("Building nodes"))
                graphSeconds += stage.second;
        stages[QStringLiteral("graph levels")] = graphSeconds;
        stages[QStringLiteral("fit")] = double(clock.nsecsElapsed()) / 1e9 - graphSeconds;
    } else {
        clock.restart();
        std::vector<WelkingAcceleratedVersion::Vertex> vertices;
        for (const QVector3D& v : models.base->vertices())
            vertices.emplace_back(v.x(), v.y(), v.z());
        const std::vector<long long> triangles(models.base->triangleVertexIndices().begin(),
                                               models.base->triangleVertexIndices().end());
        EmbeddedGraphCreator::EmbeddedGraphCreationCallback graphCallback{&progress};
        auto levels = WelkingAcceleratedVersion::buildEmbeddedGraph(settings.sampling, vertices, triangles, &graphCallback);
        stages[QStringLiteral("graph levels")] = double(clock.nsecsElapsed()) / 1e9;
        for (const auto& level : levels)
            nodeCounts.append(qint64(level.nodes.size()));

        clock.restart();
        const bool cartoon = engine == QLatin1String("cartoon");
        std::unique_ptr<WelkingAcceleratedVersion::WelkingWorker> fit;
        if (cartoon)
            fit = std::make_unique<CartoonWelking::CartoonWelkingWorker>(
                models.base->vertices(), models.base->triangleVertexIndices(), transform, models.target->vertices(),
                models.target->normals(), QMatrix4x4(), models.target->triangleVertexIndices(), basePoints, targetPoints,
                excluded, std::move(levels), settings.accelerated, settings.rigidity, 100.0f, &progress);
        else
            fit = std::make_unique<WelkingAcceleratedVersion::FastWelkingWorker>(
                models.base->vertices(), models.base->triangleVertexIndices(), transform, models.target->vertices(),
                models.target->normals(), QMatrix4x4(), models.target->triangleVertexIndices(), basePoints, targetPoints,
                excluded, std::move(levels), settings.accelerated, 100.0f, &progress);
        WelkingAcceleratedVersion::WelkingWorker& worker = *fit;
        QObject::connect(&worker, &WelkingAcceleratedVersion::WelkingWorker::finished,
                         [&](QVector<QVector3D> result) { welked = result; });
        g_runningWorker = &worker;
        auto previous = std::signal(SIGINT, onInterrupt);
        worker.start();
        std::signal(SIGINT, previous);
        g_runningWorker = nullptr;
        interrupted = worker.callback().isInterrupted();
        stages[QStringLiteral("fit")] = double(clock.nsecsElapsed()) / 1e9;
    }
    for (const auto& stage : progress.stages())
        if (stage.first.startsWith(QLatin1String("Welking (")))
            stages[stage.first] = stage.second;

    const QVector<QVector3D> result = GeomStack::transformedVertices(transform, welked);
    if (fromExchange) {
        models.exchangeModels->setResultVertices(transform, welked);
        if (writeWelkResult(*models.exchangeModels, error) != ResultWritten) {
            printError(error);
            return ExitFailed;
        }
        announceResult(*models.exchangeModels);
        models.exchange.removeStatusFile();
    } else if (!writeResultFile(args.value(QStringLiteral("-o")), models, result, error)) {
        printError(error);
        return ExitFailed;
    }

    // The report: how near the result lies to the target, both ways.
    clock.restart();
    const SurfaceDistance toTarget(models.target->vertices(), models.target->triangleVertexIndices());
    const SurfaceDistance toResult(result, models.base->triangleVertexIndices());
    const SurfaceDistance::Summary forward = toTarget.summarize(result);
    const SurfaceDistance::Summary backward = toResult.summarize(models.target->vertices());
    QJsonObject landmarks;
    if (!basePoints.isEmpty()) {
        const QVector<QVector3D> reached = pointPositions(basePoints, GeomStackTriangulated(*models.base));
        GeomStackTriangulated deformed(*models.base);
        deformed.setVertices(result);
        const QVector<QVector3D> moved = pointPositions(basePoints, deformed);
        const QVector<QVector3D> wanted = pointPositions(targetPoints, *models.target);
        double sum = 0, worst = 0;
        for (int i = 0; i < moved.size(); ++i) {
            const double d = double((moved[i] - wanted[i]).length());
            sum += d;
            worst = std::max(worst, d);
        }
        Q_UNUSED(reached);
        landmarks = QJsonObject{{QStringLiteral("count"), moved.size()},
                                {QStringLiteral("mean"), sum / moved.size()},
                                {QStringLiteral("max"), worst}};
    }
    const QVector<QVector3D> before = GeomStack::transformedVertices(transform, models.base->vertices());
    const int flipped = flippedTriangles(*models.base, before, result);

    QJsonObject report{{QStringLiteral("fit"), engine},
                       {QStringLiteral("interrupted"), interrupted},
                       {QStringLiteral("baseVertices"), models.base->vertexCount()},
                       {QStringLiteral("targetTriangles"), models.target->triangleCount()},
                       {QStringLiteral("graphNodes"), nodeCounts},
                       {QStringLiteral("seconds"), stages},
                       {QStringLiteral("resultToTarget"), summaryJson(forward)},
                       {QStringLiteral("targetToResult"), summaryJson(backward)},
                       {QStringLiteral("flippedTriangles"), flipped}};
    if (!landmarks.isEmpty())
        report[QStringLiteral("landmarks")] = landmarks;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    report[QStringLiteral("peakResidentMB")] = double(usage.ru_maxrss) / 1024.0;
    const QByteArray json = QJsonDocument(report).toJson();
    if (!args.value(QStringLiteral("--report")).isEmpty()) {
        QFile file(args.value(QStringLiteral("--report")));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(json) != json.size()) {
            printError(QStringLiteral("Cannot write report %1").arg(file.fileName()));
            return ExitFailed;
        }
    }
    printOut(QString::fromUtf8(json));
    return fitFailed ? ExitFailed : ExitOk;
}

} // namespace ZWelkBatch
