#pragma once

#include "velk/Export.h"
#include "velk/Mutex.h"
#include "velk/Thread.h"
#include "velk/TraceMessage.h"
#include "velk/TraceMessageBuffer.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include <sys/time.h>

class DescriptorSet;

/// One endpoint of the transport: carries byte messages of 1 to 4095 bytes between its client and a
/// peer on a CAN bus, over classic frames of 8 data bytes, and acknowledges every message.
///
/// Calling order: the constructor; setConnection(), setSendCANid(), setDelegate() and
/// setDebugLevel() in any order; open(), once; Thread::start(). From then on the client writes
/// serialised trace messages to one descriptor, its own requests to send
/// (`CANTransportTraceMessage`) and the frames that come from the bus (`CANExtTraceMessage`), and
/// reads received messages (`CANTransportTraceMessage`) from the other. Frames for the bus go to
/// the descriptor of setConnection(), one `CANExtTraceMessage` and one write(2) each. At the end:
/// Thread::stop(), then the destructor.
///
/// The bus format has neither message numbers nor a checksum. Delivery is at least once: where an
/// acknowledgement is lost, the message comes twice. Where one comes twice or late, it can end a later
/// message than its own. Frames of any CAN id are taken for the peer's, so let only those through. A
/// message of several frames has 1 s from its first frame to its last, which nothing extends.
///
/// The log goes to std::cout and std::cerr, each line under LogUtil::logMutex; a client that prints
/// at the same time takes that mutex. Lines that a stalled stdout blocks block the endpoint.
///
/// The input descriptor has one writer at a time: a record of more than `PIPE_BUF` (4096) bytes is
/// no atomic write, so a client that writes from several threads serialises them.
///
/// A stop() that ends the thread while it waits for a client that does not read can leave the last
/// record on the output cut short, if that record is longer than `PIPE_BUF`. A client that means to
/// start() again after such a stop first reads what is there and drops an incomplete end.
class VELK_EXPORT CANTransportThread : public Thread {
public:
    /// What the delegate is told. In brackets: its second argument.
    enum statuschange_t : int {
        CTT_CONNECTED = 0,       ///< The peer has been heard, for the first time or again. (0)
        CTT_DISCONNECTED = 1,    ///< All messages were given up; the peer had been heard. (0)
        CTT_SEND_TIMEOUT = 2,    ///< All messages were given up; the peer had not been heard. (0)
        CTT_RECEIVE_TIMEOUT = 3, ///< A message that was being received has been dropped. (0)
        /// The peer has taken the oldest message. (Byte 1 of its first frame: the first byte of a
        /// message of up to 7 bytes, otherwise the low 8 bits of the message's length.)
        CTT_ACKNOWLEDGED = 4,
    };

    /// The flags of `state`.
    enum : int {
        RCTS_IDLE = 0,
        RCTS_SENDING = 1,     ///< The front message of the send queue is in progress.
        RCTS_RECEIVING = 2,   ///< A message of several frames is being received.
        RCTS_WAIT_FOR_FC = 4, ///< A flow-control frame is awaited.
    };

    /// The kind of a frame: the high nibble of its first data byte.
    enum : int {
        CTP_SINGLE_FRAME = 0,
        CTP_FIRST_FRAME = 1,
        CTP_CONSECUTIVE_FRAME = 2,
        CTP_FLOW_CONTROL = 3,
    };

    /// The code of a flow-control frame: the low nibble of its first data byte.
    enum : int {
        CTP_FC_NOT_READY_TO_RECEIVE = 0,
        CTP_FC_READY_TO_RECEIVE = 1,
        CTP_FC_NOT_ACKNOWLEDGE = 2,
        CTP_FC_ACKNOWLEDGE = 3,
    };

    static constexpr unsigned int MAX_MESSAGE_LENGTH = 4095; ///< Bytes.
    /// Retries behind the first transmission. A peer that is ready for the rest of a message gives
    /// all of them back.
    static constexpr int SEND_RETRY_LIMIT = 4;

    /// One classic CAN frame.
    struct TPCANMsg {
        std::uint32_t canID;
        std::uint8_t len; ///< Number of data bytes, 0 to 8.
        std::uint8_t data[8];
    };

    /// Creates no descriptor and no thread. @param level see setDebugLevel().
    explicit CANTransportThread(int level = 0);
    /// Closes the four pipe ends, also the two that the client was given, and drops all messages.
    /// Does not close the descriptor of setConnection(). The thread has to be stopped before: a
    /// running one is the client's error, asserted in debug builds.
    ~CANTransportThread() override;

    /// Sets the descriptor that frames are written to; 0 until then. Not owned. May be a pipe or a
    /// socket; if it blocks, a proxy that does not take its frames stops the endpoint. Before
    /// start() only.
    void setConnection(int descriptor);
    /// Sets the CAN id of every frame sent, 0 until then; its low 11 bits go to the bus. Before
    /// start() only.
    void setSendCANid(unsigned short canID);
    /// Keeps a copy of the function that hears of status changes; an empty one ends the reports.
    /// Before start() only.
    ///
    /// It is called on the transport thread with no lock held, and the endpoint stands still until
    /// it returns. It may call clear(), sendQueueEmpty() and setDebugLevel(), but neither stop() nor
    /// the destructor. What it throws is logged and goes no further.
    void setDelegate(std::function<void(statuschange_t, unsigned short)>& function);
    /// 0: information and errors only; 1: the flow of events; 2: also each received frame and each
    /// setting of the timer; 3: also the single steps of a wakeup. From any thread, at any time, from
    /// the delegate too; does not block.
    void setDebugLevel(int level);

