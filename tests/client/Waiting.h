// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"
#include "velk/VelkException.h"

#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include <poll.h>
#include <unistd.h>

using Clock = CANTransportClient::Clock;
using Result = CANTransportClient::SendResult;
constexpr auto never = Clock::time_point::max();

inline CANTransportClient::Options ids(std::uint16_t own, std::uint16_t peer)
{
    CANTransportClient::Options options;
    options.sendId = own;
    options.receiveId = peer;
    return options;
}

/// @return whether the descriptor is readable, at the latest after that time; -1: waits for it.
inline bool isReadable(int descriptor, int timeoutMs = 0)
{
    pollfd look{descriptor, POLLIN, 0};
    return poll(&look, 1, timeoutMs) == 1;
}

/// Returns when the condition holds.
template <typename Condition> void waitUntil(Condition condition)
{
    while (!condition()) {
        usleep(200);
    }
}

/// Runs the function on a thread. @return when it sleeps there or has ended.
template <typename Function> std::thread startAndWait(Function function)
{
    std::promise<pid_t> started;
    auto task = started.get_future();
    std::thread thread([&started, function = std::move(function)]() mutable {
        started.set_value(gettid());
        function();
    });
    const std::string file = "/proc/self/task/" + std::to_string(task.get()) + "/stat";
    waitUntil([&] {
        std::ifstream status(file);
        std::string text;
        std::getline(status, text);
        return text.find(") R") == std::string::npos;
    });
    return thread;
}

/// @return what the function throws, or an empty one.
template <typename Function> VelkException thrownBy(Function function)
{
    try {
        function();
    } catch (const VelkException& exception) {
        return exception;
    }
    return {};
}
