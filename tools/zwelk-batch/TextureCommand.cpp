#include "Arguments.h"
#include "BatchCommands.h"
#include "ExchangeInput.h"
#include "MeshInput.h"
#include "OutputPath.h"
#include "TerminalProgress.h"

#include "exchange/ResultWriter.h"
#include "exchange/TextureModeValidation.h"
#include "steps/texture/TextureTexels.h"
#include "steps/texture/TextureTransferModels.h"
#include "steps/texture/WExtrapolateImage.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QRegularExpression>

#include <opencv2/core.hpp>

#include <atomic>
#include <cmath>
#include <csignal>
#include <limits>
#include <unistd.h>

namespace ZWelkBatch {

namespace {

const int MaxOutputSide = 16384;

/// Ctrl+C before the first image is ready ends the run at once; during a
/// projection or a fill it stops the work. Either way nothing is written.
std::atomic<TerminalProgress*> g_progress{nullptr};

void onInterrupt(int)
{
    if (auto* progress = g_progress.load()) {
        progress->cancel();
        return;
    }
    static const char message[] = "\ninterrupted; nothing was written\n";
    (void)!::write(STDERR_FILENO, message, sizeof message - 1);
    ::_exit(ExitInterrupted);
}

class InterruptScope
{
public:
    InterruptScope() { m_previous = std::signal(SIGINT, onInterrupt); }
    ~InterruptScope()
    {
        g_progress = nullptr;
        std::signal(SIGINT, m_previous);
    }

private:
    void (*m_previous)(int) = SIG_DFL;
};

bool parseSize(const QString& text, QSize& size, QString& error)
{
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("^(\\d{1,9})[xX](\\d{1,9})$")).match(text.trimmed());
    if (!match.hasMatch()) {
        error = QStringLiteral("--size %1: expected WIDTHxHEIGHT, for example 2048x2048").arg(text);
        return false;
    }
    const long long w = match.captured(1).toLongLong(), h = match.captured(2).toLongLong();
    if (w < 1 || h < 1 || w > MaxOutputSide || h > MaxOutputSide) {
        error = QStringLiteral("--size %1: width and height must be between 1 and %2").arg(text).arg(MaxOutputSide);
        return false;
    }
    size = QSize(int(w), int(h));
    return true;
}

bool parseTile(const QString& text, QPoint& tile, QString& error)
{
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("^(-?\\d{1,4}),(-?\\d{1,4})$")).match(text.trimmed());
    if (!match.hasMatch()) {
        error = QStringLiteral("--tiles %1: expected U,V, two whole numbers such as 1,0").arg(text);
        return false;
    }
    tile = QPoint(match.captured(1).toInt(), match.captured(2).toInt());
    return true;
}

/// "out.png" and UDIM 1002 give "out.1002.png", beside the original.
QString tilePath(const QString& path, int udim)
{
    const QFileInfo info(path);
    return info.dir().filePath(QStringLiteral("%1.%2.%3").arg(info.completeBaseName()).arg(udim).arg(info.suffix()));
}

/// PNG holds 8 or 16 bits a channel: float results go as 16-bit there.
/// A light compression level: at 4096 x 4096 the default level costs more
/// than the whole projection, for files about a third smaller.
Welk::WImg forFormat(const Welk::WImg& image, const QString& path)
{
    if (QFileInfo(path).suffix().toLower() != QLatin1String("png"))
        return image;
    Welk::WImg result = image;
    if (image.pixelType() == Welk::WImg::Float32) {
        cv::Mat converted;
        image.mat().convertTo(converted, CV_MAKETYPE(CV_16U, image.channels()), 65535.0);
        result = Welk::WImg(converted, image.attributes());
    }
    result.setAttribute(QStringLiteral("png:compressionLevel"), 2);
    return result;
}

struct Job
{
    QPoint tile;
    QString path;
};

} // namespace

