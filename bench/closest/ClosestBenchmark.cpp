// Nearest surface point for a batch of query points: our closest-triangle
// tree and SBVH against Embree 3's rtcPointQuery and CGAL's AABB tree, on
// the same mesh and queries in one run.
//
//   closest [--mesh FILE.obj] [--triangles N] [--queries N] [--far PERCENT] [--sbvh-queries N]
//           [--threads 1,2] [--skip-sbvh]
//
// Without --mesh a bumpy closed sphere of about N triangles (default
// 3.34 million, a dense scan's size) is generated. SBVH, whose search
// tests only the split plane, runs on the first --sbvh-queries queries.
#include "geometry/GeomStackTriangulated.h"
#include "search/BvhClosestTriangleFinder.h"
#include "search/SBVHTree.h"
#include "support/BenchMeshes.h"

#include <CGAL/AABB_traits.h>
#include <CGAL/AABB_tree.h>
#include <CGAL/AABB_triangle_primitive.h>
#include <CGAL/Simple_cartesian.h>

#include <embree3/rtcore.h>

#include <QCoreApplication>
#include <QStringList>

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>

namespace {

using BenchMeshes::Mesh;
using BenchMeshes::bumpySphere;
using BenchMeshes::residentMiB;
using BenchMeshes::seconds;

/// Points near the surface (area-uniform samples moved by noise of 0.5% of
/// the box diagonal), as a fit's vertices are, and `farPercent` of them
/// anywhere in the box: deep inside a closed scan every triangle is nearly
/// as far as the nearest, which is the hard case of every such tree.
QVector<QVector3D> makeQueries(const Mesh& m, int count, int farPercent)
{
    const QVector<int>& t = m.indices;
    const QVector<QVector3D>& v = m.vertices;
    std::vector<double> cumulative;
    cumulative.reserve(size_t(t.size() / 3));
    double total = 0;
    QVector3D lo = v[0], hi = v[0];
    for (const QVector3D& p : v)
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    for (int i = 0; i < t.size(); i += 3) {
        total += 0.5 * double(QVector3D::crossProduct(v[t[i + 1]] - v[t[i]], v[t[i + 2]] - v[t[i]]).length());
        cumulative.push_back(total);
    }
    std::mt19937 random(5);
    std::uniform_real_distribution<double> area(0.0, total);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::normal_distribution<float> jitter(0.0f, 0.005f * (hi - lo).length());
    QVector<QVector3D> queries;
    queries.reserve(count);
    for (int i = 0; i < count; ++i) {
        if (i % 100 < farPercent) {
            queries.append(lo + QVector3D(unit(random), unit(random), unit(random)) * (hi - lo));
            continue;
        }
        const int tri =
            int(std::lower_bound(cumulative.begin(), cumulative.end(), area(random)) - cumulative.begin());
        float a = unit(random), b = unit(random);
        if (a + b > 1) {
            a = 1 - a;
            b = 1 - b;
        }
        const QVector3D p = v[t[3 * tri]] * (1 - a - b) + v[t[3 * tri + 1]] * a + v[t[3 * tri + 2]] * b;
        queries.append(p + QVector3D(jitter(random), jitter(random), jitter(random)));
    }
    return queries;
}

// ---- Embree 3: the closest-point query of its tutorial, with Ericson's triangle routine.

QVector3D ericsonClosestPoint(const QVector3D& p, const QVector3D& a, const QVector3D& b, const QVector3D& c)
{
    const QVector3D ab = b - a, ac = c - a, ap = p - a;
    const float d1 = QVector3D::dotProduct(ab, ap), d2 = QVector3D::dotProduct(ac, ap);
    if (d1 <= 0 && d2 <= 0)
        return a;
    const QVector3D bp = p - b;
    const float d3 = QVector3D::dotProduct(ab, bp), d4 = QVector3D::dotProduct(ac, bp);
    if (d3 >= 0 && d4 <= d3)
        return b;
    const QVector3D cp = p - c;
    const float d5 = QVector3D::dotProduct(ab, cp), d6 = QVector3D::dotProduct(ac, cp);
    if (d6 >= 0 && d5 <= d6)
        return c;
    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0 && d1 >= 0 && d3 <= 0)
        return a + d1 / (d1 - d3) * ab;
    const float vb = d5 * d2 - d1 * d6;
    if (vb <= 0 && d2 >= 0 && d6 <= 0)
        return a + d2 / (d2 - d6) * ac;
    const float va = d3 * d6 - d5 * d4;
    if (va <= 0 && (d4 - d3) >= 0 && (d5 - d6) >= 0)
        return b + (d4 - d3) / ((d4 - d3) + (d5 - d6)) * (c - b);
    const float denom = 1.0f / (va + vb + vc);
    return a + ab * (vb * denom) + ac * (vc * denom);
}

