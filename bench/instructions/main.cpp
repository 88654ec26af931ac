// SPDX-License-Identifier: MIT
#include "common/HandDriven.h"

#include <cstring>

/// Carries MESSAGES messages of 4095 bytes in one direction, with almost no work of its own.
int main(int count, char** arguments)
{
    if (count != 3) {
        Program::fail("usage: velkcan-carry send|receive MESSAGES");
    }
    const bool sending = std::strcmp(arguments[1], "send") == 0;
    const long messages = std::strtol(arguments[2], nullptr, 10);
    const Records::Bytes request = Records::request(Records::longestMessage);
    const Records::Bytes frames = Records::frames(Records::longestMessage);
    Program::startIdleThread();
    HandDriven endpoint;
    for (long i = 0; i < messages; ++i) {
        if (sending) {
            endpoint.send(request);
        } else {
            endpoint.receive(frames, Records::longestMessage);
        }
    }
    return 0;
}
