#include "ImageExtrapolationWorker.h"

#include "StoppableProgress.h"

#include <QThread>

namespace WelkPlugin {

ImageExtrapolationWorker::ImageExtrapolationWorker(const Welk::WImg& image, int iterations,
                                                   Welk::ProgressInterface* progress)
    : m_image(image), m_iterations(iterations), m_progress(progress)
{
    qRegisterMetaType<Welk::WImg>();
}

void ImageExtrapolationWorker::start()
{
    StoppableProgress progress(m_progress, m_stop);
    Welk::WExtrapolateImage extrapolation;
    cv::Mat pixels = m_image.mat().clone();
    if (extrapolation.extrapolate(pixels, int(m_image.pixelType()), m_iterations, &progress))
        Q_EMIT finished(Welk::WImg(pixels, m_image.attributes()), QString());
    else
        Q_EMIT finished(m_image, extrapolation.error());
}

ImageExtrapolationWorker* ImageExtrapolationWorker::launch(ImageExtrapolationWorker* worker, QObject* context,
                                                           const std::function<void(Welk::WImg, QString)>& onFinished)
{
    auto* thread = new QThread;
    worker->moveToThread(thread);
    QObject::connect(worker, &ImageExtrapolationWorker::finished, context, onFinished, Qt::QueuedConnection);
    QObject::connect(thread, &QThread::started, worker, &ImageExtrapolationWorker::start);
    QObject::connect(worker, &ImageExtrapolationWorker::finished, worker, &QObject::deleteLater);
    QObject::connect(worker, &ImageExtrapolationWorker::finished, thread, &QThread::quit);
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start(QThread::InheritPriority);
    return worker;
}

} // namespace WelkPlugin
