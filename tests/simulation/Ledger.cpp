#include "simulation/Ledger.h"

#include <algorithm>

void Incoming::accept(const Frame& frame, const Origin& origin, const Snapshot& before)
{
    const int kind = frame.data[0] >> 4;
    const int low = frame.data[0] & 0x0F;
    if (kind < 2 && !before.consecutive) {
        const bool ofAMessage = origin.message != Origin::stranger && origin.index == 0;
        *this = {origin.message, 1, origin.copy, !ofAMessage, {}, 0};
        length = static_cast<std::size_t>(kind == 0 ? low : low << 8 | frame.data[1]);
        bytes.assign(frame.data + 1 + kind, frame.data + (kind == 0 ? 1 + low % 8 : 8));
    } else if (kind == 2 && before.consecutive && low == before.sequence) {
        mixed = mixed || origin.message != message || origin.index != next;
        ++next;
        bytes.insert(bytes.end(), frame.data + 1, frame.data + 8);
    }
}

int Ledger::submit(std::size_t size)
{
    Message message;
    message.bytes = pattern(size);
    const std::size_t number = messages.size();
    for (std::size_t i = 0; i < size && i < 4; ++i) {
        message.bytes[i] = static_cast<unsigned char>(number >> (8 * i));
    }
    message.frames = cut(message.bytes);
    for (Frame& frame : message.frames) {
        frame.canID = id;
    }
    messages.push_back(std::move(message));
    return static_cast<int>(number);
}

Origin Ledger::left(const Frame& frame)
{
    require(!queue.empty(), "a frame leaves of a message that has ended");
    const int number = queue.front();
    const auto& frames = messages[at(number)].frames;
    if (frame.data[0] >> 4 < 2) {
        nextIndex = 0;
    } else if (unseen) { // frames went to a proxy that took none: go on where this one fits
        while (nextIndex < frames.size() && hex(frames[nextIndex]) != hex(frame)) {
            ++nextIndex;
        }
    }
    unseen = false;
    const bool fits = nextIndex < frames.size() && frame.canID == id && frame.len == 8 &&
                      std::equal(frame.data, frame.data + 8, frames[nextIndex].data);
    require(fits, "a frame leaves that is not its message's next one");
    return {number, nextIndex++, false};
}

void Ledger::acknowledged(int value, const Origin& answer)
{
    require(!queue.empty(), "CTT_ACKNOWLEDGED without a message");
    Message& message = messages[at(queue.front())];
    require(value == message.frames[0].data[1], "CTT_ACKNOWLEDGED with a wrong value");
    message.ended = true;
    message.acknowledged = answer.message == queue.front();
    cells.hit(message.acknowledged ? "end: acknowledged"
                                   : "limit: ended by an answer to something else");
    queue.pop_front();
}

void Ledger::droppedTo(std::size_t left)
{
    while (queue.size() > left) {
        cells.hit("end: dropped");
        messages[at(queue.back())].ended = true;
        queue.pop_back();
    }
}

void Ledger::arrived(const Bytes& payload, const Incoming& incoming)
{
    require(std::equal(payload.begin(), payload.end(), incoming.bytes.begin()) &&
                payload.size() <= incoming.bytes.size(),
            "a message arrives that is not what its frames carried");
    if (incoming.mixed) {
        cells.hit("limit: delivered with a frame that is not its own");
        return;
    }
    Message& message = messages[at(incoming.message)];
    require(payload == message.bytes, "a message arrives changed");
    require(incoming.message >= lastArrived || incoming.copy, "messages arrive out of order");
    lastArrived = std::max(lastArrived, incoming.message);
    message.arrivals += 1;
    if (incoming.copy) {
        cells.hit("limit: delivered again by a doubled frame");
        return;
    }
    cells.hit(message.arrivals == 1 ? "delivered" : "delivered again");
}

void Ledger::checkEnd() const
{
    for (const Message& message : messages) {
        require(message.ended, "a message has no end");
        require(!message.acknowledged || message.arrivals > 0,
                "a message was acknowledged and not delivered");
    }
}
