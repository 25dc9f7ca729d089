#include "ExrHeaderCheck.h"

#include <QFile>
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
            if (size < 0 || size > file.size() - file.pos())
                return QStringLiteral("The EXR header of %1 is damaged: its attribute \"%2\" claims %3 bytes, "
                                      "more than the file holds")
                    .arg(path, QString::fromLatin1(name))
                    .arg(size);
            if (!file.seek(file.pos() + size))
                return {};
        }
        if (!multiPart || !attributes)
            return {};
    }
}

} // namespace Welk
