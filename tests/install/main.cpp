// SPDX-License-Identifier: MIT
// A program outside of the project: it knows the installed headers and the installed library only.
// An endpoint gets a message to send, and has to put a single frame with it on the bus.

#include "velk/CANTransportThread.h"

#include <iostream>

#include <unistd.h>

int main()
{
    int bus[2];
    int fromEndpoint = -1;
    int toEndpoint = -1;
    if (pipe(bus) != 0)
        return 1;
    CANTransportThread endpoint;
    endpoint.setConnection(bus[1]);
    endpoint.setSendCANid(0x123);
    endpoint.open(fromEndpoint, toEndpoint);
    endpoint.start();

    std::vector<unsigned char> request;
    CANTransportTraceMessage({'v', 'e', 'l', 'k'}).createByteArray(request, true, false);
    if (write(toEndpoint, request.data(), request.size()) == -1)
        return 1;

    TraceMessageBuffer frames(bus[0], nullptr);
    std::unique_ptr<MessageBase> frame;
    while (!(frame = frames.getNextMessage()) && frames.read() != -1) {
    }
    endpoint.stop();
    frame->print(std::cout) << '\n';
}
