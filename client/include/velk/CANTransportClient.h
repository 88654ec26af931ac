// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"
#include "velk/Export.h"
#include "velk/LogUtil.h"
#include "velk/VelkException.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

/// An endpoint with its link to a bus: sends messages and returns their outcomes, and receives the
/// messages of the peer.
///
/// It runs one thread, which moves the frames and blocks all signals.
/// All operations may be called from any thread at any time, unless they say otherwise. It writes nothing
/// to the program's streams. All its descriptors are close-on-exec, and none is 0, 1 or 2.
///
/// A program can wait in send() and receive(). A program with an event loop waits for descriptor() together
/// with its own descriptors, takes each event with next(), and sends with submit().
class VELK_EXPORT CANTransportClient {
public:
    using Bytes = std::vector<unsigned char>;
    using Clock = std::chrono::steady_clock;
    using Status = CANTransportThread::statuschange_t;

    struct Options {
        std::uint16_t sendId = 0; ///< CAN id of the frames that are sent, 0 to 0x7FF.
        std::uint32_t receiveId =
            0; ///< CAN id of the peer's frames, 0 to 0x7FF; others are ignored.
        /// As for CANTransportThread::setDebugLevel(). Without `log` it has no effect.
        int debugLevel = 0;
        /// How many received messages may wait. Up to 64 that arrive while an own message is on its way
        /// are kept as well, and those that were read together with the last one. 0: messages are acknowledged and dropped.
        std::size_t queueLength = 1024;
        /// The longest time that a message may take, from send() or submit() on.
        std::chrono::milliseconds patience{30000};
        /// How long frames of a message from the peer may gather before they are read together. The last
        /// frames of a message and all other frames never wait. 0: each frame is read when it arrives.
        std::chrono::microseconds gather{2000};
        /// Called once for each change, also across a reconnect(). CTT_DISCONNECTED means that the peer was
        /// silent through all attempts. Called on the thread that moves frames, which waits until it
        /// returns: it must not call send(), receive(), reconnect() or the destructor. An exception from it
        /// is dropped.
        std::function<void(Status, unsigned short)> statusHandler{};
        /// Receives each log line with its level; if empty, nothing is logged. At most ten error and
        /// information lines of one kind pass per second; a later line is preceded by the number left out.
        /// Called on the same thread as the status handler, under the same rules. An exception from it is
        /// dropped.
        LogUtil::Sink log{};
    };

    /// The outcome of a message.
    enum class SendResult {
        acknowledged, ///< The peer has delivered it to its client.
        noAnswer,     ///< Five attempts, and no frame from the peer; or the bus took no frame.
        refused,      ///< The peer was heard, but has not taken the message.
        expired,      ///< The deadline has passed, or `patience` has run out. The peer may have it.
        cancelled,    ///< By cancel() or reconnect(). The peer may have it.
        busLost,      ///< The bus is lost. The peer may have it.
    };

    struct Message {
        std::uint32_t canID = 0; ///< CAN id of the frames that brought it.
        Bytes bytes;
    };

    /// The bus is lost: the interface is down, or the socket or the command's stdout was closed.
    class VELK_EXPORT BusLost : public std::runtime_error {
    public:
        explicit BusLost(const std::string& bus);
        ~BusLost() override;
    };

    /// @param bus `can0`: a CAN interface. `unix:PATH`: the socket of a bus or a proxy. `exec:COMMAND`: a
    /// shell command that reads trace messages from its stdin and writes them to its stdout; it runs in a
    /// process group of its own, cannot read from the terminal, and inherits the program's stderr.
    /// @throws VelkException if the bus cannot be reached within a second, or an id is above 0x7FF. A
    /// command that ends at once is reported later, as BusLost.
    CANTransportClient(std::string bus, Options options);
    /// Ends all calls of send() and receive(), the thread and the command. A command that does not end
    /// within a second is terminated with its process group, and after another second killed. First waits up
    /// to a second for the outcome of a message that is on its way: its late answer could end another
    /// message. Waits for the status handler to return. From any thread except the handler's.
    ~CANTransportClient();
    CANTransportClient(const CANTransportClient&) = delete;
    CANTransportClient& operator=(const CANTransportClient&) = delete;

