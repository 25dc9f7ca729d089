#pragma once

#include <QVector3D>
#include <QVector>

namespace KDTree {
class NodeBase;
}

namespace ICPRoutine {

/// Matches each basemesh vertex to the nearest target vertex through a
/// k-d tree over the target's vertices. Masked vertices (true entries;
/// an empty mask masks none) stay unmatched.
class FindClosestPointsFunctor
{
public:
    /// `tree` indexes `targetVertices` as later passed in, and must outlive
    /// the functor.
    FindClosestPointsFunctor(const KDTree::NodeBase& tree, QVector<bool> mask);
    virtual ~FindClosestPointsFunctor() = default;

    /// One target vertex index per basemesh vertex, or -1.
    virtual QVector<int> findClosestPoints(const QVector<QVector3D>& vertices,
                                           const QVector<QVector3D>& targetVertices) const;

protected:
    const KDTree::NodeBase& m_tree;
    QVector<bool> m_mask;
};

} // namespace ICPRoutine
