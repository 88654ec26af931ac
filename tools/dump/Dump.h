#pragma once

#include "dump/DumpOptions.h"
#include "dump/MessageStatistics.h"
#include "dump/MessageTracker.h"
#include "dump/PairFinder.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string>

/// Makes lines of frames, without doing any input or output itself.
class Dump {
public:
    using Print = std::function<void(const std::string&)>;

    Dump(const DumpOptions& options, Print print);
    void take(LoggedFrame logged);
    /// The end of the log: the messages that are under way, and the table.
    void finish();
    std::size_t frames() const { return taken; } ///< That were followed.
    /// False if time stamps run backwards, so that the table has no times.
    bool hasTimes() const { return timed; }

private:
    /// What one id sends to its peer.
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
    const bool listing; ///< Not the table alone.
    std::string firstBus;
    std::size_t taken = 0;
    LogTime lastTime;
    bool timed = true;
    std::map<std::string, PairFinder> finders;   ///< By bus.
    std::map<std::string, Direction> directions; ///< By sender.
};
