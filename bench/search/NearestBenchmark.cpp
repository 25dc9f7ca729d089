// Nearest-point queries: our accelerated and classic k-d trees against
// nanoflann on the same points and queries, one thread and all threads.
//
//   nearest [--points N] [--queries N] [--scan FILE.obj]
#include "geometry/GeomStackTriangulated.h"
#include "search/KDTree.h"
#include "search/KDTreeAcceleratedVersion.h"

#include <nanoflann.hpp>

#include <QCoreApplication>
#include <QDir>
#include <QStringList>

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <fmt/format.h>

#include <chrono>
#include <functional>
#include <memory>
#include <random>

namespace {

using Vec3 = Eigen::Vector3f;

struct Cloud
{
    std::vector<Vec3> points;
    size_t kdtree_get_point_count() const { return points.size(); }
    float kdtree_get_pt(size_t i, size_t d) const { return points[i][int(d)]; }
    template <class Box> bool kdtree_get_bbox(Box&) const { return false; }
};

using Nanoflann = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud, 3, uint32_t>;

double seconds(const std::function<void()>& job)
{
    const auto start = std::chrono::steady_clock::now();
    job();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Points sampled uniformly by area on a mesh's surface, and queries near it.
void sampleSurface(const GeometryStack2::GeomStackTriangulated& mesh, size_t count, size_t queryCount,
                   std::vector<Vec3>& points, std::vector<Vec3>& queries)
{
    const QVector<int>& t = mesh.triangleVertexIndices();
    const QVector<QVector3D>& v = mesh.vertices();
    std::vector<double> cumulative;
    double total = 0;
    for (int i = 0; i < t.size(); i += 3) {
        total += 0.5 * double(QVector3D::crossProduct(v[t[i + 1]] - v[t[i]], v[t[i + 2]] - v[t[i]]).length());
        cumulative.push_back(total);
    }
    QVector3D lo = v[0], hi = v[0];
    for (const QVector3D& p : v)
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    // Queries a little off the surface, as a fit's vertices are near the scan.
    const float noise = 0.002f * (hi - lo).length();
    std::mt19937 random(11);
    std::uniform_real_distribution<double> area(0.0, total);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::normal_distribution<float> jitter(0.0f, noise);
    const auto sample = [&] {
        const size_t tri = size_t(std::lower_bound(cumulative.begin(), cumulative.end(), area(random)) - cumulative.begin());
        float a = unit(random), b = unit(random);
        if (a + b > 1) {
            a = 1 - a;
            b = 1 - b;
        }
        const QVector3D p = v[t[int(3 * tri)]] * (1 - a - b) + v[t[int(3 * tri + 1)]] * a + v[t[int(3 * tri + 2)]] * b;
        return Vec3(p.x(), p.y(), p.z());
    };
    points.resize(count);
    for (Vec3& p : points)
        p = sample();
    queries.resize(queryCount);
    for (Vec3& q : queries)
        q = sample() + Vec3(jitter(random), jitter(random), jitter(random));
}

void uniformCloud(size_t count, size_t queryCount, std::vector<Vec3>& points, std::vector<Vec3>& queries)
{
    std::mt19937 random(12);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    points.resize(count);
    for (Vec3& p : points)
        p = Vec3(u(random), u(random), u(random));
    queries.resize(queryCount);
    for (Vec3& q : queries)
        q = Vec3(u(random), u(random), u(random));
}

/// Runs `query(i)` over all queries on `threads` threads; returns queries/s.
double rate(size_t queries, int threads, const std::function<void(size_t, size_t)>& range)
{
    tbb::task_arena arena(threads);
    double best = 1e30;
    for (int run = 0; run < 3; ++run) {
        best = std::min(best, seconds([&] {
                            arena.execute([&] {
                                tbb::parallel_for(tbb::blocked_range<size_t>(0, queries, 4096),
                                                  [&](const tbb::blocked_range<size_t>& r) { range(r.begin(), r.end()); });
                            });
                        }));
    }
    return double(queries) / best;
}

void runCase(const char* name, const std::vector<Vec3>& points, const std::vector<Vec3>& queries)
{
    QVector<QVector3D> qpoints;
    qpoints.reserve(int(points.size()));
    for (const Vec3& p : points)
        qpoints.append(QVector3D(p.x(), p.y(), p.z()));
    Cloud cloud{points};

    std::unique_ptr<KDTreeAcceleratedVersion::Node<float, long long>> fast;
    std::unique_ptr<KDTree::NodeBase> classic;
    std::unique_ptr<Nanoflann> nano;
    const double buildFast = seconds([&] { fast.reset(KDTreeAcceleratedVersion::build<float, long long>(points, 128)); });
    const double buildClassic = seconds([&] { classic.reset(KDTree::build(qpoints, 128)); });
    const double buildNano = seconds([&] { nano = std::make_unique<Nanoflann>(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(10)); });

    std::vector<float> fastDistance(queries.size()), nanoDistance(queries.size());
    const auto fastRange = [&](size_t b, size_t e) {
        for (size_t i = b; i < e; ++i)
            fast->findNearestPointInd(queries[i], points, &fastDistance[i]);
    };
    const auto classicRange = [&](size_t b, size_t e) {
        float d;
        for (size_t i = b; i < e; ++i)
            classic->findNearestPointInd(QVector3D(queries[i].x(), queries[i].y(), queries[i].z()), qpoints, &d);
    };
    const auto nanoRange = [&](size_t b, size_t e) {
        for (size_t i = b; i < e; ++i) {
            uint32_t index;
            nano->knnSearch(queries[i].data(), 1, &index, &nanoDistance[i]);
        }
    };
    const int cores = tbb::this_task_arena::max_concurrency();
    for (int threads : {1, cores}) {
        const double nanoRate = rate(queries.size(), threads, nanoRange);
        const double fastRate = rate(queries.size(), threads, fastRange);
        const double classicRate = rate(queries.size(), threads, classicRange);
        fmt::print("| {} | {} | accelerated (leaf 128) | {:.2f} | {:.2f} M/s | {:.2f}x |\n", name, threads, buildFast,
                   fastRate / 1e6, fastRate / nanoRate);
        fmt::print("| {} | {} | classic (leaf 128) | {:.2f} | {:.2f} M/s | {:.2f}x |\n", name, threads, buildClassic,
                   classicRate / 1e6, classicRate / nanoRate);
        fmt::print("| {} | {} | nanoflann 1.4.2 (leaf 10) | {:.2f} | {:.2f} M/s | 1.00x |\n", name, threads, buildNano,
                   nanoRate / 1e6);
        std::fflush(stdout);
    }
    size_t disagreements = 0;
    for (size_t i = 0; i < queries.size(); ++i)
        if (fastDistance[i] != nanoDistance[i])
            ++disagreements;
    fmt::print("| {} | | distances differing from nanoflann: {} of {} | | | |\n", name, disagreements, queries.size());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    size_t pointCount = 1000000, queryCount = 1000000;
    QString scan = QStringLiteral(ZWELK_SHARED_DATA "/bcpd-bodies/13.obj");
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--points"))
            pointCount = args[i + 1].toULongLong();
        else if (args[i] == QLatin1String("--queries"))
            queryCount = args[i + 1].toULongLong();
        else if (args[i] == QLatin1String("--scan"))
            scan = args[i + 1];
    }
    fmt::print("| points | threads | tree | build s | queries/s | vs nanoflann |\n|---|---|---|---|---|---|\n");
    std::vector<Vec3> points, queries;
    uniformCloud(pointCount, queryCount, points, queries);
    runCase("uniform cube", points, queries);

    QString error;
    const GeometryStack2::GeomStackTriangulated mesh(scan, error, nullptr, GeometryStack2::GeomStack::GraphLoader);
    if (!error.isEmpty()) {
        fmt::print(stderr, "scan {}: {}\n", scan.toStdString(), error.toStdString());
        return 1;
    }
    sampleSurface(mesh, pointCount, queryCount, points, queries);
    runCase("scan surface", points, queries);
    return 0;
}
