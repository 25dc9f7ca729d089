#pragma once

#include "steps/texture/TextureTransferModels.h"
#include "steps/texture/TextureTransferSettings.h"

#include "document/WImg.h"

#include <QObject>

#include <memory>

namespace WelkPlugin {

class ImageExtrapolationWorker;
class ModelsData;
class PluginTextureWidget;
class TextureProjectionWorker;

/// The logic of the texture step. Builds the two ray tracers once, from the
/// models of the run, then answers Transfer: a projection on a thread of
/// its own, followed, when "Fill Empty Texels" is on, by a fill on another.
/// Keeps the projected image and its filled form, so the fill can be
/// switched after a run; `result` is what the view shows and Done sends.
class PluginTextureController : public QObject
{
    Q_OBJECT
public:
    /// `settingsDir` names the installation whose settings file keeps the
    /// step's values.
    PluginTextureController(std::shared_ptr<ModelsData> models, PluginTextureWidget* widget,
                            const QString& settingsDir, QObject* parent = nullptr);
    /// Stops a running job and waits for it: the workers read the tracers
    /// and the source image that this object owns.
    ~PluginTextureController() override;

    bool isRunning() const { return m_projection || m_fill; }
    /// The image that is shown and sent: the filled one where the fill is on
    /// and has run, otherwise the projection. Null before a transfer.
    Welk::WImg result() const;
    bool hasResult() const { return !result().isNull(); }
    /// Why no transfer can run (empty when it can).
    QString unavailableReason() const { return m_unavailable; }
    const TextureTransferModels& transferModels() const { return m_transfer; }

    /// Ends a running job and waits for it, handling events meanwhile.
    void stopAndWait();

public slots:
    void transfer();
    void stop();

signals:
    void transferStarted();
    void resultChanged(const Welk::WImg& image);
    void runningChanged(bool running);
    /// Progress of the running job; a negative value ends it.
    void progressChanged(const QString& text, int value, int maximum);

private:
    class Progress;

    void onProjected(Welk::WImg image, const QString& error);
    void startFill();
    void onFilled(Welk::WImg image, const QString& error);
    void setFillEnabled(bool fill);
    void finishJob();
    void storeSettings();
    void describeResult();

    std::shared_ptr<ModelsData> m_models;
    PluginTextureWidget* m_widget;
    QString m_settingsDir;
    TextureTransferModels m_transfer;
    QVector<quint8> m_triangleMask;
    /// The source texture as the projection reads it.
    Welk::WImg m_source;
    QString m_unavailable;

    Welk::WImg m_projected;
    Welk::WImg m_filled;
    TextureProjectionWorker* m_projection = nullptr;
    ImageExtrapolationWorker* m_fill = nullptr;
    std::unique_ptr<Progress> m_progress;
    bool m_stopRequested = false;
};

} // namespace WelkPlugin
