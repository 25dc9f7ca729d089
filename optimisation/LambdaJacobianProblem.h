#pragma once

#include "WNewtonProblem.h"

#include <Eigen/Cholesky>
#include <Eigen/SparseCore>

#include <functional>
#include <vector>

namespace WNewton {

/// Residuals r(x) and, when asked, their sparse Jacobian J(x) (row-major).
template <typename Scalar>
using ResidualFunction = std::function<void(const Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& x,
                                            Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& r,
                                            Eigen::SparseMatrix<Scalar, Eigen::RowMajor, int>* J)>;

/// A problem given by its residuals and their sparse Jacobian:
/// f = |r|^2 / 2, g = J^T r and H = J^T J formed explicitly, for the direct
/// solves. Subclasses supply `residuals`.
template <typename Scalar> class SparseJacobianProblem : public Problem<Scalar, SparseHessian<Scalar>>
{
public:
    using Vector = Eigen::Matrix<Scalar, Eigen::Dynamic, 1>;
    using Jacobian = Eigen::SparseMatrix<Scalar, Eigen::RowMajor, int>;

    /// r at x, and J when `J` is not null.
    virtual void residuals(const Vector& x, Vector& r, Jacobian* J) = 0;

    void evaluateValue(const Vector& x, Scalar& value, Timings*) override
    {
        residuals(x, m_r, nullptr);
        value = Scalar(0.5) * m_r.squaredNorm();
    }
    void evaluateAll(const Vector& x, Scalar& value, Vector& gradient, SparseHessian<Scalar>& hessian,
                     Timings*) override
    {
        residuals(x, m_r, &m_J);
        value = Scalar(0.5) * m_r.squaredNorm();
        gradient = m_J.transpose() * m_r;
        hessian = SparseHessian<Scalar>(m_J.transpose() * m_J);
    }

private:
    Vector m_r;
    Jacobian m_J;
};

/// A `SparseJacobianProblem` whose residuals come from a function object.
template <typename Scalar> class LambdaJacobianSparseProblem : public SparseJacobianProblem<Scalar>
{
public:
    using typename SparseJacobianProblem<Scalar>::Vector;
    using typename SparseJacobianProblem<Scalar>::Jacobian;

    explicit LambdaJacobianSparseProblem(ResidualFunction<Scalar> residuals) : m_residuals(std::move(residuals)) {}
    void residuals(const Vector& x, Vector& r, Jacobian* J) override { m_residuals(x, r, J); }

private:
    ResidualFunction<Scalar> m_residuals;
};

/// The same objective without forming J^T J: products J^T (J v) + damping v,
/// and a preconditioner of inverted `blockSize` x `blockSize` diagonal
/// blocks of J^T J + damping I (one block per node of a deformation graph).
template <typename Scalar> class LambdaJacobianMatrixFreeProblem : public MatrixFreeProblem<Scalar>
{
public:
    using Vector = Eigen::Matrix<Scalar, Eigen::Dynamic, 1>;
    using Jacobian = Eigen::SparseMatrix<Scalar, Eigen::RowMajor, int>;
    using Block = Eigen::Matrix<Scalar, Eigen::Dynamic, Eigen::Dynamic>;

    LambdaJacobianMatrixFreeProblem(ResidualFunction<Scalar> residuals, int blockSize, long long cgIterations = 200,
                                    double cgTolerance = 5e-4)
        : m_residuals(std::move(residuals)), m_product(m_J), m_preconditioner(m_J, blockSize),
          m_cgIterations(cgIterations), m_cgTolerance(cgTolerance)
    {
    }

    void evaluateValue(const Vector& x, Scalar& value, Timings*) override
    {
        m_residuals(x, m_r, nullptr);
        value = Scalar(0.5) * m_r.squaredNorm();
    }
    void evaluateAll(const Vector& x, Scalar& value, Vector& gradient,
                     LinearSystemsSolvers::ProductHolder<Scalar>&, Timings*) override
    {
        m_residuals(x, m_r, &m_J);
        value = Scalar(0.5) * m_r.squaredNorm();
        gradient = m_J.transpose() * m_r;
        m_preconditioner.collectBlocks();
    }
    LinearSystemsSolvers::ProductHolder<Scalar>& product() override { return m_product; }
    LinearSystemsSolvers::Preconditioner<Scalar, long long>& preconditioner() override { return m_preconditioner; }
    long long conjugateGradientIterations() const override { return m_cgIterations; }
    double conjugateGradientTolerance() const override { return m_cgTolerance; }

private:
    class Product : public LinearSystemsSolvers::ProductHolder<Scalar>
    {
    public:
        explicit Product(const Jacobian& J) : m_J(J) {}
        void multiply(const Vector& v, Vector& y) const override
        {
            m_Jv.noalias() = m_J * v;
            y.noalias() = m_J.transpose() * m_Jv;
            y += Scalar(this->m_damping) * v;
        }

    private:
        const Jacobian& m_J;
        mutable Vector m_Jv;
    };

    class BlockDiagonal : public LinearSystemsSolvers::Preconditioner<Scalar, long long>
    {
    public:
        BlockDiagonal(const Jacobian& J, int blockSize) : m_J(J), m_blockSize(blockSize) {}

        /// The diagonal blocks of J^T J, row by row of J.
        void collectBlocks()
        {
            const Eigen::Index blocks = (m_J.cols() + m_blockSize - 1) / m_blockSize;
            m_blocks.assign(size_t(blocks), Block::Zero(m_blockSize, m_blockSize));
            for (Eigen::Index row = 0; row < m_J.outerSize(); ++row)
                for (typename Jacobian::InnerIterator a(m_J, row); a; ++a)
                    for (typename Jacobian::InnerIterator b(m_J, row); b; ++b)
                        if (a.col() / m_blockSize == b.col() / m_blockSize)
                            m_blocks[size_t(a.col() / m_blockSize)](a.col() % m_blockSize, b.col() % m_blockSize) +=
                                a.value() * b.value();
        }
        void refresh(double damping) override
        {
            m_inverse.resize(m_blocks.size());
            for (size_t i = 0; i < m_blocks.size(); ++i) {
                Block damped = m_blocks[i];
                damped.diagonal().array() += Scalar(damping);
                m_inverse[i] = damped.ldlt().solve(Block::Identity(m_blockSize, m_blockSize));
            }
        }
        void apply(const Vector& in, Vector& out) const override
        {
            out.resize(in.size());
            for (size_t i = 0; i < m_inverse.size(); ++i) {
                const Eigen::Index start = Eigen::Index(i) * m_blockSize;
                const Eigen::Index n = std::min<Eigen::Index>(m_blockSize, in.size() - start);
                out.segment(start, n) = m_inverse[i].topLeftCorner(n, n) * in.segment(start, n);
            }
        }

    private:
        const Jacobian& m_J;
        int m_blockSize;
        std::vector<Block> m_blocks;
        std::vector<Block> m_inverse;
    };

    ResidualFunction<Scalar> m_residuals;
    Vector m_r;
    Jacobian m_J;
    Product m_product;
    BlockDiagonal m_preconditioner;
    long long m_cgIterations;
    double m_cgTolerance;
};

} // namespace WNewton
