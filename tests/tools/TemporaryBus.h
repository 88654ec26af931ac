// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Descriptor.h"

#include "bus/VirtualBus.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

/// A bus in a temporary folder.
class TemporaryBus {
public:
    explicit TemporaryBus(VirtualBus::Options busOptions = {}) : options(std::move(busOptions))
    {
        std::string name = testing::TempDir() + "velkcan-XXXXXX";
        folder = mkdtemp(name.data());
        revive();
    }
    ~TemporaryBus()
    {
        kill();
        std::filesystem::remove_all(folder);
    }
    TemporaryBus(const TemporaryBus&) = delete;
    TemporaryBus& operator=(const TemporaryBus&) = delete;

    std::string path() const { return folder + "/bus"; }
    VirtualBus::Counters counters() const { return bus->counters(); }
    void kill() { bus.reset(); }
    void revive() { bus = std::make_unique<VirtualBus>(path(), options); }

private:
    const VirtualBus::Options options;
    std::string folder;
    std::unique_ptr<VirtualBus> bus;
};

/// @return a socket with that path, which does not listen yet.
inline Descriptor bindTo(const std::string& path)
{
    Descriptor listener(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return listener;
}
