#pragma once

#include "ClosestTriangleFinder.h"
#include "PointOnTriangleFinder.h"

#include <QString>

#include <array>
#include <memory>
#include <vector>

namespace KeepDistance {

/// Moves a surface point continuously while it is dragged.
///
/// The nearest point jumps where the surface is concave or thin; instead a
/// position is projected along the vertex normals interpolated over each
/// triangle: the surface point s with weights w and the offset t such that
/// position = s(w) + t * n(w). This map is continuous across shared edges,
/// so a dragged point slides over the surface and keeps its distance.
///
/// `project` walks from the previous triangle to its neighbours across the
/// edge the position has left, and only starts over with the global nearest
/// point when it has no previous triangle or the walk gets lost. Where the
/// position lies in no triangle's normal range (inside a concave fold), it
/// stops on the edge between the two triangles it keeps returning to.
///
/// A triangle with no area, or whose vertex normals point against its own
/// normal, has no such projection: `project` then fails with
/// `singularTriangleMessage()`.
///
/// As a `PointOnTriangleFinder` (for `BvhClosestTriangleFinder`), a
/// triangle is a candidate only where the projection falls inside it, and
/// its distance is the Euclidean distance from the position to that point,
/// never less than the nearest-point distance, as the tree requires.
class FastContinuousProjectionOnTriangleFinder : public ClosestTriangleSearch::PointOnTriangleFinder
{
public:
    /// `triangleIndices` holds three vertex indices per triangle. Vertex
    /// normals are the area-weighted sums of the triangle normals, unless
    /// `vertexNormals` (one per vertex) is given. A null `nearestFinder`
    /// builds a `BvhClosestTriangleFinder` over the mesh for restarts.
    FastContinuousProjectionOnTriangleFinder(
        const QVector<QVector3D>& vertices, const QVector<int>& triangleIndices,
        std::shared_ptr<const ClosestTriangleSearch::ClosestTriangleFinder> nearestFinder = nullptr,
        const QVector<QVector3D>& vertexNormals = QVector<QVector3D>());

    Welk::WPointOnTriangle find(int triangle, const QVector3D& point, float& bestDistance) const override;

    /// The surface point for `position`, continuing from `previous` (the
    /// point before this drag step; invalid to start from the nearest
    /// point). Returns an invalid point and sets `error` when the walk meets
    /// a singular triangle or the mesh is empty; the caller keeps its point.
    Welk::WPointOnTriangle project(const QVector3D& position, const Welk::WPointOnTriangle& previous,
                                   QString* error = nullptr) const;

    static QString singularTriangleMessage()
    {
        return QStringLiteral("Singular triangle or inconsistently oriented normals");
    }

    const QVector<QVector3D>& vertexNormals() const { return m_normals; }
    /// The triangle across the edge opposite `corner` (0..2), or -1 on a border.
    int neighbour(int triangle, int corner) const { return m_neighbours[size_t(triangle)][size_t(corner)]; }
    /// Walk steps before `project` starts over from the nearest point.
    void setMaxWalkSteps(int steps) { m_maxWalkSteps = steps; }

private:
    struct Solution
    {
        float w[3];   ///< weights of the three corners
        float offset; ///< t along the interpolated normal
        QVector3D surface;
    };
    /// Newton's method on the three unknowns; false for a singular triangle.
    bool solve(int triangle, const QVector3D& position, Solution& out) const;
    /// The nearest point of one triangle, for positions between triangles.
    Welk::WPointOnTriangle clampToTriangle(int triangle, const QVector3D& position) const;
    void buildNeighbours(const std::vector<int>& first, const std::vector<int>& around);

    QVector<QVector3D> m_vertices;
    QVector<int> m_indices;
    QVector<QVector3D> m_normals;
    std::vector<std::array<int, 3>> m_neighbours;
    std::shared_ptr<const ClosestTriangleSearch::ClosestTriangleFinder> m_nearest;
    int m_maxWalkSteps = 256;
};

} // namespace KeepDistance
