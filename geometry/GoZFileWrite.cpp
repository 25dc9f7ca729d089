#include "GoZFile.h"

#include <QSaveFile>
#include <QtEndian>

#include <cstring>

namespace GeometryStack2 {

namespace {

class ChunkWriter
{
public:
    explicit ChunkWriter(QFileDevice& file) : m_file(file) {}

    bool header(int32_t tag, qint64 size, int32_t count, float parameter = 0.0f)
    {
        uchar bytes[GoZFile::ChunkHeaderSize];
        qToLittleEndian<qint32>(tag, bytes);
        qToLittleEndian<qint32>(qint32(size), bytes + 4);
        qToLittleEndian<qint32>(count, bytes + 8);
        qToLittleEndian<float>(parameter, bytes + 12);
        return raw(bytes, sizeof bytes);
    }

    template <typename T> bool array(int32_t tag, int32_t count, const std::vector<T>& values)
    {
        const qint64 payload = qint64(values.size() * sizeof(T));
        if (!header(tag, GoZFile::ChunkHeaderSize + payload, count))
            return false;
        if (QSysInfo::ByteOrder == QSysInfo::LittleEndian)
            return raw(values.data(), payload);
        for (T v : values) {
            const T le = qToLittleEndian(v);
            if (!raw(&le, sizeof le))
                return false;
        }
        return true;
    }

    /// Text chunks carry the text and its zero byte, padded to a multiple of
    /// four by seeking, so the padding bytes are whatever the file system
    /// fills holes with: zeros.
    bool text(int32_t tag, const QByteArray& text, float parameter = 0.0f)
    {
        const qint64 length = qint64(qstrnlen(text.constData(), uint(text.size())));
        const qint64 payload = length + 1;
        const qint64 padding = ((length + 4) / 4) * 4 - payload;
        if (!header(tag, GoZFile::ChunkHeaderSize + payload + padding, 1, parameter))
            return false;
        if (!raw(text.constData(), length) || !raw("", 1))
            return false;
        return padding == 0 || m_file.seek(m_file.pos() + padding);
    }

    bool raw(const void* data, qint64 size)
    {
        return size == 0 || m_file.write(static_cast<const char*>(data), size) == size;
    }

private:
    QFileDevice& m_file;
};

bool isKnownPolygonTag(int32_t tag)
{
    return tag == GoZFile::TagQuads || tag == GoZFile::TagQuads2 || tag == GoZFile::TagTriangles;
}

bool isKnownUVTag(int32_t tag)
{
    return tag == GoZFile::TagUVQuads || tag == GoZFile::TagUVTriangles;
}

} // namespace

bool GoZFile::write(const QString& path) const
{
    if (vertices.size() != size_t(vertexCount) * 3)
        return false;
    // Written beside the target and renamed over it at the end, so a reader
    // never sees a half-written file and a failed write keeps the old one.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    ChunkWriter out(file);

    char header[HeaderSize] = {};
    std::memcpy(header, "GoZb", 4);
    std::strncpy(header + 4, "Exported by GoZ SDK", 26);
    if (!out.raw(header, HeaderSize))
        return false;

    if (!name.isNull() && !out.text(TagName, name))
        return false;
    if (!secondName.isNull() && !out.text(TagSecondName, secondName))
        return false;
    uchar value[4];
    qToLittleEndian<quint32>(value5001, value);
    if (!out.header(TagValue5001, ChunkHeaderSize + 4, 1) || !out.raw(value, 4))
        return false;
    if (!out.array(TagVertices, vertexCount, vertices))
        return false;
    if (polygonTag != 0) {
        const bool ok = isKnownPolygonTag(polygonTag) ? out.array(polygonTag, polygonCount, polygons)
                                                      : out.header(polygonTag, ChunkHeaderSize, polygonCount);
        if (!ok)
            return false;
    }
    if (uvTag != 0 && !uvs.empty()) {
        // As many polygons as the UVs read cover, which a foreign file may
        // give for fewer polygons than it has.
        const bool ok = isKnownUVTag(uvTag)
                            ? out.array(uvTag, int32_t(uvs.size() / size_t(uvFloatsPerPolygon(uvTag))), uvs)
                            : out.header(uvTag, ChunkHeaderSize, polygonCount);
        if (!ok)
            return false;
    }
    // These chunks' count is their length: a file read with a shorter mask,
    // colour or group chunk than it has vertices or polygons must not be
    // written back claiming more values than follow.
    if (!vertexMask.empty() && !out.array(TagVertexMask, int32_t(vertexMask.size()), vertexMask))
        return false;
    if (!vertexColors.empty() && !out.array(TagVertexColors, int32_t(vertexColors.size()), vertexColors))
        return false;
    if (!polygonGroups.empty() && !out.array(TagPolygonGroups, int32_t(polygonGroups.size()), polygonGroups))
        return false;
    if (!string45001.isNull() && !out.text(TagText45001, string45001))
        return false;
    if (!string50001.isNull() && !out.text(TagText50001, string50001))
        return false;
    if (!string55001.isNull() && !out.text(TagText55001, string55001, float55001))
        return false;
    // The end chunk alone has a size field of 0.
    if (!out.header(TagEnd, 0, 0))
        return false;
    return file.commit();
}

} // namespace GeometryStack2
