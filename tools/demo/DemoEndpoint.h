#pragma once

#include "bus/VirtualBus.h"

#include "velk/CANTransportThread.h"
#include "velk/TraceMessageBuffer.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// An endpoint of the transport on the bus, with the client's side of its pipes. For one thread.
class DemoEndpoint {
public:
    using Status = CANTransportThread::statuschange_t;
    using Bytes = std::vector<unsigned char>;

    /// @param wake is notified of each status change. @param sendId CAN id of the frames that the
    /// endpoint sends; it hears those with `hearId`.
    DemoEndpoint(VirtualBus& virtualBus, const WakeUp& wake, std::string endpointName,
                 std::uint16_t sendId, std::uint16_t hearId, int debugLevel);
    ~DemoEndpoint();
    DemoEndpoint(const DemoEndpoint&) = delete;
    DemoEndpoint& operator=(const DemoEndpoint&) = delete;

    void start() { transport.start(); }
    void stop() { transport.stop(); }

    const std::string& name() const { return ownName; }

    void send(const Bytes& message);
    /// Nothing is under way: what was sent has been acknowledged or given up, or is just being taken
    /// in. @param counters of the node.
    bool seemsIdle(const NodeCounters& counters);
    std::size_t node() const { return attachment.node; }

    /// Readable while receive() has something.
    int receiveDescriptor() const { return output; }
    /// The messages that have arrived. Blocks if the descriptor is not readable.
    std::vector<Bytes> receive();

    /// The status changes since the last call.
    std::vector<Status> takeStatusChanges();

private:
    VirtualBus& bus;
    const std::string ownName;
    std::mutex mutex;
    std::vector<Status> statusChanges; // [mutex]
    CANTransportThread transport;
    int output = -1;
    int input = -1;
    VirtualBus::Attachment attachment{};
    std::optional<TraceMessageBuffer> received;
    std::uint64_t requests = 0;
};
