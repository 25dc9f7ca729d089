#include "Block.h"

namespace Block {

BlockTypeBlock::BlockTypeBlock(const BlockTypeBase* type, QSharedPointer<QVector<double>> table, int row,
                               QVector<int> indices)
    : blockType(type), constants(std::move(table)), constantRow(row), m_varIndices(std::move(indices))
{
}

Vector BlockTypeBlock::gather(const Vector& variables) const
{
    Vector local(m_varIndices.size());
    for (int i = 0; i < m_varIndices.size(); ++i)
        local[i] = variables[m_varIndices[i]];
    return local;
}

const double* BlockTypeBlock::constantRowData() const
{
    if (!constants || constants->isEmpty())
        return nullptr;
    return constants->constData() + size_t(constantRow) * size_t(blockType->constantCount());
}

void BlockTypeBlock::residuals(const Vector& variables, double* out) const
{
    blockType->residuals(constantRowData(), gather(variables), out);
}

void BlockTypeBlock::jacobian(const Vector& variables, double* out, int rowStride, int columnCount) const
{
    blockType->jacobian(constantRowData(), gather(variables), out, rowStride, columnCount);
}

} // namespace Block
