#include "WGLTexBuffer.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QtGlobal>

#include <cmath>

namespace Welk {

namespace {

QOpenGLFunctions* gl()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context)
        qFatal("WGLTexBuffer used without a current GL context");
    return context->functions();
}

} // namespace

int WGLTexBuffer::sideFor(int count)
{
    if (count <= 0)
        return 0;
    int side = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(count))));
    // sqrt of a large square may round either way.
    while (static_cast<qint64>(side) * side < count)
        ++side;
    while (side > 1 && static_cast<qint64>(side - 1) * (side - 1) >= count)
        --side;
    return side;
}

void WGLTexBuffer::texelOf(int index, int side, int& x, int& y)
{
    y = index / side;
    x = index - y * side;
}

WGLTexBuffer::WGLTexBuffer(int count, GLint internalFormat, GLenum format, GLenum type, int bytesPerComponent,
                           int components)
    : m_count(count), m_internalFormat(internalFormat), m_format(format), m_type(type),
      m_bytesPerComponent(bytesPerComponent), m_components(components), m_side(sideFor(count))
{
    QOpenGLFunctions* f = gl();
    f->glGenTextures(1, &m_texture);
    f->glBindTexture(GL_TEXTURE_2D, m_texture);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    f->glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    // Allocated once; updates only replace texels.
    f->glTexImage2D(GL_TEXTURE_2D, 0, m_internalFormat, qMax(m_side, 1), qMax(m_side, 1), 0, m_format, m_type,
                    nullptr);
    f->glBindTexture(GL_TEXTURE_2D, 0);
}

WGLTexBuffer::~WGLTexBuffer()
{
    if (m_texture && QOpenGLContext::currentContext())
        gl()->glDeleteTextures(1, &m_texture);
}

qint64 WGLTexBuffer::gpuBytes() const
{
    return static_cast<qint64>(m_side) * m_side * m_components * m_bytesPerComponent;
}

void WGLTexBuffer::upload(const void* data)
{
    if (m_side == 0)
        return;
    QOpenGLFunctions* f = gl();
    f->glBindTexture(GL_TEXTURE_2D, m_texture);
    f->glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    const int rows = m_count / m_side;
    if (rows > 0)
        f->glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, m_side, rows, m_format, m_type, data);
    const int rest = m_count - m_side * rows;
    if (rest > 0) {
        const auto* bytes = static_cast<const char*>(data) +
                            static_cast<qint64>(m_side) * rows * m_components * m_bytesPerComponent;
        f->glTexSubImage2D(GL_TEXTURE_2D, 0, 0, rows, rest, 1, m_format, m_type, bytes);
    }
    f->glBindTexture(GL_TEXTURE_2D, 0);
}

WGLTexBufferVector3D::WGLTexBufferVector3D(const QVector<QVector3D>& data)
    : WGLTexBuffer(data.size(), GL_RGB32F, GL_RGB, GL_FLOAT, 4, 3)
{
    update(data);
}

void WGLTexBufferVector3D::update(const QVector<QVector3D>& data)
{
    Q_ASSERT(data.size() == count());
    static_assert(sizeof(QVector3D) == 3 * sizeof(float), "QVector3D must be three packed floats");
    upload(data.constData());
}

WGLTexBufferVector2D::WGLTexBufferVector2D(const QVector<QVector2D>& data)
    : WGLTexBuffer(data.size(), GL_RG32F, GL_RG, GL_FLOAT, 4, 2)
{
    update(data);
}

void WGLTexBufferVector2D::update(const QVector<QVector2D>& data)
{
    Q_ASSERT(data.size() == count());
    static_assert(sizeof(QVector2D) == 2 * sizeof(float), "QVector2D must be two packed floats");
    upload(data.constData());
}

WGLTexBufferColor::WGLTexBufferColor(const QVector<QColor>& data)
    : WGLTexBuffer(data.size(), GL_RGBA, GL_RGBA, GL_UNSIGNED_BYTE, 1, 4)
{
    update(data);
}

void WGLTexBufferColor::update(const QVector<QColor>& data)
{
    Q_ASSERT(data.size() == count());
    QVector<uchar> bytes(data.size() * 4);
    for (int i = 0; i < data.size(); ++i) {
        bytes[4 * i] = static_cast<uchar>(data[i].red());
        bytes[4 * i + 1] = static_cast<uchar>(data[i].green());
        bytes[4 * i + 2] = static_cast<uchar>(data[i].blue());
        bytes[4 * i + 3] = static_cast<uchar>(data[i].alpha());
    }
    upload(bytes.constData());
}

} // namespace Welk
