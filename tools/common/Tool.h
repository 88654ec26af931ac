#pragma once

#include "velk/CANTransportClient.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>

/// What the command-line tools share: their manners.
namespace Tool {

enum ExitCode : int {
    exitFine = 0,
    exitFailed = 1, ///< Given up, or nothing came.
    exitUsage = 2,
    exitBus = 3, ///< No way to the bus.
};

/// Wrong input or a wrong argument: one line on stderr, and exitUsage.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Description {
    const char* name;
    const char* what;    ///< One paragraph.
    const char* example; ///< And notes; behind the options.
};

/// Reads the command line into what `declare` has bound, and runs the tool.
///
/// Results belong on stdout and nothing else: what the library logs goes nowhere, or to stderr with
/// the flag -v, which every tool has. Whatever is thrown ends as one line on stderr.
/// @param run gets the debug level. @return the exit code of the program.
int runProgram(int count, char** arguments, const Description& description,
               const std::function<void(CLI::App&)>& declare, const std::function<int(int)>& run);

/// The ids of an endpoint and its bus.
struct Line {
    std::uint16_t ownId = 0;
    std::uint16_t peerId = 0;
    std::string bus;
};
void addLine(CLI::App& app, Line& line);
CANTransportClient::Options clientOptions(const Line& line, int debugLevel);

/// @throws CLI::ValidationError in the name of the option, unless the text is a number from `lowest` to
/// `highest`.
std::uint64_t parseNumber(const std::string& name, const std::string& text, std::uint64_t lowest,
                          std::uint64_t highest);

/// An option with a number from `lowest` to `highest`.
template <typename Number> void addNumber(CLI::App& app, const std::string& name, Number& target,
                                          std::uint64_t lowest, std::uint64_t highest,
                                          const std::string& help)
{
    const auto store = [&target, lowest, highest, name](const std::string& text) {
        target = static_cast<Number>(parseNumber(name, text, lowest, highest));
    };
    app.add_option_function<std::string>(name, store, help)->type_name("N");
}

/// "got 'x', expected y".
std::string complaint(const std::string& given, const std::string& expected);

/// @throws std::runtime_error if stdout does not take it.
void print(const void* bytes, std::size_t count);

} // namespace Tool
