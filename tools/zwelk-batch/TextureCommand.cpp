#include "Arguments.h"
#include "BatchCommands.h"
#include "MeshInput.h"
#include "OutputPath.h"
#include "TerminalProgress.h"

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

Carries the texture of the source mesh onto the target mesh's UV layout:
each texel of the target's UVs looks along the target's normal, both ways,
for the nearest source surface facing the same way, and takes the source
texture's colour there. Meshes are OBJ or GoZ; polygons masked in a GoZ
target receive nothing. 8- and 16-bit, grey, RGB and RGBA textures keep
their depth; RGB gains an alpha channel. Texels no ray reached are filled
from their neighbours unless --no-fill is given.

Options:
  --source MESH           the mesh the texture is painted on (needs UVs)
  --source-texture IMAGE  its texture (any format OpenImageIO reads)
  --target MESH           the mesh that receives the texture (needs UVs)
  -o FILE                 the result, .png or .tif
  --size WxH              the result's size (default 1024x1024, at most 16384)
  --max-distance D        ignore source surfaces farther than D along the
                          normal (default: no limit)
  --tiles U,V             fill UV tile [U, U+1) x [V, V+1) (default 0,0)
  --all-tiles             fill every UDIM tile the target's UVs occupy, one
                          file per tile: OUT.1001.png, OUT.1002.png, ...
  --no-fill               leave empty texels transparent

Nothing is written when an input is wrong or the run is interrupted.)");
}

int runTexture(const QStringList& words)
{
    const Arguments args(words,
                         {QStringLiteral("--source"), QStringLiteral("--source-texture"), QStringLiteral("--target"),
                          QStringLiteral("-o"), QStringLiteral("--size"), QStringLiteral("--max-distance"),
                          QStringLiteral("--tiles")},
                         {QStringLiteral("--all-tiles"), QStringLiteral("--no-fill")});
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
    const QString output = args.value(QStringLiteral("-o"));
    for (const auto& [option, value] : {std::make_pair("--source", sourcePath), std::make_pair("--source-texture", texturePath),
                                        std::make_pair("--target", targetPath), std::make_pair("-o", output)})
        if (value.isEmpty())
            return usageError(QStringLiteral("%1 is required").arg(QLatin1String(option)));

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
    const QStringList inputs{sourcePath, texturePath, targetPath};
    if (!checkOutputPath(QStringLiteral("-o"), output, {QStringLiteral("png"), QStringLiteral("tif"), QStringLiteral("tiff")},
                         inputs, error)) {
        printError(error);
        return ExitUsage;
    }

    InterruptScope interrupt;
    QElapsedTimer clock;
    clock.start();
    MeshInput source, target;
    if (!MeshInput::load(sourcePath, source, error) || !MeshInput::load(targetPath, target, error)) {
        printError(error);
        return ExitFailed;
    }
    Welk::WImg texture;
    if (!texture.load(texturePath, &error)) {
        printError(QStringLiteral("--source-texture %1: the image can't be read: %2").arg(texturePath, oneLine(error)));
        return ExitFailed;
    }
    const int channels = texture.channels();
    if (channels != 1 && channels != 3 && channels != 4) {
        printError(QStringLiteral("--source-texture %1: %2 channels; grey, RGB or RGBA textures are supported")
                       .arg(texturePath)
                       .arg(channels));
        return ExitFailed;
    }
    WelkPlugin::TextureTransferModels models;
    if (!models.setModels(source.mesh, target.mesh, error)) {
        printError(error);
        return ExitFailed;
    }
    const QVector<quint8> triangleMask = models.triangleMask(target.polygonMaskFlags);
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
    for (const Job& job : jobs)
        if (!checkOutputPath(QStringLiteral("-o"), job.path, {QStringLiteral("png"), QStringLiteral("tif"), QStringLiteral("tiff")},
                             inputs, error)) {
            printError(error);
            return ExitUsage;
        }

    TerminalProgress progress;
    g_progress = &progress;
    QVector<Welk::WImg> results;
    double projectSeconds = 0.0, fillSeconds = 0.0;
    for (const Job& job : jobs) {
        clock.restart();
        Welk::WImg image =
            models.project(texture, size, maxDistance, job.tile.x(), job.tile.y(), triangleMask, error, &progress);
        projectSeconds += clock.nsecsElapsed() * 1e-9;
        if (progress.isCancelled()) {
            printError(QStringLiteral("interrupted; nothing was written"));
            return ExitInterrupted;
        }
        if (image.isNull()) {
            printError(QStringLiteral("Projection failed: ") + error);
            return ExitFailed;
        }
        int filledTexels = image.width() * image.height();
        if (image.channels() == 4) {
            std::vector<cv::Mat> planes;
            cv::split(image.mat(), planes);
            filledTexels = cv::countNonZero(planes[3]);
        }
        if (image.channels() == 4 && filledTexels == 0)
            printOut(QStringLiteral("warning: no texel of tile %1,%2 reached the source%3")
                         .arg(job.tile.x())
                         .arg(job.tile.y())
                         .arg(maxDistance < std::numeric_limits<float>::max()
                                  ? QStringLiteral(" (is --max-distance too small?)")
                                  : QString()));
        if (!args.flag(QStringLiteral("--no-fill")) && image.channels() == 4 && filledTexels > 0 &&
            filledTexels < image.width() * image.height()) {
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
        const Welk::WImg image = forFormat(results[i], jobs[i].path);
        if (!image.save(jobs[i].path, &error)) {
            printError(QStringLiteral("-o %1: can't write the image: %2").arg(jobs[i].path, oneLine(error)));
            return ExitFailed;
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
    printOut(QStringLiteral("load: %1 s\nprojection: %2 s\nfill: %3 s\nwrite: %4 s")
                 .arg(loadSeconds, 0, 'f', 3)
                 .arg(projectSeconds, 0, 'f', 3)
                 .arg(fillSeconds, 0, 'f', 3)
                 .arg(clock.nsecsElapsed() * 1e-9, 0, 'f', 3));
    return ExitOk;
}

} // namespace ZWelkBatch
