// Topological symmetry against a positional mirror (reflect every vertex
// and find its nearest vertex with nanoflann) on the same mesh, in one run.
// The positional peer is what a tool without posable symmetry does; it is
// the cost floor a connectivity search is compared with.
//
//   symmetry_bench [--repeat N] [--save-subdivided FILE.obj] [MESH.obj ...]
// Without meshes: the face template subdivided to about 113k vertices, and
// the ICT face's largest part.
#include "geometry/GeomStack.h"
#include "steps/points/WSymmetryPoints.h"
#include "steps/points/symmetry/SymmetryDetectionTBB.h"

#include <nanoflann.hpp>

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QMap>
#include <QStringList>

#include <Eigen/Core>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <numeric>

namespace {

using GeometryStack2::GeomStack;

double seconds(const std::function<void()>& job)
{
    const auto start = std::chrono::steady_clock::now();
    job();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

GeomStack fromPolygons(const QVector<QVector3D>& vertices, const QVector<QVector<int>>& polygons)
{
    QVector<int> corners, sizes, offsets;
    for (const QVector<int>& p : polygons) {
        offsets.append(corners.size());
        sizes.append(p.size());
        corners += p;
    }
    offsets.append(corners.size());
    return GeomStack(vertices, corners, sizes, offsets, {}, {}, {}, {}, {}, {}, {}, QString());
}

/// Splits every triangle into four at its edge midpoints; other polygons
/// into quads around their centre. Keeps any symmetry of the connectivity.
GeomStack subdivide(const GeomStack& mesh)
{
    QVector<QVector3D> vertices = mesh.vertices();
    QMap<QPair<int, int>, int> midpoints;
    auto midpoint = [&](int a, int b) {
        const QPair<int, int> key(std::min(a, b), std::max(a, b));
        auto it = midpoints.find(key);
        if (it != midpoints.end())
            return it.value();
        vertices.append(0.5f * (vertices[a] + vertices[b]));
        midpoints.insert(key, vertices.size() - 1);
        return vertices.size() - 1;
    };
    QVector<QVector<int>> polygons;
    for (int f = 0; f < mesh.polygonCount(); ++f) {
        const int begin = mesh.polygonOffsets()[f], n = mesh.polygonOffsets()[f + 1] - begin;
        QVector<int> c = mesh.vertexIndices().mid(begin, n);
        QVector<int> m;
        for (int i = 0; i < n; ++i)
            m.append(midpoint(c[i], c[(i + 1) % n]));
        if (n == 3) {
            polygons += {{c[0], m[0], m[2]}, {m[0], c[1], m[1]}, {m[2], m[1], c[2]}, {m[0], m[1], m[2]}};
            continue;
        }
        QVector3D centre;
        for (int v : c)
            centre += vertices[v] / float(n);
        vertices.append(centre);
        const int centreIndex = vertices.size() - 1;
        for (int i = 0; i < n; ++i)
            polygons.append({c[i], m[i], centreIndex, m[(i + n - 1) % n]});
    }
    return fromPolygons(vertices, polygons);
}

/// The part holding the most polygons, with its vertices renumbered.
GeomStack largestPart(const GeomStack& mesh)
{
    const int n = mesh.vertexCount();
    std::vector<int> parent(static_cast<size_t>(n));
    std::iota(parent.begin(), parent.end(), 0);
    auto find = [&parent](int v) {
        while (parent[size_t(v)] != v)
            v = parent[size_t(v)] = parent[size_t(parent[size_t(v)])];
        return v;
    };
    for (int f = 0; f < mesh.polygonCount(); ++f)
        for (int i = mesh.polygonOffsets()[f] + 1; i < mesh.polygonOffsets()[f + 1]; ++i)
            parent[size_t(find(mesh.vertexIndices()[i]))] = find(mesh.vertexIndices()[mesh.polygonOffsets()[f]]);
    QMap<int, int> polygonsPerPart;
    for (int f = 0; f < mesh.polygonCount(); ++f)
        ++polygonsPerPart[find(mesh.vertexIndices()[mesh.polygonOffsets()[f]])];
    int best = -1, bestCount = -1;
    for (auto it = polygonsPerPart.begin(); it != polygonsPerPart.end(); ++it)
        if (it.value() > bestCount) {
            best = it.key();
            bestCount = it.value();
        }
    QVector<int> renumber(n, -1);
    QVector<QVector3D> vertices;
    QVector<QVector<int>> polygons;
    for (int f = 0; f < mesh.polygonCount(); ++f) {
        const int begin = mesh.polygonOffsets()[f], end = mesh.polygonOffsets()[f + 1];
        if (find(mesh.vertexIndices()[begin]) != best)
            continue;
        QVector<int> p;
        for (int i = begin; i < end; ++i) {
            int& r = renumber[mesh.vertexIndices()[i]];
            if (r < 0) {
                r = vertices.size();
                vertices.append(mesh.vertices()[mesh.vertexIndices()[i]]);
            }
            p.append(r);
        }
        polygons.append(p);
    }
    return fromPolygons(vertices, polygons);
}

struct Cloud
{
    std::vector<Eigen::Vector3f> points;
    size_t kdtree_get_point_count() const { return points.size(); }
    float kdtree_get_pt(size_t i, size_t d) const { return points[i][int(d)]; }
    template <class Box> bool kdtree_get_bbox(Box&) const { return false; }
};
using Nanoflann = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud, 3, uint32_t>;

/// The positional peer: mirror across the plane x = centre of the bounding
/// box, nearest vertex of each reflected vertex.
QVector<int> positionalMirror(const GeomStack& mesh)
{
    Cloud cloud;
    float lo = 1e30f, hi = -1e30f;
    for (const QVector3D& v : mesh.vertices()) {
        cloud.points.emplace_back(v.x(), v.y(), v.z());
        lo = std::min(lo, v.x());
        hi = std::max(hi, v.x());
    }
    Nanoflann tree(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(10));
    tree.buildIndex();
    QVector<int> map(mesh.vertexCount());
    for (int i = 0; i < mesh.vertexCount(); ++i) {
        const QVector3D v = mesh.vertices()[i];
        const float query[3] = {lo + hi - v.x(), v.y(), v.z()};
        uint32_t index = 0;
        float distanceSq = 0;
        tree.knnSearch(query, 1, &index, &distanceSq);
        map[i] = int(index);
    }
    return map;
}

void run(const QString& name, const GeomStack& mesh, int repeat)
{
    double best = 1e30, bestPeer = 1e30, bestCpu = 1e30;
    int state = -1;
    QString message;
    for (int r = 0; r < repeat; ++r) {
        Welk::WSymmetryPoints symmetry;
        symmetry.setGeometry(mesh.vertices(), mesh.polygonOffsets(), mesh.vertexIndices());
        const std::clock_t cpuStart = std::clock();
        best = std::min(best, seconds([&] { symmetry.setSymmetryMode(Welk::WSymmetryPoints::TopologicalSymmetry); }));
        bestCpu = std::min(bestCpu, double(std::clock() - cpuStart) / CLOCKS_PER_SEC);
        state = symmetry.detectionState();
        message = symmetry.message();
        bestPeer = std::min(bestPeer, seconds([&] { positionalMirror(mesh); }));
    }
    fmt::print("{:<32} {:>7} v {:>7} f  topological {:6.3f} s (cpu {:6.3f} s, {})  positional {:6.3f} s  "
               "ratio {:5.3f}\n",
               name.toStdString(), mesh.vertexCount(), mesh.polygonCount(), best, bestCpu,
               state == 0 ? "found" : message.simplified().toStdString(), bestPeer, bestPeer / best);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIntValue("ZWELK_DEBUG") == 0)
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    QStringList args = app.arguments().mid(1);
    int repeat = 3;
    const int r = args.indexOf(QStringLiteral("--repeat"));
    if (r >= 0 && r + 1 < args.size()) {
        repeat = args[r + 1].toInt();
        args.erase(args.begin() + r, args.begin() + r + 2);
    }
    QString savePath;
    const int save = args.indexOf(QStringLiteral("--save-subdivided"));
    if (save >= 0 && save + 1 < args.size()) {
        savePath = args[save + 1];
        args.erase(args.begin() + save, args.begin() + save + 2);
    }
    const QString data = QStringLiteral(ZWELK_SHARED_DATA);
    QString error;
    if (args.isEmpty()) {
        const GeomStack templ(data + QStringLiteral("/meshmonk-face/Template.obj"), error);
        if (!error.isEmpty()) {
            fmt::print(stderr, "{}\n", error.toStdString());
            return 1;
        }
        const GeomStack dense = subdivide(subdivide(templ));
        if (!savePath.isEmpty())
            dense.saveObj(savePath, false, false);
        run(QStringLiteral("face template x16 (subdivided)"), dense, repeat);
        const GeomStack ict(data + QStringLiteral("/ict-face/generic_neutral_mesh.obj"), error);
        if (error.isEmpty()) {
            run(QStringLiteral("ict-face whole (several parts)"), ict, repeat);
            run(QStringLiteral("ict-face largest part"), largestPart(ict), repeat);
        }
        return 0;
    }
    for (const QString& path : args) {
        const GeomStack mesh(path, error);
        if (!error.isEmpty()) {
            fmt::print(stderr, "{}\n", error.toStdString());
            return 1;
        }
        run(path, mesh, repeat);
    }
    return 0;
}
