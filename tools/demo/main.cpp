#include "common/Tool.h"
#include "demo/Console.h"
#include "demo/DemoOptions.h"
#include "demo/Exchange.h"
#include "demo/Input.h"
#include "demo/Interruption.h"
#include "demo/Summary.h"

#include <algorithm>
#include <exception>
#include <iostream>
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

Exit status: 0 all bytes arrived and match the file; 1 bytes are missing or differ, or the
demo could not continue; 2 wrong arguments, or the file cannot be read; 130 interrupted.

Examples:
  velkcan-demo --ladder --size 20 notes.txt

  velkcan-demo --endpoints 4 --bitrate 1000000 --drop 0.001 --seed 7 notes.txt
)",
    demoExitFailed};

Input inputOf(const DemoOptions& options)
{
    try {
        return readInput(options.file);
    } catch (const std::exception& error) {
        throw Tool::Failure(demoExitUsage, error.what());
    }
}

int judge(const ExchangeResult& result, const Console& console)
{
    if (!result.failure.empty()) {
        throw Tool::Failure(demoExitFailed, result.failure);
    }
    if (!result.whole) {
        throw Tool::Failure(demoExitInterrupted, "interrupted");
    }
    if (console.failed()) {
        throw Tool::Failure(demoExitFailed, "cannot write to standard output");
    }
    return demoExitWhole;
}

int transfer(const DemoOptions& options, const Input& input)
{
    const bool quiet = options.debugLevel == 0;
    Interruption interruption; // before any thread starts
    Console console(quiet, quiet && !options.ladder);
    const ExchangeResult result = Exchange(options, input.bytes, console).run(interruption);
    console.finish();
    for (const std::string& line : summary(input, result)) {
        console.line(line);
    }
    console.line(result.whole ? "The file has arrived whole in all directions."
                              : "The file has NOT arrived whole.");
    console.finish();
    return judge(result, console);
}

int demonstrate(const DemoOptions& given)
{
    constexpr int highestLevel = 3;
    DemoOptions options = given;
    options.debugLevel = std::min(options.debugLevel, highestLevel);
    const Input input = inputOf(options);
    if (input.bytes.empty()) {
        std::cout << "'" << input.name << "' is empty: there is nothing to send." << std::endl;
        return demoExitWhole;
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
