#pragma once

#include <QWidget>

class QHBoxLayout;
class QLabel;
class QPushButton;

namespace WelkPlugin {

/// The settings dialogs' file controls: Load and Save with their file
/// dialogs (starting in the folder used last, kept per installation as
/// "welkingSettingsPath", else "defaultFilesPath"), and a line for what
/// went wrong.
class WelkingSettingsFileRow : public QWidget
{
    Q_OBJECT
public:
    /// `settingsDir` names the installation whose settings keep the folder.
    WelkingSettingsFileRow(const QString& settingsDir, QWidget* parent = nullptr);

    /// Puts `button` before Load and Save.
    void insertButton(QPushButton* button);
    /// Shows `text` above the buttons; empty hides it.
    void setMessage(const QString& text);
    QString message() const;

signals:
    /// A file was chosen in the Load or Save dialog (".ini" added when the
    /// name has no extension).
    void loadChosen(const QString& path);
    void saveChosen(const QString& path);

private:
    QString startFolder() const;
    void rememberFolder(const QString& path) const;

    QString m_settingsDir;
    QLabel* m_message;
    QHBoxLayout* m_buttons;
};

} // namespace WelkPlugin
