#pragma once

#include "velk/Descriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <linux/can.h>

/// Classic data frames to and from one CAN interface. Never blocks. Its operations throw
/// Tool::Failure when the interface is down or gone.
class CANSocket {
public:
    /// @param accepted as ProxyOptions has them.
    CANSocket(std::string interfaceName, const std::vector<can_filter>& accepted);

    int descriptor() const { return socket.get(); }
    const std::string& name() const { return interface; }
    /// @return false if the interface takes none now; the frame is not sent then.
    bool send(const can_frame& frame) const;
    std::optional<can_frame> receive();
    /// Frames that the kernel had no room for, as far as received frames tell.
    std::uint64_t dropped() const { return drops; }

private:
    void enlargeReceiveBuffer() const;
    void bindToInterface() const;
    [[noreturn]] void fail(const char* what, int error) const;

    const std::string interface;
    Descriptor socket;
    std::uint32_t drops = 0;
};
