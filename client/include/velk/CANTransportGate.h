// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"
#include "velk/Export.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

/// Sits between an endpoint and a bus. It gives each attempt to send one answer that fits it, stops a burst
/// that the peer no longer receives, and keeps messages in opposite directions from ending each other.
/// docs/gate.md has the rules and their reasons.
///
/// It has no input, output, thread or clock: its owner passes every frame through it and supplies the time,
/// which must not run backwards.
///
///     gate.fromEndpoint(frame, now);               // each frame that the endpoint writes, unless full()
///     while (const auto* frame = gate.next(now)) { // when the bus has room, and at wakeAt()
///         if (!send(*frame)) break;
///         gate.left(now);
///     }
///     if (gate.admit(frame, now)) feed(frame);     // each frame of the peer
///     if (const auto answer = gate.released(now)) feed(*answer); // after the others, and at wakeAt()
///
/// The gate can only act on frames that have not left it. Let at most 16 frames wait between it and the bus.
///
/// Each endpoint needs its own gate. It allocates nothing after its constructor and throws nothing. One
/// thread at a time may use it.
class VELK_EXPORT CANTransportGate {
public:
    using Frame = CANTransportThread::TPCANMsg;
    using Time = std::chrono::steady_clock::time_point;

    /// All counts start at 0 in the constructor.
    struct Counters {
        // Answers of the peer that did not reach the endpoint.
        std::uint64_t refusals = 0; ///< Codes 0 and 2.
        std::uint64_t readies = 0;
        std::uint64_t acknowledgements = 0;
        std::uint64_t unknownAnswers = 0; ///< Codes 4 to 15.
        // Frames of the endpoint that did not reach the bus.
        std::uint64_t ownRefusals = 0; ///< The attempt of the peer was refused already.
        std::uint64_t ownFrames = 0;   ///< Their attempt had ended, or there was no room.
    };

    CANTransportGate();
    ~CANTransportGate();
    CANTransportGate(const CANTransportGate&) = delete;
    CANTransportGate& operator=(const CANTransportGate&) = delete;

    /// Adds a frame that the endpoint has written for the bus. It waits in the gate until it has left.
    void fromEndpoint(const Frame& frame, Time now);
    /// @return whether the next frame may find no room and be dropped. The owner then waits until frames
    /// have left. The longest message with its answers fits.
    bool full() const;

    /// @return the frame that may leave for the bus now, or null. The pointer is valid until the next
    /// non-const call.
    const Frame* next(Time now) const;
    /// Call this when the bus has taken the frame that next() returned, with no other call in between.
    void left(Time now);

    /// Takes a frame of the peer from the bus. Do not pass frames of other nodes.
    /// @return whether the endpoint gets it now. Only answers are ever held back or dropped.
    bool admit(const Frame& fromBus, Time now);
    /// @return an acknowledgement that was held back and that the endpoint gets now. Each is returned once.
    std::optional<Frame> released(Time now);

    /// @return the time when next() or released() has something new even if nothing else happens;
    /// Time::max() if never.
    Time wakeAt(Time now) const;

    /// Drops everything except the counters, for a fresh endpoint.
    void reset();

    Counters counters() const;

private:
    struct State;
    const std::unique_ptr<State> state;
};
