#include "demo/DemoOptions.h"

#include "velk/CANTransportThread.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <iostream>

namespace {

constexpr const char* programName = "velkcan-demo";

constexpr std::size_t maxPairs = 64;
constexpr unsigned long maxBitrate = 1000000000;
constexpr int maxDebugLevel = 3;

constexpr const char* description =
    "Transfers a file both ways at once between two endpoints on a virtual CAN bus, compares what\n"
    "arrives with the file, and ends with 0 only if it is the same.\n";

constexpr const char* footer =
    "\nFaults hit single frames. Stray frames are only such as a receiver can tell to be wrong: "
    "the\n"
    "frames of this bus bear neither a checksum nor a message number, so a stray data frame with\n"
    "the right sequence number, or a stray acknowledgement, could not be told from a true one.\n"
    "\n"
    "Exit status: 0 all arrived whole; 1 it did not; 2 wrong arguments, or a file that cannot be\n"
    "read; 130 interrupted.\n"
    "\n"
    "Examples:\n"
    "  velkcan-demo --ladder --size 20 notes.txt\n"
    "  velkcan-demo --endpoints 4 --bitrate 1000000 --drop 0.001 --seed 7 notes.txt\n";

template <typename Number> bool parse(const std::string& text, Number& number)
{
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

std::string complaint(const std::string& given, const std::string& expected)
{
    return "got '" + given + "', expected " + expected;
}

/// An option with a number from `lowest` to `highest`, and its own words for everything else.
template <typename Number>
CLI::Option* addNumber(CLI::App& app, const std::string& name, Number& target, Number lowest,
                       Number highest, const std::string& expected, const std::string& help)
{
    const auto store = [&target, lowest, highest, expected, name](const std::string& text) {
        Number value{};
        if (!parse(text, value) || !(value >= lowest && value <= highest)) {
            throw CLI::ValidationError(name, complaint(text, expected));
        }
        target = value;
    };
    return app.add_option_function<std::string>(name, store, help)->type_name("N");
}

void addRate(CLI::App& app, const std::string& name, double& target, const std::string& help)
{
    addNumber<double>(app, name, target, 0, 1, "a probability from 0 to 1", help)
        ->type_name("RATE");
}

void addSize(CLI::App& app, DemoOptions& options)
{
    constexpr std::size_t longest = CANTransportThread::MAX_MESSAGE_LENGTH;
    const auto store = [&options](const std::string& text) {
        std::size_t value = 0;
        if (text == "mixed") {
            options.size.reset();
        } else if (parse(text, value) && value >= 1 && value <= longest) {
            options.size = value;
        } else {
            throw CLI::ValidationError("--size",
                                       complaint(text, "a number of bytes from 1 to " +
                                                           std::to_string(longest) + ", or mixed"));
        }
    };
    app.add_option_function<std::string>(
           "--size", store,
           "Bytes of each message, 1 to 4095, or mixed (default: mixed, 1 to 4095)")
        ->type_name("N|mixed");
}

void declare(CLI::App& app, DemoOptions& options)
{
    app.set_version_flag("--version", std::string(programName) + " " + VELK_VERSION);
    app.footer(footer);
    app.add_option("file", options.file,
                   "The file to transfer (default: one that was built with the program)");
    addSize(app, options);
    addNumber<std::size_t>(app, "--endpoints", options.pairs, 1, maxPairs,
                           "a number of pairs from 1 to " + std::to_string(maxPairs),
                           "Pairs of endpoints on the one bus (default: 1)");
    addRate(app, "--drop", options.faults.drop, "Share of frames that get lost, 0 to 1");
    addRate(app, "--duplicate", options.faults.duplicate,
            "Share of frames that come twice, 0 to 1");
    addRate(app, "--stray", options.faults.stray,
            "Share of frames with a stray one behind them, 0 to 1");
    addNumber<std::uint64_t>(app, "--seed", options.faults.seed, 0, UINT64_MAX,
                             "a number from 0 to " + std::to_string(UINT64_MAX),
                             "Of the faults and the mixed sizes (default: 1)");
    addNumber<unsigned long>(app, "--bitrate", options.bitrate, 0, maxBitrate,
                             "bits per second from 1 to " + std::to_string(maxBitrate) +
                                 ", or 0 for no limit",
                             "Bits per second; a frame of 8 data bytes counts as 125 bits\n"
                             "(default: 0, as fast as it goes)");
    app.add_flag("--ladder", options.ladder, "Draw each frame, one line each");
    app.add_flag("-v", options.debugLevel, "Show the log; -vv and -vvv show more of it");
}

} // namespace

std::size_t DemoOptions::longestMessage() const
{
    return size.value_or(CANTransportThread::MAX_MESSAGE_LENGTH);
}

std::optional<DemoOptions> readCommandLine(int count, char** arguments, int& exitCode)
{
    DemoOptions options;
    CLI::App app(description, programName);
    declare(app, options);
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            exitCode = app.exit(error);
        } else {
            std::cerr << programName << ": " << error.what() << std::endl;
            exitCode = exitUsage;
        }
        return std::nullopt;
    }
    options.debugLevel = std::min(options.debugLevel, maxDebugLevel);
    return options;
}
