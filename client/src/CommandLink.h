// SPDX-License-Identifier: MIT
#pragma once

#include "SocketLink.h"

#include <sys/types.h>

/// A shell command that carries trace messages on its stdin and stdout, and its process group.
class CommandLink : public Link {
public:
    /// @throws VelkException if the shell cannot be started.
    CommandLink(const std::string& command, Tally& counters);
    /// Closes the socket, which ends a well-behaved command. After a second, terminates the process group;
    /// after another second, kills it. No zombie is left.
    ~CommandLink() override;

    int descriptor() const override { return socket->descriptor(); }
    Sent send(const Frame& frame) override { return socket->send(frame); }
    bool receive(std::vector<Frame>& frames, std::size_t most) override
    {
        return socket->receive(frames, most);
    }

private:
    enum class Shell {
        running,
        ended,
        reaped, ///< By the program, which waits for any child. The id may be in use again.
    };
    Shell afterGrace() const;

    std::unique_ptr<StreamLink> socket;
    pid_t shell = -1; ///< Also the id of its process group.
};
