#pragma once

#include "TextureProjectionWorker.h"
#include "WExtrapolateImage.h"

namespace WelkPlugin {

/// Runs `Welk::WExtrapolateImage` on a thread of its own, after a
/// projection: `finished` carries the filled image, or the input unchanged
/// with the error text ("Extrapolation failed." is the caller's title for
/// it). Same life cycle as `TextureProjectionWorker`.
class ImageExtrapolationWorker : public QObject
{
    Q_OBJECT

public:
    explicit ImageExtrapolationWorker(const Welk::WImg& image,
                                      int iterations = Welk::WExtrapolateImage::DefaultIterations,
                                      Welk::ProgressInterface* progress = nullptr);

    /// Moves `worker` to a new thread, delivers `finished` to `onFinished`
    /// in `context`'s thread, cleans both up afterwards and starts.
    static ImageExtrapolationWorker* launch(ImageExtrapolationWorker* worker, QObject* context,
                                            const std::function<void(Welk::WImg, QString)>& onFinished);

    void requestStop() { m_stop = true; }

public Q_SLOTS:
    void start();

Q_SIGNALS:
    void finished(Welk::WImg image, QString errorMsg);

private:
    Welk::WImg m_image;
    int m_iterations;
    Welk::ProgressInterface* m_progress;
    std::atomic<bool> m_stop{false};
};

} // namespace WelkPlugin
