// SPDX-License-Identifier: MIT
#pragma once

#include "common/MessageFormat.h"
#include "common/Tool.h"

#include <cstdint>
#include <string>

struct SendOptions {
    Tool::Connection connection;
    std::string file;
    MessageFormat format; ///< Of stdin and of replies.
    bool lines = false;
    std::uint64_t generated = 0;
    std::uint64_t count = 1;
    std::uint64_t timeoutMs = 0; ///< 0: none.
    std::uint64_t replyMs = 0;   ///< 0: no reply is expected.
};

void declareSendOptions(CLI::App& app, SendOptions& options);
