#pragma once

#include <atomic>

#include "SolverTypes.h"

#include <Eigen/Core>

#include <cmath>

namespace LinearSystemsSolvers {

template <typename Scalar> using Vector = Eigen::Matrix<Scalar, Eigen::Dynamic, 1>;

/// A symmetric positive-definite operator given only by its product:
/// y = (H + damping I) v, where H is never formed.
template <typename Scalar> class ProductHolder
{
public:
    virtual ~ProductHolder() = default;
    virtual void multiply(const Vector<Scalar>& v, Vector<Scalar>& y) const = 0;
    void setDamping(double damping) { m_damping = damping; }
    double damping() const { return m_damping; }

protected:
    double m_damping = 0.0;
};

/// An approximate inverse of the operator: out = M^-1 in. It is refreshed
/// for each damping before a solve.
template <typename Scalar, typename Index> class Preconditioner
{
public:
    virtual ~Preconditioner() = default;
    virtual void apply(const Vector<Scalar>& in, Vector<Scalar>& out) const = 0;
    virtual void refresh(double damping) { (void)damping; }
};

/// The identity, for problems without a better preconditioner.
template <typename Scalar, typename Index> class IdentityPreconditioner : public Preconditioner<Scalar, Index>
{
public:
    void apply(const Vector<Scalar>& in, Vector<Scalar>& out) const override { out = in; }
};

/// Preconditioned conjugate gradients for A x = b, from x = 0 or, with
/// `startFromX`, from the x given. Stops when the residual norm is at most
/// `relativeTolerance` times |b|, or after `maxIterations`.
template <typename Scalar, typename Index>
WNewton::CGInfo conjugateGradient(const ProductHolder<Scalar>& A, const Preconditioner<Scalar, Index>& M,
                                  const Vector<Scalar>& b, Vector<Scalar>& x, long long maxIterations,
                                  double relativeTolerance, const std::atomic<bool>* interrupted = nullptr,
                                  bool startFromX = false)
{
    WNewton::CGInfo info;
    info.valid = true;
    const double bNorm = double(b.norm());
    if (bNorm == 0.0) {
        x.setZero(b.size());
        return info;
    }
    Vector<Scalar> r = b, z(b.size()), p(b.size()), Ap(b.size());
    if (startFromX && x.size() == b.size()) {
        A.multiply(x, Ap);
        r -= Ap;
    } else {
        x.setZero(b.size());
    }
    M.apply(r, z);
    p = z;
    double rz = double(r.dot(z));
    double rNorm = double(r.norm());
    while (info.iterations < maxIterations && rNorm > relativeTolerance * bNorm &&
           !(interrupted && interrupted->load(std::memory_order_relaxed))) {
        A.multiply(p, Ap);
        const double pAp = double(p.dot(Ap));
        if (!(pAp > 0.0))
            break;
        const Scalar alpha = Scalar(rz / pAp);
        x += alpha * p;
        r -= alpha * Ap;
        rNorm = double(r.norm());
        ++info.iterations;
        M.apply(r, z);
        const double rzNew = double(r.dot(z));
        p = z + Scalar(rzNew / rz) * p;
        rz = rzNew;
    }
    info.error = rNorm / bNorm;
    return info;
}

} // namespace LinearSystemsSolvers
