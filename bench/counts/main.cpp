// SPDX-License-Identifier: MIT
#include "common/Counting.h"
#include "common/HandDriven.h"

#include <sys/select.h>

using namespace Records;
using Program::printFigure;

namespace {

std::atomic<long> selects{0};
std::atomic<long> reads{0};
std::atomic<long> writes{0};

} // namespace

COUNTED(selects, int, select, (int count, fd_set* in, fd_set* out, fd_set* rest, timeval* left),
        (count, in, out, rest, left))
COUNTED(reads, ssize_t, read, (int fd, void* bytes, std::size_t size), (fd, bytes, size))
COUNTED(writes, ssize_t, write, (int fd, const void* bytes, std::size_t size), (fd, bytes, size))

namespace {

struct Counters {
    double allocations;
    double bytesInUse;
    double selects;
    double reads;
    double writes;
};

/// Two frames fewer than the longest message, but long enough that all buffers behave the same.
constexpr std::size_t shorterMessage =
    longestMessage - 2 * std::size_t{CANTransportFrame::consecutiveFrameBytes};

template <typename Action> Counters during(Action action)
{
    std::atomic<long>* const all[] = {&Counting::allocations, &Counting::bytesInUse, &selects,
                                      &reads, &writes};
    for (std::atomic<long>* const counter : all) {
        *counter = 0;
    }
    action();
    const auto value = [&](int index) { return static_cast<double>(*all[index]); };
    return {value(0), value(1), value(2), value(3), value(4)};
}

Counters sending(HandDriven& endpoint, std::size_t size)
{
    const Bytes record = request(size);
    return during([&] { endpoint.send(record); });
}

Counters receiving(HandDriven& endpoint, std::size_t size)
{
    const Bytes records = frames(size);
    return during([&] { endpoint.receive(records, size); });
}

/// The worst case: the frames arrive in portions so small that the endpoint's buffer frees no memory.
double bytesAtRest()
{
    constexpr std::size_t framesKept = 13;
    const Bytes message = request(longestMessage);
    const Bytes records = frames(longestMessage);
    std::unique_ptr<HandDriven> endpoint;
    const Counters taken = during([&] {
        endpoint = std::make_unique<HandDriven>();
        endpoint->send(message);
        endpoint->receive(records, longestMessage, framesKept);
        endpoint->rest();
    });
    const std::size_t around = sizeof(HandDriven) - sizeof(CANTransportThread);
    return taken.bytesInUse - static_cast<double>(around);
}

} // namespace

/// Prints the figures that repeat exactly. Fails if one exceeds its limit.
int main()
{
    Program::startIdleThread();
    HandDriven endpoint;
    sending(endpoint, longestMessage); // buffers that grow only once grow here
    receiving(endpoint, longestMessage);
    const auto perFrame = [&](Counters (*transfer)(HandDriven&, std::size_t)) {
        const double few = transfer(endpoint, shorterMessage).allocations;
        return (transfer(endpoint, longestMessage).allocations - few) / 2;
    };
    const double sent = perFrame(sending);
    const double received = perFrame(receiving);
    const Counters message = receiving(endpoint, longestMessage);
    const double delivered = message.allocations - frameCount(longestMessage) * received - 2 * sent;

    bool good = printFigure("allocations for a frame sent", sent, 1, 0);
    good &= printFigure("allocations for a frame received", received, 1, 1);
    good &= printFigure("allocations for a message delivered", delivered, 3, 2);
    // Less the write that supplies the frames and the reads that take the output.
    good &= printFigure("select for 586 frames received", message.selects, 1, 1);
    good &= printFigure("read for 586 frames received", message.reads - 2, 2, 2);
    good &= printFigure("write for 586 frames received", message.writes - 1, 3, 3);
    good &= printFigure("bytes of an endpoint at rest, stack apart", bytesAtRest(), 8192, 6144);
    return good ? 0 : Program::beyondLimit;
}
