// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportFrame.h"
#include "velk/Export.h"
#include "velk/LogUtil.h"
#include "velk/Mutex.h"
#include "velk/Thread.h"
#include "velk/ThreadSafety.h"
#include "velk/TraceMessage.h"
#include "velk/TraceMessageBuffer.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include <sys/time.h>

class DescriptorSet;
class LogLine;

/// One endpoint of the transport: carries byte messages of 1 to 4095 bytes between its client and a
/// peer on a CAN bus, over classic frames of 8 data bytes, and acknowledges every message.
///
/// Calling order: the constructor; setConnection(), setSendCANid(), setDelegate() and setDebugLevel() in
/// any order; open(), once; Thread::start(). From then on the client writes serialised trace messages to
/// one descriptor: its requests to send (`CANTransportTraceMessage`) and the frames from the bus
/// (`CANExtTraceMessage`). It reads received messages (`CANTransportTraceMessage`) from the other. Frames
/// for the bus go to the descriptor of setConnection(), each as one `CANExtTraceMessage` in one write(2).
/// At the end: Thread::stop(), then the destructor.
///
/// The bus format has neither message numbers nor a checksum. Delivery is at least once: if an
/// acknowledgement is lost, the message arrives twice. An acknowledgement that arrives late or twice can
/// end a later message than its own. Frames of any CAN id count as the peer's, so pass only the peer's.
///
/// One timer serves both directions. A message of several frames must arrive within 1 s of the endpoint's
/// ready answer to its first frame. Sending an own message in that time changes the timer: to 1 s with its
/// burst and with each retry, to 10 ms with its acknowledgement.
///
/// The log goes to std::cout and std::cerr, or to the function of setLogSink(). Each line for the streams is
/// written under LogUtil::logMutex, except for the bytes of an unknown record; a client that prints at the
/// same time takes that mutex. The settings of the two streams do not change the lines. A line that cannot
/// be written is lost; a stream that is not good() gets none. A stdout that blocks blocks the endpoint.
///
/// Only one thread at a time may write to the input descriptor: a record of more than `PIPE_BUF` (4096)
/// bytes is not written atomically. The delegate must not write to it: it runs on the only thread that reads
/// the pipe, and a full pipe would block the endpoint and stop() forever. Let the delegate wake another
/// thread, and write there. The endpoint skips a request whose record announces more than 1 MiB, with one
/// line in the log.
///
/// If stop() ends the thread while it waits for a client that does not read, the last record on the output
/// can stay incomplete, if it is longer than `PIPE_BUF`. Before the next start(), the client has to read all
/// output and drop an incomplete end.
class VELK_EXPORT CANTransportThread : public Thread {
public:
    /// Status changes that the delegate receives. In brackets: its second argument.
    enum statuschange_t : int {
        CTT_CONNECTED = 0,       ///< The peer has been heard, for the first time or again. (0)
        CTT_DISCONNECTED = 1,    ///< All messages were given up; the peer had been heard. (0)
        CTT_SEND_TIMEOUT = 2,    ///< All messages were given up; the peer had not been heard. (0)
        CTT_RECEIVE_TIMEOUT = 3, ///< A reception has ended without its last frame. (0)
        /// The peer has taken the oldest message. (Byte 1 of its first frame: the first byte of a
        /// message of up to 7 bytes, otherwise the low 8 bits of the message's length.)
        CTT_ACKNOWLEDGED = 4,
    };

    /// The flags of `state`.
    enum : int {
        RCTS_IDLE = 0,
        RCTS_SENDING = 1,     ///< The front message of the send queue is in progress.
        RCTS_RECEIVING = 2,   ///< A message of several frames is being received.
        RCTS_WAIT_FOR_FC = 4, ///< The sender waits for a flow-control frame.
    };

    // The grammar of frames, under the names of this class.
    using framekind_t = CANTransportFrame::framekind_t;
    static constexpr framekind_t CTP_SINGLE_FRAME = CANTransportFrame::CTP_SINGLE_FRAME;
    static constexpr framekind_t CTP_FIRST_FRAME = CANTransportFrame::CTP_FIRST_FRAME;
    static constexpr framekind_t CTP_CONSECUTIVE_FRAME = CANTransportFrame::CTP_CONSECUTIVE_FRAME;
    static constexpr framekind_t CTP_FLOW_CONTROL = CANTransportFrame::CTP_FLOW_CONTROL;
    using flowcontrol_t = CANTransportFrame::flowcontrol_t;
    static constexpr flowcontrol_t CTP_FC_NOT_READY_TO_RECEIVE =
        CANTransportFrame::CTP_FC_NOT_READY_TO_RECEIVE;
    static constexpr flowcontrol_t CTP_FC_READY_TO_RECEIVE =
        CANTransportFrame::CTP_FC_READY_TO_RECEIVE;
    static constexpr flowcontrol_t CTP_FC_NOT_ACKNOWLEDGE =
        CANTransportFrame::CTP_FC_NOT_ACKNOWLEDGE;
    static constexpr flowcontrol_t CTP_FC_ACKNOWLEDGE = CANTransportFrame::CTP_FC_ACKNOWLEDGE;

