#pragma once

#include "dump/LogLine.h"

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

/// Two ids that talk to each other, and what both have sent so far, in its order.
struct FoundPair {
    std::string sender; ///< Its frame was answered.
    std::string answerer;
    std::vector<LoggedFrame> frames;
};

/// Finds out who answers whom on one bus. Takes the frames of all ids that have no peer yet.
///
/// An answer goes to an id that has sent something since the last answer of the same peer, and that
/// the answer fits: code 1 a first frame, code 3 a whole message. Where that is true of several ids
/// at once, each further answer leaves fewer of them; the frames are kept until one is left.
class PairFinder {
public:
    /// @returns the pairs that this frame has made clear.
    std::vector<FoundPair> take(const LoggedFrame& logged);
    /// The end of the log: the pairs that are not clear, by the order of frames.
    std::vector<FoundPair> guess();
    /// What is left after that: frames of ids that have no peer.
    const std::deque<LoggedFrame>& rest() const { return frames; }

private:
    using Names = std::set<std::string>;
    enum class Stage { silent, firstFrame, burst, whole, unknown };
    struct Station {
        Stage stage = Stage::silent;
        std::size_t missing = 0;      ///< Bytes of the message.
        std::uint64_t sentAt = 0;     ///< Number of its last frame of a message.
        std::uint64_t answeredAt = 0; ///< Number of its last answer.
        Names candidates;             ///< Whom it may have answered.
    };

    static void send(Station& station, const CANTransportThread::TPCANMsg& frame);
    void answer(const std::string& name, unsigned int code);
    bool fits(const Station& sender, const Station& answerer, unsigned int code) const;
    void settle(std::vector<FoundPair>& found);
    FoundPair release(const std::string& sender, const std::string& answerer);

    std::map<std::string, Station> stations;
    std::deque<LoggedFrame> frames;
    std::uint64_t number = 0; ///< Of the frame at hand.
};
