#pragma once

#include "velk/CANTransportClient.h"
#include "velk/TraceMessageBuffer.h"

#include "LogLimiter.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

/// An endpoint with its thread and its pipes, for the mover. Frames and requests go in. Frames for the bus
/// and status changes come out in their order; received messages come out on a pipe of their own. Blocks
/// only in the destructor and in settle(). For the mover's thread alone.
class EndpointPort {
public:
    using Bytes = CANTransportClient::Bytes;
    using Frame = CANTransportThread::TPCANMsg;
    using StatusChange = CANTransportClient::StatusChange;

    /// @throws VelkException if a descriptor or the thread is unavailable.
    EndpointPort(const CANTransportClient::Options& options, LogLimiter& log);
    /// Ends the endpoint's thread.
    ~EndpointPort();
    EndpointPort(const EndpointPort&) = delete;
    EndpointPort& operator=(const EndpointPort&) = delete;

    void addFrame(const Frame& frame);
    void addRequest(const Bytes& message);
    /// Writes as much of what was added as the endpoint's pipe takes.
    void feed();
    /// @return whether something was added that the endpoint has not taken.
    bool isBehind() const { return used < pending.size(); }
    int inputDescriptor() const { return input; }

    using Output = std::variant<Frame, StatusChange>;
    /// Reads what the endpoint has written; takeOutput() returns it one by one.
    void readOutput() { outputs.read(); }
    std::optional<Output> takeOutput();
    int outputDescriptor() const { return outputPipe.ends[0]; }

    /// @return whether takeOutput() may have something after a further readOutput().
    bool hasUnreadOutput() const;

    void readMessages() { messages.read(); }
    std::optional<CANTransportClient::Message> takeMessage();
    int messageDescriptor() const { return messageEnd; }
    /// @return whether takeMessage() may have something after a further readMessages().
    bool hasUnreadMessages() const;

    /// Waits until the endpoint has handled all input, for half a second at most: a full pipe may block it.
    void settle();

private:
    struct Pipe {
        Pipe();
        ~Pipe();
        Pipe(const Pipe&) = delete;
        Pipe& operator=(const Pipe&) = delete;
        int ends[2] = {-1, -1};
    };

    int openEndpoint(LogLimiter& log);
    void onStatus(CANTransportThread::statuschange_t status, unsigned short value) const;
    void waitUntilRead(int& leftMs) const;

    Pipe outputPipe; ///< Frames for the bus, and status changes as records with their own id.
    CANTransportThread endpoint;
    int input = -1; ///< Owned by the endpoint, like messageEnd.
    int messageEnd = -1;
    TraceMessageBuffer outputs;
    TraceMessageBuffer messages;
    Bytes pending; ///< Whole records; those before `used` are in the endpoint's pipe.
    std::size_t used = 0;
};
