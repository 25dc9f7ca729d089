#include "NormalCholesky.h"

#include "ParallelRange.h"

#include <Eigen/Cholesky>

#include <tbb/partitioner.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

NormalCholesky::NormalCholesky()
{
    // A matrix that is not positive definite is answered by the fallback;
    // CHOLMOD need not print a warning for it.
    m_solver.cholmod().print = 0;
}

void NormalCholesky::setPattern(long long nodes, const std::vector<long long>& sequenceOffsets,
                                const std::vector<long long>& sequenceNodes)
{
    m_nodes = nodes;
    m_sequenceOffsets = sequenceOffsets;
    m_sequenceNodes = sequenceNodes;
    std::vector<std::vector<long long>> coupled(static_cast<size_t>(nodes));
    for (long long a = 0; a < nodes; ++a)
        coupled[size_t(a)].push_back(a);
    const long long sequences = (long long)m_sequenceOffsets.size() - 1;
    for (long long s = 0; s < sequences; ++s)
        for (long long i = m_sequenceOffsets[size_t(s)]; i < m_sequenceOffsets[size_t(s) + 1]; ++i)
            for (long long j = i + 1; j < m_sequenceOffsets[size_t(s) + 1]; ++j) {
                const long long a = m_sequenceNodes[size_t(i)], b = m_sequenceNodes[size_t(j)];
                coupled[size_t(std::min(a, b))].push_back(std::max(a, b));
            }
    m_blockOffsets.assign(1, 0);
    m_blockNodes.clear();
    for (auto& list : coupled) {
        std::sort(list.begin() + 1, list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        m_blockNodes.insert(m_blockNodes.end(), list.begin(), list.end());
        m_blockOffsets.push_back((long long)m_blockNodes.size());
    }

    m_slotOffsets.assign(1, 0);
    m_slots.clear();
    for (long long s = 0; s < sequences; ++s) {
        for (long long i = m_sequenceOffsets[size_t(s)]; i < m_sequenceOffsets[size_t(s) + 1]; ++i)
            for (long long j = i; j < m_sequenceOffsets[size_t(s) + 1]; ++j) {
                const long long a = m_sequenceNodes[size_t(i)], b = m_sequenceNodes[size_t(j)];
                const long long lo = std::min(a, b), hi = std::max(a, b);
                const auto first = m_blockNodes.begin() + m_blockOffsets[size_t(lo)];
                const auto last = m_blockNodes.begin() + m_blockOffsets[size_t(lo) + 1];
                // The diagonal block leads its row; the others follow sorted.
                const long long block =
                    lo == hi ? m_blockOffsets[size_t(lo)] : (long long)(std::lower_bound(first + 1, last, hi) - m_blockNodes.begin());
                m_slots.push_back(a <= b ? block : -1 - block);
            }
        m_slotOffsets.push_back((long long)m_slots.size());
    }
    m_blocks.assign(m_blockNodes.size() * 36, 0.0);

    // Lower triangle by columns: column 6a + c holds the diagonal block's
    // rows c..5, then six rows for each block (a, b > a), b ascending.
    const long long n = 6 * nodes;
    long long nonZeros = 0;
    for (long long a = 0; a < nodes; ++a)
        nonZeros += 21 + 36 * (m_blockOffsets[size_t(a) + 1] - m_blockOffsets[size_t(a)] - 1);
    m_lower.resize(n, n);
    m_lower.resizeNonZeros(nonZeros);
    int* outer = m_lower.outerIndexPtr();
    int* inner = m_lower.innerIndexPtr();
    long long at = 0;
    for (long long a = 0; a < nodes; ++a)
        for (int c = 0; c < 6; ++c) {
            outer[6 * a + c] = int(at);
            for (int r = c; r < 6; ++r)
                inner[at++] = int(6 * a + r);
            for (long long k = m_blockOffsets[size_t(a)] + 1; k < m_blockOffsets[size_t(a) + 1]; ++k)
                for (int r = 0; r < 6; ++r)
                    inner[at++] = int(6 * m_blockNodes[size_t(k)] + r);
        }
    outer[n] = int(at);
    std::fill(m_lower.valuePtr(), m_lower.valuePtr() + nonZeros, 0.0);
    m_solver.analyzePattern(m_lower);
    m_factorised = false;
    m_assembled = false;
}

void NormalCholesky::addRows(long long begin, long long end, const JacobianSparseStorage& jacobian,
                             std::vector<double>& sums) const
{
    const std::vector<long long>& offsets = jacobian.rowOffsets();
    const std::vector<int>& columns = jacobian.rowColumns();
    const std::vector<float>& values = jacobian.storedValues();
    // Consecutive rows of one sequence (a pair's four rows, an edge's
    // three) form a small dense matrix G over the sequence's nodes, six
    // columns each; G^T G holds all their products at once and is then
    // added block by block.
    Eigen::MatrixXd G, H;
    for (long long row = begin; row < end;) {
        const long long s = m_rowSequence[size_t(row)];
        long long groupEnd = row + 1;
        while (groupEnd < end && m_rowSequence[size_t(groupEnd)] == s)
            ++groupEnd;
        const long long first = m_sequenceOffsets[size_t(s)], count = m_sequenceOffsets[size_t(s) + 1] - first;
        G.setZero(groupEnd - row, 6 * count);
        for (long long r = row; r < groupEnd; ++r) {
            long long e = offsets[size_t(r)];
            const long long rowEnd = offsets[size_t(r) + 1];
            // A row's entries are runs, one per node of the sequence, in order.
            for (long long i = 0; i < count && e < rowEnd; ++i)
                while (e < rowEnd && columns[size_t(e)] / 6 == m_sequenceNodes[size_t(first + i)]) {
                    G(r - row, 6 * i + columns[size_t(e)] % 6) += double(values[size_t(e)]);
                    ++e;
                }
        }
        H.noalias() = G.transpose().lazyProduct(G);
        const long long* slot = m_slots.data() + m_slotOffsets[size_t(s)];
        for (long long i = 0; i < count; ++i)
            for (long long j = i; j < count; ++j, ++slot) {
                const bool transposed = *slot < 0;
                double* block = sums.data() + 36 * (transposed ? -1 - *slot : *slot);
                // Two entries of one node in a sequence (not produced by
                // the fit's rows, but harmless): the diagonal block takes
                // both orders of their products.
                const bool both = i != j && m_sequenceNodes[size_t(first + i)] == m_sequenceNodes[size_t(first + j)];
                for (int x = 0; x < 6; ++x)
                    for (int y = 0; y < 6; ++y) {
                        const double product = H(6 * i + x, 6 * j + y);
                        block[transposed ? 6 * y + x : 6 * x + y] += product;
                        if (both)
                            block[6 * y + x] += product;
                    }
            }
        row = groupEnd;
    }
}

void NormalCholesky::assemble(const JacobianSparseStorage& jacobian, bool parallel)
{
    const long long rows = jacobian.rows();
    const size_t size = m_blocks.size();
    // Fixed ranges, each with its own sums, at most 256 MB of them.
    long long ranges = parallel ? std::min<long long>(4 * std::max(1, tbb::this_task_arena::max_concurrency()), rows / 256) : 1;
    ranges = std::max<long long>(1, std::min<long long>(ranges, (256LL << 20) / std::max<long long>(1, 8 * (long long)size)));
    if ((long long)m_partials.size() < ranges)
        m_partials.resize(size_t(ranges));
    const auto sumRange = [&](long long range) {
        std::vector<double>& sums = m_partials[size_t(range)];
        sums.assign(size, 0.0);
        addRows(rows * range / ranges, rows * (range + 1) / ranges, jacobian, sums);
    };
    if (ranges == 1)
        sumRange(0);
    else
        tbb::parallel_for(0LL, ranges, sumRange, tbb::simple_partitioner());
    forRange((long long)size, parallel, [&](long long begin, long long end) {
        for (long long i = begin; i < end; ++i) {
            double sum = 0.0;
            for (long long range = 0; range < ranges; ++range)
                sum += m_partials[size_t(range)][size_t(i)];
            m_blocks[size_t(i)] = sum;
        }
    }, 4096);
    m_assembled = true;
    m_changed = false;
    ++m_assemblies;
}

void NormalCholesky::refresh(double damping)
{
    bool renewed = false;
    if (m_jacobian && (!m_assembled || (m_changed && m_applications > m_renewAfter))) {
        assemble(*m_jacobian, m_parallel);
        renewed = true;
    }
    m_applications = 0;
    if (renewed || !m_factorised) {
        double trace = 0.0;
        for (long long a = 0; a < m_nodes; ++a)
            for (int c = 0; c < 6; ++c)
                trace += m_blocks[size_t(36 * m_blockOffsets[size_t(a)] + 7 * c)];
        m_meanDiagonal = m_nodes > 0 ? trace / double(6 * m_nodes) : 0.0;
    }
    // The factor is that of J^T J + d I with d at least a millionth of the
    // mean diagonal: an undamped J^T J may be singular (a motion that no row
    // sees), and its exact factor then turns rounding into steps of 1e16.
    // The conjugate gradients still solve the system with the true damping.
    const double factorDamping = std::max(damping, 1e-6 * m_meanDiagonal);
    // A damping that moved by a negligible amount against the diagonal
    // leaves the factor as good a preconditioner as it was: the damping is
    // mostly 1e-9 or so against diagonal entries of order one.
    if (!renewed && m_factorised && std::abs(factorDamping - m_factorDamping) <= 1e-6 * m_meanDiagonal)
        return;
    m_factorDamping = factorDamping;
    double* value = m_lower.valuePtr();
    long long at = 0;
    for (long long a = 0; a < m_nodes; ++a)
        for (int c = 0; c < 6; ++c) {
            const double* diagonal = m_blocks.data() + 36 * m_blockOffsets[size_t(a)];
            for (int r = c; r < 6; ++r)
                value[at++] = diagonal[6 * r + c] + (r == c ? factorDamping : 0.0);
            for (long long k = m_blockOffsets[size_t(a)] + 1; k < m_blockOffsets[size_t(a) + 1]; ++k)
                for (int r = 0; r < 6; ++r)
                    value[at++] = m_blocks[size_t(36 * k + 6 * c + r)];
        }
    m_solver.factorize(m_lower);
    ++m_factorisations;
    m_factorised = m_solver.info() == Eigen::Success;
    if (m_factorised)
        return;
    m_inverseDiagonal.resize(size_t(m_nodes));
    for (long long a = 0; a < m_nodes; ++a) {
        Block block = Eigen::Map<const Block>(m_blocks.data() + 36 * m_blockOffsets[size_t(a)]);
        block.diagonal().array() += factorDamping;
        m_inverseDiagonal[size_t(a)] = block.ldlt().solve(Block::Identity()).cast<float>();
    }
}

void NormalCholesky::apply(const Vector& in, Vector& out) const
{
    ++m_applications;
    if (m_factorised) {
        m_work = in.cast<double>();
        out = m_solver.solve(m_work).cast<float>();
        return;
    }
    out.resize(in.size());
    for (long long a = 0; a < m_nodes; ++a)
        out.segment<6>(6 * a) = m_inverseDiagonal[size_t(a)] * in.segment<6>(6 * a);
}

Eigen::MatrixXd NormalCholesky::dense(double damping) const
{
    Eigen::MatrixXd H = Eigen::MatrixXd::Zero(6 * m_nodes, 6 * m_nodes);
    for (long long a = 0; a < m_nodes; ++a)
        for (long long k = m_blockOffsets[size_t(a)]; k < m_blockOffsets[size_t(a) + 1]; ++k) {
            const long long b = m_blockNodes[size_t(k)];
            const Eigen::Map<const Eigen::Matrix<double, 6, 6, Eigen::RowMajor>> block(m_blocks.data() + 36 * k);
            H.block<6, 6>(6 * a, 6 * b) = block;
            H.block<6, 6>(6 * b, 6 * a) = block.transpose();
        }
    H.diagonal().array() += damping;
    return H;
}

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
