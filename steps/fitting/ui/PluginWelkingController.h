#pragma once

#include "steps/fitting/FitOptions.h"
#include "steps/fitting/WelkingFit.h"

#include <QColor>
#include <QFutureWatcher>
#include <QMatrix4x4>
#include <QObject>
#include <QPointer>

#include <memory>

class QThread;

namespace WelkPlugin {

class ModelsData;
class PluginWelkingWidget;
class SurfaceDistance;

/// The logic of the fit step: keeps the point pairs and the alignment,
/// answers the panel's buttons, runs one fit at a time on its own thread
/// through `WelkingFit` (the composition the batch tool uses too), shows
/// the intermediate shapes and hands the result to the models.
class PluginWelkingController : public QObject
{
    Q_OBJECT
public:
    /// `settingsDir` names the installation whose settings keep the custom
    /// preset and the chosen one.
    PluginWelkingController(std::shared_ptr<ModelsData> models, PluginWelkingWidget* widget,
                            const QString& settingsDir, QObject* parent = nullptr);
    ~PluginWelkingController() override;

    const WelkingSettings& settings() const { return m_settings; }
    void setSettings(const WelkingSettings& settings) { m_settings = settings; }
    const QMatrix4x4& transform() const { return m_transform; }
    bool isRunning() const { return m_fit != nullptr; }
    /// The fitted vertices in the basemesh's own frame (empty before a fit).
    const QVector<QVector3D>& welkedVertices() const { return m_welked; }
    /// The last fit's result, with its report.
    const FitResult& lastResult() const { return m_lastResult; }
    /// Per-vertex distances of the result to the scan, once measured.
    const QVector<float>& distances() const { return m_distances; }
    bool showLabels() const { return m_showLabels; }

    /// Ends a running fit at its next boundary and waits for its shape,
    /// handling events meanwhile. Returns at once when nothing runs.
    void stopAndWait();

public slots:
    void computeFastWelking();
    void computeCartoonWelking();
    /// Takes the models' current points; run on entering the step.
    void updatePointsOnTr();
    void setWelkAvailable(bool isAvailable);
    void onRigidChecked(bool isChecked);
    void onScaleChecked(bool isChecked);
    void saveWelkingResult();
    void updateVerticesAndNodes(const QVector<QVector3D>& vertices, const QVector<QVector3D>& nodes);
    void onPresetOpen(QPoint dialogPos);
    /// The shorter dialog with the presets bar.
    void onPresetDialogOpen();
    void onPresetSelected(int preset);
    void terminate();
    void setShowNodes(bool shown);
    void setDistanceColors(bool shown);

signals:
    void sendWelkedVertices(QVector<QVector3D> vertices, QMatrix4x4 transform);
    void requestDataUpdate();
    void welkingStarted();
    void welkingFinish();
    /// The basemesh as it should be drawn now (the alignment applied).
    void showVertices(QVector<QVector3D> vertices);
    /// Graph nodes to mark on the basemesh; empty for none.
    void showNodes(QVector<QVector3D> nodes);
    void progressChanged(QString text, int value, int maximum);
    /// Colours per basemesh vertex; empty for the plain look.
    void vertexColors(QVector<QColor> colors);
    void showLabelsChanged(bool showLabels);

private:
    void compute(FitEngine engine);
    void onFitFinished();
    void recomputeTransform();
    /// Colours the result by `m_distances` while the distance view is on.
    void applyDistanceColors();
    void resetResult();
    QVector<QVector3D> placedVertices(const QVector<QVector3D>& vertices) const;
    WelkingSettings customSettings() const;

    std::shared_ptr<ModelsData> m_models;
    PluginWelkingWidget* m_widget;
    QString m_settingsDir;
    WelkingSettings m_settings;
    QVector<Welk::WPointOnTriangle> m_points[2];
    QMatrix4x4 m_transform;
    bool m_rigidChecked = false;
    bool m_scaleChecked = false;
    bool m_available = true;
    bool m_countsMatch = true;
    bool m_showNodes = false;
    bool m_showLabels = true;
    bool m_quietFinish = false; ///< no finish box when stopped for Done
    QVector<QVector3D> m_welked;
    FitResult m_lastResult;
    WelkingFit* m_fit = nullptr;
    QThread* m_thread = nullptr;
    QVector<float> m_distances;
    std::shared_ptr<SurfaceDistance> m_targetSurface;
    QFutureWatcher<QVector<float>> m_measure;
};

} // namespace WelkPlugin
