#include "GoZBytes.h"

#include <QtEndian>

namespace TestSupport {

namespace {

void append32(QByteArray& out, uint32_t value)
{
    char b[4];
    qToLittleEndian<quint32>(value, b);
    out.append(b, 4);
}

} // namespace

GoZBytes::GoZBytes()
{
    m_bytes = QByteArray("GoZb", 4);
    QByteArray description("written by a test");
    description.append(QByteArray(28 - description.size(), '\0'));
    m_bytes += description;
}

GoZBytes& GoZBytes::chunk(int32_t tag, int32_t count, const QByteArray& payload, int extra, float parameter)
{
    append32(m_bytes, uint32_t(tag));
    append32(m_bytes, uint32_t(16 + payload.size() + extra));
    append32(m_bytes, uint32_t(count));
    char p[4];
    qToLittleEndian<float>(parameter, p);
    m_bytes.append(p, 4);
    m_bytes += payload;
    m_bytes += QByteArray(extra, char(0xEE));
    return *this;
}

GoZBytes& GoZBytes::text(int32_t tag, const QByteArray& text, float parameter)
{
    QByteArray payload = text;
    payload.append('\0');
    while (payload.size() % 4 != 0)
        payload.append('\0');
    return chunk(tag, 1, payload, 0, parameter);
}

GoZBytes& GoZBytes::end()
{
    append32(m_bytes, 0);
    append32(m_bytes, 0);
    append32(m_bytes, 0);
    append32(m_bytes, 0);
    return *this;
}

template <typename T> static QByteArray littleEndian(const QVector<T>& values)
{
    QByteArray out;
    for (T v : values) {
        char b[sizeof(T)];
        qToLittleEndian<T>(v, b);
        out.append(b, int(sizeof(T)));
    }
    return out;
}

QByteArray GoZBytes::floats(const QVector<float>& values) { return littleEndian(values); }
QByteArray GoZBytes::ints(const QVector<int32_t>& values) { return littleEndian(values); }
QByteArray GoZBytes::shorts(const QVector<uint16_t>& values) { return littleEndian(values); }

QVector<QPair<int32_t, QByteArray>> GoZBytes::chunks(const QByteArray& file)
{
    QVector<QPair<int32_t, QByteArray>> result;
    int at = 32;
    while (at + 16 <= file.size()) {
        const auto* p = reinterpret_cast<const uchar*>(file.constData() + at);
        const int32_t tag = qFromLittleEndian<qint32>(p);
        const int32_t size = qFromLittleEndian<qint32>(p + 4);
        if (tag == 0)
            break;
        result.append({tag, file.mid(at, size)});
        at += size;
    }
    return result;
}

} // namespace TestSupport
