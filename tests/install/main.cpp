// A program outside of the project: it knows the installed headers and the installed library only.
// One endpoint gets a short message to send and has to put a single frame with it on the bus.

#include "velk/CANTransportThread.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <vector>

#include <unistd.h>

namespace {

constexpr std::uint32_t frameId = 0x123;
const std::vector<unsigned char> payload{'v', 'e', 'l', 'k'};

bool writeAll(int descriptor, const std::vector<unsigned char>& bytes)
{
    return ::write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

bool carriesThePayload(const CANExtTraceMessage& frame)
{
    return frame.canID == frameId && frame.length > payload.size() &&
           frame.data[0] == payload.size() &&
           std::equal(payload.begin(), payload.end(), frame.data + 1);
}

bool sendsASingleFrame(int busReadEnd, int busWriteEnd)
{
    CANTransportThread endpoint;
    endpoint.setConnection(busWriteEnd);
    endpoint.setSendCANid(frameId);
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> delegate =
        [](CANTransportThread::statuschange_t status, unsigned short) {
            std::cout << status << '\n';
        };
    endpoint.setDelegate(delegate);
    int readDescriptor = -1;
    int writeDescriptor = -1;
    endpoint.open(readDescriptor, writeDescriptor);
    endpoint.start();

    std::vector<unsigned char> request;
    CANTransportTraceMessage(payload).createByteArray(request, true, false);
    bool sent = writeAll(writeDescriptor, request);

    TraceMessageBuffer bus(busReadEnd, nullptr);
    std::unique_ptr<MessageBase> message;
    while (sent && !message && bus.read() == 0)
        message = bus.getNextMessage();
    endpoint.stop();

    const auto* frame = dynamic_cast<const CANExtTraceMessage*>(message.get());
    if (frame)
        std::cout << *frame << '\n';
    return frame && carriesThePayload(*frame);
}

} // namespace

int main()
{
    int bus[2];
    if (::pipe(bus) != 0)
        return 1;
    bool good = sendsASingleFrame(bus[0], bus[1]);
    ::close(bus[0]);
    ::close(bus[1]);
    std::cout << (good ? "installed library works\n" : "installed library fails\n");
    return good ? 0 : 1;
}
