// SPDX-License-Identifier: MIT
#pragma once

#include "dump/CandumpLine.h"
#include "dump/DumpOptions.h"
#include "dump/IsoTpHint.h"
#include "dump/LadderPicture.h"
#include "dump/MessageStatistics.h"
#include "dump/MessageTracker.h"
#include "dump/PairFinder.h"
#include "dump/SenderNames.h"
#include "dump/TimeStamps.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string>

/// Turns frames into lines. Does no input or output itself.
class Dump {
public:
    using Print = std::function<void(const std::string&)>;

    /// @param complain for what has to be known at once.
    Dump(const DumpOptions& options, Print print, Print complain);
    /// Takes the next frame of the log. @return whether it is followed.
    bool take(const LoggedFrame& logged);
    /// Call this at the end of the log: prints the unfinished messages and the table.
    void finish();
    /// Call this after finish(). @return the picture, if that is an option.
    std::string picture() const { return ladder.svg(timed); }
    /// @return how many frames of the followed ids were taken.
    std::size_t frames() const { return taken; }
    /// Call this after finish(). @return what the reader has to know about the lines.
    std::vector<std::string> remarks() const;

private:
    /// Everything that one id sends to its peer.
    struct Direction {
        std::optional<Sender> peer;
        bool fromLeft = true; ///< In a ladder.
        bool guessed = false; ///< The log does not prove the peer.
        MessageTracker tracker{};
        MessageStatistics statistics{};
    };

    void take(const SentFrame& sent);
    bool follows(const LoggedFrame& logged) const;
    std::string peerText(const Direction& direction) const;
    void join(Sender left, Sender right, bool guessed = false);
    void join(const std::vector<FoundPair>& pairs);
    void draw(const SentFrame& sent);
    std::string frameText(const SentFrame& sent) const;
    std::string coloured(const char* colour, const std::string& line) const;
    void track(const SentFrame& sent);
    void track(const std::vector<FoundPair>& pairs);
    void report(Sender sender, Direction& direction, const std::optional<TrackedMessage>& message,
                std::uint64_t last);
    void printTable() const;
    void checkTime(const LogTime& time);

    const DumpOptions options;
    const Print print;
    const Print complain;
    const bool listing; ///< Whether to print frames and messages, not only the table.
    std::size_t taken = 0;
    LogTime lastTime;
    bool timed = true;
    TimeStamps stamps;
    SenderNames names;
    PairFinder finder;
    LadderPicture ladder;
    bool guessed = false; ///< A peer was guessed.
    IsoTpHint isoTp;
    std::map<Sender, Direction> directions;
    std::size_t ofFurtherInterfaces = 0; ///< Frames that were left out.
    std::size_t ofFurtherIds = 0;        ///< Frames that were printed, but not followed.
};
