// SPDX-License-Identifier: MIT
#include "bus/RawSocket.h"
#include "bus/Subject.h"

#include <cstdint>
#include <vector>

#include <linux/can/isotp.h>
#include <unistd.h>

namespace {

/// The kernel's transport protocol; a message of one byte comes back to confirm.
class IsoTp : public ConfirmingSubject {
public:
    IsoTp(const Carrier& carrier, Side side) : socket(canSocket(SOCK_DGRAM, CAN_ISOTP))
    {
        can_isotp_options options{};
        options.flags = CAN_ISOTP_WAIT_TX_DONE | CAN_ISOTP_TX_PADDING;
        options.frame_txtime = static_cast<std::uint32_t>(carrier.frameTimeNs);
        if (carrier.frameTimeNs == 0) {
            options.frame_txtime = CAN_ISOTP_FRAME_TXTIME_ZERO;
        }
        setOption(socket, SOL_CAN_ISOTP, CAN_ISOTP_OPTS, options);
        sockaddr_can address{};
        address.can_addr.tp = {peerId(side), ownId(side)};
        bindTo(socket, address, carrier.bus);
    }

private:
    void write(std::size_t size) override
    {
        if (::write(socket.get(), room.data(), size) != static_cast<ssize_t>(size)) {
            Program::fail("cannot write a message");
        }
    }
    void read(std::size_t size) override
    {
        if (::read(socket.get(), room.data(), room.size()) != static_cast<ssize_t>(size)) {
            Program::fail("cannot read a message");
        }
    }

    const Descriptor socket;
    std::vector<unsigned char> room = std::vector<unsigned char>(4096);
};

} // namespace

std::unique_ptr<Subject> openIsoTp(const Carrier& carrier, Subject::Side side)
{
    return std::make_unique<IsoTp>(carrier, side);
}
