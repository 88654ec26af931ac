// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"
#include "velk/Descriptor.h"
#include "velk/Export.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <linux/can.h>

/// Classic data frames to and from one CAN interface. Never blocks. One thread at a time may use it.
class VELK_EXPORT CANSocket {
public:
    enum class Result {
        done,
        wouldBlock, ///< No frame waits, or the socket's buffer is full: wait with poll(2).
        /// The queue of the interface is full. poll(2) does not show this: it reports the socket as writable.
        /// Try again after a pause.
        queueFull,
        down,  ///< The interface is down or gone.
        failed ///< Anything else: see error().
    };

    /// How many frames the kernel holds for the interface before send() returns wouldBlock.
    enum class SendBuffer {
        small,   ///< About 12.
        standard ///< As the system has set it.
    };

    /// @param accepted filters as CAN_RAW_FILTER takes them; none: all data frames.
    /// @throws VelkException if there is no such CAN interface; `code` is the errno value.
    CANSocket(std::string interfaceName, const std::vector<can_filter>& accepted,
              SendBuffer sendBuffer = SendBuffer::standard);
    ~CANSocket();
    CANSocket(const CANSocket&) = delete;
    CANSocket& operator=(const CANSocket&) = delete;

    using Frame = CANTransportThread::TPCANMsg;
    /// Conversions between the frames of the kernel and those of the endpoint and the gate.
    static can_frame toKernel(const Frame& frame)
    {
        can_frame out{};
        out.can_id = frame.canID;
        out.can_dlc = std::min<std::uint8_t>(frame.len, CAN_MAX_DLEN);
        std::copy_n(frame.data, out.can_dlc, out.data);
        return out;
    }
    static Frame fromKernel(const can_frame& frame)
    {
        Frame in{frame.can_id, std::min<std::uint8_t>(frame.can_dlc, CAN_MAX_DLEN), {}};
        std::copy_n(frame.data, in.len, in.data);
        return in;
    }

    int descriptor() const { return socket.get(); }
    const std::string& name() const { return interface; }
    Result send(const can_frame& frame);
    /// Sends frames in their order, with few calls. @param sent becomes the number of frames that were sent.
    /// @return done if all were sent, otherwise why the next one was not.
    Result send(const can_frame* frames, std::size_t count, std::size_t& sent);
    /// Appends the waiting frames, at most `most` of them.
    /// @return done if `most` frames were read, otherwise why there were fewer.
    Result receive(std::vector<can_frame>& frames, std::size_t most);
    /// @return the errno value of the last call that returned `down` or `failed`.
    int error() const { return lastError; }
    /// @return how many frames the kernel had no room for. It reports them with later frames only.
    std::uint64_t missed() const { return drops; }

private:
    void setBuffers(SendBuffer sendBuffer) const;
    void bindToInterface() const;
    Result resultOf(int errorNumber);
    struct Batch;

    const std::string interface;
    Descriptor socket;
    std::uint32_t drops = 0;
    int lastError = 0;
};
