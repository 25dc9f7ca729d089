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

namespace detail {

/// Four doubles, one per block, for `invertDampedBlocks`: GCC's vector
/// extension, so every lane does the scalar code's operations in its order.
typedef double Double4 __attribute__((vector_size(32)));

inline bool positiveFinite(double pivot)
{
    return pivot > 0.0 && std::isfinite(pivot);
}

/// Per lane: pivot > 0 and finite (x - x is 0 only for finite x).
inline bool positiveFinite(const Double4& pivot)
{
    const auto ok = (pivot > 0.0) & (pivot - pivot == 0.0);
    return ok[0] && ok[1] && ok[2] && ok[3];
}

/// The LDL^T inverse of `invertDamped` on `Real`, double or one lane per
/// block; `entry(i, j, value)` reads the blocks' (i, j) and
/// `put(r, c, value)` writes the inverses' (r, c) and (c, r). Lanes go by
/// reference: passed by value, a 32-byte vector changes the calling
/// convention with the instruction set. Returns false, having written
/// nothing, when some block's pivot is not positive and finite.
template <int n, typename Real, typename Entry, typename Put>
__attribute__((always_inline)) inline bool invertDampedLdlt(const Entry& entry, double damping, const Put& put)
{
    Real L[n][n], d[n];
    for (int j = 0; j < n; ++j) {
        Real pivot;
        entry(j, j, pivot);
        pivot += damping;
        for (int k = 0; k < j; ++k)
            pivot -= L[j][k] * L[j][k] * d[k];
        if (!positiveFinite(pivot))
            return false;
        d[j] = pivot;
        for (int i = j + 1; i < n; ++i) {
            Real sum;
            entry(i, j, sum);
            for (int k = 0; k < j; ++k)
                sum -= L[i][k] * L[j][k] * d[k];
            L[i][j] = sum / pivot;
        }
    }
    // X = L^-1, unit lower triangular; then block^-1 = X^T D^-1 X.
    Real X[n][n];
    for (int c = 0; c < n; ++c) {
        X[c][c] = Real{} + 1.0;
        for (int i = c + 1; i < n; ++i) {
            Real sum = L[i][c];
            for (int k = c + 1; k < i; ++k)
                sum += L[i][k] * X[k][c];
            X[i][c] = -sum;
        }
    }
    for (int c = 0; c < n; ++c)
        for (int r = c; r < n; ++r) {
            Real sum = Real{};
            for (int k = r; k < n; ++k)
                sum += X[k][r] * X[k][c] / d[k];
            put(r, c, sum);
        }
    return true;
}

} // namespace detail

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
    const bool factored = detail::invertDampedLdlt<n, double>(
        [&](int i, int j, double& value) { value = double(block(i, j)); }, double(damping),
        [&](int r, int c, const double& value) { inverse(r, c) = inverse(c, r) = float(value); });
    if (!factored) {
        Block damped = block;
        damped.diagonal().array() += damping;
        inverse = damped.ldlt().solve(Block::Identity());
    }
}

namespace detail {

/// `invertDamped` on in[0..3] into out[0..3], the four as the lanes of one
/// factorisation.
template <typename Block>
__attribute__((always_inline)) inline void invertFourDamped(const Block* in, float damping, Block* out)
{
    constexpr int n = Block::RowsAtCompileTime;
    const bool factored = invertDampedLdlt<n, Double4>(
        [&](int r, int c, Double4& value) {
            for (int lane = 0; lane < 4; ++lane)
                value[lane] = double(in[lane](r, c));
        },
        double(damping),
        [&](int r, int c, const Double4& value) {
            for (int lane = 0; lane < 4; ++lane)
                out[lane](r, c) = out[lane](c, r) = float(value[lane]);
        });
    if (!factored)
        for (int lane = 0; lane < 4; ++lane)
            invertDamped(in[lane], damping, out[lane]);
}

/// The same for the fast fit's 6x6 blocks, compiled for AVX2 where the
/// processor has it (four lanes per instruction instead of two).
void invertFourDamped6(const Eigen::Matrix<float, 6, 6>* in, float damping, Eigen::Matrix<float, 6, 6>* out);

} // namespace detail

/// `invertDamped` for blocks [begin, end), four at a time: the
/// factorisation is a chain of dependent divisions per block, and four
/// independent chains keep the divider busy. The bits are those of
/// `invertDamped`, block by block (AVX2 has no fused multiply-add); a
/// group with a block that needs the pivoted factorisation goes one by one.
template <typename Block>
void invertDampedBlocks(const std::vector<Block>& blocks, float damping, std::vector<Block>& inverses, long long begin,
                        long long end)
{
    long long i = begin;
    for (; i + 4 <= end; i += 4) {
        if constexpr (Block::RowsAtCompileTime == 6)
            detail::invertFourDamped6(blocks.data() + i, damping, inverses.data() + i);
        else
            detail::invertFourDamped(blocks.data() + i, damping, inverses.data() + i);
    }
    for (; i < end; ++i)
        invertDamped(blocks[size_t(i)], damping, inverses[size_t(i)]);
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
