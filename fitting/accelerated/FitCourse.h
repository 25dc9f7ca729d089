#pragma once

namespace WelkingAcceleratedVersion {

/// How a fit went, as far as the worker can tell without the target's
/// surface: distances of the shape's vertices to their nearest target
/// vertex, in the units the worker was asked to report them in.
struct FitCourse
{
    /// RMS distance of the start shape's vertices (those not excluded from
    /// matching) to their nearest target vertex.
    double startDistance = 0;
    /// The same for the shape the fit handed back.
    double endDistance = 0;
    /// Closest-point rounds whose shape lay farther from the target than
    /// the level's best shape, and were undone.
    int rejectedRounds = 0;
    /// Closest-point rounds solved, over all levels (a level ends before its
    /// last round once the shape stops moving).
    int rounds = 0;
    /// Vertices of the result that lie far outside both models: more than a
    /// box diagonal beyond the box around the start shape and the target.
    int flownOffVertices = 0;
    /// Fold-overs the fit added before and after its repair pass.
    int foldsBeforeRepair = 0;
    int foldsAfterRepair = 0;

    /// True when the fit ended farther from the target than it began, or
    /// with vertices that flew off.
    bool diverged() const { return flownOffVertices > 0 || endDistance > startDistance; }
};

} // namespace WelkingAcceleratedVersion
