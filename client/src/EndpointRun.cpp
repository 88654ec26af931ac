#include "EndpointRun.h"

#include <algorithm>

namespace {

using std::chrono::microseconds;

timeval toTimeval(microseconds time)
{
    constexpr auto usPerSecond = 1'000'000;
    return {static_cast<time_t>(time.count() / usPerSecond),
            static_cast<suseconds_t>(time.count() % usPerSecond)};
}

microseconds fromTimeval(const timeval& time)
{
    return std::chrono::seconds(time.tv_sec) + microseconds(time.tv_usec);
}

} // namespace

EndpointRun::EndpointRun(CANTransportThread& opened) : endpoint(opened)
{
    endpoint.startLoop();
    endPass();
}

/// As after a select() that input has ended: it leaves the rest of the time.
void EndpointRun::handleInput()
{
    if (deadline != Time::max()) {
        const auto left = std::chrono::ceil<microseconds>(deadline - Time::clock::now());
        endpoint.selectTimeoutLeft = toTimeval(std::max(left, microseconds::zero()));
    }
    endpoint.handleInput();
    endPass();
}

bool EndpointRun::handleExpiry()
{
    if (Time::clock::now() < deadline) {
        return false;
    }
    endpoint.handleExpiry();
    endPass();
    return true;
}

void EndpointRun::endPass()
{
    endpoint.checkInvariants();
    const timeval* const timeout = endpoint.startPass();
    deadline = timeout == nullptr ? Time::max() : Time::clock::now() + fromTimeval(*timeout);
}
