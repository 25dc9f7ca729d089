#pragma once

#include <Eigen/Core>

#include <QString>

#include <memory>
#include <vector>

/// Expression trees of residuals: arithmetic nodes over named variables and
/// constants that can be evaluated, printed and differentiated.
namespace SymbolicGraph {

using Vector = Eigen::VectorXd;

class SymbolicNodeContainer;

/// A node of an expression tree. Nodes are immutable after construction
/// and keep no evaluation state, so a tree may be evaluated from several
/// threads at once.
class SymbolicNode
{
public:
    virtual ~SymbolicNode() = default;
    /// The value for the given variable vector (indexed by the variables'
    /// indices).
    virtual double evaluate(const Vector& variables) const = 0;
    virtual QString toString() const = 0;
    /// The derivative by the variable of `index`, as new nodes owned by
    /// `container`. Constant parts fold to constant nodes.
    virtual SymbolicNode* derivative(int index, SymbolicNodeContainer& container) const = 0;
    /// True for a constant node of exactly `value`.
    virtual bool isConstant(double value) const { return (void)value, false; }
};

/// A node of two operands, neither owned.
class SymbolicNodeBinary : public SymbolicNode
{
public:
    SymbolicNodeBinary(const SymbolicNode* left, const SymbolicNode* right) : left(left), right(right) {}

    const SymbolicNode* left;
    const SymbolicNode* right;

protected:
    /// `format` holds %1 and %2 for the operands' texts.
    QString print(const char* format) const;
};

class SymbolicNodeAdd : public SymbolicNodeBinary
{
public:
    using SymbolicNodeBinary::SymbolicNodeBinary;
    double evaluate(const Vector& variables) const override;
    QString toString() const override;
    SymbolicNode* derivative(int index, SymbolicNodeContainer& container) const override;
};

class SymbolicNodeSub : public SymbolicNodeBinary
{
public:
    using SymbolicNodeBinary::SymbolicNodeBinary;
    double evaluate(const Vector& variables) const override;
    QString toString() const override;
    SymbolicNode* derivative(int index, SymbolicNodeContainer& container) const override;
};

class SymbolicNodeMul : public SymbolicNodeBinary
{
public:
    using SymbolicNodeBinary::SymbolicNodeBinary;
    double evaluate(const Vector& variables) const override;
    QString toString() const override;
    SymbolicNode* derivative(int index, SymbolicNodeContainer& container) const override;
};

/// Division without any check: a zero divisor gives an infinity or NaN.
class SymbolicNodeDiv : public SymbolicNodeBinary
{
public:
    using SymbolicNodeBinary::SymbolicNodeBinary;
    double evaluate(const Vector& variables) const override;
    QString toString() const override;
    SymbolicNode* derivative(int index, SymbolicNodeContainer& container) const override;
};

/// A number, printed with six decimals.
class SymbolicNodeConstant : public SymbolicNode
{
public:
    explicit SymbolicNodeConstant(double value) : value(value) {}
    double evaluate(const Vector&) const override { return value; }
    QString toString() const override;
    SymbolicNode* derivative(int index, SymbolicNodeContainer& container) const override;
    bool isConstant(double v) const override { return value == v; }

    double value;
};

/// A named entry of the variable vector.
class SymbolicNodeVariable : public SymbolicNode
{
public:
    SymbolicNodeVariable(QString name, int index) : name(std::move(name)), index(index) {}
    double evaluate(const Vector& variables) const override { return variables[index]; }
    QString toString() const override { return QStringLiteral("%1").arg(name); }
    SymbolicNode* derivative(int index, SymbolicNodeContainer& container) const override;

    QString name;
    int index;
};

/// Owns the nodes of one or more expressions; the factory functions return
/// nodes that live as long as the container.
class SymbolicNodeContainer
{
public:
    SymbolicNodeContainer() = default;
    SymbolicNodeContainer(const SymbolicNodeContainer&) = delete;
    SymbolicNodeContainer& operator=(const SymbolicNodeContainer&) = delete;
    SymbolicNodeContainer(SymbolicNodeContainer&&) = default;
    SymbolicNodeContainer& operator=(SymbolicNodeContainer&&) = default;

    SymbolicNode* constant(double value);
    SymbolicNode* variable(const QString& name, int index);
    SymbolicNode* add(const SymbolicNode* a, const SymbolicNode* b);
    SymbolicNode* sub(const SymbolicNode* a, const SymbolicNode* b);
    SymbolicNode* mul(const SymbolicNode* a, const SymbolicNode* b);
    SymbolicNode* div(const SymbolicNode* a, const SymbolicNode* b);

    /// The same operations, folding the neutral and absorbing constants
    /// (0 + x, 1 * x, 0 * x, x / 1, constant op constant): used for
    /// derivatives so that they stay small.
    SymbolicNode* addFolded(const SymbolicNode* a, const SymbolicNode* b);
    SymbolicNode* subFolded(const SymbolicNode* a, const SymbolicNode* b);
    SymbolicNode* mulFolded(const SymbolicNode* a, const SymbolicNode* b);
    SymbolicNode* divFolded(const SymbolicNode* a, const SymbolicNode* b);

    /// Takes ownership of any node.
    SymbolicNode* adopt(std::unique_ptr<SymbolicNode> node);
    int size() const { return int(m_nodes.size()); }

private:
    std::vector<std::unique_ptr<SymbolicNode>> m_nodes;
};

} // namespace SymbolicGraph
