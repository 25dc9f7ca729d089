#pragma once

#include "DCEL.h"

#include <QVector3D>
#include <QVector>

namespace Welk {
class ProgressInterface;
}

/// Left-right symmetry of a mesh from its connectivity alone: a map of the
/// vertices onto themselves that preserves adjacency and reverses
/// orientation, found without looking at positions, so it holds for posed,
/// non-symmetrical shapes too.
///
/// A candidate names a start vertex and the next one on a path, with their
/// images; it is tested by two breadth-first walks in lockstep, one over the
/// mesh and one over its mirror-image winding, checking adjacency as they
/// go. Candidates come from a TBB flow graph; the first one that pairs every
/// vertex wins and cancels the rest.
namespace SymmetryDetectionTBB {

/// Work item of the graph: a start vertex, how far its candidates reach
/// (3 around neighbours of the seed, 0 for the whole mesh) and, once
/// generated, a candidate [a, a', b', b].
struct Message
{
    int vertex = 0;
    int limit = 0;
    QVector<int> path;
};

/// How hard candidates are filtered before and while they are walked.
struct SymmetryOptions
{
    /// Rounds of colour refinement behind the vertex signatures a candidate
    /// must match at every step (see `VertexSignatures`). 0 tests adjacency
    /// and neighbour counts alone: the same answers, far more slowly on large
    /// regular meshes.
    int signatureRounds = 16;
};

/// 1-based polygon lists from a mesh's flat corner and offset arrays.
Polygons extractFacesFromPolygons(const QVector<int>& polygonOffsets, const QVector<int>& indices);

/// Searches the symmetry from `seedVertex` (1-based). On success `result`
/// holds two lists of equal length, one entry per vertex: position k of both
/// names the two 1-based identifiers of one symmetric pair (a vertex on the
/// plane of symmetry is paired with itself). `progress` may be null; its
/// cancellation stops the search, which then fails.
bool detectTopologicalSymmetry(const QVector<int>& polygonOffsets, const QVector<int>& indices, int seedVertex,
                               QVector<QVector<int>>& result, Welk::ProgressInterface* progress = nullptr,
                               const SymmetryOptions& options = SymmetryOptions());

/// The same search over a ready polygon list.
bool detectTopologicalSymmetry(const Polygons& polygons, int seedVertex, QVector<QVector<int>>& result,
                               Welk::ProgressInterface* progress = nullptr,
                               const SymmetryOptions& options = SymmetryOptions());

/// The 1-based identifier of the vertex nearest the centre of the vertices'
/// bounding box (lowest index on ties), 1 without vertices: the seed the
/// spline step's mirror uses.
int seedNearestToCentre(const QVector<QVector3D>& vertices);

} // namespace SymmetryDetectionTBB
