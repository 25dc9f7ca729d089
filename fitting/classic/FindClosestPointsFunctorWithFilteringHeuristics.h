#pragma once

#include "FindClosestPointsFunctor.h"

namespace Welking {

/// Closest points that face the same way: a match is dropped when the
/// target vertex's normal and the basemesh vertex's current normal have a
/// dot product below `minCosBetweenNormals` (a match exactly at it stays).
/// Distance never rejects a match.
class FindClosestPointsFunctorWithFilteringHeuristics : public ICPRoutine::FindClosestPointsFunctor
{
public:
    FindClosestPointsFunctorWithFilteringHeuristics(const KDTree::NodeBase& tree, QVector<QVector3D> targetNormals,
                                                    QVector<int> triangles, QVector<bool> mask,
                                                    float minCosBetweenNormals);

    QVector<int> findClosestPoints(const QVector<QVector3D>& vertices,
                                   const QVector<QVector3D>& targetVertices) const override;

    /// Unit vertex normals of a triangle list: every corner adds the unit
    /// normal of its triangle (edges scaled by 1000 first so that tiny
    /// triangles keep a direction in single precision); no area or angle
    /// weighting. Vertices in no triangle get a zero normal.
    static QVector<QVector3D> vertexNormals(const QVector<QVector3D>& vertices, const QVector<int>& triangles);

private:
    QVector<QVector3D> m_targetNormals;
    QVector<int> m_triangles;
    float m_minCos;
};

} // namespace Welking
