#pragma once

#include "DeformerTypes.h"
#include "FoldOvers.h"

#include <vector>

namespace WelkingAcceleratedVersion {

/// The three fold tests of `foldedTriangles` for one shape of a triangle
/// mesh, kept up to date while a few vertices at a time move: folded
/// (`minCosine` 0), within rounding of folding (`positionTolerance` =
/// `tolerance`) and within a margin of folding (`minCosine` = `margin`).
///
/// The fold repair moves a small region of a large basemesh for up to
/// hundreds of rounds; testing every triangle after each round took most of
/// its time. A moved vertex changes the normals of its triangles, those
/// change the vertex normals of their corners, and those the tests of the
/// triangles around them, so an update recomputes just that neighbourhood.
/// Every vertex normal is summed over its triangles in triangle order, as
/// `foldedTriangles` sums it, so the flags are exactly those of a full test.
class FoldTracker
{
public:
    using Vec3 = EmbeddedGraphDeformer::Vec3;

    FoldTracker(const std::vector<long long>& triangles, size_t vertexCount, double margin, double tolerance);

    /// Tests every triangle of `shape`.
    void reset(const std::vector<Vec3>& shape);
    /// Tests again after the vertices in `moved` (and no others) changed in
    /// `shape` since the last reset or update; `moved` may repeat vertices.
    void update(const std::vector<Vec3>& shape, const std::vector<long long>& moved);

    const std::vector<char>& folded() const { return m_folded; }
    const std::vector<char>& atRisk() const { return m_atRisk; }
    const std::vector<char>& nearFolded() const { return m_near; }
    /// The triangles the last update tested again (every one after a reset).
    const std::vector<long long>& retested() const { return m_retested; }

private:
    using D3 = FoldTest::D3;

    void faceNormal(const std::vector<Vec3>& shape, size_t t);
    void vertexNormal(size_t v);
    void test(size_t t);

    const std::vector<long long>& m_triangles;
    double m_margin;
    double m_tolerance;
    /// Each vertex's triangles in ascending order, a triangle once per
    /// corner at the vertex.
    std::vector<long long> m_offsets;
    std::vector<int> m_incident;
    std::vector<D3> m_faceNormals, m_vertexNormals;
    std::vector<double> m_slack;
    std::vector<char> m_folded, m_atRisk, m_near;
    std::vector<long long> m_retested, m_movedFaces, m_movedNormals;
    /// Set during an update for the triangles and vertices it has done.
    std::vector<char> m_faceMarks, m_vertexMarks, m_testMarks;
};

} // namespace WelkingAcceleratedVersion
