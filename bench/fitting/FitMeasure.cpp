// fit_measure: one quality measure for every fitting program, ours and the
// research peers alike, so that their results can be set side by side.
//
//   fit_measure SOURCE TARGET RESULT [--samples N] [--seed N] [--distances FILE]
//
// SOURCE is the mesh that was fitted, RESULT the fitted mesh (OBJ, PLY or OFF;
// only its positions are used, in the source's vertex order, with the source's
// faces), TARGET the mesh it was fitted to. Prints one JSON object:
//   "vertices"   the result's vertex count
//   "diagonal"   the target's bounding-box diagonal
//   "fwdRms"     RMS distance from the result's vertices to the target surface
//   "backRms"    RMS distance from points sampled uniformly by area on the
//                target surface to the result surface
//                (both in % of the diagonal)
//   "foldsBefore", "foldsAfter", "addedFolds"
//                fold-overs of the source and of the result (a triangle is
//                folded when its normal points against the sum of its corners'
//                area-weighted vertex normals)
// --distances writes each result vertex's distance to the target surface, one
// per line in the vertex order, to see where a fit's error lies.
// Exits with 1 and a message when a file cannot be read or the result's vertex
// count differs from the source's: research programs exit 0 even when they
// fail, so a missing or partial result must not pass as a fit.
//
// Distances come from CGAL's AABB tree, not from our own search code, so the
// measure does not share its faults with the fits it judges.

#include "fitting/accelerated/FoldOvers.h"

#include <CGAL/AABB_traits.h>
#include <CGAL/AABB_tree.h>
#include <CGAL/AABB_triangle_primitive.h>
#include <CGAL/IO/polygon_soup_io.h>
#include <CGAL/Simple_cartesian.h>

#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using Kernel = CGAL::Simple_cartesian<double>;
using Point = Kernel::Point_3;
using Triangle = Kernel::Triangle_3;
using Primitive = CGAL::AABB_triangle_primitive<Kernel, std::vector<Triangle>::const_iterator>;
using Tree = CGAL::AABB_tree<CGAL::AABB_traits<Kernel, Primitive>>;

struct Mesh
{
    std::vector<Point> points;
    std::vector<int> triangles; ///< polygons fanned into triangles
};

bool readMesh(const std::string& path, Mesh& mesh, std::string& error)
{
    std::vector<std::vector<std::size_t>> polygons;
    if (!CGAL::IO::read_polygon_soup(path, mesh.points, polygons) || mesh.points.empty()) {
        error = fmt::format("cannot read a mesh from {}", path);
        return false;
    }
    for (const auto& p : polygons) {
        for (std::size_t k = 1; k + 1 < p.size(); ++k) {
            for (std::size_t corner : {p[0], p[k], p[k + 1]}) {
                if (corner >= mesh.points.size()) {
                    error = fmt::format("{}: a face refers to vertex {} of {}", path, corner + 1, mesh.points.size());
                    return false;
                }
                mesh.triangles.push_back(int(corner));
            }
        }
    }
    return true;
}

std::vector<Triangle> trianglesOf(const std::vector<Point>& points, const std::vector<int>& triangles)
{
    std::vector<Triangle> out;
    out.reserve(triangles.size() / 3);
    for (std::size_t t = 0; t + 2 < triangles.size(); t += 3)
        out.emplace_back(points[size_t(triangles[t])], points[size_t(triangles[t + 1])],
                         points[size_t(triangles[t + 2])]);
    return out;
}

/// RMS of the distances from `queries` to the surface of `tree`; each squared
/// distance also goes to `each` when it is given.
double rmsDistance(const Tree& tree, const std::vector<Point>& queries, std::vector<double>* each = nullptr)
{
    if (each)
        each->assign(queries.size(), 0.0);
    const double sum = tbb::parallel_reduce(
        tbb::blocked_range<std::size_t>(0, queries.size(), 1024), 0.0,
        [&](const tbb::blocked_range<std::size_t>& r, double s) {
            for (std::size_t i = r.begin(); i != r.end(); ++i) {
                const double d = tree.squared_distance(queries[i]);
                if (each)
                    (*each)[i] = d;
                s += d;
            }
            return s;
        },
        [](double a, double b) { return a + b; });
    return queries.empty() ? 0.0 : std::sqrt(sum / double(queries.size()));
}

