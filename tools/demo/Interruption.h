#pragma once

#include <csignal>

/// SIGINT and SIGTERM, taken by whoever waits for them. Made before any thread, so that all inherit
/// the blocked signals; after the first one both end the process again. SIGPIPE is ignored, so that a
/// reader of the output who has gone shows as a failed write.
class Interruption {
public:
    Interruption();

    /// Waits for a signal, at most that long. @return whether one has ever come.
    bool wait(int milliseconds);

private:
    sigset_t signals{};
    bool come = false;
};
