#include "SymbolicGraph.h"

namespace SymbolicGraph {

namespace {

const SymbolicNodeConstant* asConstant(const SymbolicNode* node)
{
    return dynamic_cast<const SymbolicNodeConstant*>(node);
}

} // namespace

QString SymbolicNodeBinary::print(const char* format) const
{
    return QString::fromLatin1(format).arg(left->toString(), right->toString());
}

double SymbolicNodeAdd::evaluate(const Vector& variables) const
{
    return left->evaluate(variables) + right->evaluate(variables);
}
QString SymbolicNodeAdd::toString() const { return print("(%1 + %2)"); }
SymbolicNode* SymbolicNodeAdd::derivative(int index, SymbolicNodeContainer& c) const
{
    return c.addFolded(left->derivative(index, c), right->derivative(index, c));
}

double SymbolicNodeSub::evaluate(const Vector& variables) const
{
    return left->evaluate(variables) - right->evaluate(variables);
}
QString SymbolicNodeSub::toString() const { return print("(%1 - %2)"); }
SymbolicNode* SymbolicNodeSub::derivative(int index, SymbolicNodeContainer& c) const
{
    return c.subFolded(left->derivative(index, c), right->derivative(index, c));
}

double SymbolicNodeMul::evaluate(const Vector& variables) const
{
    return left->evaluate(variables) * right->evaluate(variables);
}
QString SymbolicNodeMul::toString() const { return print("(%1 * %2)"); }
SymbolicNode* SymbolicNodeMul::derivative(int index, SymbolicNodeContainer& c) const
{
    return c.addFolded(c.mulFolded(left->derivative(index, c), right),
                       c.mulFolded(left, right->derivative(index, c)));
}

double SymbolicNodeDiv::evaluate(const Vector& variables) const
{
    return left->evaluate(variables) / right->evaluate(variables);
}
QString SymbolicNodeDiv::toString() const { return print("(%1 / %2)"); }
SymbolicNode* SymbolicNodeDiv::derivative(int index, SymbolicNodeContainer& c) const
{
    // (l / r)' = (l' r - l r') / (r r)
    const SymbolicNode* numerator = c.subFolded(c.mulFolded(left->derivative(index, c), right),
                                                c.mulFolded(left, right->derivative(index, c)));
    return c.divFolded(numerator, c.mulFolded(right, right));
}

QString SymbolicNodeConstant::toString() const { return QString::number(value, 'f', 6); }
SymbolicNode* SymbolicNodeConstant::derivative(int, SymbolicNodeContainer& c) const { return c.constant(0.0); }

SymbolicNode* SymbolicNodeVariable::derivative(int i, SymbolicNodeContainer& c) const
{
    return c.constant(i == index ? 1.0 : 0.0);
}

SymbolicNode* SymbolicNodeContainer::adopt(std::unique_ptr<SymbolicNode> node)
{
    m_nodes.push_back(std::move(node));
    return m_nodes.back().get();
}

SymbolicNode* SymbolicNodeContainer::constant(double value)
{
    return adopt(std::make_unique<SymbolicNodeConstant>(value));
}
SymbolicNode* SymbolicNodeContainer::variable(const QString& name, int index)
{
    return adopt(std::make_unique<SymbolicNodeVariable>(name, index));
}
SymbolicNode* SymbolicNodeContainer::add(const SymbolicNode* a, const SymbolicNode* b)
{
    return adopt(std::make_unique<SymbolicNodeAdd>(a, b));
}
SymbolicNode* SymbolicNodeContainer::sub(const SymbolicNode* a, const SymbolicNode* b)
{
    return adopt(std::make_unique<SymbolicNodeSub>(a, b));
}
SymbolicNode* SymbolicNodeContainer::mul(const SymbolicNode* a, const SymbolicNode* b)
{
    return adopt(std::make_unique<SymbolicNodeMul>(a, b));
}
SymbolicNode* SymbolicNodeContainer::div(const SymbolicNode* a, const SymbolicNode* b)
{
    return adopt(std::make_unique<SymbolicNodeDiv>(a, b));
}

// The folded forms return one of their operands where the result equals it;
// the cast is safe because every node handed in is owned by some container.
SymbolicNode* SymbolicNodeContainer::addFolded(const SymbolicNode* a, const SymbolicNode* b)
{
    const auto *ca = asConstant(a), *cb = asConstant(b);
    if (ca && cb)
        return constant(ca->value + cb->value);
    if (a->isConstant(0.0))
        return const_cast<SymbolicNode*>(b);
    if (b->isConstant(0.0))
        return const_cast<SymbolicNode*>(a);
    return add(a, b);
}
SymbolicNode* SymbolicNodeContainer::subFolded(const SymbolicNode* a, const SymbolicNode* b)
{
    const auto *ca = asConstant(a), *cb = asConstant(b);
    if (ca && cb)
        return constant(ca->value - cb->value);
    if (b->isConstant(0.0))
        return const_cast<SymbolicNode*>(a);
    return sub(a, b);
}
SymbolicNode* SymbolicNodeContainer::mulFolded(const SymbolicNode* a, const SymbolicNode* b)
{
    const auto *ca = asConstant(a), *cb = asConstant(b);
    if (ca && cb)
        return constant(ca->value * cb->value);
    if (a->isConstant(0.0) || b->isConstant(0.0))
        return constant(0.0);
    if (a->isConstant(1.0))
        return const_cast<SymbolicNode*>(b);
    if (b->isConstant(1.0))
        return const_cast<SymbolicNode*>(a);
    return mul(a, b);
}
SymbolicNode* SymbolicNodeContainer::divFolded(const SymbolicNode* a, const SymbolicNode* b)
{
    const auto *ca = asConstant(a), *cb = asConstant(b);
    if (ca && cb)
        return constant(ca->value / cb->value);
    // 0 / x stays 0 only for a non-constant x; a zero divisor must still
    // give what the division gives.
    if (a->isConstant(0.0) && !cb)
        return constant(0.0);
    if (b->isConstant(1.0))
        return const_cast<SymbolicNode*>(a);
    return div(a, b);
}

} // namespace SymbolicGraph
