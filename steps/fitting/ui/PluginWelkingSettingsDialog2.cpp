#include "PluginWelkingSettingsDialog2.h"

#include "WelkingSettingsFileRow.h"
#include "WelkingSettingsForm.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace WelkPlugin {

PluginWelkingSettingsDialog2::PluginWelkingSettingsDialog2(const WelkingSettings& settings,
                                                           const QString& settingsDir, bool showLabels,
                                                           QWidget* parent)
    : QDialog(parent), m_base(settings)
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

    m_files = new WelkingSettingsFileRow(settingsDir, this);
    auto* reset = new QPushButton(QStringLiteral("Reset To Default"), this);
    reset->setToolTip(tr("Put every field back to its default"));
    m_files->insertButton(reset);
    layout->addWidget(m_files);
    connect(reset, &QPushButton::clicked, this, &PluginWelkingSettingsDialog2::resetToDefault);
    connect(m_files, &WelkingSettingsFileRow::loadChosen, this, &PluginWelkingSettingsDialog2::loadFrom);
    connect(m_files, &WelkingSettingsFileRow::saveChosen, this, &PluginWelkingSettingsDialog2::saveTo);

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
    return m_files->message();
}

void PluginWelkingSettingsDialog2::resetToDefault()
{
    m_form->setSettings(WelkingSettingsFile::defaults(WelkingSettingsFile::Dialog::Current));
    m_files->setMessage(QString());
}

bool PluginWelkingSettingsDialog2::loadFrom(const QString& path)
{
    WelkingSettings loaded = m_form->settings(m_base);
    QString error;
    if (!WelkingSettingsFile::load(path, loaded, error)) {
        m_files->setMessage(error);
        return false;
    }
    m_form->setSettings(loaded);
    m_files->setMessage(QString());
    return true;
}

bool PluginWelkingSettingsDialog2::saveTo(const QString& path)
{
    QString error;
    if (!WelkingSettingsFile::save(path, settings(), error)) {
        m_files->setMessage(error);
        return false;
    }
    m_files->setMessage(QString());
    return true;
}

} // namespace WelkPlugin
