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
    "Transfers a file both ways at once between two endpoints on a virtual CAN bus, compares what\n"
    "arrives with the file, and ends with 0 only if it is the same.\n",
    "[options] [file]",
    "Faults hit single frames. Stray frames are only such as a receiver can tell to be wrong: "
    "the\n"
    "frames of this bus bear neither a checksum nor a message number, so a stray data frame with\n"
    "the right sequence number, or a stray acknowledgement, could not be told from a true one.\n"
    "\n"
    "Exit status: 0 all arrived whole; 1 it did not; 2 wrong arguments, or a file that cannot be\n"
    "read; 130 interrupted.\n"
    "\n"
    "Examples:\n"
    "  velkcan-demo --ladder --size 20 notes.txt\n"
    "\n"
    "  velkcan-demo --endpoints 4 --bitrate 1000000 --drop 0.001 --seed 7 notes.txt\n",
    exitFailed};

Input inputOf(const DemoOptions& options)
{
    try {
        return readInput(options.file);
    } catch (const std::exception& error) {
        throw Tool::Failure(exitUsage, error.what());
    }
}

int judge(const ExchangeResult& result, const Console& console)
{
    if (!result.failure.empty()) {
        throw Tool::Failure(exitFailed, result.failure);
    }
    if (!result.whole) {
        throw Tool::Failure(exitInterrupted, "interrupted");
    }
    if (console.failed()) {
        throw Tool::Failure(exitFailed, "cannot write to standard output");
    }
    return exitWhole;
}

int transfer(const DemoOptions& options, const Input& input)
{
    const bool quiet = options.debugLevel == 0;
    Interruption interruption; // before any thread
    Console console(quiet, quiet && !options.ladder);
    const ExchangeResult result = Exchange(options, input.bytes, console).run(interruption);
    console.finish();
    for (const std::string& line : summary(input, result)) {
        console.line(line);
    }
    console.line(result.whole ? "All directions have brought the file over whole."
                              : "The file has NOT come over whole.");
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
        return exitWhole;
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
