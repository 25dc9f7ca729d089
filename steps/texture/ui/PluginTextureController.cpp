#include "PluginTextureController.h"

#include "PluginTextureWidget.h"

#include "exchange/InstallationSettings.h"
#include "exchange/ModelsData.h"
#include "steps/texture/ImageExtrapolationWorker.h"
#include "steps/texture/TextureProjectionWorker.h"
#include "steps/texture/TextureTexels.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QMessageBox>
#include <QMutex>
#include <QPointer>
#include <QThread>

#include <atomic>
#include <cmath>

namespace WelkPlugin {

/// Carries progress from the workers' threads to the controller's: only
/// changes of the whole percentage cross over.
class PluginTextureController::Progress : public Welk::ProgressInterface
{
public:
    explicit Progress(PluginTextureController* controller) : m_controller(controller) {}

    void start(const QString& label, long long maximum) override
    {
        {
            QMutexLocker lock(&m_mutex);
            m_label = label;
            m_maximum = std::max(1LL, maximum);
        }
        m_last = -1;
        setValue(0, QString());
    }
    void setValue(long long value, const QString& label) override
    {
        QString text;
        long long maximum;
        {
            QMutexLocker lock(&m_mutex);
            if (!label.isEmpty())
                m_label = label;
            text = m_label;
            maximum = m_maximum;
        }
        const int percent = int(std::llround(100.0 * double(value) / double(maximum)));
        if (m_last.exchange(percent) == percent)
            return;
        PluginTextureController* controller = m_controller;
        QMetaObject::invokeMethod(
            controller, [controller, text, percent] { Q_EMIT controller->progressChanged(text, percent, 100); },
            Qt::QueuedConnection);
    }
    void end() override {}
    bool isCancelled() const override { return m_stop; }

