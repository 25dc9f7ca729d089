#include "ExrHeaderCheck.h"

#include <QFile>
#include <QHash>
#include <QtEndian>

namespace Welk {

namespace {

constexpr quint32 exrMagic = 20000630;
constexpr quint32 multiPartFlag = 0x1000;
// Attribute names and types are at most 255 characters with the long-names
// flag, 31 without.
constexpr int longestName = 256;

/// Reads a zero-terminated string; false when none ends within the limit.
bool readName(QFile& file, QByteArray& name)
{
    name.clear();
    char c = 0;
    while (file.getChar(&c)) {
        if (c == '\0')
            return true;
        if (name.size() >= longestName)
            return false;
        name.append(c);
    }
    return false;
}

bool readInt(QFile& file, qint32& value)
{
    char bytes[4];
    if (file.read(bytes, 4) != 4)
        return false;
    value = qFromLittleEndian<qint32>(bytes);
    return true;
}

/// Bytes OpenEXR reads for a value of a type it knows by its layout alone,
/// whatever the size field says; -1 for the types read by the size field.
int fixedValueSize(const QByteArray& type)
{
    static const QHash<QByteArray, int> sizes = {
        {"int", 4},     {"float", 4},          {"double", 8},       {"compression", 1}, {"lineOrder", 1},
        {"envmap", 1},  {"deepImageState", 1}, {"v2i", 8},          {"v2f", 8},         {"v2d", 16},
        {"v3i", 12},    {"v3f", 12},           {"v3d", 24},         {"box2i", 16},      {"box2f", 16},
        {"m33f", 36},   {"m33d", 72},          {"m44f", 64},        {"m44d", 128},      {"rational", 8},
        {"timecode", 8}, {"keycode", 28},      {"chromaticities", 32}, {"tiledesc", 9},
    };
    return sizes.value(type, -1);
}

/// Where the value read by OpenEXR ends: a channel list runs to its empty
/// name, a preview holds its own width and height, fixed types their size,
/// everything else the size field. -1 when the file ends first.
qint64 valueEnd(QFile& file, const QByteArray& type, qint32 size)
{
    const qint64 start = file.pos();
    const int fixed = fixedValueSize(type);
    if (fixed >= 0)
        return start + fixed <= file.size() ? start + fixed : -1;
    if (type == "chlist") {
        QByteArray channel;
        for (;;) {
            if (!readName(file, channel))
                return -1;
            if (channel.isEmpty())
                return file.pos();
            // pixel type, linear flag and reserved bytes, x and y sampling
            if (file.pos() + 16 > file.size() || !file.seek(file.pos() + 16))
                return -1;
        }
    }
    if (type == "preview") {
        qint32 width = 0, height = 0;
        if (!readInt(file, width) || !readInt(file, height))
            return -1;
        const qint64 bytes = qint64(quint32(width)) * quint32(height) * 4;
        return bytes <= file.size() - file.pos() ? file.pos() + bytes : -1;
    }
    return size <= file.size() - start ? start + size : -1;
}

} // namespace

QString exrHeaderProblem(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    qint32 magic = 0, version = 0;
    if (!readInt(file, magic) || quint32(magic) != exrMagic || !readInt(file, version))
        return {};
    const bool multiPart = (quint32(version) & multiPartFlag) != 0;
    QByteArray name, type;
    // One header, or for multi-part files a list of headers ended by an
    // empty one; each header is a list of attributes ended by an empty name.
    // Anything else odd is left to OpenEXR to report.
    for (;;) {
        bool attributes = false;
        for (;;) {
            if (!readName(file, name))
                return {};
            if (name.isEmpty())
                break;
            attributes = true;
            qint32 size = 0;
            if (!readName(file, type) || !readInt(file, size))
                return {};
            const qint64 end = size < 0 ? -1 : valueEnd(file, type, size);
            if (end < 0)
                return QStringLiteral("The EXR header of %1 is damaged: its attribute \"%2\" claims %3 bytes, "
                                      "more than the file holds")
                    .arg(path, QString::fromLatin1(name))
                    .arg(size);
            if (!file.seek(end))
                return {};
        }
        if (!multiPart || !attributes)
            return {};
    }
}

} // namespace Welk
