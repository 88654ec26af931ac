// SPDX-License-Identifier: MIT
#include "demo/DemoOptions.h"

#include "bus/FaultOptions.h"
#include "common/Options.h"

namespace {

constexpr std::size_t maxPairs = 64;
constexpr unsigned long maxBitrate = 1000000000;

void addSize(CLI::App& app, DemoOptions& options)
{
    constexpr std::size_t longest = CANTransportThread::MAX_MESSAGE_LENGTH;
    const auto store = [&options](const std::string& text) {
        std::size_t value = 0;
        if (text == "mixed") {
            options.size.reset();
        } else if (Tool::parse(text, value) && value >= 1 && value <= longest) {
            options.size = value;
        } else {
            throw CLI::ValidationError(
                "--size", Tool::complaint(text, "a number of bytes from 1 to " +
                                                    std::to_string(longest) + ", or mixed"));
        }
    };
    app.add_option_function<std::string>("--size", store,
                                         "Bytes of each message, 1 to " + std::to_string(longest) +
                                             ", or mixed (default: mixed)")
        ->type_name("N|mixed");
}

} // namespace

void declare(CLI::App& app, DemoOptions& options)
{
    app.add_option("file", options.file,
                   "The file to transfer (default: one that is built with the program)")
        ->type_name("");
    addSize(app, options);
    Tool::addNumber<std::size_t>(app, "--endpoints N", options.pairs, 1, maxPairs,
                                 "Pairs of endpoints on the bus (default: 1)");
    Tool::addFaults(app, options.faults, "Seed of the faults and the mixed sizes (default: 1)");
    Tool::addNumber<unsigned long>(app, "--bitrate N", options.bitrate, 0, maxBitrate,
                                   "Bits per second; a frame of 8 data bytes counts as 125 bits\n"
                                   "(default: 0, as fast as possible)");
    app.add_flag("--ladder", options.ladder, "Draw each frame on a line of its own");
    app.add_flag("-v", options.debugLevel, "Show the log; -vv and -vvv show more");
}

std::size_t DemoOptions::longestMessage() const
{
    return size.value_or(CANTransportThread::MAX_MESSAGE_LENGTH);
}
