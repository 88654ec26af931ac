// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Descriptor.h"
#include "velk/TraceMessageBuffer.h"
#include "velk/TraceRecord.h"

#include "Link.h"

/// A connected Unix socket that carries trace messages.
class SocketLink : public Link {
public:
    int descriptor() const override { return socket.get(); }
    /// A Unix socket takes such a small record completely or not at all.
    Sent send(const Frame& frame) override;

protected:
    SocketLink(Descriptor connected, Tally& counters);

    /// Appends the frame in the record to `frames`; counts a record without a usable frame.
    void add(const TraceRecord::View& record, std::vector<Frame>& frames) const;
    void countUnusable() const;
    bool hasEnded() const;

    const Descriptor socket;

private:
    Tally& tally;
};

/// The socket of a bus: each packet is one record.
class PacketLink : public SocketLink {
public:
    PacketLink(Descriptor connected, Tally& counters) : SocketLink(std::move(connected), counters)
    {
    }

    bool receive(std::vector<Frame>& frames, std::size_t most) override;
};

/// The socket of a proxy.
class StreamLink : public SocketLink {
public:
    StreamLink(Descriptor connected, Tally& counters)
        : SocketLink(std::move(connected), counters),
          records(socket.get(), nullptr)
    {
    }

    bool receive(std::vector<Frame>& frames, std::size_t most) override;

private:
    void parse(std::vector<Frame>& frames);

    TraceMessageBuffer records;
};

/// @return a link to the bus or the proxy whose socket is at `path`.
/// @throws VelkException if there is no socket, or if it does not accept within a second.
std::unique_ptr<Link> connectTo(const std::string& path, Tally& tally);
