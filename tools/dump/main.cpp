#include "common/CANId.h"
#include "dump/Dump.h"
#include "dump/DumpOptions.h"
#include "dump/LineInput.h"
#include "dump/LogLine.h"

#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

namespace {

volatile std::sig_atomic_t interrupted = 0;

/// The first signal ends the input, so that the table of what is known gets printed; the second one
/// ends the program.
void endInputOnSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    // Without SA_RESTART: a read that waits has to return.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGINT, SIGTERM}) {
        sigaction(number, &action, nullptr);
    }
}

int complain(const std::string& text, int exitCode)
{
    std::cerr << dumpName << ": " << text << std::endl;
    return exitCode;
}

/// Sends each line on its way at once: somebody may look at a live bus through a pipe.
void print(const std::string& line)
{
    if (!(std::cout << line << '\n' << std::flush)) {
        throw std::system_error(errno, std::generic_category(), "cannot write standard output");
    }
}

std::string lines(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " line" : " lines");
}

int dump(const DumpOptions& options)
{
    LineInput input(options.file);
    Dump dump(options, print);
    std::size_t count = 0;
    std::size_t skipped = 0;
    for (std::string line; interrupted == 0 && input.read(line);) {
        ++count;
        if (const auto logged = parseLogLine(line)) {
            dump.take(*logged);
        } else {
            ++skipped;
        }
    }
    if (dump.frames() == 0) {
        const std::string ids = options.ids ? " of " + canIdText(options.ids->first) + " or " +
                                                  canIdText(options.ids->second)
                                            : "";
        return complain("got " + lines(count) + " without a frame" + ids +
                            ", expected what candump logs or prints",
                        dumpExitNoFrame);
    }
    dump.finish();
    if (options.stats && !dump.hasTimes()) {
        complain("time stamps run backwards, as those of candump -t d do: no times", dumpExitFine);
    }
    if (skipped != 0) {
        complain("skipped " + lines(skipped) + " without a data frame of classic CAN",
                 dumpExitFine);
    }
    return dumpExitFine;
}

} // namespace

int main(int argc, char** argv)
{
    int exitCode = dumpExitFine;
    const auto options = readDumpOptions(argc, argv, exitCode);
    if (!options) {
        return exitCode;
    }
    endInputOnSignals();
    try {
        return dump(*options);
    } catch (const std::system_error& error) {
        // Who reads a pipe no longer has seen enough.
        return error.code() == std::errc::broken_pipe ? dumpExitFine
                                                      : complain(error.what(), dumpExitFailed);
    } catch (const std::exception& error) {
        return complain(error.what(), dumpExitFailed);
    }
}
