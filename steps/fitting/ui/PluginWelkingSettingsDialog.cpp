#include "PluginWelkingSettingsDialog.h"

#include "PluginWelkPresetBar.h"
#include "WelkingSettingsForm.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace WelkPlugin {

PluginWelkingSettingsDialog::PluginWelkingSettingsDialog(const WelkingSettings& settings, int preset,
                                                         QWidget* parent)
    : QDialog(parent), m_base(settings), m_custom(settings)
{
    setWindowTitle(QStringLiteral("Preset Settings"));
    auto* layout = new QVBoxLayout(this);
    m_presets = new PluginWelkPresetBar(this);
    layout->addWidget(m_presets);
    m_form = new WelkingSettingsForm(WelkingSettingsFile::Dialog::Preset, this);
    layout->addWidget(m_form);
    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    m_message->setStyleSheet(QStringLiteral("color: #ffd9a0;"));
    m_message->hide();
    layout->addWidget(m_message);

    auto* files = new QHBoxLayout;
    auto* load = new QPushButton(QStringLiteral("Load"), this);
    load->setToolTip(tr("Read the settings from an .ini file"));
    auto* save = new QPushButton(QStringLiteral("Save"), this);
    save->setToolTip(tr("Write the settings shown to an .ini file"));
    files->addWidget(load);
    files->addWidget(save);
    layout->addLayout(files);
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
    connect(load, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Open Welking Settings File"),
                                                          QString(), QStringLiteral("Files (*.ini);"));
        if (!path.isEmpty())
            loadFrom(path);
    });
    connect(save, &QPushButton::clicked, this, [this] {
        QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Save Welking Settings File"),
                                                    QString(), QStringLiteral("Files (*.ini);"));
        if (path.isEmpty())
            return;
        if (QFileInfo(path).suffix().isEmpty())
            path += QStringLiteral(".ini");
        saveTo(path);
    });

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
    return m_message->isVisible() ? m_message->text() : QString();
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
        m_message->setText(error);
        m_message->show();
        return false;
    }
    m_message->hide();
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
        m_message->setText(error);
        m_message->show();
        return false;
    }
    m_message->hide();
    return true;
}

} // namespace WelkPlugin
