#pragma once

#include "DeformationGraphTypes.h"

#include <memory>

namespace DeformationGraphRoutine {

/// One marching from a source vertex over the surface: pops vertices in
/// order of growing distance. Holds its arrays between runs and resets
/// only the entries a run touched, so one state serves many runs.
class MarchingState
{
public:
    virtual ~MarchingState() = default;
    /// Clears the last run and starts from `source` at distance 0.
    virtual void begin(int source) = 0;
    /// The next vertex and its final distance, or -1 when the front is empty.
    virtual int next(float& distance) = 0;
};

/// Samples the nodes of a level and finds each vertex's influencing nodes,
/// both by marching over the surface; subclasses say how the marching
/// measures distance.
class NodesSamplerAndInfluenceSearcher
{
public:
    virtual ~NodesSamplerAndInfluenceSearcher() = default;

    struct Result
    {
        QVector<int> sampleVertices;           ///< the node vertices, in sample order
        std::vector<std::vector<int>> coverage; ///< per node, the vertices its marching reached within the radius
        InfluenceLists influences;
        bool interrupted = false;
    };

    /// Greedy sampling in vertex order at `radius`, then up to `nNodesToUse`
    /// nearest nodes per vertex (in parallel over vertices) with weights
    /// (1 - d^2 / dmax^2)^3 normalised to sum 1.
    virtual Result sample(const QVector<QVector3D>& vertices, const MeshConnectivity& connectivity, float radius,
                          int nNodesToUse, SamplerNotifier* nodeNotifier, SamplerNotifier* weightNotifier) const;

    /// A fresh marching state for the mesh.
    virtual std::unique_ptr<MarchingState> createState(const QVector<QVector3D>& vertices,
                                                       const MeshConnectivity& connectivity) const = 0;

    /// Weights of a vertex from its nodes' distances (nearest first or not).
    static std::vector<float> weightsFromDistances(const std::vector<float>& distances);
};

/// Geodesic distances by fast marching with triangle updates; obtuse
/// corners are updated through a vertex found by unfolding the
/// neighbouring triangles.
class FastMarching2NodesSamplerAndInfluenceSearcher : public NodesSamplerAndInfluenceSearcher
{
public:
    std::unique_ptr<MarchingState> createState(const QVector<QVector3D>& vertices,
                                               const MeshConnectivity& connectivity) const override;
};

/// Shortest paths along mesh edges.
class DijkstraNodesSamplerAndInfluenceSearcherOld : public NodesSamplerAndInfluenceSearcher
{
public:
    std::unique_ptr<MarchingState> createState(const QVector<QVector3D>& vertices,
                                               const MeshConnectivity& connectivity) const override;
};

} // namespace DeformationGraphRoutine
