#include "ZErrorBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

namespace WelkPlugin {

ZErrorBar::ZErrorBar(QWidget* parent) : QWidget(parent), m_layout(new QVBoxLayout(this))
{
    setObjectName(QStringLiteral("errorBar"));
    m_layout->setContentsMargins(6, 4, 6, 2);
    m_layout->setSpacing(2);
    hide();
}

void ZErrorBar::showWarning(int number, const QString& text)
{
    hideWarning(number);
    auto* row = new QWidget(this);
    row->setObjectName(QStringLiteral("errorRow"));
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(8, 3, 2, 3);
    auto* label = new QLabel(text, row);
    label->setObjectName(QStringLiteral("warningText"));
    label->setWordWrap(true);
    auto* close = new QToolButton(row);
    close->setText(QStringLiteral("\u2715"));
    close->setToolTip(tr("Dismiss this warning"));
    layout->addWidget(label, 1);
    layout->addWidget(close);
    connect(close, &QToolButton::clicked, this, [this, number] { hideWarning(number); });

    // Rows stay ordered by warning number.
    int position = 0;
    for (auto it = m_rows.constBegin(); it != m_rows.constEnd() && it.key() < number; ++it)
        ++position;
    m_layout->insertWidget(position, row);
    m_rows.insert(number, row);
    show();
}

void ZErrorBar::hideWarning(int number)
{
    if (QWidget* row = m_rows.take(number)) {
        row->hide();
        row->deleteLater();
    }
    if (m_rows.isEmpty())
        hide();
}

QString ZErrorBar::warningText(int number) const
{
    const QWidget* row = m_rows.value(number);
    const auto* label = row ? row->findChild<QLabel*>(QStringLiteral("warningText")) : nullptr;
    return label ? label->text() : QString();
}

} // namespace WelkPlugin
