#pragma once

#include "steps/fitting/WelkingSettingsFile.h"

#include <QWidget>

#include <functional>
#include <vector>

class QFormLayout;

namespace WelkPlugin {

/// The fields of the fit settings as a form: one spin box or check box per
/// key of the settings file, in the file's order, with the key's range.
/// `dialog` picks the labels, the keys shown and the defaults.
class WelkingSettingsForm : public QWidget
{
    Q_OBJECT
public:
    explicit WelkingSettingsForm(WelkingSettingsFile::Dialog dialog, QWidget* parent = nullptr);

    void setSettings(const WelkingSettings& settings);
    /// The values shown, over `base` (fields the form lacks keep its values).
    WelkingSettings settings(const WelkingSettings& base) const;
    /// The field for `key` ("Subdivisions", "Rigity", ...), or null.
    QWidget* field(const QString& key) const;
    QStringList keys() const;

signals:
    /// Any field was edited by the user.
    void edited();

private:
    struct Field
    {
        QString key;
        QWidget* editor;
        std::function<void(const WelkingSettings&)> show;
        std::function<void(WelkingSettings&)> read;
    };
    std::vector<Field> m_fields;
    bool m_showing = false;
};

} // namespace WelkPlugin
