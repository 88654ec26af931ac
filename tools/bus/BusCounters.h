// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

/// What a bus has done so far.
struct BusCounters {
    std::uint64_t carried = 0;   ///< Frames of nodes that were carried.
    std::uint64_t delivered = 0; ///< Frames that a node's socket took, counted once for each node.
    std::uint64_t overflowDrops = 0; ///< Frames that a node has missed, counted once for each node.
    std::uint64_t faultDrops = 0;
    std::uint64_t duplicates = 0;
    std::uint64_t strays = 0;
    std::uint64_t unusable = 0;   ///< Packets that are not exactly one record of a classic frame.
    std::uint64_t nodes = 0;      ///< Connections so far, without the refused ones.
    std::uint64_t present = 0;    ///< Nodes now.
    std::uint64_t tooMany = 0;    ///< Connections that were refused: the bus is full.
    std::uint64_t noResource = 0; ///< Connections that were refused: no memory, no descriptor.

    /// @return all that was left out.
    std::uint64_t refusals() const { return overflowDrops + unusable + tooMany + noResource; }
};