/// `count` points uniformly distributed by area over the triangles.
std::vector<Point> samplesOn(const std::vector<Triangle>& triangles, std::size_t count, unsigned seed)
{
    std::vector<double> cumulative(triangles.size());
    double area = 0;
    for (std::size_t t = 0; t < triangles.size(); ++t)
        cumulative[t] = area += std::sqrt(triangles[t].squared_area());
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<Point> out;
    out.reserve(count);
    for (std::size_t i = 0; i < count && area > 0; ++i) {
        const auto at = std::upper_bound(cumulative.begin(), cumulative.end(), unit(random) * area);
        const Triangle& t = triangles[std::min(std::size_t(at - cumulative.begin()), triangles.size() - 1)];
        double u = unit(random), v = unit(random);
        if (u + v > 1) {
            u = 1 - u;
            v = 1 - v;
        }
        out.push_back(t[0] + u * (t[1] - t[0]) + v * (t[2] - t[0]));
    }
    return out;
}

int usage()
{
    std::fputs("usage: fit_measure SOURCE TARGET RESULT [--samples N] [--seed N] [--distances FILE]\n", stderr);
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> files;
    std::size_t samples = 200000;
    unsigned seed = 1;
    std::string distancesPath;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--samples" && i + 1 < argc)
            samples = std::size_t(std::strtoull(argv[++i], nullptr, 10));
        else if (a == "--seed" && i + 1 < argc)
            seed = unsigned(std::strtoul(argv[++i], nullptr, 10));
        else if (a == "--distances" && i + 1 < argc)
            distancesPath = argv[++i];
        else if (!a.empty() && a[0] == '-')
            return usage();
        else
            files.push_back(a);
    }
    if (files.size() != 3 || samples == 0)
        return usage();

    Mesh source, target, result;
    std::string error;
    if (!readMesh(files[0], source, error) || !readMesh(files[1], target, error) ||
        !readMesh(files[2], result, error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    if (result.points.size() != source.points.size()) {
        std::fprintf(stderr, "the result has %zu vertices, the source %zu: not a fit of the source\n",
                     result.points.size(), source.points.size());
        return 1;
    }

    const CGAL::Bbox_3 box = CGAL::bbox_3(target.points.begin(), target.points.end());
    const double diagonal = std::sqrt((box.xmax() - box.xmin()) * (box.xmax() - box.xmin()) +
                                      (box.ymax() - box.ymin()) * (box.ymax() - box.ymin()) +
                                      (box.zmax() - box.zmin()) * (box.zmax() - box.zmin()));

    const std::vector<Triangle> targetTriangles = trianglesOf(target.points, target.triangles);
    Tree targetTree(targetTriangles.begin(), targetTriangles.end());
    targetTree.accelerate_distance_queries();
    std::vector<double> squared;
    const double fwd = rmsDistance(targetTree, result.points, distancesPath.empty() ? nullptr : &squared);
    if (!distancesPath.empty()) {
        std::FILE* out = std::fopen(distancesPath.c_str(), "w");
        if (!out) {
            std::fprintf(stderr, "cannot write %s\n", distancesPath.c_str());
            return 1;
        }
        for (double d : squared)
            std::fprintf(out, "%.9g\n", std::sqrt(d));
        if (std::fclose(out) != 0) {
            std::fprintf(stderr, "cannot write %s\n", distancesPath.c_str());
            return 1;
        }
    }

    const std::vector<Triangle> resultTriangles = trianglesOf(result.points, source.triangles);
    Tree resultTree(resultTriangles.begin(), resultTriangles.end());
    resultTree.accelerate_distance_queries();
    const double back = rmsDistance(resultTree, samplesOn(targetTriangles, samples, seed));

    const int before = WelkingAcceleratedVersion::foldedTriangleCount(source.points, source.triangles);
    const int after = WelkingAcceleratedVersion::foldedTriangleCount(result.points, source.triangles);
    const double pct = diagonal > 0 ? 100.0 / diagonal : 0.0;
    std::printf("{\"vertices\": %zu, \"diagonal\": %.9g, \"fwdRms\": %.6f, \"backRms\": %.6f, "
                "\"foldsBefore\": %d, \"foldsAfter\": %d, \"addedFolds\": %d}\n",
                result.points.size(), diagonal, fwd * pct, back * pct, before, after, after - before);
    return 0;
}
