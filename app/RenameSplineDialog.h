#pragma once

#include <QDialog>

#include <functional>

class QDialogButtonBox;
class QLabel;
class QLineEdit;

namespace WelkPlugin {

/// Asks for a spline's new name; OK stays off, with the reason in red,
/// while the name is refused.
class RenameSplineDialog : public QDialog
{
    Q_OBJECT
public:
    /// `validate` answers why a name cannot be taken, or an empty text.
    RenameSplineDialog(const QString& current, std::function<QString(const QString&)> validate,
                       QWidget* parent = nullptr);
    QString name() const;

public slots:
    void onTextChange(const QString& text);

private:
    std::function<QString(const QString&)> m_validate;
    QLineEdit* m_edit;
    QLabel* m_message;
    QDialogButtonBox* m_buttons;
};

} // namespace WelkPlugin
