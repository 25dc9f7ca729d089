#pragma once

#include "TextureProjection.h"

#include <QMetaType>
#include <QObject>

#include <atomic>
#include <functional>

Q_DECLARE_METATYPE(Welk::WImg)

namespace WelkPlugin {

/// Runs `project` on a thread of its own. Move it to a `QThread`, connect
/// `QThread::started` to `start`, and `finished` to the receiver; the worker
/// and the thread clean themselves up after `finished` (see `launch`).
///
/// The lists are implicitly shared copies; the image and the two tracers are
/// not owned and must outlive the run. `progress`, when given, is called from
/// the worker's thread and the pool's. `requestStop` may be called from any
/// thread: the run then ends with a null image and
/// `projectionStoppedMessage()`.
class TextureProjectionWorker : public QObject
{
    Q_OBJECT

public:
    TextureProjectionWorker(const Welk::WImg* sourceImage, const QVector<QVector2D>& sourceTexCoords,
                            const QVector<int>& sourceTriangleTexCoordIndices,
                            const Welk::WRayTracer* sourceRayTracer, const QVector<QVector3D>& targetVertices,
                            const QVector<QVector3D>& targetNormals, const QVector<int>& targetTriangleIndices,
                            const QSize& outputSize, const Welk::WRayTracer* targetUvRayTracer, float maxDistance,
                            int uOffset, int vOffset, const QVector<quint8>& triangleMask,
                            Welk::ProgressInterface* progress = nullptr);

    /// Makes a thread, moves `worker` to it, delivers `finished` to
    /// `onFinished` in `context`'s thread, wires worker and thread to delete
    /// themselves afterwards, and starts the thread with
    /// `QThread::InheritPriority`. Returns the worker, for `requestStop`;
    /// it is valid until `onFinished` has run.
    static TextureProjectionWorker* launch(TextureProjectionWorker* worker, QObject* context,
                                           const std::function<void(Welk::WImg, QString)>& onFinished);

    void requestStop() { m_stop = true; }

public Q_SLOTS:
    void start();

Q_SIGNALS:
    void finished(Welk::WImg image, QString errorMsg);

private:
    const Welk::WImg* m_sourceImage;
    QVector<QVector2D> m_sourceTexCoords;
    QVector<int> m_sourceTriangleTexCoordIndices;
    const Welk::WRayTracer* m_sourceRayTracer;
    QVector<QVector3D> m_targetVertices;
    QVector<QVector3D> m_targetNormals;
    QVector<int> m_targetTriangleIndices;
    QSize m_outputSize;
    const Welk::WRayTracer* m_targetUvRayTracer;
    float m_maxDistance;
    int m_uOffset;
    int m_vOffset;
    QVector<quint8> m_triangleMask;
    QSize m_tileSize{128, 128};
    Welk::ProgressInterface* m_progress;
    std::atomic<bool> m_stop{false};
};

} // namespace WelkPlugin
