// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct Tally;

/// A connection to a bus. Never blocks; for the mover's thread alone.
class Link {
public:
    using Frame = CANTransportThread::TPCANMsg;

    enum class Sent {
        done,
        wouldBlock, ///< Try again when the descriptor is writable.
        queueFull,  ///< Try again after a pause: poll(2) does not show when there is room.
        lost,
    };

    Link() = default;
    virtual ~Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    virtual int descriptor() const = 0;
    virtual Sent send(const Frame& frame) = 0;
    /// Appends the waiting frames, about `most` at most. @return false if the bus is lost.
    virtual bool receive(std::vector<Frame>& frames, std::size_t most) = 0;
};

/// @param bus as for CANTransportClient. @param acceptedId the only id whose frames are needed.
/// @throws VelkException if the bus cannot be reached.
std::unique_ptr<Link> openLink(const std::string& bus, std::uint32_t acceptedId, Tally& tally);
