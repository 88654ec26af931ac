#pragma once

#include "velk/Descriptor.h"

#include <cstdint>
#include <string>

#include <sys/types.h>

/// The way to a bus: a socket that carries trace messages both ways, and the process behind it if
/// there is one.
class BusLink {
public:
    /// @param bus as CANTransportClient takes it. @param acceptedId the id that a proxy lets through.
    /// @throws VelkException if it cannot be had.
    BusLink(const std::string& bus, std::uint32_t acceptedId);
    /// Closes the socket, which ends a proxy once it has sent what is pending; otherwise it is
    /// terminated, and then killed. No zombie is left.
    ~BusLink();
    BusLink(const BusLink&) = delete;
    BusLink& operator=(const BusLink&) = delete;

    int descriptor() const { return socket.get(); }
    /// Whether all has been read that will ever come.
    bool atEnd() const;

private:
    void connectTo(const std::string& path);
    void spawn(const std::string& program, char* const* arguments, bool ownGroup);

    Descriptor socket;
    pid_t child = -1;
};