    static constexpr unsigned int MAX_MESSAGE_LENGTH =
        CANTransportFrame::maxMessageLength; ///< Bytes.
    /// Retries after the first attempt. A ready answer resets the count.
    static constexpr int SEND_RETRY_LIMIT = 4;

    /// One classic CAN frame.
    struct TPCANMsg {
        std::uint32_t canID;
        std::uint8_t len; ///< Number of data bytes, 0 to 8.
        std::uint8_t data[8];
    };

    /// Creates no descriptor and no thread. @param level see setDebugLevel().
    explicit CANTransportThread(int level = 0);
    /// Closes the four pipe ends, also the two that the client uses, and drops all messages. Does not
    /// close the descriptor of setConnection(). Call stop() before: destroying a running object is the
    /// client's error, asserted in debug builds.
    ~CANTransportThread() override;

    /// Sets the descriptor that frames are written to; 0 until then. Not owned. May be a pipe or a
    /// socket; if it blocks, a proxy that does not read its frames stops the endpoint. Before start()
    /// only.
    void setConnection(int descriptor);
    /// Sets the CAN id of every frame sent, 0 until then; its low 11 bits go to the bus. Before
    /// start() only.
    void setSendCANid(unsigned short canID);
    /// Copies the function that is called at each status change; an empty one disables the reports. Before
    /// start() only.
    ///
    /// It is called on the transport thread with no lock held, and the endpoint waits until it returns.
    /// It may call clear(), sendQueueEmpty() and setDebugLevel(). It must not call stop() or the
    /// destructor, nor write to the input descriptor. An exception from it is logged and ignored.
    void setDelegate(std::function<void(statuschange_t, unsigned short)>& function);
    /// 0: information and errors only; 1: the flow of events; 2: also each received frame and each
    /// setting of the timer; 3: also the single steps of a wakeup. From any thread, at any time, also from
    /// the delegate; does not block.
    void setDebugLevel(int level);

    /// Sends all log lines of this object to a function instead of the two streams; an empty one restores
    /// the streams. Before open() and start() only.
    ///
    /// It is called on the transport thread and on threads in clear(), open() and the destructor, possibly
    /// at the same time, and with a lock of the endpoint held: it must not call the endpoint, nor make the
    /// thread cancellable (CancellableScope). The endpoint waits until it returns. An exception from it is
    /// dropped.
    void setLogSink(LogUtil::Sink function);

    /// Creates the pipes and returns the client's two ends, as getFileDescriptors() does. Once, before
    /// start(). All four ends are close-on-exec, and none is descriptor 0, 1 or 2.
    /// @throws VelkException if a pipe cannot be created; the reason is in the log. The object can then
    /// only be destroyed, which closes what was created. A second call throws too, and changes nothing.
    void open(int& readDescriptor, int& writeDescriptor);
    /// Returns the end where the client reads received messages and the end where it writes requests and
    /// frames; -1 before open(). Both block, stay owned by the object and must not be closed by the
    /// client: if the write end is closed, the endpoint logs one line and takes no more input. From any
    /// thread once open() has returned.
    void getFileDescriptors(int& readDescriptor, int& writeDescriptor) const;

    /// Drops the messages that wait to be sent. With `includeCurrent` also the one in progress, whose
    /// outcome then stays unknown: the peer may have it. Between two attempts no message is in progress.
    /// Dropped messages are not reported. Requests that the endpoint has not handled yet are not dropped.
    /// From any thread, also from the delegate. Blocks while frames of a message are written, possibly
    /// until the proxy reads them.
    /// @throws std::bad_alloc from its log line, after the messages were dropped.
    void clear(bool includeCurrent);
    /// @return true if no message is queued or in progress and the input pipe holds no bytes, neither
    /// requests nor frames. Bytes that the endpoint has read and not yet handled, at most 64 KiB and an
    /// incomplete record, are not seen. False before open().
    ///
    /// From any thread, also from the delegate. Blocks as clear() does.
    /// @throws std::bad_alloc
    bool sendQueueEmpty();

private: // Still part of the binary interface: a change of size or layout needs a new ABI number.
    friend struct CANTransportThreadAccess; ///< The tests use it.
    friend class EndpointPort;              ///< A client runs its endpoint itself.

