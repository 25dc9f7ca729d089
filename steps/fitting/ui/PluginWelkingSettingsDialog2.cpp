#include "PluginWelkingSettingsDialog2.h"

#include "WelkingSettingsForm.h"

#include "exchange/InstallationSettings.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace WelkPlugin {

PluginWelkingSettingsDialog2::PluginWelkingSettingsDialog2(const WelkingSettings& settings,
                                                           const QString& settingsDir, bool showLabels,
                                                           QWidget* parent)
    : QDialog(parent), m_base(settings), m_settingsDir(settingsDir)
{
    setWindowTitle(QStringLiteral("Preferences"));
    setObjectName(QStringLiteral("welkingPreferences"));
    auto* layout = new QVBoxLayout(this);
    m_form = new WelkingSettingsForm(WelkingSettingsFile::Dialog::Current, this);
    m_form->setSettings(settings);
    layout->addWidget(m_form);

    m_showLabels = new QCheckBox(QStringLiteral("Show Labels"), this);
    m_showLabels->setToolTip(tr("Number the point markers on both models"));
    m_showLabels->setChecked(showLabels);
    connect(m_showLabels, &QCheckBox::toggled, this, &PluginWelkingSettingsDialog2::showLabelsChanged);
    layout->addWidget(m_showLabels);

    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    m_message->setStyleSheet(QStringLiteral("color: #ffd9a0;"));
    m_message->hide();
    layout->addWidget(m_message);

    auto* files = new QHBoxLayout;
    auto* reset = new QPushButton(QStringLiteral("Reset To Default"), this);
    reset->setToolTip(tr("Put every field back to its default"));
    auto* loadButton = new QPushButton(QStringLiteral("Load"), this);
    loadButton->setToolTip(tr("Read the settings from an .ini file"));
    auto* saveButton = new QPushButton(QStringLiteral("Save"), this);
    saveButton->setToolTip(tr("Write the settings shown to an .ini file"));
    files->addWidget(reset);
    files->addWidget(loadButton);
    files->addWidget(saveButton);
    layout->addLayout(files);
    connect(reset, &QPushButton::clicked, this, &PluginWelkingSettingsDialog2::resetToDefault);
    connect(loadButton, &QPushButton::clicked, this, &PluginWelkingSettingsDialog2::load);
    connect(saveButton, &QPushButton::clicked, this, &PluginWelkingSettingsDialog2::save);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

WelkingSettings PluginWelkingSettingsDialog2::settings() const
{
    return m_form->settings(m_base);
}

bool PluginWelkingSettingsDialog2::showLabels() const
{
    return m_showLabels->isChecked();
}

QString PluginWelkingSettingsDialog2::message() const
{
    return m_message->isVisible() ? m_message->text() : QString();
}

void PluginWelkingSettingsDialog2::resetToDefault()
{
    m_form->setSettings(WelkingSettingsFile::defaults(WelkingSettingsFile::Dialog::Current));
    m_message->hide();
}

bool PluginWelkingSettingsDialog2::loadFrom(const QString& path)
{
    WelkingSettings loaded = m_form->settings(m_base);
    QString error;
    if (!WelkingSettingsFile::load(path, loaded, error)) {
        m_message->setText(error);
        m_message->show();
        return false;
    }
    m_form->setSettings(loaded);
    m_message->hide();
    rememberFolder(path);
    return true;
}

bool PluginWelkingSettingsDialog2::saveTo(const QString& path)
{
    QString error;
    if (!WelkingSettingsFile::save(path, settings(), error)) {
        m_message->setText(error);
        m_message->show();
        return false;
    }
    m_message->hide();
    rememberFolder(path);
    return true;
}

void PluginWelkingSettingsDialog2::load()
{
    const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Open Welking Settings File"),
                                                      startFolder(), QStringLiteral("Files (*.ini);"));
    if (!path.isEmpty())
        loadFrom(path);
}

void PluginWelkingSettingsDialog2::save()
{
    QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Save Welking Settings File"),
                                                startFolder(), QStringLiteral("Files (*.ini);"));
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".ini");
    saveTo(path);
}

QString PluginWelkingSettingsDialog2::startFolder() const
{
    auto s = InstallationSettings::open(m_settingsDir);
    const QString remembered = s->value(QStringLiteral("welkingSettingsPath")).toString();
    return remembered.isEmpty() ? s->value(QStringLiteral("defaultFilesPath")).toString() : remembered;
}

void PluginWelkingSettingsDialog2::rememberFolder(const QString& path)
{
    InstallationSettings::open(m_settingsDir)
        ->setValue(QStringLiteral("welkingSettingsPath"), QFileInfo(path).absolutePath());
}

} // namespace WelkPlugin
