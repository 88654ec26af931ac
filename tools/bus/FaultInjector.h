// SPDX-License-Identifier: MIT
#pragma once

#include "bus/Frame.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>

/// Probabilities for each frame, from 0 to 1, independent of each other.
struct FaultRates {
    double drop = 0;      ///< The frame reaches no node.
    double duplicate = 0; ///< The frame is carried twice in a row.
    double stray = 0;     ///< A frame that no node sent follows, with the same CAN id.
    std::uint64_t seed = 1;

    /// @return whether any fault can happen.
    bool any() const { return drop > 0 || duplicate > 0 || stray > 0; }
};

/// Decides what goes wrong with a frame. The same seed and frames give the same faults.
///
/// A receiver can always recognise a stray frame as wrong: an unknown kind, 0x00, a single frame that claims
/// 8 to 15 bytes, a flow control that is not an acknowledgement, or a consecutive frame with a sequence
/// number that is not due. Frames of this protocol have neither a checksum nor a message number, so no
/// receiver could recognise a stray data frame with the right number, or a stray acknowledgement.
class FaultInjector {
public:
    struct Verdict {
        bool dropped = false;
        bool duplicated = false;
        std::optional<CANFrame> stray;
    };

    explicit FaultInjector(const FaultRates& faults);

    /// @return what goes wrong with the frame.
    Verdict judge(const CANFrame& frame);

private:
    /// Sequence numbers of one CAN id.
    struct Progress {
        unsigned int sent = CANTransportFrame::sequenceNumbers - 1; ///< The last one sent.
        unsigned int due = 0; ///< The next one that a receiver accepts, if it is receiving.
    };

    Progress& progressOf(std::uint32_t canID);
    bool happens(double probability);
    unsigned int pick(unsigned int lowest, unsigned int highest);
    void follow(const CANFrame& frame, bool dropped);
    CANFrame makeStray(std::uint32_t canID);
    std::uint8_t strayFirstByte(const Progress& progress);
    unsigned int strayFlowControl();
    unsigned int straySequenceNumber(const Progress& progress);

    const FaultRates rates;
    std::mt19937_64 random;
    static constexpr std::size_t standardIds = 0x800;
    /// Ids of 29 bits share the last entry: no endpoint has one, and a node could use any number of them.
    std::array<Progress, standardIds + 1> progressOfIds{};
};
