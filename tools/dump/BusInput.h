// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANSocket.h"
#include "velk/TraceMessageBuffer.h"

#include "dump/FrameInput.h"

#include <vector>

#include <sys/types.h>

/// The frames of an interface, by the time of their reading.
class InterfaceInput : public FrameInput {
public:
    /// @throws VelkException if there is no such CAN interface.
    explicit InterfaceInput(const std::string& name) : socket(name, {}) {}

    int descriptor() const override { return socket.descriptor(); }
    bool read(const Take& take) override;
    std::string remark() const override;

private:
    CANSocket socket;
    std::vector<can_frame> frames;
};

/// The trace messages of a socket. Sends nothing.
class RecordInput : public FrameInput {
public:
    /// @param busName as on the command line. @param interface as it appears in a log.
    RecordInput(std::string busName, std::string interface, Descriptor connected);

    int descriptor() const override { return socket.get(); }
    bool read(const Take& take) override;
    std::string remark() const override;

protected:
    Descriptor socket;

private:
    void takeWaiting(const Take& take);

    const std::string name;
    LoggedFrame logged;
    TraceMessageBuffer records;
    std::size_t skipped = 0;
};

/// The trace messages that a command writes.
class CommandInput : public RecordInput {
public:
    /// @throws std::system_error
    explicit CommandInput(const std::string& command) : CommandInput(command, start(command)) {}
    ~CommandInput() override;

private:
    struct Started {
        Descriptor socket;
        pid_t shell; ///< Also the id of its process group.
    };
    CommandInput(const std::string& command, Started started)
        : RecordInput("exec:" + command, "exec", std::move(started.socket)),
          shell(started.shell)
    {
    }
    static Started start(const std::string& command);

    const pid_t shell;
};

/// @return the bus of that name; null if it is none. @throws std::exception
std::unique_ptr<FrameInput> openBus(const std::string& name);
