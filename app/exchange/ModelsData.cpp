#include "ModelsData.h"

#include "ModelsDataGoz.h"
#include "ModelsDataObj.h"

#include "geometry/HugePages.h"

#include <QFile>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>
#include <vector>

namespace WelkPlugin {

ModelsData::ModelsData(const ExchangeFolder& exchange) : m_exchange(exchange) {}

ModelsData::~ModelsData() = default;

bool ModelsData::loadTexture(const QString& path, QString& error, int index)
{
    if (!QFile::exists(path)) {
        error = QStringLiteral("Texture file does not exist: \n%1").arg(path);
        return false;
    }
    m_textures[index].load(path);
    if (m_textures[index].isNull()) {
        error = QStringLiteral("Texture file is corrupted or cannot be read:\n %1").arg(path);
        return false;
    }
    return true;
}

void ModelsData::setCorrespondencePoints(const QVector<Welk::WPointOnTriangle>& points, int index)
{
    m_correspondencePoints[index] = points;
}

void ModelsData::setSplinePoints(const QVector<Welk::WPointOnTriangle>& points, int index)
{
    m_splinePoints[index] = points;
}

QVector<Welk::WPointOnTriangle> ModelsData::allPoints(int index) const
{
    if (m_correspondencePoints[index].isEmpty())
        return m_splinePoints[index];
    return m_correspondencePoints[index] + m_splinePoints[index];
}

void ModelsData::setResultVertices(const QVector<QVector3D>& vertices)
{
    m_resultVertices = vertices;
}

void ModelsData::setResultVertices(const std::optional<QMatrix4x4>& transform, const QVector<QVector3D>& vertices)
{
    m_resultVertices = GeometryStack2::GeomStack::transformedVertices(transform, vertices);
}

bool ModelsData::isClean(const GeometryStack2::GeomStack& mesh)
{
    const QVector<int>& offsets = mesh.polygonOffsets();
    const int* corners = mesh.vertexIndices().constData();
    const int polygons = mesh.polygonCount();
    const int cornerCount = mesh.vertexIndices().size();
    // One pass over the polygons: whether one names a vertex twice, and the
    // smallest and largest vertex index.
    struct Scan
    {
        bool repeats = false;
        int smallest = 0;
        int largest = -1;
    };
    const Scan scan = tbb::parallel_reduce(
        tbb::blocked_range<int>(0, polygons, 8192), Scan(),
        [&](const tbb::blocked_range<int>& r, Scan found) {
            for (int p = r.begin(); p < r.end() && !found.repeats; ++p)
                for (int i = offsets[p]; i < offsets[p + 1]; ++i) {
                    found.smallest = std::min(found.smallest, corners[i]);
                    found.largest = std::max(found.largest, corners[i]);
                    for (int j = i + 1; j < offsets[p + 1]; ++j)
                        found.repeats = found.repeats || corners[i] == corners[j];
                }
            return found;
        },
        [](const Scan& a, const Scan& b) {
            return Scan{a.repeats || b.repeats, std::min(a.smallest, b.smallest), std::max(a.largest, b.largest)};
        });
    if (scan.repeats || scan.smallest < 0)
        return false;

    // Every directed edge at most once: the edges are grouped by their first
    // vertex (a counting sort) and each vertex's few outgoing edges compared
    // among themselves. The vertices are split into ranges, and each range
    // walks all corners and takes those at its own vertices: no two threads
    // ever write the same count, so no atomic operation is needed, and
    // reading the corners once per range costs less than one per corner.
    const int vertices = std::max(mesh.vertexCount(), scan.largest + 1);
    // The polygons' corners: the scan and the fill below see no other.
    const int firstCorner = polygons > 0 ? offsets[0] : 0;
    const int lastCorner = polygons > 0 ? offsets[polygons] : 0;
    const int ranges = std::max(1, std::min(vertices / 16384, tbb::this_task_arena::max_concurrency()));
    const auto rangeBegin = [&](int range) { return int(qint64(vertices) * range / ranges); };
    // Lists that the ranges fill themselves: each thread first touches the
    // pages it writes.
    QVector<int> starts, next, ends;
    GeometryStack2::resizeForOverwrite(starts, qint64(vertices) + 1);
    GeometryStack2::resizeForOverwrite(next, vertices);
    GeometryStack2::resizeForOverwrite(ends, cornerCount);
    int* prefix = starts.data();
    int* counts = prefix + 1;
    prefix[0] = 0;
    tbb::parallel_for(0, ranges, [&](int range) {
        const int begin = rangeBegin(range), end = rangeBegin(range + 1);
        std::fill(counts + begin, counts + end, 0);
        for (int c = firstCorner; c < lastCorner; ++c)
            if (corners[c] >= begin && corners[c] < end)
                ++counts[corners[c]];
    });
    for (int v = 0; v < vertices; ++v)
        prefix[v + 1] += prefix[v];
    int* cursors = next.data();
    int* targets = ends.data();
    tbb::parallel_for(0, ranges, [&](int range) {
        const int begin = rangeBegin(range), end = rangeBegin(range + 1);
        std::copy(prefix + begin, prefix + end, cursors + begin);
        for (int p = 0; p < polygons; ++p) {
            const int first = offsets[p], size = offsets[p + 1] - first;
            for (int i = 0; i < size; ++i) {
                const int from = corners[first + i];
                if (from >= begin && from < end)
                    targets[cursors[from]++] = corners[first + (i + 1 < size ? i + 1 : 0)];
            }
        }
    });
    std::atomic<bool> faulty{false};
    tbb::parallel_for(tbb::blocked_range<int>(0, vertices, 16384), [&](const tbb::blocked_range<int>& r) {
        for (int v = r.begin(); v < r.end() && !faulty.load(std::memory_order_relaxed); ++v) {
            int* begin = targets + prefix[v];
            int* end = targets + prefix[v + 1];
            if (end - begin <= 16) {
                // A vertex has a handful of edges: comparing every pair
                // costs less than sorting them.
                for (int* a = begin; a < end; ++a)
                    for (int* b = a + 1; b < end; ++b)
                        if (*a == *b)
                            faulty = true;
                continue;
            }
            std::sort(begin, end);
            if (std::adjacent_find(begin, end) != end)
                faulty = true;
        }
    });
    return !faulty;
}

std::shared_ptr<ModelsData> loadModelsData(const ExchangeFolder& exchange, const QVector<bool>& textureFlags,
                                           QString& error)
{
    error.clear();
    if (exchange.meshFileName(0).endsWith(QLatin1String(".obj"), Qt::CaseSensitive))
        return std::make_shared<ModelsDataObj>(exchange, error);
    return std::make_shared<ModelsDataGoz>(exchange, textureFlags, error);
}

} // namespace WelkPlugin
