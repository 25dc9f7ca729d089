#include "BmpHeaderCheck.h"

#include "ImageLimits.h"

#include <QFile>
#include <QtEndian>

#include <cstdlib>

namespace Welk {

namespace {

constexpr int fileHeaderSize = 14;
constexpr quint32 coreHeaderSize = 12; // OS/2 1.x: 16-bit sizes, no compression
constexpr quint32 infoHeaderSize = 40;

enum Compression : quint32 { Rgb = 0, Rle8 = 1, Rle4 = 2, BitFields = 3, AlphaBitFields = 6 };

/// What the header says, in the units the checks need.
struct Layout {
    qint64 width = 0;
    qint64 height = 0; // rows, whatever their order
    int bitsPerPixel = 0;
    quint32 compression = Rgb;
    qint64 paletteSize = 0; // colours, for 1, 4 and 8 bits
    qint64 dataOffset = 0;
};

/// A pixel index beyond the palette, or -1.
struct IndexCheck {
    qint64 paletteSize;
    int found = -1;
    void operator()(int index)
    {
        if (found < 0 && index >= paletteSize)
            found = index;
    }
};

QString damaged(const QString& path, const QString& what)
{
    return QStringLiteral("The BMP file %1 is damaged: %2").arg(path, what);
}

/// Indices of the uncompressed rows of a palette image.
int rawIndexBeyondPalette(const uchar* data, qint64 rowBytes, const Layout& layout)
{
    IndexCheck check{layout.paletteSize};
    const int bits = layout.bitsPerPixel;
    const int perByte = 8 / bits;
    const int mask = (1 << bits) - 1;
    for (qint64 y = 0; y < layout.height && check.found < 0; ++y) {
        const uchar* row = data + y * rowBytes;
        for (qint64 x = 0; x < layout.width; ++x) {
            const int shift = 8 - bits * int(x % perByte + 1);
            check((row[x / perByte] >> shift) & mask);
        }
    }
    return check.found;
}

/// Walks run-length data as the decoder expands it: end of line, end of
/// image, a move by (dx, dy), a literal run padded to two bytes, or a
/// repeated value. False when a pixel lands past the last row.
bool runLengthDataFits(const uchar* data, qint64 size, const Layout& layout, int& indexBeyondPalette)
{
    IndexCheck check{layout.paletteSize};
    const bool four = layout.compression == Rle4;
    qint64 x = 0, y = 0, at = 0;
    while (at + 2 <= size) {
        const int count = data[at], value = data[at + 1];
        at += 2;
        if (count > 0) {
            if (y >= layout.height && x < layout.width)
                return false;
            if (x < layout.width) {
                check(four ? value >> 4 : value);
                if (four && count > 1)
                    check(value & 0x0f);
            }
            x += count;
        } else if (value == 0) {
            x = 0;
            ++y;
        } else if (value == 1) {
            break;
        } else if (value == 2) {
            if (at + 2 > size)
                break;
            x += data[at];
            y += data[at + 1];
            at += 2;
        } else {
            const qint64 bytes = four ? ((value + 1) / 2 + 1) / 2 * 2 : (value + 1) / 2 * 2;
            if (y >= layout.height && x < layout.width)
                return false;
            for (int i = 0; i < value && at + i / (four ? 2 : 1) < size; ++i) {
                if (x + i < layout.width) {
                    const int byte = data[at + i / (four ? 2 : 1)];
                    check(four ? ((i & 1) ? byte & 0x0f : byte >> 4) : byte);
                }
            }
            x += value;
            at += bytes;
        }
    }
    indexBeyondPalette = check.found;
    return true;
}

} // namespace

QString bmpHeaderProblem(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() < fileHeaderSize + 4)
        return {};
    const qint64 fileSize = file.size();
    const uchar* bytes = file.map(0, fileSize);
    if (!bytes || bytes[0] != 'B' || bytes[1] != 'M')
        return {};
    const quint32 headerSize = qFromLittleEndian<quint32>(bytes + fileHeaderSize);
    // Other header sizes, or a header cut short, the decoder refuses itself.
    Layout layout;
    if (headerSize == coreHeaderSize && fileSize >= fileHeaderSize + coreHeaderSize) {
        layout.width = qFromLittleEndian<quint16>(bytes + 18);
        layout.height = qFromLittleEndian<quint16>(bytes + 20);
        layout.bitsPerPixel = qFromLittleEndian<quint16>(bytes + 24);
    } else if (headerSize >= infoHeaderSize && fileSize >= fileHeaderSize + infoHeaderSize) {
        layout.width = qFromLittleEndian<qint32>(bytes + 18);
        layout.height = std::llabs(qFromLittleEndian<qint32>(bytes + 22)); // negative: top row first
        layout.bitsPerPixel = qFromLittleEndian<quint16>(bytes + 28);
        layout.compression = qFromLittleEndian<quint32>(bytes + 30);
        layout.paletteSize = qFromLittleEndian<quint32>(bytes + 46);
    } else {
        return {};
    }
    layout.dataOffset = qFromLittleEndian<quint32>(bytes + 10);

