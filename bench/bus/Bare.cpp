// SPDX-License-Identifier: MIT
#include "velk/CANTransportFrame.h"

#include "bus/RawSocket.h"
#include "bus/Subject.h"

#include <unistd.h>

namespace {

/// The least that a program can do: one write or read for each frame, and a frame back to confirm.
class Bare : public ConfirmingSubject {
public:
    Bare(const Carrier& carrier, Side side) : socket(rawSocket(carrier.bus, peerId(side)))
    {
        frame.can_id = ownId(side);
        frame.can_dlc = CAN_MAX_DLEN;
        setOption(socket, SOL_SOCKET, SO_SNDBUF, 1); // write() waits for room, no queue overflows
    }

private:
    void write(std::size_t size) override
    {
        for (auto left = CANTransportFrame::frameCountOf(static_cast<unsigned int>(size)); left > 0;
             --left) {
            if (::write(socket.get(), &frame, sizeof frame) != sizeof frame) {
                Program::fail("cannot write a frame");
            }
        }
    }
    void read(std::size_t size) override
    {
        can_frame in{};
        for (auto left = CANTransportFrame::frameCountOf(static_cast<unsigned int>(size)); left > 0;
             --left) {
            if (::read(socket.get(), &in, sizeof in) != sizeof in) {
                Program::fail("cannot read a frame");
            }
        }
    }

    const Descriptor socket;
    can_frame frame{};
};

} // namespace

std::unique_ptr<Subject> openBare(const Carrier& carrier, Subject::Side side)
{
    return std::make_unique<Bare>(carrier, side);
}
