// Draws the program's splash image and window icon: the name and version on
// a dark background. Run once when the version changes:
//   QT_QPA_PLATFORM=offscreen build/tools/artwork/zwelk-make-artwork app/resources 2024.6.2
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <cstdio>

namespace {

void drawMark(QPainter& p, const QRectF& box)
{
    // Two curves meeting: the basemesh settling onto the scan.
    QPainterPath scan;
    scan.moveTo(box.left(), box.center().y());
    scan.cubicTo(box.left() + box.width() * 0.3, box.top(), box.left() + box.width() * 0.7, box.bottom(),
                 box.right(), box.center().y());
    p.setPen(QPen(QColor(0x7a, 0x7a, 0x7a), box.height() * 0.08, Qt::SolidLine, Qt::RoundCap));
    p.drawPath(scan);
    QPainterPath base;
    base.moveTo(box.left(), box.center().y() + box.height() * 0.12);
    base.cubicTo(box.left() + box.width() * 0.3, box.top() + box.height() * 0.2, box.left() + box.width() * 0.7,
                 box.bottom() + box.height() * 0.05, box.right(), box.center().y() + box.height() * 0.04);
    p.setPen(QPen(QColor(0xe8, 0x91, 0x2d), box.height() * 0.1, Qt::SolidLine, Qt::RoundCap));
    p.drawPath(base);
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: zwelk-make-artwork OUTPUT_DIR VERSION\n");
        return 2;
    }
    const QString dir = QString::fromLocal8Bit(argv[1]);
    const QString version = QString::fromLocal8Bit(argv[2]);

    QImage splash(640, 360, QImage::Format_ARGB32);
    {
        QPainter p(&splash);
        p.setRenderHint(QPainter::Antialiasing);
        QLinearGradient g(0, 0, 0, splash.height());
        g.setColorAt(0, QColor(0x35, 0x35, 0x35));
        g.setColorAt(1, QColor(0x1c, 0x1c, 0x1c));
        p.fillRect(splash.rect(), g);
        drawMark(p, QRectF(48, 120, 200, 110));
        QFont title(QStringLiteral("DejaVu Sans"), 54, QFont::Bold);
        p.setFont(title);
        p.setPen(QColor(0xd8, 0xd8, 0xd8));
        p.drawText(QRectF(280, 110, 340, 90), Qt::AlignLeft | Qt::AlignVCenter, QStringLiteral("ZWelk"));
        QFont small(QStringLiteral("DejaVu Sans"), 14);
        p.setFont(small);
        p.setPen(QColor(0xe8, 0x91, 0x2d));
        p.drawText(QRectF(284, 196, 340, 30), Qt::AlignLeft | Qt::AlignVCenter,
                   QStringLiteral("Version %1").arg(version));
        p.setPen(QColor(0x9a, 0x9a, 0x9a));
        p.drawText(QRectF(284, 224, 340, 30), Qt::AlignLeft | Qt::AlignVCenter,
                   QStringLiteral("Basemesh fitting for ZBrush"));
        p.setPen(QColor(0x4a, 0x4a, 0x4a));
        p.drawRect(splash.rect().adjusted(0, 0, -1, -1));
    }
    if (!splash.save(dir + QStringLiteral("/ZWelk_SplashScreen.png")))
        return 1;

    QImage icon(256, 256, QImage::Format_ARGB32);
    icon.fill(Qt::transparent);
    {
        QPainter p(&icon);
        p.setRenderHint(QPainter::Antialiasing);
        p.setBrush(QColor(0x2b, 0x2b, 0x2b));
        p.setPen(QPen(QColor(0xe8, 0x91, 0x2d), 8));
        p.drawRoundedRect(QRectF(8, 8, 240, 240), 40, 40);
        p.setPen(QColor(0xe8, 0x91, 0x2d));
        p.setFont(QFont(QStringLiteral("DejaVu Sans"), 120, QFont::Bold));
        p.drawText(QRectF(8, 0, 240, 200), Qt::AlignCenter, QStringLiteral("Z"));
        p.setPen(QColor(0xd8, 0xd8, 0xd8));
        p.setFont(QFont(QStringLiteral("DejaVu Sans"), 26, QFont::Bold));
        p.drawText(QRectF(8, 170, 240, 60), Qt::AlignCenter, QStringLiteral("Welk"));
    }
    if (!icon.scaled(64, 64, Qt::KeepAspectRatio, Qt::SmoothTransformation)
             .save(dir + QStringLiteral("/ZWelk.ico"), "ICO"))
        return 1;
    return 0;
}