struct EmbreeResult
{
    unsigned primitive = RTC_INVALID_GEOMETRY_ID;
    float distance = std::numeric_limits<float>::infinity();
};

struct EmbreeUser
{
    const Mesh* mesh;
    EmbreeResult result;
};

bool embreeQuery(RTCPointQueryFunctionArguments* args)
{
    auto* user = static_cast<EmbreeUser*>(args->userPtr);
    const Mesh& m = *user->mesh;
    const int t = int(args->primID);
    const QVector3D q(args->query->x, args->query->y, args->query->z);
    const QVector3D p = ericsonClosestPoint(q, m.vertices[m.indices[3 * t]], m.vertices[m.indices[3 * t + 1]],
                                            m.vertices[m.indices[3 * t + 2]]);
    const float d = (p - q).length();
    if (d < args->query->radius) {
        args->query->radius = d;
        user->result.primitive = args->primID;
        user->result.distance = d;
        return true;
    }
    return false;
}

// ---- CGAL

using Kernel = CGAL::Simple_cartesian<double>;
using CgalTriangles = std::vector<Kernel::Triangle_3>;
using CgalPrimitive = CGAL::AABB_triangle_primitive<Kernel, CgalTriangles::const_iterator>;
using CgalTree = CGAL::AABB_tree<CGAL::AABB_traits<Kernel, CgalPrimitive>>;

/// Runs `range(begin, end)` over all queries on `threads` threads once; returns queries/s.
double rate(int queries, int threads, const std::function<void(int, int)>& range)
{
    tbb::task_arena arena(threads);
    const double s = seconds([&] {
        arena.execute([&] {
            tbb::parallel_for(tbb::blocked_range<int>(0, queries, 1024),
                              [&](const tbb::blocked_range<int>& r) { range(r.begin(), r.end()); });
        });
    });
    return double(queries) / s;
}

