#pragma once

#include "bus/WakeUp.h"

/// While it lives, the first SIGINT or SIGTERM becomes a wake-up; the second ends the process.
/// SIGPIPE is ignored, so that a reader of the output who has gone shows as a failed write. One at
/// a time.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    const WakeUp& wakeUp() const { return wake; }

private:
    WakeUp wake;
};
