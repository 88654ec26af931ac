#pragma once

#include "bus/Descriptor.h"
#include "bus/Frame.h"

#include "velk/TraceMessageBuffer.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

/// Which frames reach a node: those whose id agrees with `id` in all bits of `mask`.
struct AcceptanceFilter {
    std::uint32_t id = 0;
    std::uint32_t mask = 0; ///< 0 accepts every frame.

    bool accepts(std::uint32_t canID) const { return (canID & mask) == (id & mask); }
};

/// What has become of the frames and requests for one node.
struct NodeCounters {
    std::uint64_t delivered = 0;     ///< Frames that the endpoint's pipe has taken.
    std::uint64_t overflowDrops = 0; ///< Frames that came while the node's queue was full.
    std::uint64_t requests = 0;      ///< Requests of the client that the pipe has taken.
    bool silent = false;             ///< The endpoint has gone; nothing reaches it any more.
};

/// One endpoint as the bus sees it: the pipe with its frames, and the queue in front of its input.
/// For one thread at a time.
class BusNode {
public:
    /// @param inputDescriptor write end of the endpoint's input pipe; opened anew, so that it can
    /// be written to without blocking while the client's own descriptor still blocks.
    /// @throws VelkException if it cannot be opened, or no pipe can be had.
    BusNode(int inputDescriptor, AcceptanceFilter acceptance, std::size_t queueLength);

    /// Where the endpoint writes its frames to; closed with the node.
    int proxyDescriptor() const { return proxy.writeEnd.get(); }

    /// The descriptor to wait on until the endpoint has sent something; -1 while what it has sent
    /// is not used up.
    int readableSource() const { return exhausted ? proxy.readEnd.get() : -1; }
    /// Takes in what the endpoint has sent.
    void read();
    /// The endpoint's next frame, in its order. Counts in `unreadable` what is no classic frame.
    std::optional<CANFrame> nextFrame(std::uint64_t& unreadable);

    bool accepts(std::uint32_t canID) const { return filter.accepts(canID); }
    /// Queues a frame's record. False, and counted, if there is no room, not even after a flush().
    bool deliver(const std::vector<unsigned char>& record);
    /// Queues a client's record behind what is there; always finds room.
    void request(const std::vector<unsigned char>& record);
    /// The descriptor to wait on until the endpoint takes more; -1 if nothing waits for it.
    int writableTarget() const { return bytes.empty() ? -1 : input.get(); }
    /// Writes as much of the queue as the pipe takes.
    void flush();

    const NodeCounters& counters() const { return counts; }

private:
    struct Pipe {
        Pipe();
        Descriptor readEnd;
        Descriptor writeEnd;
    };
    struct Record {
        std::size_t left; ///< Bytes not yet written.
        bool isFrame;
    };

    void enqueue(const std::vector<unsigned char>& record, bool isFrame);
    void accountFor(std::size_t written);
    void fallSilent();

    const AcceptanceFilter filter;
    const std::size_t frameLimit;
    Pipe proxy;
    Descriptor input;
    TraceMessageBuffer source;
    bool exhausted = true;
    std::vector<unsigned char> bytes; ///< Of the records, what is not yet written.
    std::deque<Record> records;
    std::size_t queuedFrames = 0;
    NodeCounters counts;
};
