// SPDX-License-Identifier: MIT
#include "common/ClientEvents.h"

#include "common/Tool.h"

#include <algorithm>
#include <climits>

#include <poll.h>
#include <unistd.h>

namespace {

/// In whole milliseconds, rounded up; -1 for no deadline.
int millisecondsUntil(ClientEvents::Clock::time_point deadline)
{
    if (deadline == ClientEvents::Clock::time_point::max()) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - ClientEvents::Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX));
}

} // namespace

ClientEvents::ClientEvents(const std::string& bus, const CANTransportClient::Options& options,
                           const Signals& ends, bool printsMessages)
    : client(bus, options),
      busName(bus),
      signals(ends),
      prints(printsMessages)
{
}

std::optional<ClientEvents::Event> ClientEvents::next(Clock::time_point deadline, int input)
{
    pollfd sources[] = {{signals.descriptor(), POLLIN, 0},
                        {prints ? STDOUT_FILENO : -1, 0, 0}, // POLLERR: nobody reads
                        {client.descriptor(), POLLIN, 0},
                        {input, POLLIN, 0}};
    const auto& [end, output, events, typed] = sources;
    while (true) {
        const int count = poll(sources, std::size(sources), millisecondsUntil(deadline));
        if (end.revents != 0) {
            throw Tool::Interrupted{signals.next()};
        }
        if ((output.revents & POLLERR) != 0) {
            throw Tool::OutputClosed{};
        }
        if (events.revents != 0) {
            if (auto event = takeEvent()) {
                return event;
            }
        } else if (count == 0 || typed.revents != 0) {
            return std::nullopt;
        }
    }
}

std::optional<ClientEvents::Event> ClientEvents::takeEvent()
{
    auto event = client.next();
    if (event && std::holds_alternative<CANTransportClient::Loss>(*event)) {
        throw CANTransportClient::BusLost(busName);
    }
    return event;
}
