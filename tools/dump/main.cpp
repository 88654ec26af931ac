#include "common/CANId.h"
#include "common/Tool.h"
#include "dump/Dump.h"
#include "dump/DumpOptions.h"
#include "dump/LineInput.h"
#include "dump/LogLine.h"

#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

namespace {

constexpr Tool::Description description{
    "velkcan-dump",
    "Reads what candump has logged (candump -L) or prints, and prints each frame in words, and "
    "each\n"
    "message put together behind the frame that ends it: acknowledged; refused, by code 0 or 2;\n"
    "restarted, which is to say sent again before an answer; or incomplete.\n",
    "[-s ID -d ID] [--ladder] [--stats] [FILE]",
    "Without -s and -d all ids are followed, and the log has to tell who answers whom: an "
    "answer\n"
    "belongs to an id that waits for it, a ready to one that has sent a first frame, an "
    "acknowledge\n"
    "to one that has sent a whole message. Where several ids wait, the answers that follow "
    "decide,\n"
    "and the lines of messages come once they have; what the end of the log leaves open goes by "
    "the\n"
    "order of frames. Two ids once found stay a pair. Beside other traffic, name them.\n"
    "\n"
    "Ids are hexadecimal; those of 8 digits have 29 bits. Frames of a second interface bear its\n"
    "name: can1:123. Times need the stamps of candump -L, or of -t a, z or A, but not of -t d.\n"
    "Ctrl-C ends the input, and what is known by then is printed.\n"
    "\n"
    "Exit status: 0 fine; 1 no frame in the input; 2 wrong arguments; 3 the input cannot be read,\n"
    "or the output not be written.\n"
    "\n"
    "Examples:\n"
    "  candump can0 | velkcan-dump -s 123 -d 321\n"
    "\n"
    "  velkcan-dump --stats candump-2024-01-31_120000.log\n"};

volatile std::sig_atomic_t interrupted = 0;

sigset_t endingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

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

/// Signals come here alone: a write must not break off.
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
    for (std::string line; readLine(input, line);) {
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
        throw Tool::Failure(Tool::exitFailed, "got " + lines(count) + " without a frame" + ids +
                                                  ", expected what candump logs or prints");
    }
    dump.finish();
    if (options.stats && !dump.hasTimes()) {
        Tool::complain(description,
                       "time stamps run backwards, as those of candump -t d do: no times");
    }
    if (skipped != 0) {
        Tool::complain(description,
                       "skipped " + lines(skipped) + " without a data frame of classic CAN");
    }
    return Tool::exitFine;
}

int dumpUntilNobodyReads(const DumpOptions& options)
{
    endInputOnSignals();
    try {
        return dump(options);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::broken_pipe) { // who reads it has seen enough
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
