#pragma once

#include <csignal>

/// Takes SIGINT and SIGTERM. Create it before any thread, so that all threads inherit the blocked signals.
/// After the first signal, both end the process again. SIGPIPE is ignored, so that a write without a reader
/// fails instead.
class Interruption {
public:
    Interruption();

    /// Waits for a signal, at most `milliseconds`. @return whether one has arrived, now or before.
    bool wait(int milliseconds);

private:
    sigset_t signals{};
    bool come = false;
};
