#pragma once

#include "velk/CANTransportThread.h"
#include "velk/Export.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

/// Stands between an endpoint and a bus: each attempt to send gets one answer that fits it, a burst that
/// the peer no longer receives stops, and messages that cross each other do not end each other.
/// docs/gate.md has the rules and their reasons.
///
/// It has no input, output, thread or clock: its owner passes every frame through it and says what time
/// it is. The time must not run backwards.
///
///     gate.fromEndpoint(frame, now);               // each frame that the endpoint writes, unless full()
///     while (const auto* frame = gate.next(now)) { // when the bus has room, and at wakeAt()
///         if (!send(*frame)) break;
///         gate.left(now);
///     }
///     if (gate.admit(frame, now)) feed(frame);     // each frame of the peer
///     if (const auto answer = gate.released(now)) feed(*answer); // after the others, and at wakeAt()
///
/// The gate works on what has not left. Let few frames wait between it and the bus, 16 at most.
///
/// One endpoint, one gate. It allocates nothing after its constructor and throws nothing. One thread at a
/// time.
class VELK_EXPORT CANTransportGate {
public:
    using Frame = CANTransportThread::TPCANMsg;
    using Time = std::chrono::steady_clock::time_point;

    /// Since the constructor.
    struct Counters {
        // Answers of the peer that did not reach the endpoint.
        std::uint64_t refusals = 0; ///< Codes 0 and 2.
        std::uint64_t readies = 0;
        std::uint64_t acknowledgements = 0;
        std::uint64_t unknownAnswers = 0; ///< Codes 4 to 15.
        // Frames of the endpoint that did not reach the bus.
        std::uint64_t ownRefusals = 0; ///< Of frames after one that was refused already.
        std::uint64_t ownFrames = 0;   ///< Their attempt had ended, or there was no room.
    };

    CANTransportGate();
    ~CANTransportGate();
    CANTransportGate(const CANTransportGate&) = delete;
    CANTransportGate& operator=(const CANTransportGate&) = delete;

    /// A frame that the endpoint has written for the bus. It waits in the gate until it has left.
    void fromEndpoint(const Frame& frame, Time now);
    /// @return whether another frame may find no room and be dropped. The owner then waits until some have
    /// left. The longest message with its answers fits.
    bool full() const;

    /// @return the frame that may leave for the bus now, or null. The pointer is valid until the next call
    /// that is not const.
    const Frame* next(Time now) const;
    /// The bus has taken the frame that next() returned. No other call comes in between.
    void left(Time now);

    /// A frame of the peer has come from the bus; frames of other nodes do not belong here.
    /// @return whether the endpoint gets it now. Only answers are ever kept from it.
    bool admit(const Frame& fromBus, Time now);
    /// @return an acknowledgement that was kept back until now: the endpoint gets it. Each is returned once.
    std::optional<Frame> released(Time now);

    /// @return when next() or released() returns more than now although nothing else has happened;
    /// Time::max() if never.
    Time wakeAt(Time now) const;

    /// Forgets everything but the counters, for a fresh endpoint.
    void reset();

    Counters counters() const;

private:
    struct State;
    const std::unique_ptr<State> state;
};
