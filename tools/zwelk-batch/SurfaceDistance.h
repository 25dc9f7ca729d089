#pragma once

#include "search/KDTreeEigen.h"

#include <QVector3D>
#include <QVector>

#include <memory>

namespace ZWelkBatch {

/// Distances from points to a triangle mesh: exact point-to-triangle
/// distances over the triangles around the 8 nearest mesh vertices, which
/// finds the nearest triangle on reasonably even meshes.
class SurfaceDistance
{
public:
    SurfaceDistance(const QVector<QVector3D>& vertices, const QVector<int>& triangles);
    ~SurfaceDistance();

    float distance(const QVector3D& p) const;

    struct Summary
    {
        double mean = 0, rms = 0, p95 = 0, max = 0;
        int count = 0;
    };
    /// The distances of all `points`, in parallel.
    Summary summarize(const QVector<QVector3D>& points) const;

private:
    std::vector<Eigen::Vector3f> m_vertices;
    QVector<int> m_triangles;
    std::vector<long long> m_cornerOffsets;
    std::vector<int> m_cornerTriangles;
    std::unique_ptr<KDTreeEigen::NodeBaseEigen<float, long long>> m_tree;
};

} // namespace ZWelkBatch
