#include "optimisation/OptimizationFramework.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

/// r = a * (x0 - x1) + b * x2, constants (a, b) per row.
class Difference : public Block::BlockTypeBase
{
public:
    void residuals(const double* c, const Block::Vector& x, double* out) const override
    {
        out[0] = c[0] * (x[0] - x[1]) + c[1] * x[2];
    }
    void jacobian(const double* c, const Block::Vector&, double* out, int, int) const override
    {
        out[0] = c[0];
        out[1] = -c[0];
        out[2] = c[1];
    }
    int residualCount() const override { return 1; }
    int variableCount() const override { return 3; }
    int constantCount() const override { return 2; }
};

} // namespace

TEST(ProblemBlockType, CountsAndEvaluatesThroughTheBlocksTypes)
{
    const Difference type;
    auto constants = QSharedPointer<QVector<double>>::create(QVector<double>{1.0, 0.0, 2.0, 10.0});
    const QVector<Block::BlockTypeBlock> blocks = {{&type, constants, 0, {0, 1, 2}}, {&type, constants, 1, {5, 3, 4}}};
    const OptimizationFramework::ProblemBlockType problem(blocks);
    EXPECT_EQ(problem.blockCount(), 2);
    EXPECT_EQ(problem.residualCount(), 2);
    EXPECT_EQ(problem.variableCount(), 6);

    Eigen::VectorXd x(6);
    x << 1, 2, 3, 4, 5, 6;
    double r = 0;
    problem.evaluateResiduals(0, x, &r);
    EXPECT_DOUBLE_EQ(r, -1.0);
    // Second row of constants, variables gathered in the block's order.
    problem.evaluateResiduals(1, x, &r);
    EXPECT_DOUBLE_EQ(r, 2.0 * (6 - 4) + 10.0 * 5);

    const auto pattern = OptimizationFramework::buildPattern(problem);
    EXPECT_EQ(pattern.rowOffsets, (std::vector<long long>{0, 3, 6}));
    EXPECT_EQ(pattern.columnIndices, (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST(ProblemBlockType, EmptyAndRepeatedIndexLists)
{
    const OptimizationFramework::ProblemBlockType empty(QVector<Block::BlockTypeBlock>{});
    EXPECT_EQ(empty.residualCount(), 0);
    EXPECT_EQ(empty.variableCount(), 0);
    EXPECT_TRUE(OptimizationFramework::buildPattern(empty).columnIndices.empty());

    const Difference type;
    try {
        OptimizationFramework::ProblemBlockType bad({{&type, {}, 0, {4, 4, 1}}});
        FAIL() << "a repeated index must be refused";
    } catch (const char* message) {
        EXPECT_STREQ(message, "You should use only unique var indices in one block.");
    }
}

TEST(JacobianPattern, RowsListTheBlockVariablesAscending)
{
    const Difference type;
    const OptimizationFramework::ProblemBlockType problem({{&type, {}, 0, {3, 1, 2}}});
    const auto pattern = OptimizationFramework::buildPattern(problem);
    EXPECT_EQ(pattern.columnIndices, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(problem.variableCount(), 4);
}
