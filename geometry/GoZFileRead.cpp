#include "GoZFile.h"

#include "HugePages.h"

#include <QFile>
#include <QtEndian>

#include <cctype>

namespace GeometryStack2 {

namespace {

struct ChunkHeader
{
    int32_t tag;
    int32_t size;
    int32_t count;
    float parameter;
};

bool readHeader(QFile& file, ChunkHeader& header)
{
    uchar bytes[GoZFile::ChunkHeaderSize];
    if (file.read(reinterpret_cast<char*>(bytes), sizeof bytes) != qint64(sizeof bytes))
        return false;
    header.tag = qFromLittleEndian<qint32>(bytes);
    header.size = qFromLittleEndian<qint32>(bytes + 4);
    header.count = qFromLittleEndian<qint32>(bytes + 8);
    header.parameter = qFromLittleEndian<float>(bytes + 12);
    return true;
}

bool skip(QFile& file, qint64 bytes)
{
    return bytes <= 0 || file.seek(file.pos() + bytes);
}

/// Reads `count` elements of type T into `values`, then skips any bytes the
/// chunk of `chunkSize` bytes holds beyond them.
template <typename T> bool readArray(QFile& file, qint64 count, qint32 chunkSize, std::vector<T>& values)
{
    values.clear();
    if (count <= 0)
        return true;
    const qint64 payload = count * qint64(sizeof(T));
    // A corrupt count must not turn into a huge allocation.
    if (payload > file.size() - file.pos())
        return false;
    resizeOnHugePages(values, count);
    if (file.read(reinterpret_cast<char*>(values.data()), payload) != payload)
        return false;
    if (QSysInfo::ByteOrder == QSysInfo::BigEndian) {
        for (T& v : values)
            v = qFromLittleEndian(v);
    }
    return skip(file, qint64(chunkSize) - GoZFile::ChunkHeaderSize - payload);
}

bool readText(QFile& file, const ChunkHeader& header, QByteArray& text)
{
    text = QByteArray();
    const qint64 payload = qint64(header.size) - GoZFile::ChunkHeaderSize;
    if (payload <= 0)
        return true;
    // A corrupt size must not turn into a huge allocation.
    if (payload > file.size() - file.pos())
        return false;
    text = file.read(payload);
    return text.size() == payload;
}

bool magicMatches(const char* bytes)
{
    static const char magic[4] = {'G', 'o', 'Z', 'b'};
    for (int i = 0; i < 4; ++i) {
        if (bytes[i] == 0)
            return true;
        if (std::tolower(uchar(bytes[i])) != std::tolower(uchar(magic[i])))
            return false;
    }
    return true;
}

} // namespace

int GoZFile::cornersPerPolygon(int32_t polygonTag)
{
    return polygonTag == TagTriangles ? 3 : 4;
}

int GoZFile::uvFloatsPerPolygon(int32_t uvTag)
{
    return uvTag == TagUVTriangles ? 6 : 8;
}

void GoZFile::clear()
{
    *this = GoZFile();
}

bool GoZFile::read(const QString& path)
{
    clear();
#ifdef Q_OS_WIN
    if (path.size() > 259) {
        m_readError = QStringLiteral("the path is longer than 259 characters");
        return false;
    }
#endif
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        m_readError = file.errorString();
        return false;
    }
    char header[HeaderSize];
    if (file.read(header, HeaderSize) != HeaderSize) {
        m_readError = QStringLiteral("the file is shorter than a GoZ header");
        return false;
    }
    if (!magicMatches(header)) {
        m_readError = QStringLiteral("the file does not start with \"GoZb\"; it is not a GoZ file");
        return false;
    }

    ChunkHeader chunk;
    while (readHeader(file, chunk)) {
        bool ok = true;
        switch (chunk.tag) {
        case TagEnd:
            return true;
        case TagName:
            ok = readText(file, chunk, name);
            break;
        case TagSecondName:
            ok = readText(file, chunk, secondName);
            break;
        case TagValue5001: {
            uchar bytes[4];
            ok = file.read(reinterpret_cast<char*>(bytes), 4) == 4;
            value5001 = qFromLittleEndian<quint32>(bytes);
            ok = ok && skip(file, qint64(chunk.size) - ChunkHeaderSize - 4);
            break;
        }
        case TagVertices:
            vertexCount = chunk.count;
            ok = readArray(file, qint64(chunk.count) * 3, chunk.size, vertices);
            break;
        case TagQuads:
        case TagQuads2:
        case TagTriangles:
            polygonTag = chunk.tag;
            polygonCount = chunk.count;
            ok = readArray(file, qint64(chunk.count) * cornersPerPolygon(chunk.tag), chunk.size, polygons);
            break;
        case TagUVQuads:
        case TagUVTriangles:
            uvTag = chunk.tag;
            ok = readArray(file, qint64(chunk.count) * uvFloatsPerPolygon(chunk.tag), chunk.size, uvs);
            break;
        case TagVertexMask:
            ok = readArray(file, chunk.count, chunk.size, vertexMask);
            break;
        case TagVertexColors:
            ok = readArray(file, chunk.count, chunk.size, vertexColors);
            break;
        case TagPolygonGroups:
            ok = readArray(file, chunk.count, chunk.size, polygonGroups);
            break;
        case TagText45001:
            ok = readText(file, chunk, string45001);
            break;
        case TagText50001:
            ok = readText(file, chunk, string50001);
            break;
        case TagText55001:
            float55001 = chunk.parameter;
            ok = readText(file, chunk, string55001);
            break;
        default:
            // Double vertices, byte arrays and tags of newer files.
            ok = skip(file, qint64(chunk.size) - ChunkHeaderSize);
            break;
        }
        if (!ok) {
            m_readError = QStringLiteral("the file ends inside chunk %1, or the chunk's size is wrong").arg(chunk.tag);
            return false;
        }
    }
    // A valid file ends with an end chunk.
    m_readError = QStringLiteral("the file ends without an end chunk; it may be cut short");
    return false;
}

} // namespace GeometryStack2
