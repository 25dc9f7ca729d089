#pragma once

#include <QLabel>

namespace WelkPlugin {

/// A bold heading over a group of a step panel's controls.
inline QLabel* panelHeading(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setStyleSheet(QStringLiteral("font-weight: bold; margin-top: 6px;"));
    return label;
}

} // namespace WelkPlugin
