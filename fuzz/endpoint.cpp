#include "support/Endpoint.h"

#include "velk/BufferMismatchException.h"
#include "velk/Millisleep.h"

#include "Input.h"

#include <csignal>
#include <iostream>
#include <string>

namespace {

using Access = CANTransportThreadAccess;

CANTransportThread* clearedInPause = nullptr;

Bytes record(const Bytes& data)
{
    return bytesOf(CANExtTraceMessage(0, data.data(), static_cast<std::uint8_t>(data.size())));
}

/// Most often a short one; 255 gives one byte more than can be sent.
Bytes messageFrom(std::size_t byte) { return pattern(byte * byte * 4096 / 65025); }

/// One endpoint, and what it has promised for each single input.
struct Session {
    Endpoint endpoint;
    bool loose = false; ///< There have been bytes that need not be records.
    bool clientBroken = false;
    Lines sent{}; ///< By the last input.
    std::vector<Bytes> delivered{};

    void step(Input& input)
    {
        switch (input.byte() % 8) {
        case 0: // also a frame that is too long for the transport
            take(record(input.bytes(input.byte() % 12)));
            break;
        case 1: { // some frames of a message
            const auto frames = cut(messageFrom(input.byte()));
            const std::size_t from = input.byte();
            const std::size_t to = std::min(from + input.byte(), frames.size());
            for (std::size_t i = from; i < to; ++i) {
                take(recordOf(frames[i]));
            }
            break;
        }
        case 2: {
            const Bytes message = messageFrom(input.byte());
            take(bytesOf(CANTransportTraceMessage(message)), message.size() < 4096 ? 1 : 0);
            break;
        }
        case 3:
            expire();
            break;
        case 4:
            endpoint.clear(input.byte() % 2 != 0);
            expect([] {});
            break;
        case 5: // what these bytes leave behind may make any record of the later ones
            loose = true;
            take(input.bytes(input.byte()));
            break;
        case 6:
            setFaults(input.byte());
            break;
        default: // a client thread has its turn in each pause
            clearedInPause = input.byte() % 2 != 0 ? &endpoint : nullptr;
            break;
        }
    }

    void take(const Bytes& bytes, std::size_t requests = 0)
    {
        endpoint.write(bytes);
        expect([this] { handle(); }, requests);
    }

    /// As the thread does it: what has left the handler by an exception enters it again.
    void handle()
    {
        try {
            endpoint.takeInput();
        } catch (const BufferMismatchException&) {
            handle();
        }
    }

    bool expire()
    {
        const bool timed = !Access::restIfIdle(endpoint);
        if (timed) {
            expect([this] { endpoint.expire(); });
        }
        return timed;
    }

    /// Lets something happen that adds so many messages to the queue.
    template <typename Event> void expect(Event event, std::size_t requests = 0)
    {
        const auto before = Access::snapshot(endpoint);
        event();
        Access::checkInvariants(endpoint);
        require(Access::restIfIdle(endpoint) == (Access::selectedUs(endpoint) == 0),
                "the timer is armed if and only if it is not at rest");
        delivered = endpoint.delivered();
        for (const Bytes& message : delivered) {
            require(message.size() <= CANTransportThread::MAX_MESSAGE_LENGTH, "a message fits");
        }
        sent = endpoint.sent();
        const auto now = Access::snapshot(endpoint);
        const Lines statuses = endpoint.statuses();
        std::size_t ended = 0;
        int connected = before.connected ? 1 : 0;
        for (const std::string& status : statuses) {
            ended += status.rfind("CTT_ACKNOWLEDGED", 0) == 0 ? 1U : 0U;
            connected += status == "CTT_CONNECTED 0" ? 1 : status == "CTT_DISCONNECTED 0" ? -1 : 0;
        }
        require(connected == (now.connected ? 1 : 0),
                "the peer is reported heard and lost in turn");
        require(loose || (sent.size() <= before.frames + 2 && statuses.size() <= 2),
                "one input makes at most a burst and two frames, and two reports");
        require(loose || now.queued == 0 || now.queued + ended == before.queued + requests,
                "a message ends acknowledged or with its whole queue");
    }

    void setFaults(std::size_t which)
    {
        endpoint.mendProxy();
        if ((which & 1) != 0) {
            endpoint.breakProxy((which & 2) != 0);
        }
        if (((which & 4) != 0) != clientBroken) {
            clientBroken ? endpoint.mendClient() : endpoint.breakClient();
            clientBroken = !clientBroken;
        }
    }

    void comeToRest()
    {
        for (int expiries = 0; expire(); ++expiries) {
            require(expiries < 10, "expiries alone bring it to rest");
        }
    }

    void recover()
    {
        setFaults(0);
        clearedInPause = nullptr;
        comeToRest();
        expect([this] { endpoint.framesOf({1, 2, 3}); });
        require(delivered == std::vector<Bytes>{{1, 2, 3}}, "a fresh message comes in");
        // A record that has been announced can swallow the requests behind it, up to a megabyte.
        const Bytes message = pattern(1000);
        const Lines firstFrame{hex(cut(message)[0])};
        for (int tries = 0; sent != firstFrame; ++tries) {
            require(tries < 1050, "a fresh request goes out");
            endpoint.clear(true);
            comeToRest();
            take(bytesOf(CANTransportTraceMessage(message)), 1);
        }
    }
};

} // namespace

/// Takes the place of the real one, and takes no time.
void millisleep(int)
{
    if (clearedInPause != nullptr) {
        clearedInPause->clear(true);
    }
}

/// The level of the log, then one operation after the other.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::cout.rdbuf(nullptr);
    std::cerr.rdbuf(nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    Input input{data, size};
    Session session{Endpoint(static_cast<int>(input.byte() % 4))};
    while (input.left > 0) {
        session.step(input);
    }
    session.recover();
    return 0;
}