    enum expectedframe_t : int { EXPECT_FIRST_OR_SINGLE = 0, EXPECT_CONSECUTIVE = 1 };
    using Frames = std::vector<TPCANMsg>;
    static const Frames::iterator MSGPART_INVALID;

    // src/loop: the object, the main loop, the input of trace messages, the way in, the expiry
    [[noreturn]] void throwOpenError(const char* text, int error) const;
    void threadCode() override;
    void startLoop();
    void pass(DescriptorSet& input);
    timeval* startPass();
    void handleExpiry();
    bool idle();
    void stopTimer();
    void endReceptionWithoutTimer();
    int waitForInput(DescriptorSet& input, timeval* timeout);
    std::unique_ptr<MessageBase> getNextTraceMessage();
    void handleData();
    bool readTraceMessages();
    void handleTraceMessage(const MessageBase& message);
    void handleFramesAtHand();
    void handleCANData(TPCANMsg& frame);
    void handleTimeout();
    void checkInvariants();

    // src/reception: reassembly, delivery, refusals, the answers to the peer
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
    void sendFlowControl(int code);

    // src/sending: segmentation, the queue, retries, the peer's answers
    void prepareData(const unsigned char* bytes, unsigned int length);
    bool noMessage();
    void processSendQueue();
    struct Attempt;
    void failAtEndOfVector(const char* text);
    void handleSendError(bool resend);
    void disconnect();
    void reportOutage(statuschange_t status);
    void checkFlowControl(TPCANMsg& frame);
    void handleReady();
    void handleRefusedMessage(flowcontrol_t code);
    void handleAcknowledge();
    void logMessageCleared();

    // src/frames: the way out to the bus
    void sendCANMessage(TPCANMsg& frame);

    // src/base: the log, the timer, the reports, texts
    LogLine debugLine(const char* operation) const;
    LogLine infoLine(const char* operation) const;
    LogLine errorLine(const char* operation) const;
    LogLine clientErrorLine(const char* operation) const;
    void logSystemError(const char* operation, const char* text, int error) const;
    void logBytes(const std::vector<unsigned char>& bytes) const;
    void setSelectTimeout(int seconds, int milliseconds);
    void setTimer(std::chrono::milliseconds time);
    void report(const char* operation, statuschange_t status, unsigned short value);
    static std::string printState(int value);

    /// Takes what the endpoint writes, in place of the descriptors: for an endpoint that a client runs.
    class Outlet {
    public:
        virtual void onFrame(const TPCANMsg& frame) = 0;
        virtual void onMessage(unsigned short canID, const std::vector<unsigned char>& bytes) = 0;

    protected:
        Outlet() = default;
        virtual ~Outlet(); // in the library, and with it the type
    };

    // In brackets: who may touch the field while the thread runs.
    std::unique_ptr<TraceMessageBuffer> traceBuffer;              // [transport thread]
    std::function<void(statuschange_t, unsigned short)> delegate; // [constant]
    int canProxyFD = 0;                                           // [constant]
    std::atomic<int> state{RCTS_IDLE}; // [transport thread; sending flags also clear(), locked]
    int inputPipe[2] = {-1, -1};       // [constant]
    int outputPipe[2] = {-1, -1};      // [constant]
    Mutex queueMutex;                  // taken before LogUtil::logMutex, never after it
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
    std::deque<std::unique_ptr<Frames>> sendQueue VELK_GUARDED_BY(queueMutex);
    std::vector<unsigned char> receiveBuffer;   // [transport thread]
    Frames::iterator msgPart = MSGPART_INVALID; // [transport thread]
    /// A frame of the reception was refused: its bytes are counted, but not kept.
    bool receptionSpoiled = false; // [transport thread]
    bool openCalled = false;       // [constant]
    Outlet* outlet = nullptr;      // [constant]
};

/// Writes the name of the status as in the enumeration, "ERROR" for any other value.
VELK_EXPORT std::ostream& operator<<(std::ostream& stream,
                                     CANTransportThread::statuschange_t status);

/// Writes a blank, CAN id, length and data bytes in hexadecimal, without a newline. The stream's settings
/// neither change the text nor are changed.
VELK_EXPORT std::ostream& operator<<(std::ostream& stream,
                                     const CANTransportThread::TPCANMsg& frame);
