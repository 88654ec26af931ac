// SPDX-License-Identifier: MIT
#include "common/Signals.h"
#include "common/Tool.h"
#include "demo/DemoOptions.h"
#include "demo/Exchange.h"
#include "demo/Input.h"
#include "demo/Summary.h"

#include <algorithm>
#include <exception>
#include <string>

namespace {

constexpr Tool::Description description{
    "velkcan-demo",
    R"(Transfers a file in both directions at once between two endpoints on a virtual CAN bus,
and compares the received bytes with the file.
)",
    "[options] [file]",
    R"(Faults affect single frames. All stray frames are of a sort that a receiver can recognise
as wrong. Frames of this bus have neither a checksum nor a message number, so no receiver
could recognise a stray data frame with the right sequence number, or a stray
acknowledgement.

Examples:
  velkcan-demo --ladder --size 20 notes.txt

  velkcan-demo --endpoints 4 --bitrate 1000000 --drop 0.001 --seed 7 notes.txt
)",
    Tool::exitFailed};

Input inputOf(const DemoOptions& options)
{
    try {
        return readInput(options.file);
    } catch (const std::exception& error) {
        throw Tool::Failure(Tool::exitUsage, error.what());
    }
}

int transfer(const DemoOptions& options, const Input& input)
{
    const Signals signals; // before any thread starts
    const ExchangeResult result = Exchange(options, input.bytes).run(signals);
    for (const std::string& line : summary(input, result)) {
        Tool::printLine(line);
    }
    Tool::printLine(result.whole ? "The file has arrived whole in all directions."
                                 : "The file has NOT arrived whole.");
    if (!result.failure.empty()) {
        throw Tool::Failure(Tool::exitFailed, result.failure);
    }
    if (!result.whole) {
        throw Tool::Interrupted{result.signal};
    }
    return Tool::exitFine;
}

int demonstrate(const DemoOptions& given)
{
    constexpr int highestLevel = 3;
    DemoOptions options = given;
    options.debugLevel = std::min(options.debugLevel, highestLevel);
    const Input input = inputOf(options);
    if (input.bytes.empty()) {
        Tool::printLine("'" + input.name + "' is empty: there is nothing to send.");
        return Tool::exitFine;
    }
    const std::string warning = paceWarning(options, input.bytes.size());
    if (!warning.empty()) {
        Tool::complain(description, "warning: " + warning);
    }
    return transfer(options, input);
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, demonstrate);
}
