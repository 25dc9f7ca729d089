#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;

namespace WelkPlugin {

class PluginWelkPresetBar;
class ZDistanceLegend;

/// The fit step's panel: the two fit buttons, the alignment boxes, the
/// presets and Preferences, the node display and the distance colours with
/// their legend. It shows state; `PluginWelkingController` decides.
class PluginWelkingWidget : public QWidget
{
    Q_OBJECT
public:
    explicit PluginWelkingWidget(QWidget* parent = nullptr);

    /// The step's hint for the bottom bar.
    static QString hint();

    /// Shows `text` over the buttons (the point-count message); empty hides it.
    void setMessage(const QString& text);
    QString message() const;
    /// Both fit buttons on or off (they also stay off while running).
    void setComputeEnabled(bool enabled);
    bool isComputeEnabled() const { return m_computeEnabled; }
    /// Running: the fit buttons are off and Stop is on.
    void setRunning(bool running);
    bool isRunning() const { return m_running; }
    /// After a fit the distance colours can be shown.
    void setResultAvailable(bool available);
    /// The legend's range, in scan units.
    void setDistanceRange(double maximum);
    /// Unchecks the distance colours (a new fit makes them stale).
    void setDistanceColors(bool shown);

    PluginWelkPresetBar* presetBar() const { return m_presets; }
    QPushButton* fastButton() const { return m_fast; }
    QPushButton* cartoonButton() const { return m_cartoon; }
    QCheckBox* rigidBox() const { return m_rigid; }
    QCheckBox* scaleBox() const { return m_scale; }
    QCheckBox* nodesBox() const { return m_nodes; }
    QCheckBox* distanceBox() const { return m_distance; }

signals:
    void computeFastWelkingClicked();
    void computeCartoonWelkingClicked();
    void terminateWelking();
    void rigidChecked(bool checked);
    void scaleChecked(bool checked);
    void preferencesClicked(QPoint globalPosition);
    void showNodesToggled(bool shown);
    void distanceColorsToggled(bool shown);

private:
    void updateButtons();

    QLabel* m_message;
    QPushButton* m_fast;
    QPushButton* m_cartoon;
    QPushButton* m_stop;
    QCheckBox* m_rigid;
    QCheckBox* m_scale;
    PluginWelkPresetBar* m_presets;
    QPushButton* m_preferences;
    QCheckBox* m_nodes;
    QCheckBox* m_distance;
    ZDistanceLegend* m_legend;
    bool m_computeEnabled = true;
    bool m_running = false;
};

} // namespace WelkPlugin