    if (layout.width <= 0 || layout.height <= 0)
        return damaged(path, QStringLiteral("it claims %1 x %2 pixels").arg(layout.width).arg(layout.height));
    if (!ImageLimits::fits(layout.width, layout.height))
        return QString::fromStdString(ImageLimits::tooLarge(layout.width, layout.height));
    const int bits = layout.bitsPerPixel;
    if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32)
        return QStringLiteral("The BMP file %1 has %2 bits per pixel, which cannot be read").arg(path).arg(bits);
    const bool runLength = layout.compression == Rle8 || layout.compression == Rle4;
    const bool raw = layout.compression == Rgb || layout.compression == BitFields ||
                     layout.compression == AlphaBitFields;
    if (!runLength && !raw)
        return QStringLiteral("The BMP file %1 uses compression %2, which cannot be read")
            .arg(path)
            .arg(layout.compression);
    if ((layout.compression == Rle8 && bits != 8) || (layout.compression == Rle4 && bits != 4))
        return damaged(path, QStringLiteral("run-length data of %1 bits per pixel").arg(bits));
    if (bits <= 8 && (layout.paletteSize == 0 || layout.paletteSize > (1 << bits)))
        layout.paletteSize = 1 << bits; // the decoder refuses a longer one itself
    if (bits > 8)
        layout.paletteSize = 0;

    const qint64 available = layout.dataOffset < fileSize ? fileSize - layout.dataOffset : 0;
    const uchar* data = bytes + (fileSize - available);
    int indexBeyondPalette = -1;
    if (raw) {
        const qint64 rowBytes = (layout.width * bits + 31) / 32 * 4;
        const qint64 needed = rowBytes * layout.height;
        if (needed > available)
            return damaged(path, QStringLiteral("its %1 x %2 pixels of %3 bits need %4 bytes, but only %5 follow "
                                                "its header")
                                     .arg(layout.width)
                                     .arg(layout.height)
                                     .arg(bits)
                                     .arg(needed)
                                     .arg(available));
        if (bits <= 8 && layout.paletteSize < (1 << bits))
            indexBeyondPalette = rawIndexBeyondPalette(data, rowBytes, layout);
    } else if (!runLengthDataFits(data, available, layout, indexBeyondPalette)) {
        return damaged(path, QStringLiteral("its run-length data goes on past the last of its %1 rows")
                                 .arg(layout.height));
    }
    if (indexBeyondPalette >= 0)
        return damaged(path, QStringLiteral("a pixel uses colour %1 of a palette of %2")
                                 .arg(indexBeyondPalette)
                                 .arg(layout.paletteSize));
    return {};
}

} // namespace Welk
