#pragma once

#include "ParallelRange.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include <cmath>
#include <vector>

namespace EmbeddedGraphDeformer {

/// out = the block-diagonal matrix of `blocks` applied to `in`, one square
/// block per node, node after node.
template <typename Block>
void applyNodeBlocks(const std::vector<Block>& blocks, const Eigen::VectorXf& in, Eigen::VectorXf& out, bool parallel)
{
    constexpr int n = Block::RowsAtCompileTime;
    out.resize(in.size());
    forRange((long long)blocks.size(), parallel, [&](long long begin, long long end) {
        for (long long i = begin; i < end; ++i)
            out.template segment<n>(n * i) = blocks[size_t(i)] * in.template segment<n>(n * i);
    }, 1024);
}

/// inverse = (block + damping I)^-1 for a block of J^T J (symmetric, positive
/// semi-definite), by an LDL^T in double without pivoting. Damped, the
/// block is positive definite, and plain loops over its six or twelve rows
/// cost a fraction of Eigen's pivoted factorisation, whose solve with a
/// matrix right-hand side takes the general blocked path. A block that
/// rounding left without a positive pivot goes through the pivoted
/// factorisation instead.
template <typename Block> void invertDamped(const Block& block, float damping, Block& inverse)
{
    constexpr int n = Block::RowsAtCompileTime;
    double L[n][n], d[n];
    for (int j = 0; j < n; ++j) {
        double pivot = double(block(j, j)) + double(damping);
        for (int k = 0; k < j; ++k)
            pivot -= L[j][k] * L[j][k] * d[k];
        if (!(pivot > 0.0) || !std::isfinite(pivot)) {
            Block damped = block;
            damped.diagonal().array() += damping;
            inverse = damped.ldlt().solve(Block::Identity());
            return;
        }
        d[j] = pivot;
        for (int i = j + 1; i < n; ++i) {
            double sum = double(block(i, j));
            for (int k = 0; k < j; ++k)
                sum -= L[i][k] * L[j][k] * d[k];
            L[i][j] = sum / pivot;
        }
    }
    // X = L^-1, unit lower triangular; then block^-1 = X^T D^-1 X.
    double X[n][n];
    for (int c = 0; c < n; ++c) {
        X[c][c] = 1.0;
        for (int i = c + 1; i < n; ++i) {
            double sum = L[i][c];
            for (int k = c + 1; k < i; ++k)
                sum += L[i][k] * X[k][c];
            X[i][c] = -sum;
        }
    }
    for (int c = 0; c < n; ++c)
        for (int r = c; r < n; ++r) {
            double sum = 0.0;
            for (int k = r; k < n; ++k)
                sum += X[k][r] * X[k][c] / d[k];
            inverse(r, c) = inverse(c, r) = float(sum);
        }
}

/// The mean diagonal entry of the blocks (0 when there are none).
template <typename Block> double meanBlockDiagonal(const std::vector<Block>& blocks)
{
    if (blocks.empty())
        return 0.0;
    double sum = 0.0;
    for (const Block& block : blocks)
        sum += double(block.trace());
    return sum / double(Block::RowsAtCompileTime * blocks.size());
}

} // namespace EmbeddedGraphDeformer
