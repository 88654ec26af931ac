// SPDX-License-Identifier: MIT
#pragma once

#include "dump/CandumpLine.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

/// Where frames come from.
class FrameInput {
public:
    using Take = std::function<void(const LoggedFrame&)>;

    FrameInput() = default;
    virtual ~FrameInput() = default;
    FrameInput(const FrameInput&) = delete;
    FrameInput& operator=(const FrameInput&) = delete;

    virtual int descriptor() const = 0;
    /// Call this when the descriptor is readable: takes the available frames.
    /// @return false at the end. @throws std::exception
    virtual bool read(const Take& take) = 0;
    /// @return what the reader has to know about frames that are missing; empty: nothing.
    virtual std::string remark() const = 0;
};

/// @param name as on the command line. @throws std::exception
std::unique_ptr<FrameInput> openInput(const std::string& name);
