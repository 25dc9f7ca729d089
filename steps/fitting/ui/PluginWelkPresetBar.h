#pragma once

#include <QWidget>

class QButtonGroup;

namespace WelkPlugin {

/// The fit's presets: "Default" (the settings of a fresh installation) and
/// "Custom" (the user's own). The choice is remembered as "selectedPreset".
class PluginWelkPresetBar : public QWidget
{
    Q_OBJECT
public:
    enum Preset
    {
        Default = 0,
        Custom = 1,
    };

    explicit PluginWelkPresetBar(QWidget* parent = nullptr);
    int selected() const;

public slots:
    /// Shows `preset` as chosen without announcing it.
    void setSelected(int preset);

signals:
    void buttonClicked(int preset);
    void presetSelected(int preset);

private:
    QButtonGroup* m_group;
};

} // namespace WelkPlugin
