#include "WelkingSettingsFileRow.h"

#include "exchange/InstallationSettings.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace WelkPlugin {

WelkingSettingsFileRow::WelkingSettingsFileRow(const QString& settingsDir, QWidget* parent)
    : QWidget(parent), m_settingsDir(settingsDir)
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    m_message->setStyleSheet(QStringLiteral("color: #ffd9a0;"));
    m_message->hide();
    layout->addWidget(m_message);
    m_buttons = new QHBoxLayout;
    auto* load = new QPushButton(QStringLiteral("Load"), this);
    load->setToolTip(tr("Read the settings from an .ini file"));
    auto* save = new QPushButton(QStringLiteral("Save"), this);
    save->setToolTip(tr("Write the settings shown to an .ini file"));
    m_buttons->addWidget(load);
    m_buttons->addWidget(save);
    layout->addLayout(m_buttons);

    connect(load, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Open Welking Settings File"),
                                                          startFolder(), QStringLiteral("Files (*.ini);"));
        if (path.isEmpty())
            return;
        rememberFolder(path);
        Q_EMIT loadChosen(path);
    });
    connect(save, &QPushButton::clicked, this, [this] {
        QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Save Welking Settings File"),
                                                    startFolder(), QStringLiteral("Files (*.ini);"));
        if (path.isEmpty())
            return;
        if (QFileInfo(path).suffix().isEmpty())
            path += QStringLiteral(".ini");
        rememberFolder(path);
        Q_EMIT saveChosen(path);
    });
}

void WelkingSettingsFileRow::insertButton(QPushButton* button)
{
    m_buttons->insertWidget(0, button);
}

void WelkingSettingsFileRow::setMessage(const QString& text)
{
    m_message->setText(text);
    m_message->setVisible(!text.isEmpty());
}

QString WelkingSettingsFileRow::message() const
{
    return m_message->isVisible() ? m_message->text() : QString();
}

QString WelkingSettingsFileRow::startFolder() const
{
    auto s = InstallationSettings::open(m_settingsDir);
    const QString remembered = s->value(QStringLiteral("welkingSettingsPath")).toString();
    return remembered.isEmpty() ? s->value(QStringLiteral("defaultFilesPath")).toString() : remembered;
}

void WelkingSettingsFileRow::rememberFolder(const QString& path) const
{
    InstallationSettings::open(m_settingsDir)
        ->setValue(QStringLiteral("welkingSettingsPath"), QFileInfo(path).absolutePath());
}

} // namespace WelkPlugin
