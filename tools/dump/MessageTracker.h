// SPDX-License-Identifier: MIT
#pragma once

#include "dump/SentFrame.h"

#include <cstdint>
#include <string>
#include <vector>

/// The outcome of one attempt to send a message.
enum class Outcome {
    acknowledged,
    refused,   ///< The peer answered code 0 or 2.
    restarted, ///< The message started again before an answer arrived.
    incomplete ///< Another message started, or the log ended, before an answer arrived.
};

/// One attempt to send a message.
struct TrackedMessage {
    Outcome outcome = Outcome::incomplete;
    unsigned int attempt = 0; ///< From 1.
    std::size_t length = 0;   ///< As announced.
    /// The bytes that were seen, up to the first missing frame.
    std::vector<std::uint8_t> bytes;
    LogTime duration; ///< From the first frame of the first attempt to the acknowledgement, if any.
};

/// Follows the messages of one id and the answers of its peer.
class MessageTracker {
public:
    /// Takes a frame of the sender other than a flow control. @return the attempt that it ends.
    std::optional<TrackedMessage> data(const SentFrame& sent);
    /// Takes a flow control of the peer. @return the attempt that it ends.
    std::optional<TrackedMessage> answer(const SentFrame& sent);
    /// @return what is wrong with the frame that was taken last, or new; empty: nothing.
    const std::string& remark() const { return lastRemark; }
    /// Call this at the end of the log. @return the attempt that is still in progress.
    std::optional<TrackedMessage> end() { return close(Outcome::incomplete, std::nullopt); }

private:
    std::optional<TrackedMessage> start(const SentFrame& sent, std::size_t length,
                                        const std::uint8_t* bytes, std::size_t count);
    std::optional<TrackedMessage> close(Outcome outcome, const LogTime& time);
    void append(const CANTransportThread::TPCANMsg& frame);

    bool underWay = false;    ///< An attempt has not ended yet.
    bool acknowledged = true; ///< The message has been acknowledged.
    bool gap = false;         ///< A frame of the attempt is missing, so later ones are ignored.
    int attemptsInRow = 0;    ///< As the sender counts them: a code 1 resets the count.
    unsigned int nextNumber = 0;
    CANTransportThread::TPCANMsg head{}; ///< First frame of the message.
    LogTime started;
    TrackedMessage current;
    std::string lastRemark;
};