    /// Creates the pipes and gives out the client's two ends, as getFileDescriptors() does. Once,
    /// before start().
    /// @throws VelkException if a descriptor cannot be had; the reason is in the log. The object can
    /// then only be destroyed, which frees what had been created. Also if it is open already.
    void open(int& readDescriptor, int& writeDescriptor);
    /// The end where the client reads received messages and the end where it writes requests and
    /// frames; -1 before open(). Both block, stay owned by the object and must not be closed by the
    /// client. From any thread once open() has returned.
    void getFileDescriptors(int& readDescriptor, int& writeDescriptor) const;

    /// Drops the messages that wait to be sent. With `includeCurrent` also the one under way, whose
    /// outcome then stays unknown: the peer may have it. Between two attempts no message is under way.
    /// Dropped messages are not reported; requests that the endpoint has not handled yet are not
    /// dropped. From any thread, from the delegate too. Blocks while a burst of frames goes out, so as
    /// long as a proxy does not take it.
    /// @throws std::bad_alloc while its log line is built, with the messages dropped.
    void clear(bool includeCurrent);
    /// True if no message is queued or under way and nothing waits in the input pipe, frames of the
    /// bus included. What the endpoint has read and not yet handled, at most 64 KiB, is not seen.
    /// False before open(). From any thread, from the delegate too. Blocks as clear() does.
    /// @throws std::bad_alloc
    bool sendQueueEmpty();

private:
    friend struct CANTransportThreadAccess; ///< The door of the tests.

    enum expectedframe_t : int { EXPECT_FIRST_OR_SINGLE = 0, EXPECT_CONSECUTIVE = 1 };
    using Frames = std::vector<TPCANMsg>;
    static const Frames::iterator MSGPART_INVALID;

    // src/thread: the loop, its timer, the boundary, the reports
    [[noreturn]] static void throwOpenError(const char* text, int error);
    void throwUnlessOpen() const;
    void threadCode() override;
    void wakeUp(DescriptorSet& input);
    bool idle();
    timeval* rest();
    int waitForInput(DescriptorSet& input, timeval* timeout);
    void setSelectTimeout(int seconds, int milliseconds);
    void checkInvariants();
    std::unique_ptr<MessageBase> getNextTraceMessage();
    void handleData();
    bool readTraceMessages();
    void handleTraceMessage(const MessageBase& message);
    void handleFramesAtHand();
    void report(const char* operation, statuschange_t status, unsigned short value);
    static std::string printState(int value);

    // src/reception: the one way in, the two ways out, reassembly, refusals
    void handleCANData(TPCANMsg& frame);
    void sendCANMessage(TPCANMsg& frame);
    void sendFlowControl(int code);
    void checkSingleFrame(TPCANMsg& frame);
    void checkFirstFrame(TPCANMsg& frame);
    void checkConsecutiveFrame(TPCANMsg& frame);
    void startReception(int length);
    struct ReceptionEnd;
    void addReceivedData(unsigned short canID, const unsigned char* bytes, unsigned int count);
    bool deliver(unsigned short canID);
    void showError(TPCANMsg& frame);
    void showErrorAndClearBuffer(TPCANMsg& frame);
    void refuseMessage();

    // src/sending: segmentation, the queue, retries, the peer's answers
    void prepareData(const unsigned char* bytes, unsigned int length);
    bool noMessage();
    void processSendQueue();
    struct Attempt;
    void failAtEndOfVector(const char* text);
    void handleTimeout();
    void handleSendError(bool resend);
    void disconnect();
    void reportOutage(statuschange_t status);
    void checkFlowControl(TPCANMsg& frame);
    void handleReady();
    void handleRefusal(int code);
    void handleAcknowledge();
    void logMessageHasGone();

    // The fields stand in this order; who may touch them while the thread runs is in brackets.
    std::unique_ptr<TraceMessageBuffer> traceBuffer;              // [transport thread]
    std::function<void(statuschange_t, unsigned short)> delegate; // [constant]
    int canProxyFD = 0;                                           // [constant]
    std::atomic<int> state{RCTS_IDLE}; // [transport thread; sending flags also clear(), locked]
    int inputPipe[2] = {-1, -1};       // [constant]
    int outputPipe[2] = {-1, -1};      // [constant]
    Mutex queueMutex;                  // taken before LogUtil::logMutex, never behind it
    expectedframe_t expectedFrame = EXPECT_FIRST_OR_SINGLE; // [transport thread]
    unsigned short sendCANid = 0;                           // [constant]
    int sequenceCounter = 0;                                // [transport thread]
    int sendRetry = 0;                                      // [transport thread]
    int remainingLength = 0;                                // [transport thread]
    timeval selectTimeout{};                                // [transport thread]
    timeval selectTimeoutLeft{};                            // [transport thread]
    bool connected = false;                                 // [transport thread]
    bool reportFailure = true;                              // [transport thread]
    std::atomic<int> debugLevel;                            // [any]
    std::deque<std::unique_ptr<Frames>> sendQueue;          // [queueMutex]
    std::vector<unsigned char> receiveBuffer;               // [transport thread]
    Frames::iterator msgPart = MSGPART_INVALID;             // [transport thread]
    /// A refusal has emptied the running reception: its bytes are counted, but not kept.
    bool receptionSpoiled = false; // [transport thread]
};

/// Writes the name of the status as it stands in the enumeration, "ERROR" for any other value.
VELK_EXPORT std::ostream& operator<<(std::ostream& stream,
                                     CANTransportThread::statuschange_t status);

/// Writes a blank, CAN id, length and data bytes in hexadecimal, without a newline.
VELK_EXPORT std::ostream& operator<<(std::ostream& stream,
                                     const CANTransportThread::TPCANMsg& frame);
