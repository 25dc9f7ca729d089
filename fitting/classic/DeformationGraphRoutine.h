#pragma once

#include "DeformationGraphTypes.h"
#include "NodesSamplerAndInfluenceSearcher.h"

#include <memory>

/// The deformation graph of the classic fit: nodes sampled on the basemesh
/// at a geodesic radius, each vertex moved by its nearest nodes.
namespace DeformationGraphRoutine {

/// Makes one graph level for a radius.
class NodesCreator
{
public:
    virtual ~NodesCreator() = default;
    /// Fills the level's node vertices, positions, influences and
    /// neighbours; false if interrupted (the outputs are then incomplete).
    virtual bool createLevel(float radius, QVector<int>& nodeVertices, QVector<QVector3D>& nodes,
                             InfluenceLists& influences, NeighbourLists& neighbours,
                             SamplerNotifier* nodeNotifier, SamplerNotifier* weightNotifier) = 0;
};

/// The creator over one mesh with any sampler. Two nodes are neighbours
/// when one's marching reached a vertex the other influences, when both
/// influence one vertex, or when they influence the two ends of one edge.
class DeformationGraphUniversalNodesCreator : public NodesCreator
{
public:
    DeformationGraphUniversalNodesCreator(int nNodesToUse, QVector<QVector3D> vertices, QVector<int> triangles,
                                          std::shared_ptr<const MeshConnectivity> connectivity,
                                          std::unique_ptr<NodesSamplerAndInfluenceSearcher> sampler);

    bool createLevel(float radius, QVector<int>& nodeVertices, QVector<QVector3D>& nodes, InfluenceLists& influences,
                     NeighbourLists& neighbours, SamplerNotifier* nodeNotifier,
                     SamplerNotifier* weightNotifier) override;

    int vertexCount() const { return m_vertices.size(); }

private:
    int m_nNodesToUse;
    QVector<QVector3D> m_vertices;
    QVector<int> m_triangles;
    std::shared_ptr<const MeshConnectivity> m_connectivity;
    std::unique_ptr<NodesSamplerAndInfluenceSearcher> m_sampler;
};

/// Builds `nLevels` levels at radii radiusMin + i * step, step =
/// (radiusMax - radiusMin) / nLevels; radius i goes to slot nLevels - 1 - i,
/// so slot 0 is the coarsest and the last has radiusMin. Polls the
/// callback before each level; false on interruption, with the levels not
/// reached left empty.
bool createLevels(NodesCreator& creator, float radiusMin, float radiusMax, int nLevels, std::vector<NodeLevel>& levels,
                  DeformationGraphCreatorUpdateCallback* callback);

} // namespace DeformationGraphRoutine
