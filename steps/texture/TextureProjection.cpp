#include "TextureProjection.h"

#include <QThread>
#include <QtConcurrent/QtConcurrentMap>

#include <opencv2/imgproc.hpp>

#include <atomic>
#include <cmath>

namespace WelkPlugin {

namespace {

/// Shared, read-only inputs of every tile.
struct ProjectionInputs
{
    cv::Mat sourcePixels;
    int pixelType = 0;
    QVector<QVector2D> sourceTexCoords;
    QVector<int> sourceTriangleTexCoordIndices;
    const Welk::WRayTracer* sourceRayTracer = nullptr;
    QVector<QVector3D> targetVertices;
    QVector<QVector3D> targetNormals;
    QVector<int> targetTriangleIndices;
    const Welk::WRayTracer* targetUvRayTracer = nullptr;
    float maxDistance = std::numeric_limits<float>::max();
    int uOffset = 0;
    int vOffset = 0;
    QVector<quint8> triangleMask;
    std::atomic<int>* finishedTiles = nullptr;
    std::atomic<bool>* stop = nullptr;
};

/// One tile of work: writes only its own part of the output.
struct ProjectionTask
{
    const ProjectionInputs* inputs = nullptr;
    cv::Mat tile; ///< a view of the output: writing it writes the output
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0; ///< inclusive
    int imageWidth = 0;
    int imageHeight = 0;
};

double opaqueValue(int cvDepth)
{
    switch (cvDepth) {
    case CV_8U:
        return 255.0;
    case CV_16U:
        return 65535.0;
    default:
        return 1.0;
    }
}

void runTask(const ProjectionTask& task)
{
    const ProjectionInputs& in = *task.inputs;
    if (in.stop->load(std::memory_order_relaxed)) {
        in.finishedTiles->fetch_add(1);
        return;
    }
    const int width = task.x1 - task.x0 + 1;
    const int height = task.y1 - task.y0 + 1;
    const int sourceChannels = in.sourcePixels.channels();
    const int depth = in.sourcePixels.depth();
    cv::Mat map(height, width, CV_32FC2);
    cv::Mat mask;
    if (sourceChannels == 3)
        mask = cv::Mat::zeros(height, width, CV_MAKETYPE(depth, 1));
    const double opaque = opaqueValue(depth);
    const float sourceW = float(in.sourcePixels.cols - 1);
    const float sourceH = float(in.sourcePixels.rows - 1);
    const float spanX = float(std::max(task.imageWidth - 1, 1));
    const float spanY = float(std::max(task.imageHeight - 1, 1));
    const QVector3D down(0.0f, 0.0f, -1.0f);

    for (int x = task.x0; x <= task.x1; ++x) {
        for (int y = task.y0; y <= task.y1; ++y) {
            cv::Vec2f& entry = map.at<cv::Vec2f>(y - task.y0, x - task.x0);
            entry = cv::Vec2f(-1.0f, -1.0f);
            const float u = float(double(float(x) / spanX) + in.uOffset);
            const float v = float(double(1.0f - float(y) / spanY) + in.vOffset);
            int triangle = -1;
            float distance = 0.0f, b1 = 0.0f, b2 = 0.0f;
            QVector3D faceNormal;
            if (!in.targetUvRayTracer->intersect(QVector3D(u, v, 1.0f), down, 0.0f, 2.0f, Welk::WRayTracer::AllFaces,
                                                 triangle, distance, b1, b2, faceNormal))
                continue;
            if (!in.triangleMask.isEmpty() && in.triangleMask[triangle] == 0)
                continue;
            const float b0 = 1.0f - b1 - b2;
            const int* corners = in.targetTriangleIndices.constData() + 3 * triangle;
            const QVector3D p = b0 * in.targetVertices[corners[0]] + b1 * in.targetVertices[corners[1]] +
                                b2 * in.targetVertices[corners[2]];
            const QVector3D n = b0 * in.targetNormals[corners[0]] + b1 * in.targetNormals[corners[1]] +
                                b2 * in.targetNormals[corners[2]];

            int bestTriangle = -1;
            float best = std::numeric_limits<float>::max();
            float bestB1 = 0.0f, bestB2 = 0.0f;
            int hitTriangle = -1;
            float hitDistance = 0.0f, hitB1 = 0.0f, hitB2 = 0.0f;
            if (in.sourceRayTracer->intersect(p, n, 0.0f, in.maxDistance, Welk::WRayTracer::BackFaces, hitTriangle,
                                              hitDistance, hitB1, hitB2, faceNormal) &&
                hitDistance < best) {
                best = hitDistance;
                bestTriangle = hitTriangle;
                bestB1 = hitB1;
                bestB2 = hitB2;
            }
            if (in.sourceRayTracer->intersect(p, -n, 0.0f, in.maxDistance, Welk::WRayTracer::FrontFaces,
                                              hitTriangle, hitDistance, hitB1, hitB2, faceNormal) &&
                hitDistance < best) {
                best = hitDistance;
                bestTriangle = hitTriangle;
                bestB1 = hitB1;
                bestB2 = hitB2;
            }
            if (bestTriangle < 0)
                continue;
            const int* texCorners = in.sourceTriangleTexCoordIndices.constData() + 3 * bestTriangle;
            const QVector2D st = (1.0f - bestB1 - bestB2) * in.sourceTexCoords[texCorners[0]] +
                                 bestB1 * in.sourceTexCoords[texCorners[1]] +
                                 bestB2 * in.sourceTexCoords[texCorners[2]];
            entry = cv::Vec2f(st.x() * sourceW, (1.0f - st.y()) * sourceH);
            if (sourceChannels == 3) {
                switch (depth) {
                case CV_8U:
                    mask.at<uchar>(y - task.y0, x - task.x0) = uchar(opaque);
                    break;
                case CV_16U:
                    mask.at<ushort>(y - task.y0, x - task.x0) = ushort(opaque);
                    break;
                default:
                    mask.at<float>(y - task.y0, x - task.x0) = float(opaque);
                    break;
                }
            }
        }
    }

    cv::Mat sampled;
    cv::remap(in.sourcePixels, sampled, map, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    if (sourceChannels == 3) {
        const cv::Mat sources[] = {sampled, mask};
        cv::Mat destination = task.tile;
        const int pairs[] = {0, 0, 1, 1, 2, 2, 3, 3};
        cv::mixChannels(sources, 2, &destination, 1, pairs, 4);
    } else {
        sampled.copyTo(task.tile);
    }
    in.finishedTiles->fetch_add(1);
}

int pixelTypeOf(int cvDepth)
{
    return cvDepth == CV_8U ? 0 : cvDepth == CV_16U ? 1 : 2;
}

} // namespace

QString projectionStoppedMessage()
{
    return QStringLiteral("Texture projection was stopped");
}

Welk::WImg project(const Welk::WImg& sourceImage, const QVector<QVector2D>& sourceTexCoords,
                   const QVector<int>& sourceTriangleTexCoordIndices, const Welk::WRayTracer& sourceRayTracer,
                   const QVector<QVector3D>& targetVertices, const QVector<QVector3D>& targetNormals,
                   const QVector<int>& targetTriangleIndices, const QSize& outputSize,
                   const Welk::WRayTracer& targetUvRayTracer, float maxDistance, int uOffset, int vOffset,
                   const QSize& tileSize, const QVector<quint8>& triangleMask, QString& error,
                   Welk::ProgressInterface* progress)
{
    error.clear();
    const int sourceChannels = sourceImage.channels();
    if (sourceChannels != 1 && sourceChannels != 3 && sourceChannels != 4) {
        error = QStringLiteral("Input texture should be 1-, 3- or 4- channel");
        return Welk::WImg();
    }
    if (outputSize.width() < 1 || outputSize.height() < 1) {
        error = QStringLiteral("The output size must be at least 1 x 1");
        return Welk::WImg();
    }
    if (!triangleMask.isEmpty() && triangleMask.size() != targetTriangleIndices.size() / 3) {
        error = QStringLiteral("The triangle mask does not match the target mesh");
        return Welk::WImg();
    }
    const cv::Mat& source = sourceImage.mat();
    const int outputChannels = sourceChannels == 1 ? 1 : 4;
    cv::Mat working;
    try {
        working = cv::Mat::zeros(source.rows, source.cols, CV_MAKETYPE(source.depth(), outputChannels));
    } catch (const cv::Exception&) {
        working.release();
    }
    if (working.empty()) {
        error = QStringLiteral("Can't project texture. Out of memory");
        return Welk::WImg();
    }

    std::atomic<int> finishedTiles{0};
    std::atomic<bool> stop{false};
    ProjectionInputs inputs;
    inputs.sourcePixels = source;
    inputs.pixelType = pixelTypeOf(source.depth());
    inputs.sourceTexCoords = sourceTexCoords;
    inputs.sourceTriangleTexCoordIndices = sourceTriangleTexCoordIndices;
    inputs.sourceRayTracer = &sourceRayTracer;
    inputs.targetVertices = targetVertices;
    inputs.targetNormals = targetNormals;
    inputs.targetTriangleIndices = targetTriangleIndices;
    inputs.targetUvRayTracer = &targetUvRayTracer;
    inputs.maxDistance = maxDistance;
    inputs.uOffset = uOffset;
    inputs.vOffset = vOffset;
    inputs.triangleMask = triangleMask;
    inputs.finishedTiles = &finishedTiles;
    inputs.stop = &stop;

    const int tileW = std::max(1, tileSize.width());
    const int tileH = std::max(1, tileSize.height());
    const int across = (working.cols + tileW - 1) / tileW;
    const int down = (working.rows + tileH - 1) / tileH;
    QVector<ProjectionTask> tasks;
    tasks.reserve(across * down);
    for (int i = 0; i < across; ++i) {
        for (int j = 0; j < down; ++j) {
            ProjectionTask task;
            task.inputs = &inputs;
            task.x0 = i * tileW;
            task.y0 = j * tileH;
            task.x1 = std::min(task.x0 + tileW, working.cols) - 1;
            task.y1 = std::min(task.y0 + tileH, working.rows) - 1;
            task.tile = working(cv::Rect(task.x0, task.y0, task.x1 - task.x0 + 1, task.y1 - task.y0 + 1));
            task.imageWidth = working.cols;
            task.imageHeight = working.rows;
            tasks.append(task);
        }
    }

    const QString label = QStringLiteral("Texture projection...");
    if (progress) {
        progress->start(label, 100);
        progress->setValue(0);
    }
    QFuture<void> future = QtConcurrent::map(tasks, runTask);
    if (!progress) {
        future.waitForFinished();
    } else {
        // The pool does the work; this thread only reports and listens for
        // a stop.
        long long reported = 0;
        while (!future.isFinished()) {
            QThread::msleep(40);
            if (progress->isCancelled())
                stop = true;
            const long long value = std::llround(100.0 * finishedTiles.load() / std::max(1, tasks.size()));
            if (value != reported) {
                reported = value;
                progress->setValue(value);
            }
        }
        future.waitForFinished();
        if (progress->isCancelled())
            stop = true;
        progress->setValue(100);
        progress->end();
    }
    // Every tile counts itself as its last step, so reading the full count
    // orders all the tiles' writes before what follows. The pool orders them
    // too, but inside Qt, where ThreadSanitizer cannot see.
    const bool everyTile = finishedTiles.load(std::memory_order_acquire) == tasks.size();
    if (stop) {
        error = projectionStoppedMessage();
        return Welk::WImg();
    }
    if (!everyTile) {
        error = QStringLiteral("Can't project texture. Not every tile was projected");
        return Welk::WImg();
    }

    cv::Mat resized;
    const cv::Size size(outputSize.width(), outputSize.height());
    if (size == working.size())
        resized = working;
    else
        cv::resize(working, resized, size, 0, 0,
                   outputChannels == 1 || outputChannels == 4 ? cv::INTER_NEAREST : cv::INTER_LINEAR);
    return Welk::WImg(resized, sourceImage.attributes());
}

} // namespace WelkPlugin
