#pragma once

#include <QColor>
#include <QWidget>

namespace WelkPlugin {

/// The colour scale of the distance view: from 0 (close) to `maximum`
/// (far, and beyond), labelled in scan units.
class ZDistanceLegend : public QWidget
{
    Q_OBJECT
public:
    explicit ZDistanceLegend(QWidget* parent = nullptr);
    void setMaximum(double maximum);
    double maximum() const { return m_maximum; }

    /// The colour of `distance` on a scale up to `maximum`: blue, cyan,
    /// green, yellow, red.
    static QColor colorOf(double distance, double maximum);

protected:
    void paintEvent(QPaintEvent* event) override;
    QSize sizeHint() const override { return QSize(240, 44); }

private:
    double m_maximum = 1.0;
};

} // namespace WelkPlugin
