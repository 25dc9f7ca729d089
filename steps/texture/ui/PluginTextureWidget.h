#pragma once

#include "steps/texture/TextureTransferSettings.h"

#include <QWidget>

class QCheckBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QSpinBox;

namespace WelkPlugin {

/// The texture step's panel: output size, ray distance, UV tile, Transfer,
/// the fill of empty texels and a line about the result.
class PluginTextureWidget : public QWidget
{
    Q_OBJECT
public:
    explicit PluginTextureWidget(QWidget* parent = nullptr);

    TextureTransferSettings settings() const;
    void setSettings(const TextureTransferSettings& settings);

    /// While a transfer or a fill runs, the settings cannot change and
    /// Transfer becomes Stop.
    void setRunning(bool running);
    /// Off when no transfer can run at all (`message` says why).
    void setTransferAvailable(bool available);
    /// A line under the buttons; amber for problems.
    void setMessage(const QString& text, bool isProblem = false);
    void setResultText(const QString& text);

    QPushButton* transferButton() const { return m_transfer; }
    QCheckBox* fillBox() const { return m_fill; }

    static QString hint();

signals:
    void transferClicked();
    void stopClicked();
    void settingsChanged();
    void fillToggled(bool fill);

private:
    QSpinBox* m_width;
    QSpinBox* m_height;
    QCheckBox* m_limit;
    QDoubleSpinBox* m_distance;
    QSpinBox* m_u;
    QSpinBox* m_v;
    QPushButton* m_transfer;
    QCheckBox* m_fill;
    QLabel* m_message;
    QLabel* m_result;
    bool m_running = false;
    bool m_available = true;
};

} // namespace WelkPlugin
