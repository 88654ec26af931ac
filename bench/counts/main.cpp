#include "common/HandDriven.h"

#include <dlfcn.h>
#include <malloc.h>
#include <sys/select.h>

using namespace Records;
using Program::printFigure;

namespace {

struct Counters {
    double allocations;
    double bytesInUse; ///< With the rounding of the allocator.
    double selects;
    double reads;
    double writes;
};

thread_local Counters counters{};

} // namespace

// These functions replace those that the shared library calls, so the library is measured as it is shipped.

[[gnu::noinline]] void* operator new(std::size_t size) // inlined, g++ reports a mismatched delete
{
    void* block = std::malloc(size); // NOLINT(*-no-malloc)
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++counters.allocations;
    counters.bytesInUse += static_cast<double>(malloc_usable_size(block));
    return block;
}

[[gnu::noinline]] void operator delete(void* block) noexcept
{
    counters.bytesInUse -= static_cast<double>(malloc_usable_size(block));
    std::free(block); // NOLINT(*-no-malloc)
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

#define COUNTED(counter, result, name, parameters, arguments)                                      \
    extern "C" result counted_##name parameters asm(#name);                                        \
    result counted_##name parameters                                                               \
    {                                                                                              \
        static const auto next = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name));     \
        ++counters.counter;                                                                        \
        return next arguments;                                                                     \
    }

COUNTED(selects, int, select, (int count, fd_set* in, fd_set* out, fd_set* rest, timeval* left),
        (count, in, out, rest, left))
COUNTED(reads, ssize_t, read, (int fd, void* bytes, std::size_t size), (fd, bytes, size))
COUNTED(writes, ssize_t, write, (int fd, const void* bytes, std::size_t size), (fd, bytes, size))

namespace {

/// Two frames fewer than the longest message, but long enough that all buffers behave the same.
constexpr std::size_t shorterMessage =
    longestMessage - 2 * std::size_t{CANTransportFrame::consecutiveFrameBytes};

template <typename Action> Counters during(Action action)
{
    counters = {};
    action();
    return counters;
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
