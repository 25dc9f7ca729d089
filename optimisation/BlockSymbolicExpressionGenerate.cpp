#include "BlockSymbolicExpressionGenerate.h"

namespace BlockSymbolicExpressionGenerate {

using namespace SymbolicGraph;

BlockTypeSymbolic::BlockTypeSymbolic(QStringList variableNames, QStringList constantNames)
    : m_variableNames(std::move(variableNames)), m_constantNames(std::move(constantNames))
{
}

std::vector<SymbolicNode*> BlockTypeSymbolic::variableNodes(SymbolicNodeContainer& container) const
{
    std::vector<SymbolicNode*> nodes;
    for (int i = 0; i < m_variableNames.size(); ++i)
        nodes.push_back(container.variable(m_variableNames[i], i));
    return nodes;
}

std::vector<SymbolicNode*> BlockTypeSymbolic::constantNodes(SymbolicNodeContainer& container) const
{
    std::vector<SymbolicNode*> nodes;
    for (int i = 0; i < m_constantNames.size(); ++i)
        nodes.push_back(container.variable(m_constantNames[i], m_variableNames.size() + i));
    return nodes;
}

void BlockTypeSymbolic::addResidual(SymbolicNodeContainer container, const SymbolicNode* expression)
{
    Row row;
    row.container = std::move(container);
    row.expression = expression;
    for (int i = 0; i < m_variableNames.size(); ++i)
        row.derivatives.push_back(expression->derivative(i, row.container));
    m_rows.push_back(std::move(row));
}

Block::Vector BlockTypeSymbolic::arguments(const double* constants, const Block::Vector& variables) const
{
    Block::Vector all(m_variableNames.size() + m_constantNames.size());
    all.head(m_variableNames.size()) = variables.head(m_variableNames.size());
    for (int i = 0; i < m_constantNames.size(); ++i)
        all[m_variableNames.size() + i] = constants[i];
    return all;
}

void BlockTypeSymbolic::residuals(const double* constants, const Block::Vector& variables, double* out) const
{
    const Block::Vector all = arguments(constants, variables);
    for (size_t r = 0; r < m_rows.size(); ++r)
        out[r] = m_rows[r].expression->evaluate(all);
}

void BlockTypeSymbolic::jacobian(const double* constants, const Block::Vector& variables, double* out, int rowStride,
                                 int) const
{
    const Block::Vector all = arguments(constants, variables);
    for (size_t r = 0; r < m_rows.size(); ++r)
        for (size_t c = 0; c < m_rows[r].derivatives.size(); ++c)
            out[r * size_t(rowStride) + c] = m_rows[r].derivatives[c]->evaluate(all);
}

} // namespace BlockSymbolicExpressionGenerate
