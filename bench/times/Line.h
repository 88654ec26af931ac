#pragma once

#include "velk/CANTransportThread.h"

#include <atomic>
#include <ctime>
#include <memory>
#include <vector>

#include <semaphore.h>

double cpuSeconds(clockid_t clock);

/// A sending and a receiving engine, each with its own thread, and what their clients hold.
struct Line {
    int requests = -1; ///< Where the sending client writes.
    int messages = -1; ///< Where the receiving client reads.
    sem_t acknowledged{};
    std::atomic<bool> failed{false}; ///< No acknowledgement will come.
    std::vector<std::unique_ptr<CANTransportThread>> endpoints;

    Line() { sem_init(&acknowledged, 0, 0); }
    ~Line();
};

/// Two endpoints of the library, the proxy's descriptor of each being the other's input.
std::unique_ptr<Line> endpoints();

/// The floor: two threads with the same system calls in the same order, for messages of just that
/// size. A wakeup is one select, with a timer where an endpoint has one, one read of what is there
/// and one more that finds nothing. A frame is one write out of a record that is ready but for its
/// data, and a memcpy at either side; those go where all frames would carry 7 bytes. No allocation,
/// no lock, no look at what has come. The threads sleep on until the program ends.
std::unique_ptr<Line> bareEngines(std::size_t size);

/// One message through all lines at the same time, `rounds` times, each acknowledged before the next.
/// @return the CPU seconds of the process for one message.
double carry(const std::vector<std::unique_ptr<Line>>& lines, std::size_t size, long rounds);
