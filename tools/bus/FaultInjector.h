#pragma once

#include "bus/Frame.h"

#include <cstdint>
#include <optional>
#include <random>
#include <unordered_map>

/// Probabilities for each frame, from 0 to 1 and independent of each other.
struct Faults {
    double drop = 0;      ///< The frame reaches nobody.
    double duplicate = 0; ///< The frame is carried twice in a row.
    double stray = 0;     ///< A frame that nobody sent follows, with the same CAN id.
    std::uint64_t seed = 1;

    bool any() const { return drop > 0 || duplicate > 0 || stray > 0; }
};

/// Decides what goes wrong with a frame. The same seed and frames give the same faults.
///
/// Stray frames are only those that a receiver can tell to be wrong: unknown kinds, 0x00, single
/// frames that claim 8 to 15 bytes, flow control other than an acknowledgement, and consecutive
/// frames with a sequence number that is not due. The frames of this protocol bear neither a
/// checksum nor a message number, so nobody could tell a stray data frame with the right number, or
/// a stray acknowledgement, from a true one.
class FaultInjector {
public:
    struct Verdict {
        bool dropped = false;
        bool duplicated = false;
        std::optional<CANFrame> stray;
    };

    explicit FaultInjector(const Faults& faults);

    Verdict judge(const CANFrame& frame);

private:
    /// Where the messages of one CAN id stand.
    struct Progress {
        unsigned int sent = 15; ///< Sequence number that was sent last.
        unsigned int due = 0;   ///< The one that a receiver takes next, if it is receiving at all.
    };

    bool happens(double probability);
    unsigned int pick(unsigned int lowest, unsigned int highest);
    void follow(const CANFrame& frame, bool dropped);
    CANFrame makeStray(std::uint32_t canID);
    unsigned int strayFlowControl();
    unsigned int straySequenceNumber(const Progress& progress);

    const Faults rates;
    std::mt19937_64 random;
    std::unordered_map<std::uint32_t, Progress> progressOfId;
};
