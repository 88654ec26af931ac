#pragma once

#include "velk/Descriptor.h"

#include "bus/VirtualBus.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

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
