#pragma once

#include <csignal>

/// Takes SIGINT and SIGTERM. Created before any thread, so that all threads inherit the blocked signals.
/// After the first signal both end the process again. SIGPIPE is ignored, so that a write to a reader that
/// has gone fails instead.
class Interruption {
public:
    Interruption();

    /// Waits for a signal, at most that long. @return whether one has come, now or before.
    bool wait(int milliseconds);

private:
    sigset_t signals{};
    bool come = false;
};
