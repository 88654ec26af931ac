// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <streambuf>
#include <string>

namespace CLI {
class App;
} // namespace CLI

/// Shared by all programs. Code that declares options also includes common/Options.h.
namespace Tool {

/// The same for all programs; `--help` has their text. A program that a signal ended may exit with 128 and the
/// number of the signal.
enum ExitCode : int {
    exitFine = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitBus = 3,
    exitOutput = 4,
};

/// Ends the program with one line on stderr.
struct Failure : std::runtime_error {
    Failure(int code, const std::string& text) : std::runtime_error(text), exitCode(code) {}
    int exitCode;
};

/// Ends the program without a word: a signal has arrived.
struct Interrupted {
    int signal;
};

/// Ends the program without a word: nobody reads its output any longer.
struct OutputClosed {};

struct Description {
    const char* name = "";
    const char* what = "";    ///< One paragraph.
    const char* usage = "";   ///< The arguments.
    const char* example = ""; ///< Notes and examples, printed after the options.
    int exitCode = exitBus;   ///< For every exception except a Failure.
};

/// Parses the command line into the variables that `declare` has bound, and runs the program. Every exception
/// becomes one line on stderr. A write to a pipe without a reader fails and raises no signal. A standard stream
/// that is closed is opened first, such that its use fails: no other descriptor gets its number.
/// @return the exit code of the program.
int runProgram(int count, char** arguments, const Description& description,
               const std::function<void(CLI::App&)>& declare, const std::function<int()>& run);

/// The same with a struct for the options.
/// @return the exit code of the program.
template <typename Options>
int runProgram(int count, char** arguments, const Description& description,
               void (*declare)(CLI::App&, Options&), int (*run)(const Options&))
{
    Options options;
    return runProgram(
        count, arguments, description, [&](CLI::App& app) { declare(app, options); },
        [&] { return run(options); });
}

/// Prints one line on stderr.
void complain(const Description& description, const std::string& text);

/// The ids of an endpoint and its peer, and the bus.
struct Connection {
    std::uint16_t ownId = 0;
    std::uint16_t peerId = 0;
    std::string bus;
    int verbosity = 0;
};
/// Adds the options `-s`, `-d` and `-v` and the argument BUS.
void addConnection(CLI::App& app, Connection& connection);
/// @return the options of a client for this connection, which logs to stderr if it is verbose.
CANTransportClient::Options clientOptions(const Connection& connection);

/// @return a function that writes each log line of a client to stderr.
LogUtil::Sink logToStderr();

/// Writes to stdout. If it takes nothing, the signals that end a program end it here, also if Signals has
/// blocked them. @throws Failure if that fails, OutputClosed if nobody reads it.
void print(const void* bytes, std::size_t count);
inline void printLine(const std::string& line) { print((line + '\n').data(), line.size() + 1); }

/// Writes a line to stderr in the same way. There is nobody to complain to if that fails.
void printError(const std::string& line);

} // namespace Tool
