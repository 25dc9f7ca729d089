#pragma once

#include <QVector3D>
#include <QVector>

#include <vector>

namespace DeformationGraphRoutine {

/// Per vertex, the graph nodes that move it and their weights, in
/// compressed rows: vertex i spans [offsets[i], offsets[i + 1]) of both
/// `nodeIndices` and `weights`.
struct InfluenceLists
{
    std::vector<long long> offsets{0};
    std::vector<int> nodeIndices;
    std::vector<long long> weightOffsets{0};
    std::vector<float> weights;

    int vertexCount() const { return int(offsets.size()) - 1; }
};

/// A compressed adjacency list; node i's neighbours, ascending, span
/// [offsets[i], offsets[i + 1]) of `indices`.
struct NeighbourLists
{
    std::vector<long long> offsets{0};
    std::vector<int> indices;

    int nodeCount() const { return int(offsets.size()) - 1; }
};

/// One level of the deformation graph.
struct NodeLevel
{
    QVector<QVector3D> nodes;  ///< positions, in sample order
    QVector<int> nodeVertices; ///< the basemesh vertex of each node
    InfluenceLists influences;
    NeighbourLists neighbours;
};

/// Vertex to triangle and vertex to vertex adjacency of a triangle list.
struct MeshConnectivity
{
    /// `triangles` holds three vertex indices per triangle; a trailing
    /// partial triangle is ignored.
    MeshConnectivity(int vertexCount, const QVector<int>& triangles);

    /// The triangle other than `triangle` that has the edge (a, b), or -1.
    int triangleAcross(int triangle, int a, int b) const;
    const int* triangleCorners(int triangle) const { return triangles.data() + 3 * triangle; }
    int triangleCount() const { return int(triangles.size() / 3); }

    std::vector<int> triangles;         ///< three corners each

    std::vector<int> triangleOffsets;   ///< per vertex
    std::vector<int> vertexTriangles;
    std::vector<int> neighbourOffsets;  ///< per vertex
    std::vector<int> vertexNeighbours;  ///< unique, ascending per vertex
};

/// Progress of building graph levels; the count runs to twice the vertex
/// count per level (sampling, then influences).
class DeformationGraphCreatorUpdateCallback
{
public:
    virtual ~DeformationGraphCreatorUpdateCallback() = default;
    virtual void begin(int maxValue) = 0;
    virtual void setValue(int value) = 0;
    virtual void levelStarted(int index) = 0;
    virtual void finish() = 0;
    virtual bool isInterrupted() { return false; }
};

/// What a sampler reports to: progress within its phase, and whether to
/// stop. Polled per vertex.
class SamplerNotifier
{
public:
    virtual ~SamplerNotifier() = default;
    virtual void setValue(int value) = 0;
    virtual bool isInterrupted() = 0;
};

/// The sampling phase of a level: values 0 .. vertex count.
class DGC2NodeNotifier : public SamplerNotifier
{
public:
    explicit DGC2NodeNotifier(DeformationGraphCreatorUpdateCallback* callback) : m_callback(callback) {}
    void setValue(int value) override
    {
        if (m_callback)
            m_callback->setValue(value);
    }
    bool isInterrupted() override { return m_callback && m_callback->isInterrupted(); }

private:
    DeformationGraphCreatorUpdateCallback* m_callback;
};

/// The influence phase: values vertex count .. twice the vertex count.
class DGC2WeightNotifier : public SamplerNotifier
{
public:
    DGC2WeightNotifier(DeformationGraphCreatorUpdateCallback* callback, int offset)
        : m_callback(callback), m_offset(offset)
    {
    }
    void setValue(int value) override
    {
        if (m_callback)
            m_callback->setValue(m_offset + value);
    }
    bool isInterrupted() override { return m_callback && m_callback->isInterrupted(); }

private:
    DeformationGraphCreatorUpdateCallback* m_callback;
    int m_offset;
};

} // namespace DeformationGraphRoutine
