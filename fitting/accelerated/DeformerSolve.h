#pragma once

#include "DeformerTypes.h"

#include "optimisation/WNewton.h"

namespace EmbeddedGraphDeformer {

/// The Levenberg-Marquardt settings every deformer solves with: gradient
/// tolerance 1e-4, initial damping 1e-9, damping updates on, and the
/// budget's iteration limit and step tolerance.
inline void solveWithBudget(WNewton::MatrixFreeProblem<float>& problem, Eigen::VectorXf& state,
                            const SolveBudget& budget)
{
    WNewton::SolverParameters parameters;
    parameters.maxIterations = budget.iterations;
    parameters.initialDamping = 1e-9;
    parameters.verbose = false;
    parameters.dampingMode = 10;
    parameters.dampingFloor = budget.dampingFloor;
    WNewton::Tolerances tolerances;
    tolerances.gradientTolerance = 1e-4;
    tolerances.stepTolerance = budget.stepTolerance;
    parameters.interrupted = budget.interrupted;
    WNewton::minimize(problem, state, parameters, tolerances);
}

} // namespace EmbeddedGraphDeformer
