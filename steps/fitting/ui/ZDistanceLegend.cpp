#include "ZDistanceLegend.h"

#include <QLinearGradient>
#include <QPainter>

#include <algorithm>

namespace WelkPlugin {

ZDistanceLegend::ZDistanceLegend(QWidget* parent) : QWidget(parent)
{
    setMinimumHeight(44);
    setToolTip(tr("Distance from each basemesh vertex to the scan's surface, in scan units"));
}

void ZDistanceLegend::setMaximum(double maximum)
{
    m_maximum = maximum > 0 ? maximum : 1.0;
    update();
}

QColor ZDistanceLegend::colorOf(double distance, double maximum)
{
    const double t = maximum > 0 ? std::clamp(distance / maximum, 0.0, 1.0) : 0.0;
    // Hue from blue (240) to red (0) keeps neighbouring values apart.
    return QColor::fromHsvF((1.0 - t) * (240.0 / 360.0), 0.85, 0.95);
}

void ZDistanceLegend::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const QRect bar(4, 4, width() - 8, 14);
    QLinearGradient gradient(bar.topLeft(), bar.topRight());
    for (int i = 0; i <= 8; ++i)
        gradient.setColorAt(i / 8.0, colorOf(i / 8.0, 1.0));
    painter.fillRect(bar, gradient);
    painter.setPen(QColor(0xd8, 0xd8, 0xd8));
    const QRect labels(4, 20, width() - 8, 20);
    painter.drawText(labels, Qt::AlignLeft | Qt::AlignVCenter, QStringLiteral("0"));
    painter.drawText(labels, Qt::AlignHCenter | Qt::AlignVCenter, QString::number(m_maximum / 2, 'g', 3));
    painter.drawText(labels, Qt::AlignRight | Qt::AlignVCenter,
                     QStringLiteral("\u2265 %1").arg(m_maximum, 0, 'g', 3));
}

} // namespace WelkPlugin
