#include "OptimizationFramework.h"

#include <QSet>

#include <algorithm>

namespace OptimizationFramework {

ProblemBlockType::ProblemBlockType(const QVector<Block::BlockTypeBlock>& blocks) : m_blocks(blocks)
{
    int largest = -1;
    for (const Block::BlockTypeBlock& block : m_blocks) {
        QSet<int> seen;
        for (int index : block.varIndices()) {
            if (seen.contains(index))
                throw "You should use only unique var indices in one block.";
            seen.insert(index);
            largest = std::max(largest, index);
        }
        m_residualCount += block.residualCount();
    }
    m_variableCount = largest + 1;
}

void ProblemBlockType::evaluateResiduals(int block, const Vector& variables, double* out) const
{
    m_blocks[block].residuals(variables, out);
}

void ProblemBlockType::evaluateJacobian(int block, const Vector& variables, double* out, int rowStride) const
{
    m_blocks[block].jacobian(variables, out, rowStride, m_blocks[block].variableCount());
}

JacobianPattern buildPattern(const Problem& problem)
{
    JacobianPattern pattern;
    pattern.rowOffsets.push_back(0);
    for (int b = 0; b < problem.blockCount(); ++b)
        for (int r = 0; r < problem.blockResidualCount(b); ++r)
            pattern.rowOffsets.push_back(pattern.rowOffsets.back() + problem.blockVariableCount(b));
    pattern.columnIndices.resize(size_t(pattern.rowOffsets.back()));
    size_t at = 0;
    for (int b = 0; b < problem.blockCount(); ++b) {
        QVector<int> sorted = problem.blockVarIndices(b);
        std::sort(sorted.begin(), sorted.end());
        for (int r = 0; r < problem.blockResidualCount(b); ++r)
            for (int column : sorted)
                pattern.columnIndices[at++] = column;
    }
    return pattern;
}

} // namespace OptimizationFramework