    std::atomic<bool> m_stop{false};

private:
    PluginTextureController* m_controller;
    QMutex m_mutex;
    QString m_label;
    long long m_maximum = 100;
    std::atomic<int> m_last{-1};
};

PluginTextureController::PluginTextureController(std::shared_ptr<ModelsData> models, PluginTextureWidget* widget,
                                                 const QString& settingsDir, QObject* parent)
    : QObject(parent), m_models(std::move(models)), m_widget(widget), m_settingsDir(settingsDir),
      m_progress(std::make_unique<Progress>(this))
{
    qRegisterMetaType<Welk::WImg>();
    m_widget->setSettings(TextureTransferSettings::readAtStartup(*InstallationSettings::open(m_settingsDir)));

    // In the texture mode the first subtool receives, the second gives.
    QString error;
    if (!m_models->geometry(0) || !m_models->geometry(1)) {
        m_unavailable = tr("Two models are needed for a transfer.");
    } else if (!m_transfer.setModels(*m_models->geometry(1), *m_models->geometry(0), error)) {
        m_unavailable = error;
    } else {
        m_triangleMask = m_transfer.triangleMask(m_models->polygonMaskFlags(0));
        m_transfer.setTexCoordsFromTop(m_models->texCoordsFromTop(), m_models->texCoordsFromTop());
        const Welk::WImg texture = m_models->texture(1);
        if (texture.isNull())
            m_unavailable = tr("The source model (right) has no texture. Export it from ZBrush with its "
                               "texture to transfer it.");
        else if (texture.channels() != 1 && texture.channels() != 3 && texture.channels() != 4)
            m_unavailable = tr("The source texture has %1 channels; grey, RGB or RGBA textures can be "
                               "transferred.")
                                .arg(texture.channels());
        else
            m_source = m_transfer.projectionSource(texture);
    }
    m_widget->setTransferAvailable(m_unavailable.isEmpty());
    m_widget->setMessage(m_unavailable, true);

    connect(m_widget, &PluginTextureWidget::transferClicked, this, &PluginTextureController::transfer);
    connect(m_widget, &PluginTextureWidget::stopClicked, this, &PluginTextureController::stop);
    connect(m_widget, &PluginTextureWidget::fillToggled, this, &PluginTextureController::setFillEnabled);
    connect(this, &PluginTextureController::runningChanged, m_widget, &PluginTextureWidget::setRunning);
}

PluginTextureController::~PluginTextureController()
{
    stopAndWait();
    storeSettings();
}

Welk::WImg PluginTextureController::result() const
{
    if (m_widget->fillBox()->isChecked() && !m_filled.isNull())
        return m_filled;
    return m_projected;
}

void PluginTextureController::transfer()
{
    if (isRunning() || !m_unavailable.isEmpty())
        return;
    const TextureTransferSettings settings = m_widget->settings();
    storeSettings();
    if (!m_transfer.hasTrianglesInTile(settings.uOffset, settings.vOffset)) {
        QStringList tiles;
        for (const QPoint& t : m_transfer.occupiedTiles())
            tiles.append(QStringLiteral("%1, %2").arg(t.x()).arg(t.y()));
        m_widget->setMessage(tr("The left model has no triangles in UV tile %1, %2; its UVs lie in %3.")
                                 .arg(settings.uOffset)
                                 .arg(settings.vOffset)
                                 .arg(tiles.join(QStringLiteral("; "))),
                             true);
        return;
    }
    m_widget->setMessage(QString());
    m_stopRequested = false;
    m_progress->m_stop = false;
    Q_EMIT transferStarted();
    Q_EMIT progressChanged(QStringLiteral("Texture projection..."), 0, 100);

    const TextureTransferModels& t = m_transfer;
    auto* worker = new TextureProjectionWorker(
        &m_source, t.source().texCoords(), t.source().triangleTexCoordIndices(), &t.sourceRayTracer(),
        t.target().vertices(), t.target().normals(), t.target().triangleVertexIndices(),
        QSize(settings.width, settings.height), &t.targetUvRayTracer(), settings.maxDistance(), settings.uOffset,
        t.projectionVOffset(settings.vOffset), m_triangleMask, m_progress.get());
    m_projection = TextureProjectionWorker::launch(worker, this, [this](Welk::WImg image, QString error) {
        m_projection = nullptr;
        onProjected(std::move(image), error);
    });
    Q_EMIT runningChanged(true);
}

void PluginTextureController::onProjected(Welk::WImg image, const QString& error)
{
    if (m_stopRequested || error == projectionStoppedMessage()) {
        m_widget->setMessage(tr("Transfer stopped; the previous result stays."));
        finishJob();
        return;
    }
    if (image.isNull()) {
        QMessageBox box(QMessageBox::Critical, QStringLiteral("ZWelk"), QStringLiteral("Projection failed."),
                        QMessageBox::Ok, m_widget->window());
        box.setInformativeText(error);
        box.exec();
    }
    m_projected = m_transfer.resultOfProjection(image);
    m_filled = Welk::WImg();
    if (m_widget->fillBox()->isChecked() && canFillEmptyTexels(m_projected)) {
        startFill();
        return;
    }
    finishJob();
    Q_EMIT resultChanged(result());
}

void PluginTextureController::startFill()
{
    m_progress->m_stop = false;
    Q_EMIT progressChanged(QStringLiteral("Extrapolation..."), 0, 100);
    auto* worker = new ImageExtrapolationWorker(m_projected, Welk::WExtrapolateImage::DefaultIterations,
                                                m_progress.get());
    m_fill = ImageExtrapolationWorker::launch(worker, this, [this](Welk::WImg image, QString error) {
        m_fill = nullptr;
        onFilled(std::move(image), error);
    });
    Q_EMIT runningChanged(true);
}

void PluginTextureController::onFilled(Welk::WImg image, const QString& error)
{
    if (m_stopRequested) {
        // The projection stands; the fill can be had again by the box.
        m_widget->fillBox()->setChecked(false);
        m_widget->setMessage(tr("Fill stopped; the result keeps its empty texels."));
    } else if (!error.isEmpty()) {
        QMessageBox box(QMessageBox::Critical, QStringLiteral("ZWelk"), QStringLiteral("Extrapolation failed."),
                        QMessageBox::Ok, m_widget->window());
        box.setInformativeText(error);
        box.exec();
    } else {
        m_filled = image;
    }
    finishJob();
    Q_EMIT resultChanged(result());
}

void PluginTextureController::setFillEnabled(bool fill)
{
    if (isRunning())
        return;
    storeSettings();
    if (fill && m_filled.isNull() && canFillEmptyTexels(m_projected)) {
        m_stopRequested = false;
        startFill();
        return;
    }
    describeResult();
    Q_EMIT resultChanged(result());
}

void PluginTextureController::stop()
{
    if (!isRunning())
        return;
    m_stopRequested = true;
    m_progress->m_stop = true;
    if (m_projection)
        m_projection->requestStop();
    if (m_fill)
        m_fill->requestStop();
}

void PluginTextureController::stopAndWait()
{
    stop();
    while (isRunning())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

void PluginTextureController::finishJob()
{
    Q_EMIT progressChanged(QString(), -1, 100);
    Q_EMIT runningChanged(false);
    describeResult();
}

void PluginTextureController::storeSettings()
{
    m_widget->settings().write(*InstallationSettings::open(m_settingsDir));
}

void PluginTextureController::describeResult()
{
    const Welk::WImg image = result();
    if (image.isNull()) {
        m_widget->setResultText(QString());
        return;
    }
    const QString depth = image.pixelType() == Welk::WImg::UInt8    ? tr("8-bit")
                          : image.pixelType() == Welk::WImg::UInt16 ? tr("16-bit")
                                                                    : tr("float");
    const QString channels = image.channels() == 1 ? tr("grey") : image.channels() == 3 ? tr("RGB") : tr("RGBA");
    const long long total = static_cast<long long>(m_projected.width()) * m_projected.height();
    const long long reached = reachedTexelCount(m_projected);
    QString text = tr("Result: %1 x %2, %3 %4. Rays reached %5% of the texels")
                       .arg(image.width())
                       .arg(image.height())
                       .arg(channels, depth)
                       .arg(total ? 100.0 * double(reached) / double(total) : 0.0, 0, 'f', 1);
    if (!m_filled.isNull() && image.mat().data == m_filled.mat().data)
        text += tr("; the others are filled.");
    else
        text += QLatin1Char('.');
    m_widget->setResultText(text);
    if (reached == 0)
        m_widget->setMessage(tr("No ray reached the source model. Is Limit Distance too short, or the UV tile "
                                "empty?"),
                             true);
}

} // namespace WelkPlugin
