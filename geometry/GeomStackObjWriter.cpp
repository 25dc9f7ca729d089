// GeomStack::saveObj: the OBJ text the program writes.
#include "GeomStack.h"

#include "ProgressInterface.h"

#include <QSaveFile>

#include <fmt/format.h>

namespace GeometryStack2 {

namespace {

/// Buffers text and hands it to the file in large blocks.
class ObjTextSink
{
public:
    explicit ObjTextSink(QFileDevice& file) : m_file(file) {}
    ~ObjTextSink() { flush(); }

    template <typename... Args> void write(fmt::format_string<Args...> format, Args&&... args)
    {
        fmt::format_to(std::back_inserter(m_buffer), format, std::forward<Args>(args)...);
        if (m_buffer.size() > (1 << 20))
            flush();
    }
    bool flush()
    {
        if (m_buffer.size() > 0 && m_ok)
            m_ok = m_file.write(m_buffer.data(), qint64(m_buffer.size())) == qint64(m_buffer.size());
        m_buffer.clear();
        return m_ok;
    }

private:
    QFileDevice& m_file;
    fmt::memory_buffer m_buffer;
    bool m_ok = true;
};

/// Reports every `step` items with the label of the current section.
class SaveProgress
{
public:
    SaveProgress(Welk::ProgressInterface* progress, long long total) : m_progress(progress)
    {
        m_step = qMax(1ll, total / 100);
        if (m_progress)
            m_progress->start(QStringLiteral("Saving to obj file"), total);
    }
    ~SaveProgress()
    {
        if (m_progress)
            m_progress->end();
    }
    void advance(const QString& label)
    {
        ++m_done;
        if (m_progress && m_done % m_step == 0)
            m_progress->setValue(m_done, label);
    }

private:
    Welk::ProgressInterface* m_progress;
    long long m_step = 1;
    long long m_done = 0;
};

} // namespace

bool GeomStack::saveObj(const QString& path, bool saveTexCoords, bool saveNormals,
                        Welk::ProgressInterface* progress, QString* error) const
{
    // Renamed over `path` only when complete: a failed write keeps the old file.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        if (error)
            *error = QStringLiteral("Cannot open file %1").arg(path);
        return false;
    }
    const bool withTex = saveTexCoords && !m_texCoordIndices.isEmpty();
    const bool withNormals = saveNormals && !m_vertexIndices.isEmpty();

    long long total = m_vertices.size() + polygonCount();
    if (withTex)
        total += m_texCoords.size();
    if (withNormals)
        total += m_normals.size();
    SaveProgress report(progress, total);
    ObjTextSink out(file);

    if (!m_mtllib.isEmpty())
        out.write("mtllib {}\n\n", m_mtllib.toStdString());

    const QString vertexLabel = QStringLiteral("Saving vertices");
    for (const QVector3D& v : m_vertices) {
        out.write("v {:.6f} {:.6f} {:.6f}\n", v.x(), v.y(), v.z());
        report.advance(vertexLabel);
    }
    out.write("# {} vertices\n\n", m_vertices.size());

    if (withTex) {
        const QString label = QStringLiteral("Saving texture coordinates");
        for (const QVector2D& t : m_texCoords) {
            out.write("vt {:.6f} {:.6f}\n", t.x(), t.y());
            report.advance(label);
        }
        if (!m_texCoords.isEmpty())
            out.write("# {} texture coords\n\n", m_texCoords.size());
    }

    if (withNormals && !m_normals.isEmpty()) {
        const QString label = QStringLiteral("Saving normals");
        for (const QVector3D& n : m_normals) {
            out.write("vn {:.6f} {:.6f} {:.6f}\n", n.x(), n.y(), n.z());
            report.advance(label);
        }
        out.write("# {} vertex normals\n\n", m_normals.size());
    }

    const auto nameOf = [](const QStringList& names, int id) {
        // GoZ meshes number their groups rather than index the names.
        return (id >= 0 && id < names.size()) ? names[id].toStdString() : std::to_string(id);
    };
    const QString polygonLabel = QStringLiteral("Saving polygons");
    int previousGroup = -1;
    int previousMaterial = -1;
    const int count = polygonCount();
    for (int p = 0; p < count; ++p) {
        const int group = p < m_polygroupIds.size() ? m_polygroupIds[p] : -1;
        if (group != -1 && group != previousGroup)
            out.write("g {}\n", nameOf(m_polygroupNames, group));
        previousGroup = group;
        const int material = p < m_materialIds.size() ? m_materialIds[p] : -1;
        if (material != -1 && material != previousMaterial)
            out.write("usemtl {}\n", nameOf(m_materialNames, material));
        previousMaterial = material;

        out.write("f");
        for (int c = m_polygonOffsets[p]; c < m_polygonOffsets[p + 1]; ++c) {
            const int v = m_vertexIndices[c] + 1;
            if (withTex && withNormals)
                out.write(" {}/{}/{}", v, m_texCoordIndices[c] + 1, v);
            else if (withTex)
                out.write(" {}/{}", v, m_texCoordIndices[c] + 1);
            else if (withNormals)
                out.write(" {}//{}", v, v);
            else
                out.write(" {}", v);
        }
        out.write("\n");
        report.advance(polygonLabel);
    }
    out.write("# {} polygons\n", count);

    if (!out.flush() || !file.commit()) {
        if (error)
            *error = QStringLiteral("Cannot write file %1").arg(path);
        return false;
    }
    return true;
}

} // namespace GeometryStack2
