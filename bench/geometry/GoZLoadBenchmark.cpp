// GoZ loading, phase by phase: mapping and walking the file, converting it to
// polygon lists, and building the triangulated mesh (normals and triangles).
// Every phase runs --runs times in one process and the best time is kept, so
// a figure is the phase's own cost once the heap holds the process's lists.
//
//   goz_load FILE.GoZ [--runs 5]
#include "geometry/GeomStackTriangulated.h"
#include "geometry/GoZMappedFile.h"
#include "geometry/GoZMeshConversion.h"
#include "geometry/HugePages.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStringList>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

struct PhaseTimes
{
    double map = std::numeric_limits<double>::infinity();
    double convert = std::numeric_limits<double>::infinity();
    double mesh = std::numeric_limits<double>::infinity();
    double normals = std::numeric_limits<double>::infinity();
};

} // namespace

int main(int argc, char** argv)
{
    GeometryStack2::configureLargeAllocations();
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    int runs = 5;
    const int runsAt = args.indexOf(QStringLiteral("--runs"));
    if (runsAt >= 0 && runsAt + 1 < args.size()) {
        runs = std::max(1, args[runsAt + 1].toInt());
        args.erase(args.begin() + runsAt, args.begin() + runsAt + 2);
    }
    if (args.size() != 1) {
        fmt::print(stderr, "usage: goz_load FILE.GoZ [--runs N]\n");
        return 2;
    }
    const QString path = args[0];
    PhaseTimes best;
    int vertices = 0, triangles = 0;
    for (int run = 0; run < runs; ++run) {
        QString error;
        auto start = Clock::now();
        auto file = std::make_unique<GeometryStack2::GoZMappedFile>();
        if (!file->open(path)) {
            fmt::print(stderr, "{}\n", file->readError().toStdString());
            return 1;
        }
        best.map = std::min(best.map, secondsSince(start));
        start = Clock::now();
        GeometryStack2::GoZMesh converted;
        if (!GeometryStack2::meshFromGoZ(file->arrays(), converted, error)) {
            fmt::print(stderr, "{}\n", error.toStdString());
            return 1;
        }
        best.convert = std::min(best.convert, secondsSince(start));
        start = Clock::now();
        const GeometryStack2::MeshLists& l = converted.lists;
        const GeometryStack2::GeomStackTriangulated mesh(
            l.vertices, l.vertexIndices, l.polygonSizes, l.polygonOffsets, l.texCoords, l.texCoordIndices,
            QVector<QVector3D>(), l.polygroupIds, l.polygroupNames, l.materialIds, l.materialNames, l.mtllib);
        best.mesh = std::min(best.mesh, secondsSince(start));
        start = Clock::now();
        const QVector<QVector3D> normals =
            GeometryStack2::GeomStack::computeNormals(mesh.vertices(), mesh.vertexIndices(), mesh.polygonOffsets());
        best.normals = std::min(best.normals, secondsSince(start));
        vertices = mesh.vertexCount();
        triangles = mesh.triangleCount();
        if (normals != mesh.normals()) {
            fmt::print(stderr, "normals differ between two computations\n");
            return 1;
        }
    }
    const double megabytes = double(QFileInfo(path).size()) / 1e6;
    const double total = best.map + best.convert + best.mesh;
    fmt::print("{}: {:.1f} MB, {} vertices, {} triangles, best of {} runs\n", path.toStdString(), megabytes,
               vertices, triangles, runs);
    fmt::print("  map and walk       {:7.4f} s\n", best.map);
    fmt::print("  convert to lists   {:7.4f} s\n", best.convert);
    fmt::print("  triangulated mesh  {:7.4f} s  (of which normals {:.4f} s)\n", best.mesh, best.normals);
    fmt::print("  total              {:7.4f} s  {:6.0f} MB/s\n", total, megabytes / total);
    return 0;
}
