// SPDX-License-Identifier: MIT
#include "CANLink.h"

#include "Tally.h"

CANLink::CANLink(const std::string& interface, std::uint32_t acceptedId, Tally& counters)
    : socket(interface, {{acceptedId, CAN_SFF_MASK | CAN_EFF_FLAG | CAN_RTR_FLAG}},
             CANSocket::SendBuffer::small),
      tally(counters),
      missedBefore(tally.framesMissed)
{
}

Link::Sent CANLink::send(const Frame& frame)
{
    switch (socket.send(CANSocket::toKernel(frame))) {
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
        frames.push_back(CANSocket::fromKernel(in));
    }
    tally.framesMissed = missedBefore + socket.missed();
    return result == CANSocket::Result::done || result == CANSocket::Result::wouldBlock;
}
