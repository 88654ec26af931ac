// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportFrame.h"
#include "velk/CANTransportGate.h"

#include <array>
#include <cstddef>
#include <optional>

/// Frames in the order of their arrival.
template <std::size_t room> class FrameLine {
public:
    bool empty() const { return count == 0; }
    bool full() const { return count == room; }
    std::size_t size() const { return count; }
    const CANTransportGate::Frame& front() const { return frames[first]; }
    void push(const CANTransportGate::Frame& frame) { frames[(first + count++) % room] = frame; }
    void pop()
    {
        first = (first + 1) % room;
        --count;
    }
    void clear() { count = 0; }

private:
    std::array<CANTransportGate::Frame, room> frames{};
    std::size_t first = 0;
    std::size_t count = 0;
};

/// What a gate knows, and its rules.
struct CANTransportGate::State {
    /// Which answers to the current attempt the gate lets in.
    enum class Door {
        closed,  ///< None: there is no attempt, or it has its answer.
        started, ///< The first frame has left: a ready answer or a refusal.
        ready,   ///< The peer was ready, and consecutive frames still have to leave: a refusal.
        sent,    ///< All frames have left: an acknowledgement or a refusal.
    };

    // Own message.
    FrameLine<CANTransportFrame::frameCountOf(CANTransportFrame::maxMessageLength)>
        burst;                  ///< Consecutive frames that have to leave.
    std::optional<Frame> start; ///< Single or first frame that has to leave.
    Door door = Door::closed;
    unsigned int toLeave = 0;        ///< Consecutive frames of the attempt that have to leave.
    Time writtenAt = Time::min();    ///< When the endpoint wrote its last message frame.
    Time leftAt = Time::min();       ///< When the last message frame left.
    Time quietFrom = Time::min();    ///< By then all refusals of the last attempt have arrived.
    Time expectedBy = Time::min();   ///< By then copies of the last acknowledgement have arrived.
    std::optional<Frame> heldAnswer; ///< An acknowledgement.
    Time heldSince = Time::min();
    std::uint32_t ownId = 0;

    // The peer's message.
    FrameLine<64> answers;      ///< Answers to the peer that have to leave.
    bool receiving = false;     ///< The endpoint was ready, and has not answered the burst yet.
    bool refused = false;       ///< The endpoint has refused the current attempt of the peer.
    Time heardAt = Time::min(); ///< Of the last consecutive frame, or the ready answer before it.
    std::uint32_t peerId = 0;

    Counters counters;

    void takeAnswer(const Frame& frame, Time now);
    void takeStart(const Frame& frame);
    bool admitAnswer(const Frame& frame, Time now);
    bool admitRefusal(CANTransportFrame::flowcontrol_t code, Time now);
    bool admitReady();
    bool admitAcknowledgement(const Frame& frame, Time now);
    void startLeft();
    Time burstAt() const;
    Time startAt() const;
    Time answerAt() const;
};
