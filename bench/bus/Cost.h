#pragma once

#include <chrono>
#include <fstream>
#include <string>

#include <sys/resource.h>
#include <unistd.h>

/// What has been spent since some moment.
struct Cost {
    double elapsedUs = 0;
    double busyUs = 0; ///< By the whole machine, on all its CPUs; in steps of 10 ms.
    double cpuUs = 0;  ///< By this process.
    long waits = 0;    ///< Of this process: its threads gave up the CPU by themselves.

    static Cost now();
};

inline Cost operator-(const Cost& later, const Cost& earlier)
{
    return {later.elapsedUs - earlier.elapsedUs, later.busyUs - earlier.busyUs,
            later.cpuUs - earlier.cpuUs, later.waits - earlier.waits};
}

/// Busy is what is neither idle nor waiting for a disk.
inline Cost Cost::now()
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
    return cost;
}

inline long waitsOfChildren()
{
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);
    return children.ru_nvcsw;
}
