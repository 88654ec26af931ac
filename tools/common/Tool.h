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

/// What the programs share: their manners. Who declares options includes common/Options.h as well.
namespace Tool {

enum ExitCode : int {
    exitFine = 0,
    exitFailed = 1, ///< Given up, or nothing came.
    exitUsage = 2,
    exitBus = 3, ///< No way to the bus.
    exitOutput = 4,
};

/// Ends the program with one line on stderr.
struct Failure : std::runtime_error {
    Failure(int code, const std::string& text) : std::runtime_error(text), exitCode(code) {}
    int exitCode;
};

struct Description {
    const char* name = "";
    const char* what = "";    ///< One paragraph.
    const char* usage = "";   ///< The arguments, for who gave others.
    const char* example = ""; ///< And notes; behind the options.
    int exitCode = exitBus;   ///< For what is thrown but a Failure.
};

/// Reads the command line into what `declare` has bound, and runs the program. Whatever is thrown ends
/// as one line on stderr. A write to a pipe that nobody reads fails, and raises no signal.
/// @return the exit code of the program.
int runProgram(int count, char** arguments, const Description& description,
               const std::function<void(CLI::App&)>& declare, const std::function<int()>& run);

/// The same with a struct for the options.
template <typename Options>
int runProgram(int count, char** arguments, const Description& description,
               void (*declare)(CLI::App&, Options&), int (*run)(const Options&))
{
    Options options;
    return runProgram(
        count, arguments, description, [&](CLI::App& app) { declare(app, options); },
        [&] { return run(options); });
}

/// One line on stderr, also while a LibraryLog lives.
void complain(const Description& description, const std::string& text);

/// The ids of an endpoint and its bus.
struct Line {
    std::uint16_t ownId = 0;
    std::uint16_t peerId = 0;
    std::string bus;
    int verbosity = 0;
};
void addLine(CLI::App& app, Line& line);
CANTransportClient::Options clientOptions(const Line& line);

/// What the library logs while it lives: nowhere, or on stderr if the line is verbose. Results belong
/// on stdout and nothing else.
class LibraryLog {
public:
    explicit LibraryLog(const Line& line);
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

private:
    struct Nowhere : std::streambuf {
        int overflow(int character) override;
        std::streamsize xsputn(const char* text, std::streamsize count) override;
    } nowhere;
    std::streambuf* const standardOutput;
    std::streambuf* const standardError;
};

/// @throws Failure if stdout does not take it.
void print(const void* bytes, std::size_t count);

} // namespace Tool
