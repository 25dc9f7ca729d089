#include "PluginWelkingController.h"

#include "PluginWelkPresetBar.h"
#include "PluginWelkingSettingsDialog.h"
#include "PluginWelkingSettingsDialog2.h"
#include "PluginWelkingWidget.h"
#include "ZDistanceLegend.h"

#include "exchange/InstallationSettings.h"
#include "exchange/ModelsData.h"
#include "steps/points/SurfaceDistance.h"

#include <QApplication>
#include <QCheckBox>
#include <QEventLoop>
#include <QMessageBox>
#include <QThread>
#include <QtConcurrent>

#include <algorithm>

namespace WelkPlugin {

namespace {

const QString SelectedPresetKey = QStringLiteral("selectedPreset");
const QString ShowLabelsKey = QStringLiteral("showLabels");

} // namespace

PluginWelkingController::PluginWelkingController(std::shared_ptr<ModelsData> models,
                                                 PluginWelkingWidget* widget, const QString& settingsDir,
                                                 QObject* parent)
    : QObject(parent), m_models(std::move(models)), m_widget(widget), m_settingsDir(settingsDir),
      m_settings(WelkingSettingsFile::defaults())
{
    qRegisterMetaType<QVector<QVector3D>>("QVector<QVector3D>");
    auto stored = InstallationSettings::open(m_settingsDir);
    const int preset = stored->value(SelectedPresetKey, PluginWelkPresetBar::Default).toInt();
    m_showLabels = stored->value(ShowLabelsKey, true).toBool();
    stored.reset();
    m_widget->presetBar()->setSelected(preset);
    if (preset == PluginWelkPresetBar::Custom)
        m_settings = customSettings();

    connect(m_widget, &PluginWelkingWidget::computeFastWelkingClicked, this,
            &PluginWelkingController::computeFastWelking);
    connect(m_widget, &PluginWelkingWidget::computeCartoonWelkingClicked, this,
            &PluginWelkingController::computeCartoonWelking);
    connect(m_widget, &PluginWelkingWidget::terminateWelking, this, &PluginWelkingController::terminate);
    connect(m_widget, &PluginWelkingWidget::rigidChecked, this, &PluginWelkingController::onRigidChecked);
    connect(m_widget, &PluginWelkingWidget::scaleChecked, this, &PluginWelkingController::onScaleChecked);
    connect(m_widget, &PluginWelkingWidget::preferencesClicked, this, &PluginWelkingController::onPresetOpen);
    connect(m_widget->presetBar(), &PluginWelkPresetBar::presetSelected, this,
            &PluginWelkingController::onPresetSelected);
    connect(m_widget, &PluginWelkingWidget::showNodesToggled, this, &PluginWelkingController::setShowNodes);
    connect(m_widget, &PluginWelkingWidget::distanceColorsToggled, this,
            &PluginWelkingController::setDistanceColors);
    connect(&m_measure, &QFutureWatcher<QVector<float>>::finished, this, [this] {
        m_distances = m_measure.result();
        Q_EMIT progressChanged(QString(), -1, 0);
        applyDistanceColors();
    });
}

PluginWelkingController::~PluginWelkingController()
{
    // The fit's thread must not outlive the controller.
    if (m_fit) {
        m_fit->stop();
        m_thread->quit();
        m_thread->wait();
    }
    m_measure.waitForFinished();
}

WelkingSettings PluginWelkingController::customSettings() const
{
    auto stored = InstallationSettings::open(m_settingsDir);
    const QString path = stored->fileName();
    stored.reset();
    WelkingSettings custom = WelkingSettingsFile::defaults();
    QString error;
    WelkingSettingsFile::load(path, custom, error);
    return custom;
}

void PluginWelkingController::updatePointsOnTr()
{
    const QVector<Welk::WPointOnTriangle> points[2] = {m_models->allPoints(0), m_models->allPoints(1)};
    if (points[0] != m_points[0] || points[1] != m_points[1]) {
        m_points[0] = points[0];
        m_points[1] = points[1];
        if (!m_welked.isEmpty())
            resetResult();
        recomputeTransform();
    }
    m_countsMatch = m_points[0].size() == m_points[1].size();
    if (!m_countsMatch)
        m_widget->setMessage(
            QStringLiteral("Point Correspondence step should contain equal number of points."));
    else
        m_widget->setMessage(QString());
    m_widget->setComputeEnabled(m_available && m_countsMatch);
}

void PluginWelkingController::setWelkAvailable(bool isAvailable)
{
    m_available = isAvailable;
    m_widget->setComputeEnabled(m_available && m_countsMatch);
}

void PluginWelkingController::onRigidChecked(bool isChecked)
{
    m_rigidChecked = isChecked;
    recomputeTransform();
}

void PluginWelkingController::onScaleChecked(bool isChecked)
{
    m_scaleChecked = isChecked;
    recomputeTransform();
}

void PluginWelkingController::recomputeTransform()
{
    const auto& base = *m_models->geometry(0);
    const auto& target = *m_models->geometry(1);
    m_transform = WelkingFit::pairTransform(WelkingFit::pointPositions(m_points[0], base),
                                            WelkingFit::pointPositions(m_points[1], target), m_rigidChecked,
                                            m_scaleChecked);
    if (m_welked.isEmpty()) {
        Q_EMIT showVertices(placedVertices(base.vertices()));
    } else {
        m_models->setResultVertices(m_transform, m_welked);
        Q_EMIT showVertices(placedVertices(m_welked));
    }
}

QVector<QVector3D> PluginWelkingController::placedVertices(const QVector<QVector3D>& vertices) const
{
    return GeometryStack2::GeomStack::transformedVertices(m_transform, vertices);
}

void PluginWelkingController::resetResult()
{
    m_welked.clear();
    m_distances.clear();
    m_lastResult = FitResult();
    m_models->setResultVertices(QVector<QVector3D>());
    m_widget->setResultAvailable(false);
    Q_EMIT vertexColors({});
}

void PluginWelkingController::computeFastWelking()
{
    compute(FitEngine::Fast);
}

void PluginWelkingController::computeCartoonWelking()
{
    compute(FitEngine::Cartoon);
}

void PluginWelkingController::compute(FitEngine engine)
{
    if (m_fit || !m_available || !m_countsMatch)
        return;
    FitInput input;
    input.base = *m_models->geometry(0);
    input.target = *m_models->geometry(1);
    input.basePoints = m_points[0];
    input.targetPoints = m_points[1];
    input.basePolygonMask = m_models->polygonMaskFlags(0);
    input.excludedVertices = WelkingFit::verticesNearestPoints(input.base, m_models->splinePoints(0));
    FitOptions options;
    options.engine = engine;
    options.settings = m_settings;
    options.rigid = m_rigidChecked;
    options.scale = m_scaleChecked;

    m_widget->setRunning(true);
    m_widget->setDistanceColors(false);
    Q_EMIT vertexColors({});
    Q_EMIT welkingStarted();
    Q_EMIT showVertices(placedVertices(input.base.vertices()));
    Q_EMIT showNodes({});

    // The graph levels are built on the fit's thread, so the window keeps
    // drawing and the progress bar moves from the first moment.
    m_fit = new WelkingFit(std::move(input), options);
    m_thread = new QThread(this);
    m_fit->moveToThread(m_thread);
    connect(m_thread, &QThread::started, m_fit, &WelkingFit::run);
    connect(m_fit, &WelkingFit::updated, this, &PluginWelkingController::updateVerticesAndNodes);
    connect(m_fit, &WelkingFit::progressChanged, this, &PluginWelkingController::progressChanged);
    connect(m_fit, &WelkingFit::finished, m_thread, &QThread::quit);
    connect(m_thread, &QThread::finished, this, &PluginWelkingController::onFitFinished);
    m_thread->start(QThread::InheritPriority);
}

void PluginWelkingController::updateVerticesAndNodes(const QVector<QVector3D>& vertices,
                                                     const QVector<QVector3D>& nodes)
{
    if (!m_fit)
        return;
    Q_EMIT showVertices(placedVertices(vertices));
    if (m_showNodes)
        Q_EMIT showNodes(placedVertices(nodes));
}

void PluginWelkingController::onFitFinished()
{
    // The fit's thread has ended: its result can be read without a lock.
    m_lastResult = m_fit->result();
    delete m_fit;
    m_fit = nullptr;
    m_thread->deleteLater();
    m_thread = nullptr;
    Q_EMIT showNodes({});
    Q_EMIT progressChanged(QString(), -1, 0);

    const FitResult& result = m_lastResult;
    m_widget->setRunning(false);
    if (result.status == FitResult::Failed) {
        Q_EMIT showVertices(
            placedVertices(m_welked.isEmpty() ? m_models->geometry(0)->vertices() : m_welked));
        Q_EMIT welkingFinish();
        QMessageBox::warning(m_widget->window(), QStringLiteral("ZWelk"), result.error);
        return;
    }
    m_welked = result.welked;
    m_transform = result.transform;
    m_distances.clear();
    m_models->setResultVertices(m_transform, m_welked);
    Q_EMIT showVertices(placedVertices(m_welked));
    Q_EMIT requestDataUpdate();
    saveWelkingResult();
    m_widget->setResultAvailable(true);
    Q_EMIT welkingFinish();
    if (m_quietFinish) {
        m_quietFinish = false;
        return;
    }
    QMessageBox::information(m_widget->window(), QStringLiteral("ZWelk"),
                             QStringLiteral("Welking process is finished!"), QMessageBox::Ok);
}

void PluginWelkingController::terminate()
{
    if (m_fit)
        m_fit->stop();
}

void PluginWelkingController::stopAndWait()
{
    if (!m_fit)
        return;
    QEventLoop loop;
    connect(this, &PluginWelkingController::welkingFinish, &loop, &QEventLoop::quit);
    m_quietFinish = true;
    m_fit->stop();
    loop.exec();
}

void PluginWelkingController::saveWelkingResult()
{
    Q_EMIT sendWelkedVertices(m_welked, m_transform);
}

void PluginWelkingController::onPresetOpen(QPoint dialogPos)
{
    PluginWelkingSettingsDialog2 dialog(m_settings, m_settingsDir, m_showLabels, m_widget->window());
    dialog.move(dialogPos + QPoint(2, 2));
    if (dialog.exec() != QDialog::Accepted)
        return;
    m_settings = dialog.settings();
    if (dialog.showLabels() != m_showLabels) {
        m_showLabels = dialog.showLabels();
        InstallationSettings::open(m_settingsDir)->setValue(ShowLabelsKey, m_showLabels);
        Q_EMIT showLabelsChanged(m_showLabels);
    }
    // What the user set becomes the custom preset.
    auto stored = InstallationSettings::open(m_settingsDir);
    stored->setValue(SelectedPresetKey, int(PluginWelkPresetBar::Custom));
    const QString path = stored->fileName();
    stored.reset();
    QString error;
    WelkingSettingsFile::save(path, m_settings, error);
    m_widget->presetBar()->setSelected(PluginWelkPresetBar::Custom);
}

void PluginWelkingController::onPresetDialogOpen()
{
    PluginWelkingSettingsDialog dialog(m_settings, m_widget->presetBar()->selected(), m_settingsDir,
                                       m_widget->window());
    if (dialog.exec() != QDialog::Accepted)
        return;
    m_settings = dialog.settings();
    auto stored = InstallationSettings::open(m_settingsDir);
    stored->setValue(SelectedPresetKey, dialog.preset());
    const QString path = stored->fileName();
    stored.reset();
    if (dialog.preset() == PluginWelkPresetBar::Custom) {
        QString error;
        WelkingSettingsFile::save(path, m_settings, error);
    }
    m_widget->presetBar()->setSelected(dialog.preset());
}

void PluginWelkingController::onPresetSelected(int preset)
{
    m_settings = preset == PluginWelkPresetBar::Custom ? customSettings() : WelkingSettingsFile::defaults();
    InstallationSettings::open(m_settingsDir)->setValue(SelectedPresetKey, preset);
}

void PluginWelkingController::setShowNodes(bool shown)
{
    m_showNodes = shown;
    if (!shown)
        Q_EMIT showNodes({});
}

void PluginWelkingController::applyDistanceColors()
{
    if (m_distances.isEmpty() || !m_widget->distanceBox()->isChecked())
        return;
    // The scale ends at the 95th percentile, so a few far vertices do not wash out the rest.
    QVector<float> sorted = m_distances;
    const int at = std::min<int>(sorted.size() - 1, int(0.95 * sorted.size()));
    std::nth_element(sorted.begin(), sorted.begin() + at, sorted.end());
    const double maximum = std::max(1e-12f, sorted[at]);
    m_widget->setDistanceRange(maximum);
    QVector<QColor> colors(m_distances.size());
    for (int i = 0; i < m_distances.size(); ++i)
        colors[i] = ZDistanceLegend::colorOf(m_distances[i], maximum);
    Q_EMIT vertexColors(colors);
}

void PluginWelkingController::setDistanceColors(bool shown)
{
    if (!shown || m_welked.isEmpty()) {
        Q_EMIT vertexColors({});
        return;
    }
    if (!m_distances.isEmpty()) {
        applyDistanceColors();
        return;
    }
    if (m_measure.isRunning())
        return;
    Q_EMIT progressChanged(tr("Measuring the distance to the scan"), 0, 0);
    const auto& target = *m_models->geometry(1);
    const QVector<QVector3D> placed = placedVertices(m_welked);
    auto surface = m_targetSurface;
    const QVector<QVector3D> targetVertices = target.vertices();
    const QVector<int> targetTriangles = target.triangleVertexIndices();
    m_measure.setFuture(QtConcurrent::run([this, surface, placed, targetVertices, targetTriangles]() mutable {
        if (!surface)
            surface = std::make_shared<SurfaceDistance>(targetVertices, targetTriangles);
        m_targetSurface = surface;
        QVector<float> distances(placed.size());
        for (int i = 0; i < placed.size(); ++i)
            distances[i] = surface->distance(placed[i]);
        return distances;
    }));
}

} // namespace WelkPlugin
