#pragma once

#include "Block.h"
#include "SymbolicGraph.h"

#include <QStringList>

#include <vector>

namespace BlockSymbolicExpressionGenerate {

/// A residual block type given by expression trees. The expressions read
/// the block's variables at indices 0 .. variableCount() - 1 and its
/// constants (one row of the block's constant table) after them. Each
/// residual's derivatives are formed symbolically when it is added, so
/// evaluating the Jacobian is a tree walk per entry.
class BlockTypeSymbolic : public Block::BlockTypeBase
{
public:
    BlockTypeSymbolic(QStringList variableNames, QStringList constantNames);

    /// Nodes that read the variables or the constants, made in `container`.
    std::vector<SymbolicGraph::SymbolicNode*> variableNodes(SymbolicGraph::SymbolicNodeContainer& container) const;
    std::vector<SymbolicGraph::SymbolicNode*> constantNodes(SymbolicGraph::SymbolicNodeContainer& container) const;

    /// Appends a residual; `expression` must live in `container`, which the
    /// block then owns together with the derivative trees.
    void addResidual(SymbolicGraph::SymbolicNodeContainer container, const SymbolicGraph::SymbolicNode* expression);

    const SymbolicGraph::SymbolicNode& residualExpression(int row) const { return *m_rows[size_t(row)].expression; }
    const SymbolicGraph::SymbolicNode& derivativeExpression(int row, int variable) const
    {
        return *m_rows[size_t(row)].derivatives[size_t(variable)];
    }

    void residuals(const double* constants, const Block::Vector& variables, double* out) const override;
    void jacobian(const double* constants, const Block::Vector& variables, double* out, int rowStride,
                  int columnCount) const override;
    int residualCount() const override { return int(m_rows.size()); }
    int variableCount() const override { return int(m_variableNames.size()); }
    int constantCount() const override { return int(m_constantNames.size()); }

private:
    struct Row
    {
        SymbolicGraph::SymbolicNodeContainer container;
        const SymbolicGraph::SymbolicNode* expression = nullptr;
        std::vector<const SymbolicGraph::SymbolicNode*> derivatives;
    };
    Block::Vector arguments(const double* constants, const Block::Vector& variables) const;

    QStringList m_variableNames;
    QStringList m_constantNames;
    std::vector<Row> m_rows;
};

} // namespace BlockSymbolicExpressionGenerate
