// SPDX-License-Identifier: MIT
#include "EndpointPort.h"

#include <algorithm>
#include <functional>
#include <utility>

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

template <typename Value> std::optional<Value> takeFirst(std::deque<Value>& values)
{
    if (values.empty()) {
        return std::nullopt;
    }
    std::optional<Value> first = std::move(values.front());
    values.pop_front();
    return first;
}

} // namespace

EndpointPort::EndpointPort(const CANTransportClient::Options& options, LogLimiter& log)
    : endpoint(log.isActive() ? options.debugLevel : 0)
{
    endpoint.outlet = this;
    endpoint.setLogSink(
        [&log](LogUtil::Level level, const std::string& line) { log.pass(level, line); });
    endpoint.setSendCANid(options.sendId);
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> delegate =
        [this](CANTransportThread::statuschange_t status, unsigned short value) {
            changes.push_back({status, value});
        };
    endpoint.setDelegate(delegate);
    endpoint.startLoop();
    endPass();
}

/// The endpoint's loop with the wait left out.
bool EndpointPort::run()
{
    if (!allTaken()) {
        return false;
    }
    if (isBehind()) {
        handleInput();
    } else if (Time::clock::now() >= deadline) {
        endpoint.handleExpiry();
    } else {
        return false;
    }
    endPass();
    return true;
}

/// As after a select() that input has ended: it leaves the rest of the time.
void EndpointPort::handleInput()
{
    const auto left = std::chrono::ceil<microseconds>(deadline - Time::clock::now());
    endpoint.selectTimeoutLeft = toTimeval(std::max(left, microseconds::zero()));
    for (Frame& frame : fromBus) {
        handleFrame(frame);
    }
    fromBus.clear();
    if (auto message = std::exchange(request, std::nullopt)) {
        endpoint.handleTraceMessage(CANTransportTraceMessage(std::move(*message)));
    }
}

/// Frames come in hundreds, so only those that are logged become message objects.
void EndpointPort::handleFrame(Frame& frame)
{
    if (endpoint.debugLevel == 0) {
        endpoint.handleCANData(frame);
    } else {
        endpoint.handleTraceMessage(CANExtTraceMessage(frame.canID, frame.data, frame.len));
    }
}

void EndpointPort::endPass()
{
    endpoint.checkInvariants();
    const timeval* const timeout = endpoint.startPass();
    deadline = timeout == nullptr ? Time::max() : Time::clock::now() + fromTimeval(*timeout);
}

std::optional<EndpointPort::Frame> EndpointPort::takeFrame()
{
    if (frames.empty()) {
        return std::nullopt;
    }
    const Frame frame = frames[taken++];
    if (taken == frames.size()) {
        frames.clear();
        taken = 0;
    }
    return frame;
}

std::optional<EndpointPort::StatusChange> EndpointPort::takeStatus() { return takeFirst(changes); }

std::optional<EndpointPort::Message> EndpointPort::takeMessage() { return takeFirst(messages); }