QString textureUsage()
{
    return QStringLiteral(R"(Usage: zwelk-batch texture --source MESH --source-texture IMAGE --target MESH
                          -o OUT.png|OUT.tif [options]
       zwelk-batch texture --exchange DIR [options]

Carries the texture of the source mesh onto the target mesh's UV layout:
each texel of the target's UVs looks along the target's normal, both ways,
for the nearest source surface facing the same way, and takes the source
texture's colour there. Meshes are OBJ or GoZ; polygons masked in a GoZ
target receive nothing. 8- and 16-bit, grey, RGB and RGBA textures keep
their depth; RGB gains an alpha channel. Texels no ray reached are filled
from their neighbours unless --no-fill is given.

With --exchange the plug-in's folder DIR is read as ZWelk reads it in the
texture mode (the first subtool receives, the second gives its _TXTR
image), and the result is written back as Done does: the first subtool's
_TXTR.tif, 8-bit unless --keep-depth, then import.txt; status.txt goes.

Options:
  --source MESH           the mesh the texture is painted on (needs UVs)
  --source-texture IMAGE  its texture (any format OpenImageIO reads)
  --target MESH           the mesh that receives the texture (needs UVs)
  -o FILE                 the result, .png or .tif
  --exchange DIR          read and write an exchange folder instead
  --keep-depth            with --exchange, keep a 16-bit or float result's depth
  --size WxH              the result's size (default 1024x1024, at most 16384)
  --max-distance D        ignore source surfaces farther than D along the
                          normal (default: no limit)
  --tiles U,V             fill UV tile [U, U+1) x [V, V+1) (default 0,0)
  --all-tiles             fill every UDIM tile the target's UVs occupy, one
                          file per tile: OUT.1001.png, OUT.1002.png, ...
  --no-fill               leave empty texels transparent

Nothing is written when an input is wrong or the run is interrupted.)");
}

namespace {

/// What a transfer reads: the two meshes, the target's mask and the
/// source's texture, from files or from an exchange folder.
struct TextureInputs
{
    GeometryStack2::GeomStack source;
    GeometryStack2::GeomStack target;
    QVector<quint8> targetPolygonMask;
    Welk::WImg texture;
    bool sourceFromTop = false;
    bool targetFromTop = false;
    std::shared_ptr<WelkPlugin::ModelsData> exchangeModels;
    WelkPlugin::ExchangeFolder exchange;
};

bool loadFiles(const QString& sourcePath, const QString& texturePath, const QString& targetPath,
               TextureInputs& inputs, QString& error)
{
    MeshInput source, target;
    if (!MeshInput::load(sourcePath, source, error) || !MeshInput::load(targetPath, target, error))
        return false;
    if (!inputs.texture.load(texturePath, &error)) {
        error = QStringLiteral("--source-texture %1: the image can't be read: %2").arg(texturePath, oneLine(error));
        return false;
    }
    inputs.source = std::move(source.mesh);
    inputs.target = std::move(target.mesh);
    inputs.targetPolygonMask = target.polygonMaskFlags;
    // GoZ files count v from the top of the image.
    inputs.sourceFromTop = source.goz != nullptr;
    inputs.targetFromTop = target.goz != nullptr;
    return true;
}

bool loadExchange(const QString& dir, TextureInputs& inputs, QString& error)
{
    inputs.exchangeModels = loadExchangeModels(dir, inputs.exchange, error);
    if (!inputs.exchangeModels)
        return false;
    const WelkPlugin::ModelsData& models = *inputs.exchangeModels;
    QString title, text;
    if (!WelkPlugin::validateTextureMode(WelkPlugin::TextureMode, models, title, text)) {
        error = title + QLatin1Char('\n') + text;
        return false;
    }
    if (models.texture(1).isNull()) {
        error = QStringLiteral("The texture for the source mesh is not specified.\n"
                               "Please specify texture before starting texture transfer.");
        return false;
    }
    inputs.source = *models.geometry(1);
    inputs.target = *models.geometry(0);
    inputs.targetPolygonMask = models.polygonMaskFlags(0);
    inputs.texture = models.texture(1);
    inputs.sourceFromTop = inputs.targetFromTop = models.texCoordsFromTop();
    return true;
}

} // namespace

