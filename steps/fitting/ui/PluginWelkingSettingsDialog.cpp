#include "PluginWelkingSettingsDialog.h"

#include "PluginWelkPresetBar.h"
#include "WelkingSettingsFileRow.h"
#include "WelkingSettingsForm.h"

#include <QDialogButtonBox>
#include <QVBoxLayout>

namespace WelkPlugin {

PluginWelkingSettingsDialog::PluginWelkingSettingsDialog(const WelkingSettings& settings, int preset,
                                                         const QString& settingsDir, QWidget* parent)
    : QDialog(parent), m_base(settings), m_custom(settings)
{
    setWindowTitle(QStringLiteral("Preset Settings"));
    auto* layout = new QVBoxLayout(this);
    m_presets = new PluginWelkPresetBar(this);
    layout->addWidget(m_presets);
    m_form = new WelkingSettingsForm(WelkingSettingsFile::Dialog::Preset, this);
    layout->addWidget(m_form);
    m_files = new WelkingSettingsFileRow(settingsDir, this);
    layout->addWidget(m_files);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    connect(m_presets, &PluginWelkPresetBar::presetSelected, this,
            &PluginWelkingSettingsDialog::onPresetChange);
    connect(m_form, &WelkingSettingsForm::edited, this, [this] {
        m_custom = m_form->settings(m_base);
        m_presets->setSelected(PluginWelkPresetBar::Custom);
        Q_EMIT customPresetSet();
    });
    connect(m_files, &WelkingSettingsFileRow::loadChosen, this, &PluginWelkingSettingsDialog::loadFrom);
    connect(m_files, &WelkingSettingsFileRow::saveChosen, this, &PluginWelkingSettingsDialog::saveTo);

    m_presets->setSelected(preset);
    onPresetChange(preset);
}

WelkingSettings PluginWelkingSettingsDialog::settings() const
{
    return m_form->settings(m_base);
}

int PluginWelkingSettingsDialog::preset() const
{
    return m_presets->selected();
}

QString PluginWelkingSettingsDialog::message() const
{
    return m_files->message();
}

void PluginWelkingSettingsDialog::onPresetChange(int index)
{
    m_form->setSettings(index == PluginWelkPresetBar::Default
                            ? WelkingSettingsFile::defaults(WelkingSettingsFile::Dialog::Preset)
                            : m_custom);
}

bool PluginWelkingSettingsDialog::loadFrom(const QString& path)
{
    WelkingSettings loaded = settings();
    QString error;
    if (!WelkingSettingsFile::load(path, loaded, error, WelkingSettingsFile::Dialog::Preset)) {
        m_files->setMessage(error);
        return false;
    }
    m_files->setMessage(QString());
    m_custom = loaded;
    m_form->setSettings(loaded);
    m_presets->setSelected(PluginWelkPresetBar::Custom);
    Q_EMIT customPresetSet();
    return true;
}

bool PluginWelkingSettingsDialog::saveTo(const QString& path)
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
