#pragma once

#include "Block.h"

#include <vector>

namespace OptimizationFramework {

using Vector = Eigen::VectorXd;

/// A sparse least-squares problem as residual blocks over one variable
/// vector.
class Problem
{
public:
    virtual ~Problem() = default;
    virtual int blockCount() const = 0;
    virtual int blockResidualCount(int block) const = 0;
    virtual int blockVariableCount(int block) const = 0;
    virtual int residualCount() const = 0;
    virtual int variableCount() const = 0;
    virtual void evaluateResiduals(int block, const Vector& variables, double* out) const = 0;
    /// The block's dense Jacobian, its columns in the block's own order.
    virtual void evaluateJacobian(int block, const Vector& variables, double* out, int rowStride) const = 0;
    virtual const QVector<int>& blockVarIndices(int block) const = 0;
};

/// A problem given by a list of typed blocks.
class ProblemBlockType : public Problem
{
public:
    /// Throws "You should use only unique var indices in one block." (as a
    /// const char*) when a block names a variable twice.
    explicit ProblemBlockType(const QVector<Block::BlockTypeBlock>& blocks);

    int blockCount() const override { return m_blocks.size(); }
    int blockResidualCount(int block) const override { return m_blocks[block].residualCount(); }
    int blockVariableCount(int block) const override { return m_blocks[block].variableCount(); }
    int residualCount() const override { return m_residualCount; }
    int variableCount() const override { return m_variableCount; }
    void evaluateResiduals(int block, const Vector& variables, double* out) const override;
    void evaluateJacobian(int block, const Vector& variables, double* out, int rowStride) const override;
    const QVector<int>& blockVarIndices(int block) const override { return m_blocks[block].varIndices(); }

private:
    QVector<Block::BlockTypeBlock> m_blocks;
    int m_residualCount = 0;
    int m_variableCount = 0;
};

/// The Jacobian's sparsity in compressed rows, rows in block order. Each
/// row of a block lists the block's variables in ascending order.
struct JacobianPattern
{
    std::vector<long long> rowOffsets;
    std::vector<int> columnIndices;
};

JacobianPattern buildPattern(const Problem& problem);

} // namespace OptimizationFramework
