#pragma once

#include "geometry/GeomStackTriangulated.h"
#include "geometry/WPointOnTriangle.h"

#include <QVector3D>
#include <QVector>

namespace WSpline {

/// Shortest paths over a mesh's edges between two surface points, for
/// appending a path to a spline. A path starts with `from`, runs through
/// mesh vertices (each given as a corner of a triangle around it, weight
/// 1) and ends with `to`. Both points on one triangle give [from, to]; no
/// connection, or a point off the mesh, gives an empty path.
///
/// The search starts from the three corners of `from`'s triangle and ends
/// at the corners of `to`'s, charging the straight distances inside those
/// triangles. The finders differ in what an edge step costs. They keep a
/// copy of the mesh (implicitly shared); build a new finder when the
/// vertices move.
class PathFinder
{
public:
    explicit PathFinder(const GeometryStack2::GeomStackTriangulated& mesh);
    virtual ~PathFinder();

    QVector<Welk::WPointOnTriangle> findPath(const Welk::WPointOnTriangle& from, const Welk::WPointOnTriangle& to) const;

    /// The surface point standing for mesh vertex `vertex`; invalid for a
    /// vertex that no triangle uses.
    Welk::WPointOnTriangle vertexPoint(int vertex) const;

protected:
    /// The vertices between the end triangles, best first-to-last, or
    /// false for no connection.
    virtual bool search(const Welk::WPointOnTriangle& from, const Welk::WPointOnTriangle& to,
                        QVector<int>& vertices) const;
    /// Cost of the step from vertex `a` to its neighbour `b`, arriving at
    /// `a` along `incoming` (zero at the start).
    virtual double stepCost(int a, int b, const QVector3D& incoming) const = 0;
    /// Whether `stepCost` reads `incoming`: the search then runs over
    /// arrival directions instead of vertices.
    virtual bool dependsOnDirection() const { return false; }
    /// Cost of the straight way inside an end triangle of this length.
    virtual double endCost(double distance) const { return distance; }

    QVector3D position(const Welk::WPointOnTriangle& p) const;

    GeometryStack2::GeomStackTriangulated m_mesh;
    QVector<int> m_neighbourStart; ///< CSR rows of unique edge neighbours
    QVector<int> m_neighbours;
    QVector<int> m_vertexTriangle; ///< a triangle using each vertex, -1 none
    double m_meanEdge = 1.0;
};

/// Edge lengths: the geodesic along edges.
class NaiveDijkstraPathFinder : public PathFinder
{
public:
    using PathFinder::PathFinder;

protected:
    double stepCost(int a, int b, const QVector3D& incoming) const override;
};

/// Edge lengths plus a charge for turning, so that paths over a jagged
/// triangulation stay straighter: `turnWeight` times the mean edge length
/// times (1 - cos) of the angle between the incoming and outgoing edge.
class TurnPenalizingDijkstraPathFinder : public PathFinder
{
public:
    explicit TurnPenalizingDijkstraPathFinder(const GeometryStack2::GeomStackTriangulated& mesh,
                                              double turnWeight = 1.0);

protected:
    double stepCost(int a, int b, const QVector3D& incoming) const override;
    bool dependsOnDirection() const override { return true; }

private:
    double m_turnWeight;
};

/// Every edge costs the same: the path with the fewest edges, independent
/// of the shape (it follows edge loops on a posed model as on the rest
/// pose).
class TopologicalDijkstraPathFinder : public PathFinder
{
public:
    using PathFinder::PathFinder;

protected:
    double stepCost(int a, int b, const QVector3D& incoming) const override;
    double endCost(double distance) const override { return distance / m_meanEdge; }
};

} // namespace WSpline