int mismatches(const std::vector<float>& ours, const std::vector<float>& theirs, size_t count_ = 0)
{
    int count = 0;
    for (size_t i = 0; i < (count_ ? count_ : ours.size()); ++i)
        if (!(std::abs(ours[i] - theirs[i]) <= 1e-5f * (1.0f + theirs[i])))
            ++count;
    return count;
}

} // namespace

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const auto option = [&](const QString& name, const QString& fallback) {
        const int i = args.indexOf(name);
        return i >= 0 && i + 1 < args.size() ? args[i + 1] : fallback;
    };
    const QString meshPath = option("--mesh", QString());
    const long long triangleTarget = option("--triangles", "3340000").toLongLong();
    const int queryCount = option("--queries", "1000000").toInt();
    const int farPercent = option("--far", "0").toInt();
    QList<int> threadCounts;
    for (const QString& t : option("--threads", "1,2").split(','))
        threadCounts.append(t.toInt());
    const bool skipSbvh = args.contains("--skip-sbvh");
    const int sbvhQueryCount = std::min(queryCount, option("--sbvh-queries", "100000").toInt());

    Mesh mesh;
    std::string meshName;
    const double loadSeconds = seconds([&] {
        if (meshPath.isEmpty()) {
            mesh = bumpySphere(triangleTarget);
            meshName = "generated bumpy sphere";
        } else {
            QString error;
            const GeometryStack2::GeomStackTriangulated stack(meshPath, error);
            if (!error.isEmpty()) {
                fmt::print(stderr, "{}\n", error.toStdString());
                std::exit(1);
            }
            mesh.vertices = stack.vertices();
            mesh.indices = stack.triangleVertexIndices();
            meshName = meshPath.toStdString();
        }
    });
    const int triangles = mesh.indices.size() / 3;
    const QVector<QVector3D> queries = makeQueries(mesh, queryCount, farPercent);
    fmt::print(
        "mesh: {} ({} triangles, {} vertices), made/loaded in {:.2f} s; {} queries, {}% anywhere in the box; "
        "host threads {}\n",
        meshName, triangles, mesh.vertices.size(), loadSeconds, queryCount, farPercent,
        tbb::this_task_arena::max_concurrency());

    // Builds, one after the other, each measured by its time and the growth of resident memory.
    double rss = residentMiB();
    std::unique_ptr<ClosestTriangleSearch::BvhClosestTriangleFinder> bvh;
    ClosestTriangleSearch::BvhParameters parameters;
    parameters.useParallelThreshold = true;
    const double bvhBuild = seconds([&] {
        bvh = std::make_unique<ClosestTriangleSearch::BvhClosestTriangleFinder>(mesh.vertices, mesh.indices,
                                                                                parameters);
    });
    const double bvhMiB = residentMiB() - rss;

    rss = residentMiB();
    std::unique_ptr<SBVH::SBVHTree> sbvh;
    double sbvhBuild = 0;
    if (!skipSbvh)
        sbvhBuild = seconds([&] {
            SBVH::SBVHMultithreadRecursiveBuilder builder(mesh.vertices, mesh.indices);
            sbvh = std::make_unique<SBVH::SBVHTree>(builder);
        });
    const double sbvhMiB = residentMiB() - rss;

    rss = residentMiB();
    RTCDevice device = rtcNewDevice(nullptr);
    RTCScene scene = nullptr;
    std::vector<float> embreeVertices;
    const double embreeBuild = seconds([&] {
        scene = rtcNewScene(device);
        RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
        // Embree reads 16 bytes at each vertex: one spare float at the end.
        embreeVertices.resize(size_t(3 * mesh.vertices.size() + 1));
        for (int i = 0; i < mesh.vertices.size(); ++i)
            for (int a = 0; a < 3; ++a)
                embreeVertices[size_t(3 * i + a)] = mesh.vertices[i][a];
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                   embreeVertices.data(), 0, 3 * sizeof(float), size_t(mesh.vertices.size()));
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                   mesh.indices.constData(), 0, 3 * sizeof(int), size_t(triangles));
        rtcCommitGeometry(geometry);
        rtcAttachGeometry(scene, geometry);
        rtcReleaseGeometry(geometry);
        rtcCommitScene(scene);
    });
    const double embreeMiB = residentMiB() - rss;

    rss = residentMiB();
    CgalTriangles cgalTriangles;
    CgalTree cgal;
    const double cgalBuild = seconds([&] {
        cgalTriangles.reserve(size_t(triangles));
        const auto point = [&](int i) {
            const QVector3D& v = mesh.vertices[mesh.indices[i]];
            return Kernel::Point_3(v.x(), v.y(), v.z());
        };
        for (int t = 0; t < triangles; ++t)
            cgalTriangles.emplace_back(point(3 * t), point(3 * t + 1), point(3 * t + 2));
        cgal.insert(cgalTriangles.cbegin(), cgalTriangles.cend());
        cgal.build();
        cgal.accelerate_distance_queries();
    });
    const double cgalMiB = residentMiB() - rss;

    fmt::print("\n| structure | build s | resident MiB | own bytes MiB |\n|---|---|---|---|\n");
    fmt::print("| closest-triangle tree (spatial splits: {}) | {:.2f} | {:.0f} | {:.0f} |\n",
               bvh->spatialSplitCount(), bvhBuild, bvhMiB, double(bvh->memoryBytes()) / 1048576.0);
    if (sbvh)
        fmt::print("| SBVH ({} leaves, {} inner) | {:.2f} | {:.0f} | {:.0f} |\n", sbvh->leafCount(),
                   sbvh->innerCount(), sbvhBuild, sbvhMiB, double(sbvh->memoryBytes()) / 1048576.0);
    fmt::print("| Embree 3 scene | {:.2f} | {:.0f} | |\n", embreeBuild, embreeMiB);
    fmt::print("| CGAL AABB tree + distance acceleration | {:.2f} | {:.0f} | |\n", cgalBuild, cgalMiB);
    fmt::print("build ratios: CGAL / ours {:.2f}x, Embree / ours {:.2f}x\n", cgalBuild / bvhBuild,
               embreeBuild / bvhBuild);

    const size_t n = static_cast<size_t>(queryCount);
    std::vector<float> oursD(n), sbvhD(n), embreeD(n), cgalD(n);
    const auto oursRange = [&](int b, int e) {
        for (int i = b; i < e; ++i) {
            float d = std::numeric_limits<float>::max();
            bvh->find(queries[i], &d);
            oursD[size_t(i)] = d;
        }
    };
    const auto sbvhRange = [&](int b, int e) {
        QVector3D closest;
        for (int i = b; i < e; ++i) {
            sbvh->findClosestTriangle(queries[i], closest);
            sbvhD[size_t(i)] = (closest - queries[i]).length();
        }
    };
    const auto embreeRange = [&](int b, int e) {
        for (int i = b; i < e; ++i) {
            RTCPointQuery q;
            q.x = queries[i].x();
            q.y = queries[i].y();
            q.z = queries[i].z();
            q.time = 0.0f;
            q.radius = std::numeric_limits<float>::infinity();
            RTCPointQueryContext context;
            rtcInitPointQueryContext(&context);
            EmbreeUser user{&mesh, {}};
            rtcPointQuery(scene, &q, &context, embreeQuery, &user);
            embreeD[size_t(i)] = user.result.distance;
        }
    };
    const auto cgalRange = [&](int b, int e) {
        for (int i = b; i < e; ++i) {
            const Kernel::Point_3 p(queries[i].x(), queries[i].y(), queries[i].z());
            cgalD[size_t(i)] = float(std::sqrt(cgal.squared_distance(p)));
        }
    };

    fmt::print("\n| threads | structure | queries/s | ours vs it |\n|---|---|---|---|\n");
    for (int threads : threadCounts) {
        const double ours = rate(queryCount, threads, oursRange);
        const double embree = rate(queryCount, threads, embreeRange);
        const double cgalRate = rate(queryCount, threads, cgalRange);
        fmt::print("| {} | closest-triangle tree | {:.3f} M/s | 1.00x |\n", threads, ours / 1e6);
        if (sbvh) {
            const double s = rate(sbvhQueryCount, threads, sbvhRange);
            fmt::print("| {} | SBVH (first {} queries) | {:.4f} M/s | {:.2f}x |\n", threads, sbvhQueryCount,
                       s / 1e6, ours / s);
        }
        fmt::print("| {} | Embree 3 rtcPointQuery | {:.3f} M/s | {:.2f}x |\n", threads, embree / 1e6,
                   ours / embree);
        fmt::print("| {} | CGAL AABB tree | {:.3f} M/s | {:.2f}x |\n", threads, cgalRate / 1e6,
                   ours / cgalRate);
    }
    fmt::print("\ndistance mismatches against CGAL (double precision) beyond 1e-5 relative: ours {}, SBVH "
               "{}, Embree {}\n",
               mismatches(oursD, cgalD), sbvh ? mismatches(sbvhD, cgalD, size_t(sbvhQueryCount)) : -1,
               mismatches(embreeD, cgalD));

    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
    return 0;
}
