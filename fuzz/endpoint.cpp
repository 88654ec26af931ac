// SPDX-License-Identifier: MIT
#include "Input.h"
#include "simulation/Tables.h"

#include <iostream>

namespace {

/// Most often a short one; 255 gives one byte more than can be sent.
Bytes messageFrom(std::size_t byte) { return pattern(byte * byte * 4096 / 65025); }

/// One endpoint, on which each event has to have the effect that the tables name.
struct Session {
    Endpoint endpoint;
    Cells& cells;

    void step(Input& input)
    {
        switch (input.byte() % 5) {
        case 0: {
            const Bytes data = input.bytes(input.byte() % 9);
            Frame frame{0, static_cast<std::uint8_t>(data.size()), {}};
            std::copy(data.begin(), data.end(), frame.data);
            take(frame);
            break;
        }
        case 1: { // some frames of a message
            const auto frames = cut(messageFrom(input.byte()));
            const std::size_t from = input.byte();
            const std::size_t to = std::min(from + input.byte(), frames.size());
            for (std::size_t i = from; i < to; ++i) {
                take(frames[i]);
            }
            break;
        }
        case 2: {
            const Bytes message = messageFrom(input.byte());
            Tables::checkRequest(message, handle([&] { endpoint.request(message); }), cells);
            break;
        }
        case 3:
            expire();
            break;
        default: {
            const bool includeCurrent = input.byte() % 2 != 0;
            const Effect effect = handle([&] { endpoint.clear(includeCurrent); });
            Tables::checkClear(includeCurrent, effect, cells);
            break;
        }
        }
    }

    void take(const Frame& frame)
    {
        endpoint.write(recordOf(frame));
        Tables::checkFrame(frame, handle([this] { endpoint.takeInput(); }), cells);
    }

    bool expire()
    {
        const bool timed = Access::snapshot(endpoint).selectedUs != 0;
        if (timed) {
            Tables::checkExpiry(handle([this] { endpoint.expire(); }), cells);
        }
        return timed;
    }

    Effect handle(const std::function<void()>& handler)
    {
        Effect effect = effectOf(endpoint, handler);
        Access::restIfIdle(endpoint);
        return effect;
    }
};

/// Takes all lines, so that their text is made.
struct Sink : std::streambuf {
    int overflow(int byte) override { return traits_type::not_eof(byte); }
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }
} sink;

} // namespace

/// The level of the log, then one operation after the other.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Cells cells(VELK_CELLS);
    std::cout.rdbuf(&sink);
    std::cerr.rdbuf(&sink);
    Input input{data, size};
    Session session{Endpoint(static_cast<int>(input.byte() % 4)), cells};
    while (input.left > 0) {
        session.step(input);
    }
    for (int expiries = 0; session.expire(); ++expiries) {
        require(expiries < 10, "expiries alone bring it to rest");
    }
    return 0;
}
