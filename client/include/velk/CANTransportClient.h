#pragma once

#include "velk/CANTransportThread.h"
#include "velk/Export.h"
#include "velk/VelkException.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

class ClientEngine;

/// An endpoint with its way to a bus: sends messages and tells what became of them, and gives out
/// what the peer sends.
///
/// Two threads run behind it, the endpoint's and one that moves records; both have SIGPIPE blocked.
/// All operations may be called from any thread at any time, unless they say otherwise, and the
/// destructor from any but the endpoint's own.
class VELK_EXPORT CANTransportClient {
public:
    using Bytes = std::vector<unsigned char>;
    using Clock = std::chrono::steady_clock;
    using Status = CANTransportThread::statuschange_t;

    struct Options {
        std::uint16_t sendId = 0;    ///< Of the frames that are sent, 0 to 0x7FF.
        std::uint32_t receiveId = 0; ///< Of the peer's, 0 to 0x7FF; others are left out.
        /// As CANTransportThread::setDebugLevel() takes it. Even with 0 the endpoint tells status
        /// changes on std::cout and errors on std::cerr.
        int debugLevel = 0;
        /// Messages that wait for receive(). 0: they are acknowledged and dropped.
        std::size_t queueLength = 1024;
        /// Hears of each change once, also across a reconnect(). Called on the endpoint's thread,
        /// which stands still meanwhile: it must neither wait nor call send(), receive(),
        /// reconnect() or the destructor.
        std::function<void(Status, unsigned short)> statusHandler{};
    };

    enum class SendResult {
        /// The peer has taken the message, and its client has got it; unless the acknowledgement was
        /// a late one for a message that had been given up: it does not tell for which one it is.
        acknowledged,
        givenUp, ///< It may have arrived all the same: where the acknowledgement was lost.
    };

    struct Message {
        std::uint32_t canID = 0; ///< Of the frames that brought it.
        Bytes bytes;
    };

    /// There is no way to the bus any more: its process has ended, or its socket was closed.
    class VELK_EXPORT BusLost : public std::runtime_error {
    public:
        explicit BusLost(const std::string& bus);
        ~BusLost() override;
    };

    /// @param bus `can0`: an interface, through a `velkcan-proxy` that is found beside the program or
    /// in the path and runs as long as the client does. `unix:PATH`: a bus or a proxy behind a socket.
    /// `exec:COMMAND`: a shell command that takes trace messages on its stdin and writes them to its
    /// stdout.
    /// @throws VelkException if the bus cannot be reached, or an id is beyond 0x7FF. That a spawned
    /// process ends at once, as for want of the interface, shows as BusLost.
    CANTransportClient(std::string bus, Options options);
    /// Ends what waits in send() and receive(), both threads and the spawned process: one that does not
    /// end within a second is terminated, and after another second killed. Waits for the status
    /// handler to return.
    ~CANTransportClient();
    CANTransportClient(const CANTransportClient&) = delete;
    CANTransportClient& operator=(const CANTransportClient&) = delete;

    /// Sends a message of 1 to 4095 bytes behind those that wait, and returns when the peer has
    /// acknowledged it or it has been given up: after five attempts, a cancel(), or the loss of the
    /// bus. A peer that answers and never acknowledges can hold it up without end, and so can this
    /// side, while `queueLength` messages of the peer wait and nobody calls receive().
    /// @throws VelkException for a message of another size.
    SendResult send(const Bytes& message);
    /// Gives the message up at the deadline. If it was on its way then, a reception in progress is
    /// lost with it, and the peer has to send again.
    SendResult send(const Bytes& message, Clock::time_point deadline);

    /// The next message, in the order of arrival; none if none has come before the timeout. Unread
    /// messages wait; when `queueLength` of them do, the endpoint is held up and nothing is lost.
    /// @throws BusLost if the bus is lost and all messages that had come are given out.
    std::optional<Message> receive(std::chrono::milliseconds timeout);

    /// Gives up all messages that are being sent, and returns at once. A reception in progress is lost
    /// with one that was on its way. The status handler may call it.
    void cancel();

    /// Opens the bus again and starts with a fresh endpoint, whether the bus was lost or not. What waits
    /// to be sent is given up; messages that have come stay. Blocks like the destructor.
    /// Has to return before the destructor is called.
    /// @throws VelkException if the bus cannot be reached; it is lost then.
    void reconnect();

private:
    const std::unique_ptr<ClientEngine> engine;
};
