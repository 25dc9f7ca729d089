#include "PluginWelkingWidget.h"

#include "PluginWelkPresetBar.h"
#include "ZDistanceLegend.h"

#include "PanelHeading.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace WelkPlugin {

PluginWelkingWidget::PluginWelkingWidget(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("welkingWidget"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);

    layout->addWidget(panelHeading(tr("Fit"), this));
    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    m_message->setStyleSheet(QStringLiteral("color: #ffd9a0;"));
    m_message->hide();
    layout->addWidget(m_message);

    m_fast = new QPushButton(QStringLiteral("FastWelking"), this);
    m_fast->setToolTip(
        tr("Fit the basemesh onto the scan with rigid graph nodes: keeps proportions, the usual "
           "choice (F5)"));
    m_fast->setShortcut(QKeySequence(Qt::Key_F5));
    m_cartoon = new QPushButton(QStringLiteral("CartoonWelking"), this);
    m_cartoon->setToolTip(tr("Fit with nodes that may also shear and stretch: for stylised targets whose "
                             "proportions differ from the basemesh's (F6)"));
    m_cartoon->setShortcut(QKeySequence(Qt::Key_F6));
    m_stop = new QPushButton(tr("Stop"), this);
    m_stop->setToolTip(tr("End the fit at its next step and keep the shape reached (Esc)"));
    m_stop->setShortcut(QKeySequence(Qt::Key_Escape));
    layout->addWidget(m_fast);
    layout->addWidget(m_cartoon);
    layout->addWidget(m_stop);

    layout->addWidget(panelHeading(tr("Alignment"), this));
    m_rigid = new QCheckBox(QStringLiteral("Rigid Alignment"), this);
    m_rigid->setToolTip(
        tr("Move and turn the basemesh onto the scan by the point pairs first (3 pairs or more)"));
    m_scale = new QCheckBox(QStringLiteral("Match Scale"), this);
    m_scale->setToolTip(tr("Scale the basemesh to the scan by the point pairs first (3 pairs or more)"));
    layout->addWidget(m_rigid);
    layout->addWidget(m_scale);

    layout->addWidget(panelHeading(tr("Settings"), this));
    m_presets = new PluginWelkPresetBar(this);
    layout->addWidget(m_presets);
    m_preferences = new QPushButton(tr("Preferences..."), this);
    m_preferences->setToolTip(tr("Edit, load and save every setting of the fit"));
    layout->addWidget(m_preferences);

    layout->addWidget(panelHeading(tr("Display"), this));
    m_nodes = new QCheckBox(tr("Show Graph Nodes"), this);
    m_nodes->setToolTip(tr("Show the nodes of the level being fitted while the fit runs"));
    layout->addWidget(m_nodes);
    m_distance = new QCheckBox(tr("Distance Colours"), this);
    m_distance->setToolTip(
        tr("Colour the result by its distance to the scan, to see where the fit is loose"));
    layout->addWidget(m_distance);
    m_legend = new ZDistanceLegend(this);
    m_legend->hide();
    layout->addWidget(m_legend);
    layout->addStretch(1);

    connect(m_fast, &QPushButton::clicked, this, &PluginWelkingWidget::computeFastWelkingClicked);
    connect(m_cartoon, &QPushButton::clicked, this, &PluginWelkingWidget::computeCartoonWelkingClicked);
    connect(m_stop, &QPushButton::clicked, this, &PluginWelkingWidget::terminateWelking);
    connect(m_rigid, &QCheckBox::toggled, this, &PluginWelkingWidget::rigidChecked);
    connect(m_scale, &QCheckBox::toggled, this, &PluginWelkingWidget::scaleChecked);
    connect(m_preferences, &QPushButton::clicked, this, [this] {
        Q_EMIT preferencesClicked(m_preferences->mapToGlobal(QPoint(0, m_preferences->height())));
    });
    connect(m_nodes, &QCheckBox::toggled, this, &PluginWelkingWidget::showNodesToggled);
    connect(m_distance, &QCheckBox::toggled, this, [this](bool on) {
        m_legend->setVisible(on);
        Q_EMIT distanceColorsToggled(on);
    });
    setResultAvailable(false);
    updateButtons();
}

QString PluginWelkingWidget::hint()
{
    return QStringLiteral("Click \"FastWelking\" or \"CartoonWelking\" to run welking process.");
}

void PluginWelkingWidget::setMessage(const QString& text)
{
    m_message->setText(text);
    m_message->setVisible(!text.isEmpty());
}

QString PluginWelkingWidget::message() const
{
    return m_message->isVisible() ? m_message->text() : QString();
}

void PluginWelkingWidget::setComputeEnabled(bool enabled)
{
    m_computeEnabled = enabled;
    updateButtons();
}

void PluginWelkingWidget::setRunning(bool running)
{
    m_running = running;
    updateButtons();
}

void PluginWelkingWidget::setResultAvailable(bool available)
{
    m_distance->setEnabled(available);
    if (!available)
        m_distance->setChecked(false);
}

void PluginWelkingWidget::setDistanceRange(double maximum)
{
    m_legend->setMaximum(maximum);
}

void PluginWelkingWidget::setDistanceColors(bool shown)
{
    m_distance->setChecked(shown);
}

void PluginWelkingWidget::updateButtons()
{
    m_fast->setEnabled(m_computeEnabled && !m_running);
    m_cartoon->setEnabled(m_computeEnabled && !m_running);
    m_stop->setEnabled(m_running);
    m_rigid->setEnabled(!m_running);
    m_scale->setEnabled(!m_running);
    m_preferences->setEnabled(!m_running);
    m_presets->setEnabled(!m_running);
}

} // namespace WelkPlugin
