#include "PluginWelkPresetBar.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QPushButton>

namespace WelkPlugin {

PluginWelkPresetBar::PluginWelkPresetBar(QWidget* parent) : QWidget(parent), m_group(new QButtonGroup(this))
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    const QString tips[2] = {tr("The settings of a fresh installation"),
                             tr("Your own settings from Preferences")};
    const QString names[2] = {QStringLiteral("Default"), QStringLiteral("Custom")};
    for (int i = 0; i < 2; ++i) {
        auto* button = new QPushButton(names[i], this);
        button->setCheckable(true);
        button->setToolTip(tips[i]);
        m_group->addButton(button, i);
        layout->addWidget(button);
    }
    m_group->button(Default)->setChecked(true);
    connect(m_group, &QButtonGroup::idClicked, this, [this](int id) {
        Q_EMIT buttonClicked(id);
        Q_EMIT presetSelected(id);
    });
}

int PluginWelkPresetBar::selected() const
{
    return m_group->checkedId();
}

void PluginWelkPresetBar::setSelected(int preset)
{
    if (QAbstractButton* b = m_group->button(preset))
        b->setChecked(true);
}

} // namespace WelkPlugin
