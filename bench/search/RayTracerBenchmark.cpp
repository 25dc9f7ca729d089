// Picking on a dense scan: Embree scene build time and single-ray picks,
// against a brute-force ray/triangle loop (Moeller-Trumbore over every
// triangle) on the same rays, in one run.
//
//   ray_bench [--grid N] [--picks N] [MESH.obj]
// Without a mesh: a bumpy closed-off height field of 2 N^2 triangles
// (N = 1292 gives 3.34 million, the size of a dense scan).
#include "geometry/GeomStackTriangulated.h"
#include "search/WRayTracerEmbree.h"

#include <QCoreApplication>
#include <QStringList>

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <random>

namespace {

double seconds(const std::function<void()>& job)
{
    const auto start = std::chrono::steady_clock::now();
    job();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void heightField(int n, QVector<QVector3D>& vertices, QVector<int>& triangles)
{
    vertices.reserve((n + 1) * (n + 1));
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) {
            const float x = float(i) / n, y = float(j) / n;
            const float z = 0.05f * std::sin(40 * x) * std::cos(33 * y) + 0.2f * std::exp(-8 * ((x - 0.5f) * (x - 0.5f) + (y - 0.5f) * (y - 0.5f)));
            vertices.append(QVector3D(x, y, z));
        }
    triangles.reserve(6 * n * n);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const int a = j * (n + 1) + i, b = a + 1, c = a + n + 2, d = a + n + 1;
            triangles.append({a, b, c, a, c, d});
        }
}

/// The nearest hit over all triangles, or t = inf.
float bruteForce(const QVector<QVector3D>& v, const QVector<int>& t, const QVector3D& o, const QVector3D& d, int& hit)
{
    float best = INFINITY;
    hit = -1;
    for (int k = 0; k < t.size(); k += 3) {
        const QVector3D p0 = v[t[k]], e1 = v[t[k + 1]] - p0, e2 = v[t[k + 2]] - p0;
        const QVector3D p = QVector3D::crossProduct(d, e2);
        const float det = QVector3D::dotProduct(e1, p);
        if (std::abs(det) < 1e-12f)
            continue;
        const float inv = 1.0f / det;
        const QVector3D s = o - p0;
        const float u = QVector3D::dotProduct(s, p) * inv;
        if (u < 0 || u > 1)
            continue;
        const QVector3D q = QVector3D::crossProduct(s, e1);
        const float w = QVector3D::dotProduct(d, q) * inv;
        if (w < 0 || u + w > 1)
            continue;
        const float distance = QVector3D::dotProduct(e2, q) * inv;
        if (distance > 0 && distance < best) {
            best = distance;
            hit = k / 3;
        }
    }
    return best;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    int n = 1292, picks = 10000;
    for (int i = 0; i + 1 < args.size(); ++i) {
        if (args[i] == QLatin1String("--grid"))
            n = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--picks"))
            picks = args[i + 1].toInt();
        else
            continue;
        args.erase(args.begin() + i, args.begin() + i + 2);
        --i;
    }
    QVector<QVector3D> vertices;
    QVector<int> triangles;
    QString name;
    if (!args.isEmpty()) {
        QString error;
        const GeometryStack2::GeomStackTriangulated mesh(args[0], error);
        if (!error.isEmpty()) {
            fmt::print(stderr, "{}\n", error.toStdString());
            return 1;
        }
        vertices = mesh.vertices();
        triangles = mesh.triangleVertexIndices();
        name = args[0];
    } else {
        heightField(n, vertices, triangles);
        name = QStringLiteral("height field %1^2 x 2").arg(n);
    }
    fmt::print("{}: {} vertices, {} triangles\n", name.toStdString(), vertices.size(), triangles.size() / 3);

    QVector3D lo = vertices[0], hi = vertices[0];
    for (const QVector3D& v : vertices)
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], v[k]);
            hi[k] = std::max(hi[k], v[k]);
        }
    std::mt19937 rng(4);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const QVector3D eye = 0.5f * (lo + hi) + QVector3D(0.3f, -0.4f, 2.0f) * (hi - lo).length();
    QVector<QVector3D> directions;
    for (int i = 0; i < picks; ++i) {
        const QVector3D target(lo.x() + unit(rng) * (hi.x() - lo.x()), lo.y() + unit(rng) * (hi.y() - lo.y()),
                               0.5f * (lo.z() + hi.z()));
        directions.append((target - eye).normalized());
    }

    for (int dynamic : {0, 1}) {
        std::unique_ptr<Welk::WRayTracerEmbree> tracer;
        const double build = seconds([&] { tracer = std::make_unique<Welk::WRayTracerEmbree>(vertices, triangles, dynamic, 1); });
        int hits = 0;
        const double pickTime = seconds([&] {
            for (const QVector3D& d : directions)
                hits += tracer->intersectPoint(eye, d).isValid();
        });
        double refit = 0;
        if (dynamic) {
            QVector<QVector3D> moved = vertices;
            for (QVector3D& v : moved)
                v.setZ(v.z() * 1.1f);
            refit = seconds([&] { tracer->updateVertices(moved); });
        }
        fmt::print("embree {:<8} scene build {:7.3f} s   pick {:8.2f} us ({} of {} hit){}\n",
                   dynamic ? "dynamic" : "static", build, 1e6 * pickTime / picks, hits, picks,
                   dynamic ? fmt::format("   update after moving every vertex {:.3f} s", refit) : std::string());
    }

    // The peer: a few picks by testing every triangle, checked against Embree.
    Welk::WRayTracerEmbree tracer(vertices, triangles, 0, 1);
    const int brutePicks = std::min(picks, 5);
    int agree = 0;
    double embreeTime = 0;
    const double bruteTime = seconds([&] {
        for (int i = 0; i < brutePicks; ++i) {
            int hit = -1;
            const float t = bruteForce(vertices, triangles, eye, directions[i], hit);
            float distance = INFINITY;
            Welk::WPointOnTriangle p;
            embreeTime += seconds([&] { p = tracer.intersectPoint(eye, directions[i], 0, 0, INFINITY, &distance); });
            agree += (hit < 0 && !p.isValid()) || (hit >= 0 && std::abs(distance - t) < 1e-4f * t);
        }
    });
    fmt::print("brute force pick {:.1f} ms, embree pick {:.2f} us: ratio {:.0f}x; {} of {} picks agree\n",
               1e3 * (bruteTime - embreeTime) / brutePicks, 1e6 * embreeTime / brutePicks,
               (bruteTime - embreeTime) / std::max(embreeTime, 1e-9), agree, brutePicks);
    return 0;
}
