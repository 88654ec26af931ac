// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"
#include "velk/DescriptorSet.h"

#include "common/Records.h"

#include <algorithm>

/// Access to the passes of the loop.
struct CANTransportThreadAccess {
    static int inputOf(const CANTransportThread& endpoint) { return endpoint.inputPipe[0]; }
    static void pass(CANTransportThread& endpoint, DescriptorSet& input) { endpoint.pass(input); }
    static void rest(CANTransportThread& endpoint)
    {
        endpoint.stopTimer();
        endpoint.endReceptionWithoutTimer();
    }
};

/// An endpoint whose loop runs on the calling thread, one pass for each input. Its cost can be counted and
/// repeats exactly.
class HandDriven : public CANTransportThread {
public:
    HandDriven() : input(openPipes()) { setConnection(proxy.ends[1]); }

    /// Sends a message: passes for the request, the ready answer and the acknowledgement. `burst` runs the
    /// pass after the ready answer; its frames are read afterwards.
    template <typename Burst> void send(const Records::Bytes& request, Burst burst)
    {
        const std::size_t count = Records::frameCount(request.size() - Records::messageHeader);
        Records::put(requests, request);
        pass();
        Records::take(proxy.ends[0], Records::frameSize);
        Records::put(requests, Records::ready);
        burst();
        Records::take(proxy.ends[0], (count - 1) * Records::frameSize);
        Records::put(requests, Records::acknowledge);
        pass();
    }
    void send(const Records::Bytes& request)
    {
        send(request, [this] { pass(); });
    }

    /// Receives all frames of a message of `size` bytes, `together` of them at a time.
    void receive(const Records::Bytes& frames, std::size_t size, std::size_t together = SIZE_MAX)
    {
        const std::size_t portion = std::min(frames.size(), together) * Records::frameSize;
        for (std::size_t at = 0; at < frames.size(); at += portion) {
            Records::put(requests, &frames[at], std::min(portion, frames.size() - at));
            pass();
        }
        Records::take(proxy.ends[0], 2 * Records::frameSize); // ready and acknowledge
        Records::take(messages, Records::messageHeader + size);
    }

    void pass() { CANTransportThreadAccess::pass(*this, input); }
    void rest() { CANTransportThreadAccess::rest(*this); }

private:
    int openPipes()
    {
        open(messages, requests);
        return CANTransportThreadAccess::inputOf(*this);
    }

    int messages = -1;
    int requests = -1;
    Records::Pipe proxy;
    DescriptorSet input;
};
