#pragma once

#include "DeformerTypes.h"

#include "search/KDTreeAcceleratedVersion.h"

#include <vector>

namespace WelkingAcceleratedVersion {

/// Removes the fold-overs a fit added, after its last level: triangles
/// folded in the fitted shape (or, with a position tolerance, within
/// rounding of folding) that were not folded at rest.
///
/// The corners of the added folds (and, while folds persist, a ring around
/// them that widens every 20 rounds) move half way to their neighbours'
/// mean, up to 200 rounds; where folds survive, 200 more rounds relax
/// towards the rest shape's offsets, carried by the similarity of each
/// connected part of the region; where folds still survive, 200 plain
/// rounds more start again from the best shape so far. The repair ends on
/// the best shape it saw, and then puts each moved vertex back onto the
/// tangent plane of its nearest target vertex wherever that folds nothing.
/// A repair that left the shape clearly farther from the target than the
/// fit did (half as far again and half a percent of the basemesh's size
/// more, RMS to the nearest target vertex) is run again, ending on the best
/// shape within that distance, or else gives the fitted shape back with its
/// folds.
class FoldRepair
{
public:
    using Vec3 = EmbeddedGraphDeformer::Vec3;

    /// The target that moved vertices are put back onto.
    struct Target
    {
        const KDTreeAcceleratedVersion::Node<float, long long>& tree;
        const std::vector<Vec3>& points;
        const std::vector<Vec3>& normals;
        /// A vertex whose normal agrees less with its nearest target
        /// vertex's stays where relaxing put it.
        float normalsThreshold;
    };
    /// Added folds proper (not counting slivers at risk), before and after.
    struct Counts
    {
        int before = 0;
        int after = 0;
    };

    /// `rest` and `triangles` (three indices each) are the basemesh before
    /// the fit; a sliver whose normal a move of its corners by `tolerance`
    /// could turn over is repaired as a fold.
    FoldRepair(const std::vector<Vec3>& rest, const std::vector<long long>& triangles, double tolerance);

    /// Repairs `current` in place. `pinned` vertices (the corners of point
    /// pairs) never move; `excluded` ones are not put back onto the target.
    Counts run(std::vector<Vec3>& current, const std::vector<char>& pinned, const std::vector<char>& excluded,
               const Target& target) const;

private:
    const std::vector<Vec3>& m_rest;
    const std::vector<long long>& m_triangles;
    double m_tolerance;
    double m_extent = 0.0; ///< the rest shape's largest side
};

} // namespace WelkingAcceleratedVersion
