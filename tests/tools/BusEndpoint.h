#pragma once

#include "bus/VirtualBus.h"

#include "velk/TraceMessageBuffer.h"
#include "velk/VelkException.h"

#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

/// Stands for an endpoint on a bus: an input pipe that the test reads, and frames that it sends.
class BusEndpoint {
public:
    explicit BusEndpoint(VirtualBus& bus, AcceptanceFilter filter = {})
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) == -1) {
            throw std::runtime_error("no pipe");
        }
        readEnd = Descriptor(ends[0]);
        writeEnd = Descriptor(ends[1]);
        buffer = std::make_unique<TraceMessageBuffer>(readEnd.get(), nullptr);
        attachment = bus.attach(writeEnd.get(), filter);
    }

    std::size_t node() const { return attachment.node; }

    /// Makes the pipe as small as it can be: 4096 bytes.
    void shrinkPipe() { fcntl(writeEnd.get(), F_SETPIPE_SZ, 4096); }
    void disappear()
    {
        readEnd.reset();
        writeEnd.reset();
    }

    void send(std::uint32_t canID, std::uint8_t first, std::uint8_t second = 0) const
    {
        std::vector<unsigned char> record;
        serialise({canID, 8, {first, second}}, record);
        sendBytes(record);
    }
    void sendBytes(const std::vector<unsigned char>& bytes) const
    {
        if (write(attachment.proxyDescriptor, bytes.data(), bytes.size()) == -1) {
            throw std::runtime_error("the bus takes no frame");
        }
    }

    /// Waits for the next record.
    std::unique_ptr<MessageBase> receive()
    {
        for (;;) {
            if (auto message = buffer->getNextMessage()) {
                return message;
            }
            buffer->read();
        }
    }
    /// Waits for that many frames.
    std::vector<CANFrame> receiveFrames(std::size_t count)
    {
        std::vector<CANFrame> frames;
        while (frames.size() < count) {
            frames.push_back(frameOf(*receive()).value());
        }
        return frames;
    }

private:
    Descriptor readEnd;
    Descriptor writeEnd;
    std::unique_ptr<TraceMessageBuffer> buffer;
    VirtualBus::Attachment attachment{};
};
