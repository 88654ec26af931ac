#include "common/CANId.h"
#include "common/Tool.h"
#include "dump/CandumpLine.h"
#include "dump/Dump.h"
#include "dump/DumpOptions.h"
#include "dump/LineInput.h"

#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

namespace {

constexpr Tool::Description description{
    "velkcan-dump",
    R"(Reads what candump logs (candump -L) or prints, and prints each frame in words. After
the frame that ends a message it prints the whole message and its outcome: acknowledged;
refused, by code 0 or 2; restarted, that is, sent again before an answer; or incomplete.
)",
    "[-s ID -d ID] [--ladder] [--stats] [FILE]",
    R"(Without -s and -d all ids are followed, and the log has to show which id answers which: an
answer belongs to an id that waits for it, a ready answer to an id that has sent a first
frame, an acknowledgement to an id that has sent a whole message. While several ids wait,
the next answers decide, and the lines of messages appear later. What is still open at the
end of the log is decided by the order of frames. A pair of ids, once found, stays a pair.
If other traffic shares the bus, name the two ids.

Ids are hexadecimal; ids of 8 digits have 29 bits. Frames of a second interface are shown
with its name: can1:123. Times need the stamps of candump -L, or of -t a, z or A; those of
-t d do not work. Ctrl-C ends the input; everything known by then is printed.

Exit status: 0 success; 1 no frame in the input; 2 wrong arguments; 3 the input cannot be
read or the output cannot be written.

Examples:
  candump can0 | velkcan-dump -s 123 -d 321

  velkcan-dump --stats candump-2024-01-31_120000.log
)"};

volatile std::sig_atomic_t interrupted = 0;

sigset_t endingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

/// The first signal ends the input, so that the table is still printed; the second ends the program.
void endInputOnSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    // No SA_RESTART: a read that waits has to return.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGINT, SIGTERM}) {
        sigaction(number, &action, nullptr);
    }
}

/// Signals are unblocked only here: they must not interrupt a write.
bool readLine(LineInput& input, std::string& line)
{
    const sigset_t signals = endingSignals();
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    const bool read = interrupted == 0 && input.read(line);
    if (interrupted == 0) {
        sigprocmask(SIG_BLOCK, &signals, nullptr);
    }
    return read;
}

/// Flushes each line: a user may be watching a live bus through a pipe.
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
    for (std::string line; readLine(input, line);) {
        ++count;
        if (const auto logged = parseCandumpLine(line)) {
            dump.take(*logged);
        } else {
            ++skipped;
        }
    }
    if (dump.frames() == 0) {
        const std::string ids = options.ids ? " of " + canIdText(options.ids->first) + " or " +
                                                  canIdText(options.ids->second)
                                            : "";
        throw Tool::Failure(Tool::exitFailed, "got " + lines(count) + " without a frame" + ids +
                                                  ", expected lines that candump logs or prints");
    }
    dump.finish();
    for (const std::string& remark : dump.remarks()) {
        Tool::complain(description, remark);
    }
    if (skipped != 0) {
        Tool::complain(description,
                       "skipped " + lines(skipped) + " without a classic CAN data frame");
    }
    return Tool::exitFine;
}

int dumpUntilNobodyReads(const DumpOptions& options)
{
    endInputOnSignals();
    try {
        return dump(options);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::broken_pipe) { // the reader has ended: not an error
            return Tool::exitFine;
        }
        throw;
    }
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, dumpUntilNobodyReads);
}
