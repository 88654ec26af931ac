// SPDX-License-Identifier: MIT
#include "velk/Millisleep.h"

#include <cerrno>
#include <ctime>

void millisleep(int milliseconds)
{
    timespec left{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}
