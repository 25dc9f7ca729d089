#pragma once

#include "ParallelRange.h"

#include <Eigen/Core>

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
