#pragma once

#include "geometry/GeomStackTriangulated.h"
#include "geometry/WPointOnTriangle.h"

#include <QVector3D>

#include <functional>
#include <memory>

namespace ClosestTriangleSearch {
class ClosestTriangleFinder;
}

namespace WelkPlugin {

/// The nearest surface point of one mesh to a position; an invalid point
/// when the mesh has no triangles. Spline files of positions, resampling and
/// the fit's spline pairs put positions back on the surface through this.
///
/// The one place that decides the search behind it is
/// `makeClosestPointLookup`.
using ClosestPointLookup = std::function<Welk::WPointOnTriangle(const QVector3D&)>;

/// An exact lookup over `mesh`: the closest-triangle tree of the search
/// library (boxes over triangles, split in space where triangles are long).
/// Building it costs a tree build, so build once per mesh and reuse.
ClosestPointLookup makeClosestPointLookup(const GeometryStack2::GeomStackTriangulated& mesh);

/// The same answers through Embree's point query on a scene of its own:
/// on a dense scan its build is about ten times faster than the tree's,
/// with queries as fast. The window asks its picking scene instead
/// (`PointSelectionModel::closestPoint`); `zwelk-batch` uses this.
ClosestPointLookup makeEmbreeClosestPointLookup(const GeometryStack2::GeomStackTriangulated& mesh);

/// `lookup` as a closest-triangle finder over `mesh`'s vertices, for the
/// searches that take one (the drag's restarts); it keeps copies of both.
std::shared_ptr<const ClosestTriangleSearch::ClosestTriangleFinder>
lookupFinder(const ClosestPointLookup& lookup, const GeometryStack2::GeomStackTriangulated& mesh);

} // namespace WelkPlugin
