#pragma once

#include "steps/fitting/WelkingSettingsFile.h"

#include <QDialog>

class QCheckBox;

namespace WelkPlugin {

class WelkingSettingsFileRow;
class WelkingSettingsForm;

/// "Preferences" of the fit: every setting of both fits, with Reset To
/// Default, Load and Save of ".ini" files and Show Labels. The values are
/// taken when the dialog is accepted.
class PluginWelkingSettingsDialog2 : public QDialog
{
    Q_OBJECT
public:
    /// `settingsDir` is the installation folder whose settings remember the
    /// last folder used ("welkingSettingsPath").
    PluginWelkingSettingsDialog2(const WelkingSettings& settings, const QString& settingsDir, bool showLabels,
                                 QWidget* parent = nullptr);

    WelkingSettings settings() const;
    bool showLabels() const;
    WelkingSettingsForm* form() const { return m_form; }

    /// What Load and Save do after their file dialogs; false with the reason
    /// shown in the dialog.
    bool loadFrom(const QString& path);
    bool saveTo(const QString& path);
    QString message() const;

public slots:
    void resetToDefault();

signals:
    void showLabelsChanged(bool showLabels);

private:
    WelkingSettings m_base;
    WelkingSettingsForm* m_form;
    QCheckBox* m_showLabels;
    WelkingSettingsFileRow* m_files;
};

} // namespace WelkPlugin
