#pragma once

#include "WNewtonProblem.h"

namespace WNewton {

namespace detail {
template <typename Scalar> struct DirectSolverFor;
}

/// Minimises `problem` from `x` by Levenberg-Marquardt; `x` ends at the
/// last accepted iterate, and the result says why the loop ended. The sparse form factorises H + damping I with a
/// sparse Cholesky whose symbolic analysis runs once per call (CHOLMOD in
/// double precision, Eigen's simplicial LLT in single precision; `Solver`
/// may name any Eigen sparse Cholesky).
template <typename Scalar, typename Solver = typename detail::DirectSolverFor<Scalar>::Type>
StopReason minimize(Problem<Scalar, SparseHessian<Scalar>>& problem, Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& x,
              const SolverParameters& parameters, const Tolerances& tolerances,
              OptimizationFramework::OptimizationUpdateFunctor<Scalar>* updateFunctor = nullptr);

/// The matrix-free form: each damped system is solved by preconditioned
/// conjugate gradients through the problem's product and preconditioner.
template <typename Scalar>
StopReason minimize(MatrixFreeProblem<Scalar>& problem, Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& x,
              const SolverParameters& parameters, const Tolerances& tolerances,
              OptimizationFramework::OptimizationUpdateFunctor<Scalar>* updateFunctor = nullptr);

} // namespace WNewton

#include "WNewton.ipp"
