#pragma once

#include <QByteArray>
#include <QVector>

#include <cstdint>

namespace TestSupport {

/// Writes GoZ bytes by hand, independently of the program's writer, so that
/// tests can build files in any chunk order, with unknown tags, oversized
/// chunks or broken ends.
class GoZBytes
{
public:
    GoZBytes();

    /// A chunk with `payload` and a size field of 16 + payload + `extra`
    /// (the extra bytes are appended as 0xEE).
    GoZBytes& chunk(int32_t tag, int32_t count, const QByteArray& payload, int extra = 0, float parameter = 0);
    GoZBytes& text(int32_t tag, const QByteArray& text, float parameter = 0);
    GoZBytes& end();

    const QByteArray& bytes() const { return m_bytes; }

    static QByteArray floats(const QVector<float>& values);
    static QByteArray ints(const QVector<int32_t>& values);
    static QByteArray shorts(const QVector<uint16_t>& values);

    /// Splits a GoZ byte image into its chunks: tag and the whole chunk's
    /// bytes (header included), in file order, end chunk excluded.
    static QVector<QPair<int32_t, QByteArray>> chunks(const QByteArray& file);

private:
    QByteArray m_bytes;
};

} // namespace TestSupport
