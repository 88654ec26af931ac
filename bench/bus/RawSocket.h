// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Descriptor.h"

#include "common/Program.h"

#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>

/// @return a socket of that protocol of CAN. It is not bound.
inline Descriptor canSocket(int type, int protocol)
{
    Descriptor opened(socket(PF_CAN, type | SOCK_CLOEXEC, protocol));
    if (opened.get() == -1) {
        Program::fail("this kernel lacks a socket for CAN");
    }
    return opened;
}

template <typename Value>
void setOption(const Descriptor& socket, int level, int option, const Value& value)
{
    if (setsockopt(socket.get(), level, option, &value, sizeof value) == -1) {
        Program::fail("a socket option is refused");
    }
}

inline void bindTo(const Descriptor& socket, sockaddr_can address, const std::string& interface)
{
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    if (address.can_ifindex == 0 ||
        bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
        Program::fail("no such CAN interface");
    }
}

/// A raw socket that gets the frames with that id only.
inline Descriptor rawSocket(const std::string& interface, canid_t accepted)
{
    Descriptor opened = canSocket(SOCK_RAW, CAN_RAW);
    setOption(opened, SOL_CAN_RAW, CAN_RAW_FILTER, can_filter{accepted, CAN_SFF_MASK});
    bindTo(opened, {}, interface);
    return opened;
}