    /// Sends a message of 1 to 4095 bytes after those that wait. Returns when its outcome is known, or when
    /// Options::patience has run out. While `queueLength` received messages wait, no further message is
    /// sent. If the calling thread is cancelled, its message is withdrawn.
    /// @throws VelkException for a message of another size.
    SendResult send(const Bytes& message);
    /// The same with a deadline. With a deadline in the past, nothing is sent. If the deadline passes while
    /// the endpoint has the message, the next message waits for its outcome, for a second at most.
    SendResult send(const Bytes& message, Clock::time_point deadline);

    /// @return the next message, in the order of arrival; none if none arrives before the timeout. Unread
    /// messages wait. While `queueLength` of them wait and none is being sent, nothing is read from the bus.
    /// @throws BusLost if the bus is lost and all messages that had arrived are taken.
    std::optional<Message> receive(std::chrono::milliseconds timeout);

    /// Ends all messages that wait or are being sent as `cancelled`, and returns at once. The status handler
    /// may call it.
    void cancel();

    /// Opens the bus again and starts a fresh endpoint, whether the bus was lost or not. Messages that are
    /// waiting or being sent are cancelled; received ones stay. Blocks like the destructor. It has to return
    /// before the destructor is called.
    /// @throws VelkException if the bus cannot be reached; the bus is then lost.
    void reconnect();

    // For an event loop. None of these operations blocks.

    using Ticket = std::uint64_t;
    /// The outcome of a message that was passed to submit().
    struct Outcome {
        Ticket ticket = 0;
        SendResult result = SendResult::busLost;
    };
    struct StatusChange {
        Status status = CANTransportThread::CTT_CONNECTED;
        unsigned short value = 0;
    };
    /// The bus is lost; reported once.
    struct Loss {};
    using Event = std::variant<Message, Outcome, StatusChange, Loss>;

    /// @return a descriptor that is readable while next() has an event. It stays the same for the client's
    /// whole life. The client owns it: only wait for it, do not read it or close it.
    int descriptor();
    /// @return the next event: outcomes first, then status changes, messages, and at last the loss of the
    /// bus; none if there is no event. The last 64 status changes are kept, also
    /// those before the first call of descriptor().
    std::optional<Event> next();

    static constexpr std::size_t maxSubmitted = 1024;
    /// Sends like send(), but returns at once; next() returns the outcome.
    /// @return a number above 0 that its outcome will carry; none if `maxSubmitted` submitted messages have
    /// no outcome yet or one that was not taken.
    /// @throws VelkException for a message of another size than 1 to 4095 bytes.
    std::optional<Ticket> submit(Bytes message);
    std::optional<Ticket> submit(Bytes message, Clock::time_point deadline);

    /// All counts start at 0 in the constructor.
    struct Counters {
        std::uint64_t framesSent = 0;
        std::uint64_t framesReceived = 0; ///< From the peer.
        std::uint64_t framesIgnored = 0;  ///< With other CAN ids.
        std::uint64_t framesMissed = 0;   ///< Dropped by the kernel, if it reports them.
        std::uint64_t recordsUnusable = 0;
        std::uint64_t answersDropped = 0; ///< By the gate: they answered nothing that was sent.
        std::uint64_t framesDropped = 0; ///< By the gate, on the way to the bus: they were useless.
        std::uint64_t attempts = 0;      ///< To send a message, retries included.
        std::uint64_t messagesSent = 0;  ///< Acknowledged.
        std::uint64_t messagesFailed = 0;
        std::uint64_t messagesReceived = 0;
        std::uint64_t linesLeftOut = 0;         ///< Log lines.
        std::uint64_t statusChangesLeftOut = 0; ///< Not taken by next() in time.
    };
    Counters counters() const;

private:
    class Core;
    const std::unique_ptr<Core> core;
};
