#pragma once

#include "geometry/GeomStackTriangulated.h"
#include "geometry/WPointOnTriangle.h"

#include <QPointF>
#include <QVector3D>
#include <QVector>

namespace WelkPlugin {
class SplineSelectionModel;
}

namespace Welk {
namespace SelectPointsWithSplines {

/// What the spline controller reads and edits, supplied by the page that
/// hosts it (one per viewport and model). All calls come from the GUI
/// thread, inside the controller's event handlers.
class NodeDataInterface
{
public:
    virtual ~NodeDataInterface() = default;

    /// The model the splines are drawn on; null while there is none. Must
    /// be the mesh the spline set was given (`SplineSelectionModel::setMesh`).
    virtual const GeometryStack2::GeomStackTriangulated* geometry() const = 0;

    /// The triangle finder: the surface point under a viewport position (in
    /// the pixels of mouse events, origin top left), or an invalid point
    /// when the ray from the camera through it misses the model. A host
    /// picks through its camera and the model's ray tracer
    /// (`WRayTracerEmbree::intersectPoint`).
    virtual WPointOnTriangle findPointOnTriangle(const QPointF& screen) const = 0;

    /// The camera ray through a viewport position, in model coordinates
    /// (`direction` need not be of unit length). A host that gives it lets
    /// dragged points slide along the surface instead of jumping to
    /// whatever lies under the cursor; by default there is none.
    virtual bool viewRay(const QPointF& /*screen*/, QVector3D& /*origin*/, QVector3D& /*direction*/) const
    {
        return false;
    }

    /// The spline set that the controller edits through its commands.
    virtual WelkPlugin::SplineSelectionModel* splines() = 0;

    /// Whether a fit result is there to show: the controller then starts
    /// in the result view (key D switches).
    virtual bool hasResult() const = 0;

    /// The model's topological symmetry as a 0-based vertex map, empty for
    /// none. By default the spline set's own search (which runs once, on
    /// first use, and blocks); a host may answer from a cache or a worker.
    virtual QVector<int> symmetryMap();
};

} // namespace SelectPointsWithSplines
} // namespace Welk
