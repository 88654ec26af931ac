// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"

#include <atomic>
#include <ctime>
#include <memory>
#include <vector>

#include <semaphore.h>

/// @return the time of the clock, in seconds.
double cpuSeconds(clockid_t clock);

/// A sending and a receiving engine, each with its own thread, and the descriptors of their clients.
struct EnginePair {
    int requests = -1; ///< The sending client writes to it.
    int messages = -1; ///< The receiving client reads from it.
    sem_t acknowledged{};
    std::atomic<bool> failed{false}; ///< The message was given up.
    std::vector<std::unique_ptr<CANTransportThread>> endpoints;

    EnginePair() { sem_init(&acknowledged, 0, 0); }
    ~EnginePair();
};

/// @return two endpoints of the library; each writes its frames to the input of the other.
std::unique_ptr<EnginePair> endpoints();

/// @return the floor: two threads with the same system calls in the same order, for messages of exactly
/// `size` bytes. A wakeup is one select, with a timeout where an endpoint has one, one read of the available
/// bytes, and one read that finds nothing. A frame is one write of a prepared record, and on each side one
/// memcpy of the data bytes of a full frame. No allocation, no lock, no check of the input. The threads run
/// until the program ends.
std::unique_ptr<EnginePair> bareEngines(std::size_t size);

/// Carries one message through all pairs at the same time, `rounds` times; each message is acknowledged
/// before the next. @return the CPU seconds of the process for one message.
double carry(const std::vector<std::unique_ptr<EnginePair>>& pairs, std::size_t size, long rounds);
