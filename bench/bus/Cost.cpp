// SPDX-License-Identifier: MIT
#include "bus/Cost.h"

#include "common/Counting.h"

#include <chrono>
#include <fstream>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

std::atomic<long> callsMade{0};

} // namespace

COUNTED(callsMade, int, recvmmsg,
        (int fd, mmsghdr* messages, unsigned int count, int flags, timespec* timeout),
        (fd, messages, count, flags, timeout))
COUNTED(callsMade, int, ppoll,
        (pollfd * sources, nfds_t count, const timespec* timeout, const sigset_t* signals),
        (sources, count, timeout, signals))

/// Busy is what is neither idle nor waiting for a disk.
Cost Cost::now()
{
    using Us = std::chrono::duration<double, std::micro>;
    const auto us = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    Cost cost;
    cost.elapsedUs = Us(std::chrono::steady_clock::now().time_since_epoch()).count();
    std::ifstream status("/proc/stat");
    std::string name;
    double user = 0;
    double nice = 0;
    double system = 0;
    double idle = 0;
    double disk = 0;
    status >> name >> user >> nice >> system >> idle >> disk;
    const auto cpus = static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
    const double tickUs = 1e6 / static_cast<double>(sysconf(_SC_CLK_TCK));
    cost.busyUs = cpus * cost.elapsedUs - (idle + disk) * tickUs;
    rusage own{};
    getrusage(RUSAGE_SELF, &own);
    cost.cpuUs = us(own.ru_utime) + us(own.ru_stime);
    cost.waits = own.ru_nvcsw;
    cost.calls = callsMade;
    cost.allocations = Counting::allocations;
    return cost;
}
