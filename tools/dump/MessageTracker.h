#pragma once

#include "dump/LogLine.h"

#include <cstdint>
#include <vector>

/// What became of one attempt to send a message.
enum class Outcome {
    acknowledged,
    refused,   ///< The peer answered code 0 or 2.
    restarted, ///< The message began again before an answer came.
    incomplete ///< Another message began, or the log ended, before an answer came.
};

/// One attempt to send a message.
struct TrackedMessage {
    Outcome outcome = Outcome::incomplete;
    unsigned int attempt = 0; ///< From 1.
    std::size_t length = 0;   ///< As announced.
    /// What was seen of it, up to the first frame that is missing.
    std::vector<std::uint8_t> bytes;
    LogTime duration; ///< First frame of the first attempt to acknowledgement; if that came.
};

/// Follows what one id sends, and the answers that its peer gives.
class MessageTracker {
public:
    /// A frame of the sender that is no flow control. @returns the attempt that it brings to an end.
    std::optional<TrackedMessage> data(const LoggedFrame& logged);
    /// A flow control of the peer. @returns the attempt that it brings to an end.
    std::optional<TrackedMessage> answer(const LoggedFrame& logged);
    /// The end of the log. @returns the attempt that is under way.
    std::optional<TrackedMessage> end() { return close(Outcome::incomplete, std::nullopt); }

private:
    std::optional<TrackedMessage> begin(const LoggedFrame& logged, std::size_t length,
                                        const std::uint8_t* bytes, std::size_t count);
    std::optional<TrackedMessage> close(Outcome outcome, const LogTime& time);
    void append(const CANTransportThread::TPCANMsg& frame);

    bool underWay = false;    ///< An attempt waits for its end.
    bool acknowledged = true; ///< The message has been.
    bool gap = false;         ///< What comes now does not follow what was seen of the attempt.
    int attemptsInRow = 0;    ///< As the sender counts them: a code 1 gives it all of them back.
    unsigned int nextNumber = 0;
    CANTransportThread::TPCANMsg head{}; ///< First frame of the message.
    LogTime begun;
    TrackedMessage current;
};
