// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"

#include <chrono>
#include <cstdint>
#include <optional>

using LogTime = std::optional<std::chrono::microseconds>; ///< None if the line has no time stamp.

/// Number of the interface in the high half, id in the low half: a sender has no other name.
using Sender = std::uint64_t;

constexpr Sender senderOf(std::uint32_t interface, std::uint32_t canID)
{
    return (Sender{interface} << 32) | canID;
}
constexpr std::uint32_t interfaceOf(Sender sender)
{
    return static_cast<std::uint32_t>(sender >> 32);
}

/// A frame and its place in the log.
struct SentFrame {
    Sender sender = 0;
    std::uint64_t number = 0; ///< Counts the frames of the log.
    CANTransportThread::TPCANMsg frame{};
    LogTime time;
};

/// @return whether the frame is a flow control.
inline bool isAnswer(const SentFrame& sent)
{
    return CANTransportFrame::kindOf(sent.frame.data) == CANTransportFrame::CTP_FLOW_CONTROL;
}
