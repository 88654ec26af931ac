// SPDX-License-Identifier: MIT
#pragma once

#include "dump/SentFrame.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

/// Two ids that communicate with each other, and all frames of both so far, in order.
struct FoundPair {
    Sender sender = 0; ///< Its frame was answered.
    Sender answerer = 0;
    bool guessed = false; ///< The log does not prove it.
    std::vector<SentFrame> frames;
};

/// Finds out which id answers which. Takes the frames of all ids that have no peer yet.
///
/// An answer may belong to an id of the same interface that has sent a frame since the previous answer of the
/// same peer, if the code fits: 1 follows a first frame, 3 a whole message. While several ids are possible,
/// the frames are kept. Each further answer leaves fewer ids, until one is left.
class PairFinder {
public:
    /// Takes a frame. @return the pairs that are certain since this frame, or as certain as they can be.
    std::vector<FoundPair> take(const SentFrame& sent);
    /// Call this at the end of the log. @return the pairs that are still uncertain, guessed from the order of
    /// frames.
    std::vector<FoundPair> guess();
    /// @return the frames that are left after guess(), in order: frames of ids without a peer.
    std::vector<SentFrame> rest() const;
    /// @return how many frames of ids without a peer were dropped because too many waited.
    std::size_t dropped() const { return framesDropped; }
    /// @return how many answers had more candidates than are kept.
    std::size_t crowded() const { return answersCrowded; }

private:
    using Senders = std::vector<Sender>; ///< Sorted and bounded.
    enum class Stage { silent, firstFrame, burst, whole, unknown };
    struct Station {
        Stage stage = Stage::silent;
        std::size_t missing = 0;       ///< Bytes of its message that have not arrived yet.
        std::uint64_t sentAt = 0;      ///< Number of its last frame of a message.
        std::uint64_t answeredAt = 0;  ///< Number of its last answer.
        Senders candidates;            ///< Ids that it may have answered.
        bool guessed = false;          ///< There were more candidates than are kept.
        std::vector<Sender> suspectOf; ///< Ids that have, or had, this one as a candidate.
        std::vector<SentFrame> frames;
    };

    static void send(Station& station, const CANTransportThread::TPCANMsg& frame);
    void answer(Sender name, CANTransportFrame::flowcontrol_t code);
    static bool fits(Stage stage, CANTransportFrame::flowcontrol_t code);
    Senders fitting(Sender name, CANTransportFrame::flowcontrol_t code, bool& more) const;
    void settle(std::vector<Sender> open, std::vector<FoundPair>& found);
    FoundPair release(Sender sender, Sender answerer, std::vector<Sender>& changed);
    void drop();

    std::map<Sender, Station> stations;
    std::map<std::uint64_t, Sender>
        latest; ///< Stations by the number of their last frame of a message.
    std::size_t framesKept = 0;
    std::size_t framesDropped = 0;
    std::size_t answersCrowded = 0;
};