int runTexture(const QStringList& words)
{
    const Arguments args(words,
                         {QStringLiteral("--source"), QStringLiteral("--source-texture"), QStringLiteral("--target"),
                          QStringLiteral("-o"), QStringLiteral("--size"), QStringLiteral("--max-distance"),
                          QStringLiteral("--tiles"), QStringLiteral("--exchange")},
                         {QStringLiteral("--all-tiles"), QStringLiteral("--no-fill"), QStringLiteral("--keep-depth")});
    const auto usageError = [](const QString& message) {
        printError(QStringLiteral("zwelk-batch texture: ") + message + QStringLiteral("; see zwelk-batch help texture"));
        return ExitUsage;
    };
    if (!args.ok())
        return usageError(args.error());
    if (!args.positional().isEmpty())
        return usageError(QStringLiteral("unexpected argument '%1'").arg(args.positional().first()));
    const QString sourcePath = args.value(QStringLiteral("--source"));
    const QString texturePath = args.value(QStringLiteral("--source-texture"));
    const QString targetPath = args.value(QStringLiteral("--target"));
    const QString exchangeDir = args.value(QStringLiteral("--exchange"));
    const bool fromExchange = !exchangeDir.isEmpty();
    QString output = args.value(QStringLiteral("-o"));
    if (fromExchange) {
        if (!sourcePath.isEmpty() || !texturePath.isEmpty() || !targetPath.isEmpty() || !output.isEmpty())
            return usageError(QStringLiteral("--exchange replaces --source, --source-texture, --target and -o"));
        if (args.flag(QStringLiteral("--all-tiles")))
            return usageError(QStringLiteral("--all-tiles writes several images; ZBrush takes one through the "
                                             "exchange folder"));
    } else {
        for (const auto& [option, value] :
             {std::make_pair("--source", sourcePath), std::make_pair("--source-texture", texturePath),
              std::make_pair("--target", targetPath), std::make_pair("-o", output)})
            if (value.isEmpty())
                return usageError(QStringLiteral("%1 is required, or --exchange").arg(QLatin1String(option)));
        if (args.flag(QStringLiteral("--keep-depth")))
            return usageError(QStringLiteral("--keep-depth goes with --exchange; -o keeps the depth anyway"));
    }

    QString error;
    QSize size(1024, 1024);
    if (!args.value(QStringLiteral("--size")).isEmpty() && !parseSize(args.value(QStringLiteral("--size")), size, error))
        return usageError(error);
    float maxDistance = std::numeric_limits<float>::max();
    if (!args.value(QStringLiteral("--max-distance")).isEmpty()) {
        bool ok = false;
        const double d = args.value(QStringLiteral("--max-distance")).toDouble(&ok);
        if (!ok || !(d > 0.0) || !std::isfinite(d))
            return usageError(QStringLiteral("--max-distance %1: expected a positive number")
                                  .arg(args.value(QStringLiteral("--max-distance"))));
        maxDistance = float(d);
    }
    const bool allTiles = args.flag(QStringLiteral("--all-tiles"));
    QPoint tile(0, 0);
    if (!args.value(QStringLiteral("--tiles")).isEmpty()) {
        if (allTiles)
            return usageError(QStringLiteral("--tiles and --all-tiles exclude each other"));
        if (!parseTile(args.value(QStringLiteral("--tiles")), tile, error))
            return usageError(error);
    }
    const QStringList inputFiles{sourcePath, texturePath, targetPath};
    const QStringList formats{QStringLiteral("png"), QStringLiteral("tif"), QStringLiteral("tiff")};
    if (!fromExchange && !checkOutputPath(QStringLiteral("-o"), output, formats, inputFiles, error)) {
        printError(error);
        return ExitUsage;
    }

    InterruptScope interrupt;
    QElapsedTimer clock;
    clock.start();
    TextureInputs inputs;
    if (!(fromExchange ? loadExchange(exchangeDir, inputs, error)
                       : loadFiles(sourcePath, texturePath, targetPath, inputs, error))) {
        printError(error);
        if (fromExchange)
            inputs.exchange.removeStatusFile();
        return ExitFailed;
    }
    if (fromExchange)
        output = inputs.exchange.resultTexturePath();
    const int channels = inputs.texture.channels();
    if (channels != 1 && channels != 3 && channels != 4) {
        printError(QStringLiteral("The source texture has %1 channels; grey, RGB or RGBA textures are supported")
                       .arg(channels));
        return ExitFailed;
    }
    WelkPlugin::TextureTransferModels models;
    if (!models.setModels(inputs.source, inputs.target, error)) {
        printError(error);
        return ExitFailed;
    }
    models.setTexCoordsFromTop(inputs.sourceFromTop, inputs.targetFromTop);
    const QVector<quint8> triangleMask = models.triangleMask(inputs.targetPolygonMask);
    const double loadSeconds = clock.nsecsElapsed() * 1e-9;

    QVector<Job> jobs;
    if (allTiles) {
        for (const QPoint& t : models.occupiedTiles()) {
            const int udim = WelkPlugin::TextureTransferModels::udim(t.x(), t.y());
            if (udim < 0) {
                printError(QStringLiteral("The target has UVs in tile %1,%2, which has no UDIM number (u must be "
                                          "0 to 9, v 0 or more); use --tiles for it")
                               .arg(t.x())
                               .arg(t.y()));
                return ExitFailed;
            }
            jobs.append({t, tilePath(output, udim)});
        }
    } else {
        if (!models.hasTrianglesInTile(tile.x(), tile.y())) {
            QStringList occupied;
            for (const QPoint& t : models.occupiedTiles())
                occupied.append(QStringLiteral("%1,%2").arg(t.x()).arg(t.y()));
            printError(QStringLiteral("The target has no triangles in UV tile %1,%2 (its UVs lie in %3)")
                           .arg(tile.x())
                           .arg(tile.y())
                           .arg(occupied.join(QStringLiteral("; "))));
            return ExitFailed;
        }
        jobs.append({tile, output});
    }
    if (!fromExchange)
        for (const Job& job : jobs)
            if (!checkOutputPath(QStringLiteral("-o"), job.path, formats, inputFiles, error)) {
                printError(error);
                return ExitUsage;
            }

    TerminalProgress progress;
    g_progress = &progress;
    QVector<Welk::WImg> results;
    double projectSeconds = 0.0, fillSeconds = 0.0;
    for (const Job& job : jobs) {
        clock.restart();
        Welk::WImg image = models.project(inputs.texture, size, maxDistance, job.tile.x(), job.tile.y(), triangleMask,
                                          error, &progress);
        projectSeconds += clock.nsecsElapsed() * 1e-9;
        if (progress.isCancelled()) {
            printError(QStringLiteral("interrupted; nothing was written"));
            return ExitInterrupted;
        }
        if (image.isNull()) {
            printError(QStringLiteral("Projection failed: ") + error);
            return ExitFailed;
        }
        if (image.channels() == 4 && WelkPlugin::reachedTexelCount(image) == 0)
            printOut(QStringLiteral("warning: no texel of tile %1,%2 reached the source%3")
                         .arg(job.tile.x())
                         .arg(job.tile.y())
                         .arg(maxDistance < std::numeric_limits<float>::max()
                                  ? QStringLiteral(" (is --max-distance too small?)")
                                  : QString()));
        if (!args.flag(QStringLiteral("--no-fill")) && WelkPlugin::canFillEmptyTexels(image)) {
            clock.restart();
            Welk::WExtrapolateImage extrapolation;
            cv::Mat filled = image.mat().clone();
            if (!extrapolation.extrapolate(filled, int(image.pixelType()), Welk::WExtrapolateImage::DefaultIterations,
                                           &progress)) {
                if (progress.isCancelled()) {
                    printError(QStringLiteral("interrupted; nothing was written"));
                    return ExitInterrupted;
                }
                printError(QStringLiteral("Extrapolation failed: ") + extrapolation.error());
                return ExitFailed;
            }
            image = Welk::WImg(filled, image.attributes());
            fillSeconds += clock.nsecsElapsed() * 1e-9;
        } else if (!args.flag(QStringLiteral("--no-fill")) && image.channels() == 1) {
            printOut(QStringLiteral("note: a grey texture has no alpha channel; empty texels stay 0"));
        }
        results.append(image);
    }

    g_progress = nullptr;
    clock.restart();
    for (int i = 0; i < jobs.size(); ++i) {
        Welk::WImg image;
        if (fromExchange) {
            image = args.flag(QStringLiteral("--keep-depth")) ? results[i] : WelkPlugin::toEightBit(results[i]);
            if (WelkPlugin::writeTextureResult(*inputs.exchangeModels, image, error) != WelkPlugin::ResultWritten) {
                printError(error);
                return ExitFailed;
            }
        } else {
            image = forFormat(results[i], jobs[i].path);
            if (!image.save(jobs[i].path, &error)) {
                printError(QStringLiteral("-o %1: can't write the image: %2").arg(jobs[i].path, oneLine(error)));
                return ExitFailed;
            }
        }
        printOut(QStringLiteral("wrote %1 (%2x%3, %4 channels, %5)")
                     .arg(jobs[i].path)
                     .arg(image.width())
                     .arg(image.height())
                     .arg(image.channels())
                     .arg(image.pixelType() == Welk::WImg::UInt8    ? QStringLiteral("8-bit")
                          : image.pixelType() == Welk::WImg::UInt16 ? QStringLiteral("16-bit")
                                                                   : QStringLiteral("float")));
    }
    if (fromExchange) {
        WelkPlugin::announceResult(*inputs.exchangeModels);
        inputs.exchange.removeStatusFile();
    }
    printOut(QStringLiteral("load: %1 s\nprojection: %2 s\nfill: %3 s\nwrite: %4 s")
                 .arg(loadSeconds, 0, 'f', 3)
                 .arg(projectSeconds, 0, 'f', 3)
                 .arg(fillSeconds, 0, 'f', 3)
                 .arg(clock.nsecsElapsed() * 1e-9, 0, 'f', 3));
    return ExitOk;
}

} // namespace ZWelkBatch
