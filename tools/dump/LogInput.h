// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Descriptor.h"

#include "dump/FrameInput.h"

/// A log of candump, from a file or from standard input.
class LogInput : public FrameInput {
public:
    /// @param name "-" for standard input. @throws std::system_error
    explicit LogInput(const std::string& name);

    int descriptor() const override { return file.get() == -1 ? STDIN_FILENO : file.get(); }
    bool read(const Take& take) override;
    std::string remark() const override;

private:
    void takeLine(const Take& take);

    const std::string name;
    Descriptor file; ///< Empty for standard input.
    std::string line;
    std::size_t lines = 0;
    std::size_t skipped = 0;
};
