#pragma once

#include <Eigen/Core>

#include <QSharedPointer>
#include <QVector>

namespace Block {

using Vector = Eigen::VectorXd;

/// A kind of residual block: how a few residuals and their Jacobian follow
/// from a few variables (in the block's own order) and a row of constants.
class BlockTypeBase
{
public:
    virtual ~BlockTypeBase() = default;
    virtual void residuals(const double* constants, const Vector& variables, double* out) const = 0;
    /// Writes residualCount() rows of variableCount() entries, rows
    /// `rowStride` apart, into a matrix of `columnCount` columns.
    virtual void jacobian(const double* constants, const Vector& variables, double* out, int rowStride,
                          int columnCount) const = 0;
    virtual int residualCount() const = 0;
    virtual int variableCount() const = 0;
    /// Constants per row of the constant table.
    virtual int constantCount() const = 0;
};

/// A residual block of a problem: which variables it reads.
class BlockBase
{
public:
    virtual ~BlockBase() = default;
    /// `variables` is the whole problem vector.
    virtual void residuals(const Vector& variables, double* out) const = 0;
    virtual void jacobian(const Vector& variables, double* out, int rowStride, int columnCount) const = 0;
    virtual int residualCount() const = 0;
    virtual int variableCount() const = 0;
    virtual const QVector<int>& varIndices() const = 0;
};

/// A block of a given type over given variables, with one row of a shared
/// constant table.
class BlockTypeBlock : public BlockBase
{
public:
    BlockTypeBlock() = default;
    BlockTypeBlock(const BlockTypeBase* type, QSharedPointer<QVector<double>> constants, int constantRow,
                   QVector<int> varIndices);

    void residuals(const Vector& variables, double* out) const override;
    void jacobian(const Vector& variables, double* out, int rowStride, int columnCount) const override;
    int residualCount() const override { return blockType->residualCount(); }
    int variableCount() const override { return blockType->variableCount(); }
    const QVector<int>& varIndices() const override { return m_varIndices; }

    const BlockTypeBase* blockType = nullptr;
    QSharedPointer<QVector<double>> constants;
    int constantRow = 0;

private:
    Vector gather(const Vector& variables) const;
    const double* constantRowData() const;

    QVector<int> m_varIndices;
};

} // namespace Block
