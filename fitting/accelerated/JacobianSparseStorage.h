#pragma once

#include <Eigen/Core>

#include <tbb/task_arena.h>

#include <algorithm>

#include <vector>

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

/// The deformer's Jacobian in a row form, filled in place, and a column
/// form mirrored through a precomputed index map; the pattern is set once
/// per set of pairs. Products J v and J^T u and the node blocks of J^T J run
/// over disjoint output ranges, so they need no atomics.
class JacobianSparseStorage
{
public:
    using Vector = Eigen::VectorXf;
    using Block = Eigen::Matrix<float, 6, 6>;

    /// Rows given by their column lists (each ascending or not, unique).
    void setPattern(std::vector<long long> rowOffsets, std::vector<long long> columns, long long columnCount);
    /// The same, copied into the storage's own lists, which keep their
    /// memory from one set of pairs to the next: fresh lists of a million
    /// entries cost more in page faults than in filling.
    void setPattern(const std::vector<long long>& rowOffsets, const std::vector<int>& columns, long long columnCount);

    /// Room for patterns up to this size, so that later sets of pairs grow
    /// no list (a regrown list is copied and its fresh pages faulted in).
    void reserve(long long rows, long long entries, long long columnCount);

    long long rows() const { return (long long)m_rowOffsets.size() - 1; }
    long long columns() const { return m_columnCount; }
    const std::vector<long long>& rowOffsets() const { return m_rowOffsets; }
    const std::vector<int>& rowColumns() const { return m_columns; }
    /// Row-form values, to be filled in pattern order.
    std::vector<float>& values() { return m_values; }
    const std::vector<float>& storedValues() const { return m_values; }

    /// Copies the row-form values into the column form.
    void syncColumns(bool parallel);
    void multiply(const Vector& v, Vector& out, bool parallel) const;
    void multiplyTransposed(const Vector& u, Vector& out, bool parallel) const;
    /// out = J^T (J v) in one pass over the rows, each block of rows summing
    /// into its own vector: half the memory traffic of the two products
    /// apart, and the same result whatever the scheduling.
    void multiplyNormal(const Vector& v, Vector& out, bool parallel) const;
    /// Row blocks of `multiplyNormal`; the default is four per thread of
    /// the task arena. The result depends on it, so it stays fixed per run.
    void setRowBlocks(int blocks) { m_blockCount = std::max(1, blocks); }
    /// The 6x6 diagonal blocks of J^T J, one per node.
    void nodeBlocks(std::vector<Block>& blocks, bool parallel) const;

private:
    void buildColumnForm();

    // 32-bit columns and rows: the products are bound by memory traffic.
    std::vector<long long> m_rowOffsets{0};
    std::vector<int> m_columns;
    std::vector<float> m_values;
    long long m_columnCount = 0;
    std::vector<long long> m_columnOffsets;
    std::vector<int> m_columnRows;
    std::vector<int> m_rowToColumn; ///< position in the column form of each row-form entry
    std::vector<int> m_fill;        ///< scratch of `buildColumnForm`
    std::vector<float> m_columnValues;
    int m_blockCount = 4 * std::max(1, tbb::this_task_arena::max_concurrency());
    mutable std::vector<Vector> m_partials;
};

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
