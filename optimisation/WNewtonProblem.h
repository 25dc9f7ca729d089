#pragma once

#include "LinearSystemsSolvers.h"
#include "SolverTypes.h"

#include <Eigen/Core>
#include <Eigen/SparseCore>

namespace WNewton {

template <typename Scalar> using SparseHessian = Eigen::SparseMatrix<Scalar, 0, int>;

/// A least-squares objective for the Levenberg-Marquardt loop: the value
/// alone, or value, gradient and Hessian approximation together.
/// `HessianType` is a sparse matrix for the direct solves, and a
/// `LinearSystemsSolvers::ProductHolder` for the matrix-free one.
template <typename Scalar, typename HessianType> class Problem
{
public:
    using Vector = Eigen::Matrix<Scalar, Eigen::Dynamic, 1>;

    virtual void evaluateValue(const Vector& x, Scalar& value, Timings* timings) = 0;
    virtual void evaluateAll(const Vector& x, Scalar& value, Vector& gradient, HessianType& hessian,
                             Timings* timings) = 0;
    /// The mean diagonal entry of the Hessian at the last `evaluateAll`,
    /// the scale a damping is measured against (0 when unknown).
    virtual double hessianScale() const { return 0.0; }
    virtual ~Problem() = default;
};

/// A problem whose Hessian is known only through products: it owns the
/// product, the preconditioner and the settings of the conjugate-gradient
/// solve.
template <typename Scalar>
class MatrixFreeProblem : public Problem<Scalar, LinearSystemsSolvers::ProductHolder<Scalar>>
{
public:
    virtual LinearSystemsSolvers::ProductHolder<Scalar>& product() = 0;
    virtual LinearSystemsSolvers::Preconditioner<Scalar, long long>& preconditioner() = 0;
    virtual long long conjugateGradientIterations() const { return 200; }
    virtual double conjugateGradientTolerance() const { return 5e-4; }
};

} // namespace WNewton

namespace OptimizationFramework {

/// Watches the iterates: called after every accepted step; returning false
/// ends the minimisation at once.
template <typename Scalar> class OptimizationUpdateFunctor
{
public:
    using Vector = Eigen::Matrix<Scalar, Eigen::Dynamic, 1>;
    virtual ~OptimizationUpdateFunctor() = default;
    virtual bool onUpdate(const Vector& x) { return (void)x, true; }
};

} // namespace OptimizationFramework
