#pragma once

#include "dump/CandumpLine.h"

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

/// Two ids that communicate with each other, and all frames of both so far, in order.
struct FoundPair {
    std::string sender; ///< Its frame was answered.
    std::string answerer;
    std::vector<LoggedFrame> frames;
};

/// Finds out which id answers which on one bus. Takes the frames of all ids that have no peer yet.
///
/// An answer may belong to an id that has sent a frame since the previous answer of the same peer, if the
/// code fits: 1 follows a first frame, 3 a whole message. While several ids are possible, the frames are
/// kept. Each further answer leaves fewer ids, until one is left.
class PairFinder {
public:
    /// Takes a frame. @return the pairs that are certain since this frame.
    std::vector<FoundPair> take(const LoggedFrame& logged);
    /// Call this at the end of the log. @return the pairs that are still uncertain, guessed from the order of
    /// frames.
    std::vector<FoundPair> guess();
    /// @return the frames that are left after guess(): frames of ids without a peer.
    const std::deque<LoggedFrame>& rest() const { return frames; }

private:
    using Names = std::set<std::string>;
    enum class Stage { silent, firstFrame, burst, whole, unknown };
    struct Station {
        Stage stage = Stage::silent;
        std::size_t missing = 0;      ///< Bytes of its message that have not arrived yet.
        std::uint64_t sentAt = 0;     ///< Number of its last frame of a message.
        std::uint64_t answeredAt = 0; ///< Number of its last answer.
        Names candidates;             ///< Ids that it may have answered.
    };

    static void send(Station& station, const CANTransportThread::TPCANMsg& frame);
    void answer(const std::string& name, CANTransportFrame::flowcontrol_t code);
    static bool fits(const Station& sender, const Station& answerer,
                     CANTransportFrame::flowcontrol_t code);
    void settle(std::vector<FoundPair>& found);
    FoundPair release(const std::string& sender, const std::string& answerer);

    std::map<std::string, Station> stations;
    std::deque<LoggedFrame> frames;
    std::uint64_t number = 0; ///< Number of the last frame.
};
