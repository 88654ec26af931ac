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

/// An endpoint with its way to a bus: sends messages and says what became of them, and returns what the
/// peer sends.
///
/// It runs two threads, the endpoint's and one that moves frames; both have all signals blocked.
/// All operations may be called from any thread at any time, unless they say otherwise. It writes nothing
/// to the program's streams, and all its descriptors are close-on-exec and none is 0, 1 or 2.
///
/// A program waits in send() and receive(), or it has an event loop: then it waits for descriptor() beside
/// its own descriptors, takes what there is with next(), and sends with submit().
class VELK_EXPORT CANTransportClient {
public:
    using Bytes = std::vector<unsigned char>;
    using Clock = std::chrono::steady_clock;
    using Status = CANTransportThread::statuschange_t;

    struct Options {
        std::uint16_t sendId = 0; ///< CAN id of the frames that are sent, 0 to 0x7FF.
        std::uint32_t receiveId =
            0; ///< CAN id of the peer's frames, 0 to 0x7FF; others are ignored.
        /// As CANTransportThread::setDebugLevel() takes it. Without `log` it has no effect.
        int debugLevel = 0;
        /// Messages that wait to be received, beside those that were on their way when the queue became
        /// full, 64 KiB at most. 0: they are acknowledged and dropped.
        std::size_t queueLength = 1024;
        /// The longest time that a message without a deadline may take, from send() or submit() on.
        std::chrono::milliseconds patience{30000};
        /// How long frames of a message from the peer may gather before they are taken together; never its
        /// last ones, and nothing else. 0: each frame is taken when it arrives.
        std::chrono::microseconds gather{2000};
        /// Hears of each change once, also across a reconnect(): CTT_DISCONNECTED only when the peer was
        /// silent through all attempts. Called on the thread that moves frames, which waits meanwhile: it
        /// must not call send(), receive(), reconnect() or the destructor. What it throws is dropped.
        std::function<void(Status, unsigned short)> statusHandler{};
        /// Gets each log line with its level; without it there is silence. Error and information lines of
        /// one kind pass ten times a second; a later one is preceded by the number left out. Called on the two threads, at
        /// most on one at a time; the rules of the status handler hold. What it throws is dropped.
        LogUtil::Sink log{};
    };

    /// What became of a message.
    enum class SendResult {
        acknowledged, ///< The peer has delivered it to its client.
        noAnswer,     ///< No frame of the peer in five attempts, or the bus took none of them.
        refused,      ///< The peer has refused all attempts.
        expired,      ///< The deadline or the patience is over. The peer may have it.
        cancelled,    ///< By cancel() or reconnect(). The peer may have it.
        busLost,      ///< There is no way to the bus. The peer may have it.
    };

    struct Message {
        std::uint32_t canID = 0; ///< CAN id of the frames that brought it.
        Bytes bytes;
    };

    /// There is no way to the bus any more: the interface is down, or the socket or the command's stdout was
    /// closed.
    class VELK_EXPORT BusLost : public std::runtime_error {
    public:
        explicit BusLost(const std::string& bus);
        ~BusLost() override;
    };

    /// @param bus `can0`: a CAN interface. `unix:PATH`: a bus or a proxy behind a socket. `exec:COMMAND`: a
    /// shell command that takes trace messages on its stdin and writes them to its stdout; it runs in a
    /// process group of its own, cannot read from the terminal, and has the program's stderr.
    /// @throws VelkException if the bus cannot be reached within a second, or an id is above 0x7FF. A
    /// command that ends at once shows as BusLost.
    CANTransportClient(std::string bus, Options options);
    /// Ends all calls of send() and receive(), both threads and the command: if it does not end within a
    /// second its process group is terminated, and after another second killed. A message that is on its way
    /// is sent to its end before, for a second at most: its late answer could end another one. Waits for the status
    /// handler to return. From any thread except the handler's.
    ~CANTransportClient();
    CANTransportClient(const CANTransportClient&) = delete;
    CANTransportClient& operator=(const CANTransportClient&) = delete;

    /// Sends a message of 1 to 4095 bytes after those that wait, and returns when its outcome is known, at
    /// the latest when Options::patience is over. While `queueLength` received messages wait and nobody
    /// takes them, no further message is sent. A thread that is cancelled in it withdraws its message.
    /// @throws VelkException for a message of another size.
    SendResult send(const Bytes& message);
    /// The same with a deadline; one in the past sends nothing. A message that was already handed to the
    /// endpoint then is still sent to its end, for a second at most, before the next one.
    SendResult send(const Bytes& message, Clock::time_point deadline);

    /// @return the next message, in the order of arrival; none if none arrives before the timeout. Unread
    /// messages wait; while `queueLength` of them do, nothing is taken from the bus.
    /// @throws BusLost if the bus is lost and all messages that had arrived are taken.
    std::optional<Message> receive(std::chrono::milliseconds timeout);

    /// Ends all messages that are being sent as `cancelled`, and returns at once. The status handler may
    /// call it.
    void cancel();

    /// Opens the bus again and starts with a fresh endpoint, whether the bus was lost or not. Messages that
    /// wait to be sent are cancelled; received ones stay. Blocks like the destructor. It has to return
    /// before the destructor is called.
    /// @throws VelkException if the bus cannot be reached; it is lost then.
    void reconnect();

    // For an event loop. None of these operations blocks.

    using Ticket = std::uint64_t;
    /// What became of a message that was given to submit().
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

    /// A descriptor that is readable while next() has something. Owned by the client: it stays the same for
    /// its whole life, and is only to be waited for.
    int descriptor();
    /// @return what there is: outcomes first, then status changes, messages, and at last the loss of the
    /// bus; none if there is nothing. Status changes are kept from the first call of descriptor() on, the
    /// last 64 of them.
    std::optional<Event> next();

    static constexpr std::size_t maxSubmitted = 1024;
    /// Sends like send(), but returns at once; next() returns the outcome.
    /// @return a number above 0 that the outcome bears; none if `maxSubmitted` outcomes have not been
    /// taken yet.
    /// @throws VelkException for a message of another size than 1 to 4095 bytes.
    std::optional<Ticket> submit(Bytes message);
    std::optional<Ticket> submit(Bytes message, Clock::time_point deadline);

    /// What was counted since the constructor.
    struct Counters {
        std::uint64_t framesSent = 0;
        std::uint64_t framesReceived = 0; ///< From the peer.
        std::uint64_t framesIgnored = 0;  ///< From other CAN ids, or not of this format.
        std::uint64_t framesMissed = 0;   ///< That the kernel had no room for, where it says so.
        std::uint64_t recordsUnusable = 0;
        std::uint64_t answersDropped = 0; ///< By the gate: they answered nothing that was sent.
        std::uint64_t framesDropped = 0; ///< By the gate, on the way to the bus: they were useless.
        std::uint64_t attempts = 0;      ///< To send a message, retries included.
        std::uint64_t messagesSent = 0;  ///< Acknowledged.
        std::uint64_t messagesFailed = 0;
        std::uint64_t messagesReceived = 0;
        std::uint64_t linesLeftOut = 0;         ///< Of the log.
        std::uint64_t statusChangesLeftOut = 0; ///< That next() did not take in time.
    };
    Counters counters() const;

private:
    class Core;
    const std::unique_ptr<Core> core;
};
