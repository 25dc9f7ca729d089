#include "PluginTextureWidget.h"

#include "PanelHeading.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>

namespace WelkPlugin {

namespace {

QSpinBox* sideBox(const QString& tip, QWidget* parent)
{
    auto* box = new QSpinBox(parent);
    box->setRange(1, TextureTransferSettings::MaxSide);
    box->setSuffix(QStringLiteral(" px"));
    box->setToolTip(tip);
    return box;
}

} // namespace

PluginTextureWidget::PluginTextureWidget(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("textureWidget"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);

    layout->addWidget(panelHeading(tr("Output"), this));
    auto* size = new QFormLayout;
    m_width = sideBox(tr("Width of the result image in pixels (1 to 16384)"), this);
    m_height = sideBox(tr("Height of the result image in pixels (1 to 16384)"), this);
    size->addRow(tr("Width"), m_width);
    size->addRow(tr("Height"), m_height);
    layout->addLayout(size);
    // Square power-of-two sizes are what texture maps almost always are.
    auto* presets = new QToolButton(this);
    presets->setText(tr("Size Presets"));
    presets->setToolTip(tr("Set width and height to a square size"));
    presets->setPopupMode(QToolButton::InstantPopup);
    auto* menu = new QMenu(presets);
    for (int side : {512, 1024, 2048, 4096, 8192})
        menu->addAction(QStringLiteral("%1 x %1").arg(side), this, [this, side] {
            m_width->setValue(side);
            m_height->setValue(side);
        });
    presets->setMenu(menu);
    layout->addWidget(presets);

    layout->addWidget(panelHeading(tr("Projection"), this));
    m_limit = new QCheckBox(QStringLiteral("Limit Distance"), this);
    m_limit->setToolTip(tr("Take colour only from source surfaces closer than Distance along the target's "
                           "normal; farther texels stay empty"));
    layout->addWidget(m_limit);
    auto* distance = new QFormLayout;
    m_distance = new QDoubleSpinBox(this);
    m_distance->setDecimals(4);
    m_distance->setRange(0.0001, 1.0e6);
    m_distance->setToolTip(tr("The longest ray, in model units, when Limit Distance is on"));
    distance->addRow(QStringLiteral("Distance"), m_distance);
    layout->addLayout(distance);

    layout->addWidget(panelHeading(tr("UV Tile"), this));
    auto* tile = new QFormLayout;
    m_u = new QSpinBox(this);
    m_u->setRange(-99, 99);
    m_u->setToolTip(tr("Fill UV tile [U, U+1): 0 is the unit square, 1 the tile to its right (UDIM 1002)"));
    m_v = new QSpinBox(this);
    m_v->setRange(-99, 99);
    m_v->setToolTip(tr("Fill UV tile [V, V+1): 0 is the unit square, 1 the row above it (UDIM 1011)"));
    tile->addRow(tr("U Offset"), m_u);
    tile->addRow(tr("V Offset"), m_v);
    layout->addLayout(tile);

    layout->addWidget(panelHeading(tr("Transfer"), this));
    m_transfer = new QPushButton(tr("Transfer"), this);
    m_transfer->setObjectName(QStringLiteral("transferButton"));
    m_transfer->setToolTip(tr("Carry the right model's texture onto the left model's UV layout (F5)"));
    m_transfer->setShortcut(QKeySequence(Qt::Key_F5));
    layout->addWidget(m_transfer);
    m_fill = new QCheckBox(tr("Fill Empty Texels"), this);
    m_fill->setToolTip(tr("Fill the texels no ray reached from their neighbours, so seams show no dark "
                          "borders in ZBrush"));
    layout->addWidget(m_fill);
    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    m_message->hide();
    layout->addWidget(m_message);
    m_result = new QLabel(this);
    m_result->setWordWrap(true);
    layout->addWidget(m_result);
    layout->addStretch(1);

    connect(m_transfer, &QPushButton::clicked, this, [this] {
        if (m_running)
            Q_EMIT stopClicked();
        else
            Q_EMIT transferClicked();
    });
    connect(m_limit, &QCheckBox::toggled, m_distance, &QWidget::setEnabled);
    connect(m_fill, &QCheckBox::toggled, this, &PluginTextureWidget::fillToggled);
    for (QSpinBox* box : {m_width, m_height, m_u, m_v})
        connect(box, QOverload<int>::of(&QSpinBox::valueChanged), this, &PluginTextureWidget::settingsChanged);
    connect(m_distance, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this,
            &PluginTextureWidget::settingsChanged);
    connect(m_limit, &QCheckBox::toggled, this, &PluginTextureWidget::settingsChanged);
    connect(m_fill, &QCheckBox::toggled, this, &PluginTextureWidget::settingsChanged);
    setSettings(TextureTransferSettings());
}

TextureTransferSettings PluginTextureWidget::settings() const
{
    TextureTransferSettings s;
    s.width = m_width->value();
    s.height = m_height->value();
    s.limitDistance = m_limit->isChecked();
    s.distance = m_distance->value();
    s.uOffset = m_u->value();
    s.vOffset = m_v->value();
    s.fillEmptyTexels = m_fill->isChecked();
    return s;
}

void PluginTextureWidget::setSettings(const TextureTransferSettings& s)
{
    const QSignalBlocker blockers[] = {QSignalBlocker(m_width), QSignalBlocker(m_height), QSignalBlocker(m_limit),
                                       QSignalBlocker(m_distance), QSignalBlocker(m_u), QSignalBlocker(m_v),
                                       QSignalBlocker(m_fill)};
    m_width->setValue(s.width);
    m_height->setValue(s.height);
    m_limit->setChecked(s.limitDistance);
    m_distance->setValue(s.distance);
    m_distance->setEnabled(s.limitDistance && !m_running);
    m_u->setValue(s.uOffset);
    m_v->setValue(s.vOffset);
    m_fill->setChecked(s.fillEmptyTexels);
}

void PluginTextureWidget::setRunning(bool running)
{
    m_running = running;
    for (QWidget* w : std::initializer_list<QWidget*>{m_width, m_height, m_limit, m_u, m_v, m_fill})
        w->setEnabled(!running);
    m_distance->setEnabled(!running && m_limit->isChecked());
    m_transfer->setText(running ? tr("Stop") : tr("Transfer"));
    m_transfer->setToolTip(running ? tr("Stop the transfer; the previous result stays")
                                   : tr("Carry the right model's texture onto the left model's UV layout (F5)"));
    m_transfer->setEnabled(running || m_available);
}

void PluginTextureWidget::setTransferAvailable(bool available)
{
    m_available = available;
    m_transfer->setEnabled(m_running || available);
}

void PluginTextureWidget::setMessage(const QString& text, bool isProblem)
{
    m_message->setText(text);
    m_message->setStyleSheet(isProblem ? QStringLiteral("color: #ffd9a0;") : QString());
    m_message->setVisible(!text.isEmpty());
}

void PluginTextureWidget::setResultText(const QString& text)
{
    m_result->setText(text);
}

QString PluginTextureWidget::hint()
{
    return tr("*Transfer* carries the right model's texture onto the left model's UVs; the result shows in "
              "the Result view (*RMB* drag pans, *CTRL* + *RMB* or the wheel zooms, *F* shows it all).");
}

} // namespace WelkPlugin
