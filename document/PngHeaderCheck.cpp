#include "PngHeaderCheck.h"

#include <QFile>
#include <QtEndian>

#include <cstring>

namespace Welk {

namespace {

constexpr char pngSignature[] = "\x89PNG\r\n\x1a\n";
constexpr qint64 signatureSize = 8;
// Length and type before the data, the checksum after it.
constexpr qint64 chunkFrame = 12;

} // namespace

QString pngHeaderProblem(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const qint64 fileSize = file.size();
    const uchar* bytes = fileSize >= signatureSize ? file.map(0, fileSize) : nullptr;
    if (!bytes || std::memcmp(bytes, pngSignature, signatureSize) != 0)
        return {};
    qint64 at = signatureSize;
    while (at + 8 <= fileSize) {
        const quint32 length = qFromBigEndian<quint32>(bytes + at);
        const QByteArray type(reinterpret_cast<const char*>(bytes + at + 4), 4);
        // The data must be there; a wrong or missing checksum is libpng's to report.
        if (qint64(length) > fileSize - at - 8)
            return QStringLiteral("The PNG file %1 is damaged: its chunk \"%2\" claims %3 bytes, more than the file "
                                  "holds")
                .arg(path, QString::fromLatin1(type.toPercentEncoding()))
                .arg(length);
        if (type == "IEND")
            break;
        at += chunkFrame + length;
    }
    return {};
}

} // namespace Welk
