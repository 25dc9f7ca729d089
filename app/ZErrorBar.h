#pragma once

#include <QMap>
#include <QWidget>

class QVBoxLayout;

namespace WelkPlugin {

/// A stack of warning rows under the step bar, one per warning number, each
/// with a close cross. Hidden while empty.
class ZErrorBar : public QWidget
{
    Q_OBJECT
public:
    explicit ZErrorBar(QWidget* parent = nullptr);

    /// Shows `text` as warning `number`, replacing an earlier text of it.
    void showWarning(int number, const QString& text);
    void hideWarning(int number);
    bool isWarningShown(int number) const { return m_rows.contains(number); }
    QString warningText(int number) const;

private:
    QVBoxLayout* m_layout;
    QMap<int, QWidget*> m_rows;
};

} // namespace WelkPlugin
