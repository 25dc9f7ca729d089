#pragma once

#include "EmbeddedGraphLevel.h"

#include <vector>

namespace WelkingAcceleratedVersion {

/// A numbering of a level's nodes in which neighbours lie close together:
/// reverse Cuthill-McKee over the level's graph (breadth first from a node
/// of least degree, neighbours by ascending degree, each component in turn,
/// the whole reversed). Returns the old index of each new node.
///
/// A fit's products read every node's neighbours and the row groups that
/// touch it; with neighbours a few hundred indices apart those reads stay
/// in the nearest caches, while a mesh in scattered vertex order (a scan,
/// an exported or decimated model) makes nearly every one of them a miss.
std::vector<long long> localNodeOrder(const EmbeddedGraphLevel& level);

/// Renumbers the level's nodes by `order` (old index of each new node):
/// nodes, influences and neighbour lists, each list still ascending. The
/// graph, the weights and every vertex's influences in their order are
/// unchanged; only the names of the nodes move.
void renumberNodes(EmbeddedGraphLevel& level, const std::vector<long long>& order);

} // namespace WelkingAcceleratedVersion
