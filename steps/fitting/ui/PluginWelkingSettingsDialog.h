#pragma once

#include "steps/fitting/WelkingSettingsFile.h"

#include <QDialog>

namespace WelkPlugin {

class PluginWelkPresetBar;
class WelkingSettingsFileRow;
class WelkingSettingsForm;

/// The shorter settings dialog with the presets bar: the keys of the older
/// settings files (sentence-case labels, no "Normalize Sampling" and no
/// "Rigity"), "Default" filling in its own defaults and any edit switching
/// to "Custom". Files it loads take its defaults for missing keys.
class PluginWelkingSettingsDialog : public QDialog
{
    Q_OBJECT
public:
    /// `settingsDir` names the installation whose settings keep the last folder.
    PluginWelkingSettingsDialog(const WelkingSettings& settings, int preset, const QString& settingsDir,
                                QWidget* parent = nullptr);

    /// The values shown, over the settings given (keys the dialog lacks keep theirs).
    WelkingSettings settings() const;
    int preset() const;
    WelkingSettingsForm* form() const { return m_form; }
    PluginWelkPresetBar* presetBar() const { return m_presets; }

    bool loadFrom(const QString& path);
    bool saveTo(const QString& path);
    QString message() const;

public slots:
    /// 0 "Default": the dialog's defaults; 1 "Custom": the user's values.
    void onPresetChange(int index);

signals:
    /// A field was edited: the values are the user's own now.
    void customPresetSet();

private:
    WelkingSettings m_base;
    WelkingSettings m_custom;
    WelkingSettingsForm* m_form;
    PluginWelkPresetBar* m_presets;
    WelkingSettingsFileRow* m_files;
};

} // namespace WelkPlugin
