#pragma once

#include "JacobianSparseStorage.h"

#include "optimisation/LinearSystemsSolvers.h"

#include <Eigen/CholmodSupport>
#include <Eigen/SparseCore>

#include <vector>

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

/// The fast fit's normal matrix J^T J, summed in 6x6 node blocks from the
/// Jacobian's rows and factorised with the damping by a sparse Cholesky
/// (CHOLMOD, supernodal): as the conjugate gradients' preconditioner it is
/// the operator's exact inverse, so a solve takes one product where the
/// block-diagonal preconditioner needs tens. Worth it on levels with few
/// nodes, whose factor is small while every matched vertex still adds rows.
///
/// The rows come in groups that share one node sequence (a matched vertex's
/// influences, the two nodes of a graph edge, the nodes of a control point):
/// a row's entries are contiguous runs ("segments"), one per node of its
/// sequence, in that order, each entry's column 6 node + local column. The
/// block pattern is the union of every sequence's node pairs, set once per
/// level, so that the Cholesky's analysis runs once per level.
///
/// Summing J^T J costs about thirty products of the matrix-free operator
/// (every matched vertex adds a dense 48x48 block), so it is not redone for
/// every Jacobian: the factor of an earlier J^T J, with the current
/// damping, stays an excellent preconditioner while the shape changes
/// little, and the sum is renewed only when a solve needed more than
/// `setRenewAfter` iterations since the last one.
///
/// The factorised matrix carries at least a millionth of the mean diagonal
/// as damping, so that a singular J^T J gives a usable factor; should the
/// factorisation still fail (values that are not finite), the inverted
/// diagonal blocks serve for that solve.
class NormalCholesky : public LinearSystemsSolvers::Preconditioner<float, long long>
{
public:
    using Vector = Eigen::VectorXf;
    using Block = Eigen::Matrix<double, 6, 6>;

    NormalCholesky();

    /// `nodes` nodes (6 unknowns each); sequence s lists
    /// sequenceNodes[sequenceOffsets[s] .. sequenceOffsets[s + 1]).
    void setPattern(long long nodes, const std::vector<long long>& sequenceOffsets,
                    const std::vector<long long>& sequenceNodes);
    /// For every Jacobian row, the index of the sequence it follows.
    void setRowSequences(std::vector<long long> rowSequence) { m_rowSequence = std::move(rowSequence); }
    /// The Jacobian whose J^T J is summed when the factor is renewed.
    void setJacobian(const JacobianSparseStorage* jacobian, bool parallel)
    {
        m_jacobian = jacobian;
        m_parallel = parallel;
    }
    /// The Jacobian's values changed: the next refresh may renew the sum.
    void jacobianChanged() { m_changed = true; }
    /// Renew the sum at the next refresh after a solve that applied the
    /// preconditioner more than this many times (0: at every refresh after
    /// a change, the exact inverse).
    void setRenewAfter(long long applications) { m_renewAfter = applications; }
    long long assemblies() const { return m_assemblies; }
    long long factorisations() const { return m_factorisations; }
    /// Sums J^T J from the Jacobian's current values. Rows are cut into a
    /// fixed number of contiguous ranges summed apart and added in order,
    /// so the result does not depend on scheduling.
    void assemble(const JacobianSparseStorage& jacobian, bool parallel);

    /// Renews the sum when due, and factorises it with the damping when the
    /// sum is new or the damping moved noticeably against the diagonal.
    void refresh(double damping) override;
    void apply(const Vector& in, Vector& out) const override;

    /// False after a failed factorisation (the diagonal blocks serve then).
    bool factorised() const { return m_factorised; }
    long long blockCount() const { return (long long)m_blockNodes.size(); }
    /// J^T J + damping I as a dense matrix, for checks.
    Eigen::MatrixXd dense(double damping) const;

private:
    void addRows(long long begin, long long end, const JacobianSparseStorage& jacobian, std::vector<double>& sums) const;

    long long m_nodes = 0;
    // Upper blocks (a, b >= a): per node a the range of its blocks, the
    // first being (a, a), then b ascending.
    std::vector<long long> m_blockOffsets{0};
    std::vector<long long> m_blockNodes;
    // Per sequence, the block of each of its segment pairs (i <= j, i
    // outer), negative (-1 - block) when the pair is stored transposed.
    std::vector<long long> m_sequenceOffsets{0};
    std::vector<long long> m_sequenceNodes;
    std::vector<long long> m_slotOffsets{0};
    std::vector<long long> m_slots;
    std::vector<long long> m_rowSequence;
    std::vector<double> m_blocks; ///< 36 per block, row-major: (local column of a, local column of b)
    std::vector<std::vector<double>> m_partials;
    Eigen::SparseMatrix<double> m_lower; ///< damped matrix, lower triangle
    Eigen::CholmodSupernodalLLT<Eigen::SparseMatrix<double>, Eigen::Lower> m_solver;
    bool m_factorised = false;
    std::vector<Eigen::Matrix<float, 6, 6>> m_inverseDiagonal;
    mutable Eigen::VectorXd m_work;
    const JacobianSparseStorage* m_jacobian = nullptr;
    bool m_parallel = true;
    bool m_assembled = false;
    bool m_changed = false;
    long long m_renewAfter = 0;
    long long m_assemblies = 0;
    long long m_factorisations = 0;
    double m_factorDamping = 0.0;
    double m_meanDiagonal = 0.0;
    mutable long long m_applications = 0;
};

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
