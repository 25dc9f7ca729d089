#pragma once

#include "geometry/WPointOnTriangle.h"
#include "search/KDTreeEigen.h"

#include <QVector3D>
#include <QVector>

#include <memory>

namespace WelkPlugin {

/// Distances from points to a triangle mesh, in the mesh's units.
/// `distance` is the fast form used for whole-mesh reports: exact
/// point-to-triangle distances over the triangles around the 8 nearest
/// mesh vertices, which finds the nearest triangle on reasonably even
/// meshes. `closestPoint` is exact on any mesh: it tests every triangle
/// with a corner within the nearest vertex's distance plus the longest edge.
class SurfaceDistance
{
public:
    /// `triangles` holds three vertex indices per triangle.
    SurfaceDistance(const QVector<QVector3D>& vertices, const QVector<int>& triangles);
    ~SurfaceDistance();

    float distance(const QVector3D& p) const;

    /// The exact nearest point of the surface, as a point on a triangle, and
    /// its distance from `p`. An invalid point for a mesh without triangles.
    Welk::WPointOnTriangle closestPoint(const QVector3D& p, float* distance = nullptr) const;

    struct Summary
    {
        double mean = 0, rms = 0, p95 = 0, max = 0;
        int count = 0;
    };
    /// The `distance` of every point, in parallel.
    QVector<float> distances(const QVector<QVector3D>& points) const;
    /// Mean, RMS, 95th percentile and maximum of `distances`.
    static Summary summarize(const QVector<float>& distances);
    Summary summarize(const QVector<QVector3D>& points) const { return summarize(distances(points)); }

private:
    std::vector<Eigen::Vector3f> m_vertices;
    QVector<int> m_triangles;
    std::vector<long long> m_cornerOffsets;
    std::vector<int> m_cornerTriangles;
    float m_longestEdge = 0.0f;
    std::unique_ptr<KDTreeEigen::NodeBaseEigen<float, long long>> m_tree;
};

} // namespace WelkPlugin
