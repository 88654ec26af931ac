// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANSocket.h"

#include "Link.h"

/// A CAN interface.
class CANLink : public Link {
public:
    /// @throws VelkException if there is no such interface.
    CANLink(const std::string& interface, std::uint32_t acceptedId, Tally& counters);

    int descriptor() const override { return socket.descriptor(); }
    Sent send(const Frame& frame) override;
    bool receive(std::vector<Frame>& frames, std::size_t most) override;

private:
    CANSocket socket;
    Tally& tally;
    const std::uint64_t missedBefore; ///< Frames missed by earlier connections.
    std::vector<can_frame> taken;     ///< A member to reuse its memory.
};
