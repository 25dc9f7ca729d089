#include "WGLMarkers.h"

#include "WGLShaderBuilder.h"
#include "WGLTexture.h"

#include <QFont>
#include <QImage>
#include <QOpenGLBuffer>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QPainter>
#include <QVector2D>

#include <cmath>

namespace Welk {

namespace {

// Atlas cells of 64 pixels in one row: digits 0-9, a disc, a ring.
constexpr int kCell = 64;
constexpr int kCells = 12;
constexpr int kDisc = 10;
constexpr int kRing = 11;
constexpr int kFloats = 11;

QImage atlasImage()
{
    QImage image(kCell * kCells, kCell, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(52);
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(Qt::white);
    for (int d = 0; d < 10; ++d)
        painter.drawText(QRect(d * kCell, 0, kCell, kCell), Qt::AlignCenter, QString::number(d));
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);
    painter.drawEllipse(QRectF(kDisc * kCell + 2, 2, kCell - 4, kCell - 4));
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(Qt::white, 6));
    painter.drawEllipse(QRectF(kRing * kCell + 4, 4, kCell - 8, kCell - 8));
    painter.end();
    // GL rows go bottom up.
    return image.mirrored(false, true);
}

void appendQuad(QVector<float>& out, const QVector3D& anchor, QRectF offset, int cell, const QColor& tint)
{
    const float u0 = static_cast<float>(cell) / kCells;
    const float u1 = static_cast<float>(cell + 1) / kCells;
    const float corners[6][4] = {
        {float(offset.left()), float(offset.top()), u0, 0.0f},
        {float(offset.right()), float(offset.top()), u1, 0.0f},
        {float(offset.right()), float(offset.bottom()), u1, 1.0f},
        {float(offset.left()), float(offset.top()), u0, 0.0f},
        {float(offset.right()), float(offset.bottom()), u1, 1.0f},
        {float(offset.left()), float(offset.bottom()), u0, 1.0f},
    };
    for (const auto& c : corners) {
        out << anchor.x() << anchor.y() << anchor.z() << c[0] << c[1] << c[2] << c[3] << float(tint.redF())
            << float(tint.greenF()) << float(tint.blueF()) << float(tint.alphaF());
    }
}

} // namespace

WGLMarkers::WGLMarkers() = default;
WGLMarkers::~WGLMarkers() = default;

QColor WGLMarkers::pairColor(int index)
{
    // Golden-angle hues stay apart for any number of pairs.
    const int hue = static_cast<int>(std::fmod(25.0 + index * 137.508, 360.0));
    return QColor::fromHsv(hue, 200, 235);
}

void WGLMarkers::setMarkers(const QVector<Marker>& markers)
{
    m_markers = markers;
    m_dirty = true;
}

void WGLMarkers::rebuild()
{
    m_vertices.clear();
    const float r = m_radius;
    for (const Marker& m : m_markers) {
        // Offsets are in pixels, y up.
        appendQuad(m_vertices, m.position, QRectF(-r - 1.5, -r - 1.5, 2 * r + 3, 2 * r + 3), kDisc,
                   QColor(20, 20, 20, 220));
        appendQuad(m_vertices, m.position, QRectF(-r, -r, 2 * r, 2 * r), kDisc, m.color);
        if (m.selected)
            appendQuad(m_vertices, m.position, QRectF(-r - 5, -r - 5, 2 * r + 10, 2 * r + 10), kRing,
                       Qt::white);
        if (m.label >= 0 && m_labelsShown) {
            const QString text = QString::number(m.label);
            const float h = r * (text.size() > 2 ? 1.1f : 1.5f);
            const float w = h * 0.62f;
            float x = -w * text.size() / 2.0f;
            const QColor ink = m.color.lightnessF() > 0.55 ? QColor(15, 15, 15) : QColor(250, 250, 250);
            for (QChar c : text) {
                appendQuad(m_vertices, m.position, QRectF(x - w * 0.3f, -h / 2, w * 1.6f, h), c.digitValue(),
                           ink);
                x += w;
            }
        }
    }
    m_dirty = false;
}

void WGLMarkers::draw(const WGLFrameData& frame)
{
    if (m_markers.isEmpty())
        return;
    if (!m_program) {
        m_program = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/markers.vert"),
                                                QStringLiteral(":/shaders/markers.frag"));
        const QImage atlas = atlasImage();
        m_atlas = std::make_unique<WGLTexture>(atlas.size(), atlas.constBits());
        m_buffer = std::make_unique<QOpenGLBuffer>(QOpenGLBuffer::VertexBuffer);
        m_buffer->setUsagePattern(QOpenGLBuffer::DynamicDraw);
        m_buffer->create();
        m_dirty = true;
    }
    if (!m_program)
        return;
    m_buffer->bind();
    if (m_dirty) {
        rebuild();
        m_buffer->allocate(m_vertices.constData(), m_vertices.size() * static_cast<int>(sizeof(float)));
    }
    QOpenGLShaderProgram& p = *m_program;
    p.bind();
    p.setUniformValue("modelViewMatrix", frame.viewMatrix);
    p.setUniformValue("projectionMatrix", frame.projectionMatrix);
    p.setUniformValue("screenSize", QVector2D(frame.width, frame.height));
    m_atlas->bind(0);
    p.setUniformValue("glyphs", 0);
    const int stride = kFloats * sizeof(float);
    const char* names[4] = {"anchor", "offsetPx", "glyphUv", "tint"};
    const int sizes[4] = {3, 2, 2, 4};
    int offset = 0;
    for (int i = 0; i < 4; ++i) {
        p.enableAttributeArray(names[i]);
        p.setAttributeBuffer(names[i], GL_FLOAT, offset * int(sizeof(float)), sizes[i], stride);
        offset += sizes[i];
    }
    frame.functions->glEnable(GL_BLEND);
    frame.functions->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    frame.functions->glDepthMask(GL_FALSE);
    frame.functions->glDrawArrays(GL_TRIANGLES, 0, m_vertices.size() / kFloats);
    frame.functions->glDepthMask(GL_TRUE);
    for (const char* name : names)
        p.disableAttributeArray(name);
    p.release();
    m_buffer->release();
}

} // namespace Welk
