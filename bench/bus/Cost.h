// SPDX-License-Identifier: MIT
#pragma once

#include <sys/resource.h>

/// What has been spent since some moment.
struct Cost {
    double elapsedUs = 0;
    double busyUs = 0; ///< By the whole machine, on all its CPUs; in steps of 10 ms.
    double cpuUs = 0;  ///< By this process.
    long waits = 0;    ///< Of this process: its threads gave up the CPU by themselves.
    long calls = 0;    ///< recvmmsg() and ppoll() by this process.
    long allocations = 0;

    static Cost now();
};

inline Cost operator-(const Cost& later, const Cost& earlier)
{
    return {later.elapsedUs - earlier.elapsedUs, later.busyUs - earlier.busyUs,
            later.cpuUs - earlier.cpuUs,         later.waits - earlier.waits,
            later.calls - earlier.calls,         later.allocations - earlier.allocations};
}

inline long waitsOfChildren()
{
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);
    return children.ru_nvcsw;
}
