#include "RenameSplineDialog.h"

#include "steps/splines/SplineStepTexts.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace WelkPlugin {

RenameSplineDialog::RenameSplineDialog(const QString& current, std::function<QString(const QString&)> validate,
                                       QWidget* parent)
    : QDialog(parent), m_validate(std::move(validate))
{
    setWindowTitle(SplineStepTexts::renameTitle());
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(SplineStepTexts::renameLabel(), this));
    m_edit = new QLineEdit(current, this);
    layout->addWidget(m_edit);
    m_message = new QLabel(this);
    m_message->setStyleSheet(SplineStepTexts::refusedNameStyle());
    layout->addWidget(m_message);
    m_buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    layout->addWidget(m_buttons);
    connect(m_buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_edit, &QLineEdit::textChanged, this, &RenameSplineDialog::onTextChange);
    onTextChange(current);
    m_edit->selectAll();
}

QString RenameSplineDialog::name() const
{
    return m_edit->text();
}

void RenameSplineDialog::onTextChange(const QString& text)
{
    const QString refusal = m_validate(text);
    m_message->setText(refusal);
    m_message->setVisible(!refusal.isEmpty());
    m_buttons->button(QDialogButtonBox::Ok)->setEnabled(refusal.isEmpty());
}

} // namespace WelkPlugin
