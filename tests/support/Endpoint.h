// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"
#include "velk/DescriptorSet.h"

#include <initializer_list>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

/// The door to what is private in an endpoint.
struct CANTransportThreadAccess {
    using TPCANMsg = CANTransportThread::TPCANMsg;
    /// All that an event can change.
    struct Snapshot {
        std::uint32_t ownId;
        int state;
        bool consecutive; ///< The receive phase.
        int sequence;
        int remaining;
        Bytes received;
        bool spoiled;
        std::size_t queued;
        std::vector<TPCANMsg> front; ///< Frames of the first message.
        std::vector<TPCANMsg> back;  ///< Of the last one.
        std::size_t position;        ///< Of msgPart in `front`, while sending.
        int retries;
        bool connected;
        bool reportFailure;
        long selectedUs; ///< The timer as it was set.
        long timerUs;    ///< What is left.
    };
    static Snapshot snapshot(CANTransportThread& e);
    static void setTimeLeft(CANTransportThread& e, long us)
    {
        e.selectTimeoutLeft = {us / 1000000, us % 1000000};
    }
    static long inUs(const timeval& time) { return time.tv_sec * 1000000 + time.tv_usec; }
    static void checkInvariants(CANTransportThread& e) { e.checkInvariants(); }
    static int state(const CANTransportThread& e) { return e.state; }
    static long timerUs(const CANTransportThread& e) { return inUs(e.selectTimeoutLeft); }
    static int (&input(CANTransportThread& e))[2] { return e.inputPipe; }
    static int (&output(CANTransportThread& e))[2] { return e.outputPipe; }
    /// What a clear() does that comes after `before`, which has the queue locked.
    static void clearAfter(CANTransportThread& e, const std::function<void()>& before)
    {
        const MutexLock lock(e.queueMutex);
        before();
        e.sendQueue.clear();
        e.state &= ~(CANTransportThread::RCTS_SENDING | CANTransportThread::RCTS_WAIT_FOR_FC);
    }
    static std::string printState(int value) { return CANTransportThread::printState(value); }
    static void handleData(CANTransportThread& e) { e.handleData(); }
    static void handle(CANTransportThread& e, TPCANMsg frame) { e.handleCANData(frame); }
    /// One pass of the loop, which waits as long as it has to.
    static void pass(CANTransportThread& e)
    {
        DescriptorSet input(e.inputPipe[0]);
        e.pass(input);
    }
    /// A pass whose time is over.
    static void expire(CANTransportThread& e)
    {
        if (e.idle()) { // a clear() came while the loop waited
            e.selectTimeoutLeft = e.selectTimeout;
            e.handleTimeout();
        } else {
            setTimeLeft(e, 0);
            pass(e);
        }
    }
    /// The part of a pass before the wait, up to the choice of the timeout.
    static bool restIfIdle(CANTransportThread& e)
    {
        const bool idle = e.idle();
        if (idle) {
            e.stopTimer();
            e.endReceptionWithoutTimer();
        }
        return idle;
    }
};

using Access = CANTransportThreadAccess;

/// An endpoint driven by hand: no thread runs, the handlers are called one by one, and what leaves
/// is taken from the pipes.
class Endpoint : public CANTransportThread {
public:
    static constexpr unsigned short ownId = 0x123;
    static constexpr std::uint32_t peerId = 0x456;

    explicit Endpoint(int level = 0);
    ~Endpoint() override;

    /// A frame from the bus; data bytes that are not given are 0.
    void frame(std::initializer_list<std::uint8_t> data, std::uint32_t canID = peerId);
    void flowControl(int code) { frame({static_cast<std::uint8_t>(0x30 | code)}); }
    /// A request of the client, taken from the pipe at once.
    void request(const Bytes& message);
    /// Bytes into the input pipe; they wait there until takeInput().
    void write(const Bytes& bytes) const;
    void takeInput() { Access::handleData(*this); }
    void expire() { Access::expire(*this); }

    /// The frames that have left since the last call.
    std::vector<TPCANMsg> sentFrames();
    /// The same as their data bytes in hexadecimal.
    Lines sent();
    /// The messages that the client has got since the last call.
    std::vector<Bytes> delivered();
    std::uint32_t lastDeliveredId = 0;
    /// The status changes since the last call: "CTT_ACKNOWLEDGED 65".
    Lines statuses();
    int stateAtStatus = -1;  ///< `state` while the delegate heard the last one.
    long timerAtStatus = -1; ///< What was left of the timer.

    void breakProxy(bool full); ///< Full and non-blocking, or gone.
    void mendProxy() { setConnection(proxyPipe[1]); }
    void breakClient(); ///< No message can be delivered.
    void mendClient();

    int inputEnd = -1;  ///< Where the client and the bus write.
    int outputEnd = -1; ///< Where the client reads; here without waiting.
    int proxyPipe[2] = {-1, -1};

private:
    int savedOutput = -1;
    std::unique_ptr<TraceMessageBuffer> proxy;
    std::unique_ptr<TraceMessageBuffer> client;
    Lines heard;
};

Bytes bytesOf(const MessageBase& message);
Bytes recordOf(const CANTransportThread::TPCANMsg& frame);
/// `size` bytes that tell their place.
Bytes pattern(std::size_t size);
/// The frames that carry the message, as an endpoint cuts it.
std::vector<CANTransportThread::TPCANMsg> cut(const Bytes& message);
std::string hex(const CANTransportThread::TPCANMsg& frame);
/// A flow-control frame as sent() gives it.
std::string fc(int code);
/// In "/proc/self/fd" as many as the process has descriptors.
std::ptrdiff_t countEntries(const char* folder);
