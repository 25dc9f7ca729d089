#include "GoZMappedFile.h"

#include <QtEndian>

#include <cctype>

#ifdef Q_OS_LINUX
#include <sys/mman.h>
#endif

namespace GeometryStack2 {

namespace {

bool magicMatches(const uchar* bytes)
{
    static const char magic[4] = {'G', 'o', 'Z', 'b'};
    for (int i = 0; i < 4; ++i) {
        if (bytes[i] == 0)
            return true;
        if (std::tolower(bytes[i]) != std::tolower(uchar(magic[i])))
            return false;
    }
    return true;
}

/// A position in the mapped bytes, moved the way reading and seeking would
/// move a file's: skipping may go past the end, and then nothing more can be
/// read.
struct Cursor
{
    const uchar* data;
    qint64 size;
    qint64 pos;

    qint64 remaining() const { return size - pos; }
    bool skip(qint64 bytes)
    {
        if (bytes > 0)
            pos += bytes;
        return true;
    }
    /// `count` elements of type T, then skips any bytes the chunk of
    /// `chunkSize` bytes holds beyond them.
    template <typename T> bool array(qint64 count, qint32 chunkSize, GoZArray<T>& values)
    {
        values = GoZArray<T>();
        if (count <= 0)
            return true;
        const qint64 payload = count * qint64(sizeof(T));
        if (payload > remaining())
            return false;
        values = GoZArray<T>::inFile(data + pos, size_t(count));
        pos += payload;
        return skip(qint64(chunkSize) - GoZFile::ChunkHeaderSize - payload);
    }
    bool text(qint32 chunkSize, QByteArray& text)
    {
        text = QByteArray();
        const qint64 payload = qint64(chunkSize) - GoZFile::ChunkHeaderSize;
        if (payload <= 0)
            return true;
        if (payload > remaining())
            return false;
        text = QByteArray(reinterpret_cast<const char*>(data + pos), int(payload));
        pos += payload;
        return true;
    }
};

} // namespace

GoZMappedFile::~GoZMappedFile()
{
    if (m_data)
        m_file.unmap(m_data);
}

bool GoZMappedFile::open(const QString& path)
{
#ifdef Q_OS_WIN
    if (path.size() > 259) {
        m_readError = QStringLiteral("the path is longer than 259 characters");
        return false;
    }
#endif
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly)) {
        m_readError = m_file.errorString();
        return false;
    }
    const qint64 size = m_file.size();
    if (size < GoZFile::HeaderSize) {
        m_readError = QStringLiteral("the file is shorter than a GoZ header");
        return false;
    }
    m_data = m_file.map(0, size);
    if (!m_data) {
        m_readError = m_file.errorString();
        return false;
    }
#if defined(Q_OS_LINUX) && defined(MADV_POPULATE_READ)
    // One call maps the whole file, where touching it would fault page by
    // page; advice only, failure is harmless.
    madvise(m_data, size_t(size), MADV_POPULATE_READ);
#endif
    if (!magicMatches(m_data)) {
        m_readError = QStringLiteral("the file does not start with \"GoZb\"; it is not a GoZ file");
        return false;
    }
    return walk(m_data, size);
}

GoZFile GoZMappedFile::toFile() const
{
    GoZFile file = m_fields;
    m_arrays.vertices.copyTo(file.vertices);
    m_arrays.polygons.copyTo(file.polygons);
    m_arrays.uvs.copyTo(file.uvs);
    m_arrays.vertexMask.copyTo(file.vertexMask);
    m_arrays.vertexColors.copyTo(file.vertexColors);
    m_arrays.polygonGroups.copyTo(file.polygonGroups);
    return file;
}

bool GoZMappedFile::walk(const uchar* data, qint64 size)
{
    Cursor at{data, size, GoZFile::HeaderSize};
    GoZFile& f = m_fields;
    GoZArrays& a = m_arrays;
    while (at.remaining() >= GoZFile::ChunkHeaderSize) {
        const uchar* header = data + at.pos;
        const qint32 tag = qFromLittleEndian<qint32>(header);
        const qint32 chunkSize = qFromLittleEndian<qint32>(header + 4);
        const qint32 count = qFromLittleEndian<qint32>(header + 8);
        const float parameter = qFromLittleEndian<float>(header + 12);
        at.pos += GoZFile::ChunkHeaderSize;
        bool ok = true;
        switch (tag) {
        case GoZFile::TagEnd:
            f.vertexCount = a.vertexCount;
            f.polygonCount = a.polygonCount;
            f.polygonTag = a.polygonTag;
            f.uvTag = a.uvTag;
            return true;
        case GoZFile::TagName:
            ok = at.text(chunkSize, f.name);
            break;
        case GoZFile::TagSecondName:
            ok = at.text(chunkSize, f.secondName);
            break;
        case GoZFile::TagValue5001:
            ok = at.remaining() >= 4;
            if (ok) {
                f.value5001 = qFromLittleEndian<quint32>(data + at.pos);
                at.pos += 4;
            }
            ok = ok && at.skip(qint64(chunkSize) - GoZFile::ChunkHeaderSize - 4);
            break;
        case GoZFile::TagVertices:
            a.vertexCount = count;
            ok = at.array(qint64(count) * 3, chunkSize, a.vertices);
            break;
        case GoZFile::TagQuads:
        case GoZFile::TagQuads2:
        case GoZFile::TagTriangles:
            a.polygonTag = tag;
            a.polygonCount = count;
            ok = at.array(qint64(count) * GoZFile::cornersPerPolygon(tag), chunkSize, a.polygons);
            break;
        case GoZFile::TagUVQuads:
        case GoZFile::TagUVTriangles:
            a.uvTag = tag;
            ok = at.array(qint64(count) * GoZFile::uvFloatsPerPolygon(tag), chunkSize, a.uvs);
            break;
        case GoZFile::TagVertexMask:
            ok = at.array(count, chunkSize, a.vertexMask);
            break;
        case GoZFile::TagVertexColors:
            ok = at.array(count, chunkSize, a.vertexColors);
            break;
        case GoZFile::TagPolygonGroups:
            ok = at.array(count, chunkSize, a.polygonGroups);
            break;
        case GoZFile::TagText45001:
            ok = at.text(chunkSize, f.string45001);
            break;
        case GoZFile::TagText50001:
            ok = at.text(chunkSize, f.string50001);
            break;
        case GoZFile::TagText55001:
            f.float55001 = parameter;
            ok = at.text(chunkSize, f.string55001);
            break;
        default:
            // Double vertices, byte arrays and tags of newer files.
            ok = at.skip(qint64(chunkSize) - GoZFile::ChunkHeaderSize);
            break;
        }
        if (!ok) {
            m_readError = QStringLiteral("the file ends inside chunk %1, or the chunk's size is wrong").arg(tag);
            return false;
        }
    }
    // A valid file ends with an end chunk.
    m_readError = QStringLiteral("the file ends without an end chunk; it may be cut short");
    return false;
}

} // namespace GeometryStack2
