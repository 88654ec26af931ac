#pragma once

#include "dump/DumpOptions.h"
#include "dump/MessageStatistics.h"
#include "dump/MessageTracker.h"
#include "dump/PairFinder.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string>

/// Turns frames into lines. Does no input or output itself.
class Dump {
public:
    using Print = std::function<void(const std::string&)>;

    Dump(const DumpOptions& options, Print print);
    /// Takes the next frame of the log.
    void take(LoggedFrame logged);
    /// Call this at the end of the log: prints the unfinished messages and the table.
    void finish();
    /// @return how many frames of the followed ids were taken.
    std::size_t frames() const { return taken; }
    /// @return false if time stamps run backwards, so that the table has no times.
    bool hasTimes() const { return timed; }

private:
    /// Everything that one id sends to its peer.
    struct Direction {
        std::string peer;
        bool fromLeft; ///< In a ladder.
        MessageTracker tracker;
        MessageStatistics statistics;
    };

    bool follows(const LoggedFrame& logged) const;
    void join(const std::string& left, const std::string& right);
    void join(const std::vector<FoundPair>& pairs);
    void draw(const LoggedFrame& logged) const;
    void track(const LoggedFrame& logged);
    void track(const std::vector<FoundPair>& pairs);
    void report(const std::string& sender, Direction& direction,
                const std::optional<TrackedMessage>& message);
    void checkTime(const LogTime& time);

    const DumpOptions options;
    const Print print;
    const bool listing; ///< Whether to print frames and messages, not only the table.
    std::string firstBus;
    std::size_t taken = 0;
    LogTime lastTime;
    bool timed = true;
    std::map<std::string, PairFinder> finders;   ///< By bus.
    std::map<std::string, Direction> directions; ///< By sender.
};
