#include "CANLink.h"

#include "Tally.h"

#include <algorithm>

CANLink::CANLink(const std::string& interface, std::uint32_t acceptedId, Tally& counters)
    : socket(interface, {{acceptedId, CAN_SFF_MASK | CAN_EFF_FLAG | CAN_RTR_FLAG}},
             CANSocket::SendBuffer::smallest),
      tally(counters),
      missedBefore(tally.framesMissed)
{
}

Link::Sent CANLink::send(const Frame& frame)
{
    can_frame out{};
    out.can_id = frame.canID;
    out.can_dlc = frame.len;
    std::copy_n(frame.data, frame.len, out.data);
    switch (socket.send(out)) {
    case CANSocket::Result::done:
        return Sent::done;
    case CANSocket::Result::wouldBlock:
        return Sent::wouldBlock;
    case CANSocket::Result::queueFull:
        return Sent::queueFull;
    case CANSocket::Result::down:
    case CANSocket::Result::failed:
        return Sent::lost;
    }
    return Sent::lost;
}

bool CANLink::receive(std::vector<Frame>& frames, std::size_t most)
{
    taken.clear();
    const CANSocket::Result result = socket.receive(taken, most);
    for (const can_frame& in : taken) {
        Frame frame{in.can_id, std::min<std::uint8_t>(in.can_dlc, CAN_MAX_DLEN), {}};
        std::copy_n(in.data, frame.len, frame.data);
        frames.push_back(frame);
    }
    tally.framesMissed = missedBefore + socket.missed();
    return result == CANSocket::Result::done || result == CANSocket::Result::wouldBlock;
}
