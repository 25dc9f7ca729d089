#include "optimisation/BlockSymbolicExpressionGenerate.h"
#include "optimisation/OptimizationFramework.h"
#include "optimisation/SymbolicGraph.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace SymbolicGraph;

TEST(SymbolicGraph, EvaluatesAndPrintsNestedExpressions)
{
    SymbolicNodeContainer c;
    SymbolicNode* a = c.variable(QStringLiteral("a"), 0);
    SymbolicNode* b = c.variable(QStringLiteral("b"), 1);
    SymbolicNode* sum = c.add(c.mul(a, b), c.constant(1.0));
    EXPECT_EQ(sum->toString(), QStringLiteral("((a * b) + 1.000000)"));
    EXPECT_EQ(c.constant(0.5)->toString(), QStringLiteral("0.500000"));
    EXPECT_EQ(c.constant(-2.25)->toString(), QStringLiteral("-2.250000"));

    const SymbolicNode* e = c.div(c.sub(sum, b), c.sub(a, c.constant(0.5)));
    EXPECT_EQ(e->toString(), QStringLiteral("((((a * b) + 1.000000) - b) / (a - 0.500000))"));
    const Vector x = (Vector(2) << 3.0, -2.0).finished();
    // (3 * -2 + 1 + 2) / (3 - 0.5) = -3 / 2.5
    EXPECT_DOUBLE_EQ(e->evaluate(x), -1.2);
}

TEST(SymbolicGraph, DivisionByZeroIsNotChecked)
{
    SymbolicNodeContainer c;
    SymbolicNode* a = c.variable(QStringLiteral("a"), 0);
    const Vector zero = Vector::Zero(1);
    EXPECT_TRUE(std::isinf(c.div(c.constant(1.0), a)->evaluate(zero)));
    EXPECT_TRUE(std::isnan(c.div(a, a)->evaluate(zero)));
}

TEST(SymbolicGraph, DerivativesMatchHandComputedValues)
{
    SymbolicNodeContainer c;
    SymbolicNode* a = c.variable(QStringLiteral("a"), 0);
    SymbolicNode* b = c.variable(QStringLiteral("b"), 1);
    // f = (a * a * b) / (a + b): df/da = (2ab (a+b) - a^2 b) / (a+b)^2,
    // df/db = (a^2 (a+b) - a^2 b) / (a+b)^2 = a^3 / (a+b)^2.
    const SymbolicNode* f = c.div(c.mul(c.mul(a, a), b), c.add(a, b));
    const Vector x = (Vector(2) << 2.0, 3.0).finished();
    EXPECT_NEAR(f->derivative(0, c)->evaluate(x), (2 * 2 * 3 * 5 - 4 * 3) / 25.0, 1e-12);
    EXPECT_NEAR(f->derivative(1, c)->evaluate(x), 8.0 / 25.0, 1e-12);
    // A variable that does not occur folds to the constant 0.
    EXPECT_EQ(f->derivative(2, c)->toString(), QStringLiteral("0.000000"));
    // Folding keeps the derivative of a product by a constant small.
    EXPECT_EQ(c.mul(c.constant(3.0), a)->derivative(0, c)->toString(), QStringLiteral("3.000000"));
}

TEST(BlockTypeSymbolic, JacobianMatchesFiniteDifferencesThroughAProblem)
{
    using BlockSymbolicExpressionGenerate::BlockTypeSymbolic;
    // Residuals of a spring of rest length L between points (x0, y0) and
    // (x1, y1), written without square roots: r0 = (dx^2 + dy^2) / L - L,
    // r1 = k * dx * dy.
    BlockTypeSymbolic type({QStringLiteral("x0"), QStringLiteral("y0"), QStringLiteral("x1"), QStringLiteral("y1")},
                           {QStringLiteral("L"), QStringLiteral("k")});
    for (int row = 0; row < 2; ++row) {
        SymbolicNodeContainer c;
        const auto v = type.variableNodes(c);
        const auto k = type.constantNodes(c);
        const SymbolicNode* dx = c.sub(v[2], v[0]);
        const SymbolicNode* dy = c.sub(v[3], v[1]);
        const SymbolicNode* e = row == 0 ? c.sub(c.div(c.add(c.mul(dx, dx), c.mul(dy, dy)), k[0]), k[0])
                                         : c.mul(k[1], c.mul(dx, dy));
        type.addResidual(std::move(c), e);
    }
    EXPECT_EQ(type.residualExpression(0).toString(),
              QStringLiteral("(((((x1 - x0) * (x1 - x0)) + ((y1 - y0) * (y1 - y0))) / L) - L)"));

    auto constants = QSharedPointer<QVector<double>>::create(QVector<double>{2.0, 0.5, 1.5, 3.0});
    // Two blocks over five variables, the second with its indices unsorted.
    const QVector<Block::BlockTypeBlock> blocks{Block::BlockTypeBlock(&type, constants, 0, {0, 1, 2, 3}),
                                                Block::BlockTypeBlock(&type, constants, 1, {4, 1, 0, 2})};
    const OptimizationFramework::ProblemBlockType problem(blocks);
    EXPECT_EQ(problem.residualCount(), 4);
    EXPECT_EQ(problem.variableCount(), 5);

    const Block::Vector x = (Block::Vector(5) << 0.3, -1.2, 2.5, 0.7, -0.4).finished();
    for (int b = 0; b < problem.blockCount(); ++b) {
        double J[2 * 4];
        problem.evaluateJacobian(b, x, J, 4);
        const QVector<int>& indices = problem.blockVarIndices(b);
        for (int var = 0; var < 4; ++var) {
            const double h = 1e-6;
            Block::Vector plus = x, minus = x;
            plus[indices[var]] += h;
            minus[indices[var]] -= h;
            double rp[2], rm[2];
            problem.evaluateResiduals(b, plus, rp);
            problem.evaluateResiduals(b, minus, rm);
            for (int row = 0; row < 2; ++row)
                EXPECT_NEAR(J[row * 4 + var], (rp[row] - rm[row]) / (2 * h), 1e-6) << b << " " << row << " " << var;
        }
    }
    // Hand value of the first block's residuals: dx = 2.2, dy = 1.9.
    double r[2];
    problem.evaluateResiduals(0, x, r);
    EXPECT_NEAR(r[0], (2.2 * 2.2 + 1.9 * 1.9) / 2.0 - 2.0, 1e-12);
    EXPECT_NEAR(r[1], 0.5 * 2.2 * 1.9, 1e-12);
}
