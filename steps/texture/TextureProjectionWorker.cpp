#include "TextureProjectionWorker.h"

#include "StoppableProgress.h"

#include <QThread>

namespace WelkPlugin {

TextureProjectionWorker::TextureProjectionWorker(
    const Welk::WImg* sourceImage, const QVector<QVector2D>& sourceTexCoords,
    const QVector<int>& sourceTriangleTexCoordIndices, const Welk::WRayTracer* sourceRayTracer,
    const QVector<QVector3D>& targetVertices, const QVector<QVector3D>& targetNormals,
    const QVector<int>& targetTriangleIndices, const QSize& outputSize, const Welk::WRayTracer* targetUvRayTracer,
    float maxDistance, int uOffset, int vOffset, const QVector<quint8>& triangleMask,
    Welk::ProgressInterface* progress)
    : m_sourceImage(sourceImage)
    , m_sourceTexCoords(sourceTexCoords)
    , m_sourceTriangleTexCoordIndices(sourceTriangleTexCoordIndices)
    , m_sourceRayTracer(sourceRayTracer)
    , m_targetVertices(targetVertices)
    , m_targetNormals(targetNormals)
    , m_targetTriangleIndices(targetTriangleIndices)
    , m_outputSize(outputSize)
    , m_targetUvRayTracer(targetUvRayTracer)
    , m_maxDistance(maxDistance)
    , m_uOffset(uOffset)
    , m_vOffset(vOffset)
    , m_triangleMask(triangleMask)
    , m_progress(progress)
{
    qRegisterMetaType<Welk::WImg>();
}

void TextureProjectionWorker::start()
{
    QString error;
    StoppableProgress progress(m_progress, m_stop);
    const Welk::WImg image =
        project(*m_sourceImage, m_sourceTexCoords, m_sourceTriangleTexCoordIndices, *m_sourceRayTracer,
                m_targetVertices, m_targetNormals, m_targetTriangleIndices, m_outputSize, *m_targetUvRayTracer,
                m_maxDistance, m_uOffset, m_vOffset, m_tileSize, m_triangleMask, error, &progress);
    Q_EMIT finished(image, error);
}

TextureProjectionWorker* TextureProjectionWorker::launch(TextureProjectionWorker* worker, QObject* context,
                                                         const std::function<void(Welk::WImg, QString)>& onFinished)
{
    auto* thread = new QThread;
    worker->moveToThread(thread);
    QObject::connect(worker, &TextureProjectionWorker::finished, context, onFinished, Qt::QueuedConnection);
    QObject::connect(thread, &QThread::started, worker, &TextureProjectionWorker::start);
    QObject::connect(worker, &TextureProjectionWorker::finished, worker, &QObject::deleteLater);
    QObject::connect(worker, &TextureProjectionWorker::finished, thread, &QThread::quit);
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start(QThread::InheritPriority);
    return worker;
}

} // namespace WelkPlugin
