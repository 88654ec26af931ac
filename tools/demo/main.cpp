#include "demo/Console.h"
#include "demo/DemoOptions.h"
#include "demo/Exchange.h"
#include "demo/Input.h"
#include "demo/Interruption.h"
#include "demo/Summary.h"

#include <exception>
#include <iostream>
#include <optional>
#include <string>

namespace {

int complain(const std::string& text, int exitCode)
{
    std::cerr << "velkcan-demo: " << text << std::endl;
    return exitCode;
}

std::optional<Input> tryToRead(const std::string& name)
{
    try {
        return readInput(name);
    } catch (const std::exception& error) {
        complain(error.what(), exitUsage);
        return std::nullopt;
    }
}

int judge(const ExchangeResult& result, const Console& console)
{
    if (!result.failure.empty()) {
        return complain(result.failure, exitFailed);
    }
    if (!result.whole) {
        return complain("interrupted", exitInterrupted);
    }
    return console.failed() ? complain("cannot write to standard output", exitFailed) : exitWhole;
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

} // namespace

int main(int argc, char** argv)
{
    int exitCode = exitWhole;
    const auto options = readCommandLine(argc, argv, exitCode);
    if (!options) {
        return exitCode;
    }
    const auto input = tryToRead(options->file);
    if (!input) {
        return exitUsage;
    }
    if (input->bytes.empty()) {
        std::cout << "'" << input->name << "' is empty: there is nothing to send." << std::endl;
        return exitWhole;
    }
    const std::string warning = paceWarning(*options, input->bytes.size());
    if (!warning.empty()) {
        complain("warning: " + warning, exitWhole);
    }
    try {
        return transfer(*options, *input);
    } catch (const std::exception& error) {
        return complain(error.what(), exitFailed);
    }
}
