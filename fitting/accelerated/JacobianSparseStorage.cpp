#include "JacobianSparseStorage.h"

#include <tbb/partitioner.h>
#include <tbb/task_arena.h>

#include <algorithm>

#include "ParallelRange.h"

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

void JacobianSparseStorage::setPattern(std::vector<long long> rowOffsets, std::vector<long long> columns,
                                       long long columnCount)
{
    m_rowOffsets = std::move(rowOffsets);
    m_columns.assign(columns.begin(), columns.end());
    m_columnCount = columnCount;
    buildColumnForm();
}

void JacobianSparseStorage::setPattern(const std::vector<long long>& rowOffsets, const std::vector<int>& columns,
                                       long long columnCount)
{
    m_rowOffsets.assign(rowOffsets.begin(), rowOffsets.end());
    m_columns.assign(columns.begin(), columns.end());
    m_columnCount = columnCount;
    buildColumnForm();
}

void JacobianSparseStorage::reserve(long long rows, long long entries, long long columnCount)
{
    m_rowOffsets.reserve(size_t(rows) + 1);
    m_columns.reserve(size_t(entries));
    m_values.reserve(size_t(entries));
    m_columnOffsets.reserve(size_t(columnCount) + 1);
    m_fill.reserve(size_t(columnCount));
    m_columnRows.reserve(size_t(entries));
    m_rowToColumn.reserve(size_t(entries));
    m_columnValues.reserve(size_t(entries));
}

void JacobianSparseStorage::buildColumnForm()
{
    const long long columnCount = m_columnCount;
    m_values.assign(m_columns.size(), 0.0f);

    // Rows are visited in order, so each column lists its rows ascending.
    m_columnOffsets.assign(size_t(columnCount) + 1, 0);
    for (long long c : m_columns)
        ++m_columnOffsets[size_t(c) + 1];
    for (long long c = 0; c < columnCount; ++c)
        m_columnOffsets[size_t(c) + 1] += m_columnOffsets[size_t(c)];
    m_fill.assign(m_columnOffsets.begin(), m_columnOffsets.end() - 1);
    m_columnRows.resize(m_columns.size());
    m_rowToColumn.resize(m_columns.size());
    for (long long row = 0; row < rows(); ++row)
        for (long long e = m_rowOffsets[size_t(row)]; e < m_rowOffsets[size_t(row) + 1]; ++e) {
            const int at = m_fill[size_t(m_columns[size_t(e)])]++;
            m_columnRows[size_t(at)] = int(row);
            m_rowToColumn[size_t(e)] = at;
        }
    m_columnValues.assign(m_columns.size(), 0.0f);
}

void JacobianSparseStorage::syncColumns(bool parallel)
{
    forRange((long long)m_values.size(), parallel, [&](long long begin, long long end) {
        for (long long e = begin; e < end; ++e)
            m_columnValues[size_t(m_rowToColumn[size_t(e)])] = m_values[size_t(e)];
    });
}

void JacobianSparseStorage::multiply(const Vector& v, Vector& out, bool parallel) const
{
    out.resize(rows());
    forRange(rows(), parallel, [&](long long begin, long long end) {
        for (long long row = begin; row < end; ++row) {
            float sum = 0.0f;
            for (long long e = m_rowOffsets[size_t(row)]; e < m_rowOffsets[size_t(row) + 1]; ++e)
                sum += m_values[size_t(e)] * v[m_columns[size_t(e)]];
            out[row] = sum;
        }
    });
}

void JacobianSparseStorage::multiplyTransposed(const Vector& u, Vector& out, bool parallel) const
{
    out.resize(m_columnCount);
    forRange(m_columnCount, parallel, [&](long long begin, long long end) {
        for (long long c = begin; c < end; ++c) {
            float sum = 0.0f;
            for (long long e = m_columnOffsets[size_t(c)]; e < m_columnOffsets[size_t(c) + 1]; ++e)
                sum += m_columnValues[size_t(e)] * u[m_columnRows[size_t(e)]];
            out[c] = sum;
        }
    });
}

void JacobianSparseStorage::multiplyNormal(const Vector& v, Vector& out, bool parallel) const
{
    // Rows are cut into a fixed number of contiguous blocks, each summed
    // into its own vector, and the blocks are added in order: the result
    // does not depend on how the scheduler handed out the work, so the same
    // input gives the same fit bit for bit, in a window or on a command
    // line. Per-thread sums were as fast but let rounding, and with it the
    // fit, vary from run to run.
    const long long rowCount = rows();
    const int blocks = parallel ? int(std::max<long long>(1, std::min<long long>(m_blockCount, rowCount / 256))) : 1;
    if (int(m_partials.size()) < blocks)
        m_partials.resize(size_t(blocks));
    const auto sumBlock = [&](int block) {
        Vector& partial = m_partials[size_t(block)];
        partial.setZero(m_columnCount);
        const long long begin = rowCount * block / blocks, end = rowCount * (block + 1) / blocks;
        for (long long row = begin; row < end; ++row) {
            const long long first = m_rowOffsets[size_t(row)], last = m_rowOffsets[size_t(row) + 1];
            float dot = 0.0f;
            for (long long e = first; e < last; ++e)
                dot += m_values[size_t(e)] * v[m_columns[size_t(e)]];
            for (long long e = first; e < last; ++e)
                partial[m_columns[size_t(e)]] += dot * m_values[size_t(e)];
        }
    };
    if (blocks == 1)
        sumBlock(0);
    else
        tbb::parallel_for(0, blocks, sumBlock, tbb::simple_partitioner());
    out.resize(m_columnCount);
    forRange(m_columnCount, parallel, [&](long long begin, long long end) {
        for (long long c = begin; c < end; ++c) {
            float sum = 0.0f;
            for (int block = 0; block < blocks; ++block)
                sum += m_partials[size_t(block)][c];
            out[c] = sum;
        }
    }, 4096);
}

void JacobianSparseStorage::nodeBlocks(std::vector<Block>& blocks, bool parallel) const
{
    const long long nodes = m_columnCount / 6;
    blocks.resize(size_t(nodes));
    forRange(nodes, parallel, [&](long long begin, long long end) {
        for (long long n = begin; n < end; ++n) {
            Block& block = blocks[size_t(n)];
            block.setZero();
            for (int i = 0; i < 6; ++i)
                for (int j = i; j < 6; ++j) {
                    // Both columns list their rows ascending: merge them.
                    long long a = m_columnOffsets[size_t(6 * n + i)], aEnd = m_columnOffsets[size_t(6 * n + i + 1)];
                    long long b = m_columnOffsets[size_t(6 * n + j)], bEnd = m_columnOffsets[size_t(6 * n + j + 1)];
                    float sum = 0.0f;
                    while (a < aEnd && b < bEnd) {
                        const long long ra = m_columnRows[size_t(a)], rb = m_columnRows[size_t(b)];
                        if (ra == rb)
                            sum += m_columnValues[size_t(a++)] * m_columnValues[size_t(b++)];
                        else if (ra < rb)
                            ++a;
                        else
                            ++b;
                    }
                    block(i, j) = block(j, i) = sum;
                }
        }
    });
}

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
