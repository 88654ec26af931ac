// SPDX-License-Identifier: MIT
#include "common/CANId.h"
#include "common/Tool.h"
#include "dump/Dump.h"
#include "dump/DumpOptions.h"
#include "dump/EndSignals.h"
#include "dump/FrameInput.h"
#include "dump/Output.h"

#include <cerrno>
#include <memory>
#include <system_error>

namespace {

constexpr Tool::Description description{
    "velkcan-dump",
    R"(Listens on a bus and sends nothing, or reads what candump logs (candump -L) or prints.
Prints each frame in words. After the frame that ends a message it prints the whole
message and its outcome: acknowledged; refused, by code 0 or 2; restarted, that is, sent
again before an answer; or incomplete.
)",
    "[-s ID -d ID] [-t a|d|z|A] [-a] [--color WHEN] [--ladder] [--stats] [--log FILE] [--svg FILE] "
    "[BUS | FILE...]",
    R"(Without -s and -d all ids are followed, and the log has to show which id answers which: an
answer belongs to an id that waits for it, a ready answer to an id that has sent a first
frame, an acknowledgement to an id that has sent a whole message. While several ids wait,
the next answers decide, and the lines of messages appear later. What is still open at the
end of the log is guessed from the order of frames; the peer is then marked: 321?. A pair of
ids, once found, stays a pair. If other traffic shares the bus, name the two ids. One line
on stderr says if the frames look like ISO-TP.

The name of an interface is a bus; ./NAME is always a file. Times on a bus are those of the
reading.

Ids are hexadecimal; ids of 8 digits have 29 bits. Frames of a second interface are shown
with its name: can1:123. Times need the stamps of candump -L, or of -t a, z or A; those of
-t d do not work. Several files are read as one log. Ctrl-C ends the input; everything known
by then is printed.

The latest 32 ids that wait count for an answer. Up to 256 interfaces, 32768 ids and 65536
frames without an answer are followed; stderr reports what was left out. The
median of more than 1024 messages is that of a sample.

Examples:
  velkcan-dump -t d can0

  candump can0 | velkcan-dump -s 123 -d 321

  velkcan-dump --stats candump-2024-01-31_120000.log
)"};

struct Outputs {
    EndSignals signals;
    Output lines{signals, ""};
    std::unique_ptr<Output> log{};
    std::unique_ptr<Output> picture{};

    void flush()
    {
        lines.flush();
        if (log) {
            log->flush();
        }
    }
    bool good() const { return lines.error() == 0 && (!log || log->error() == 0); }
};

/// Takes the frames of one input. @return whether it could be read.
bool takeAll(const std::string& name, Outputs& outputs, Dump& dump)
{
    std::string remark;
    bool complete = true;
    const auto take = [&](const LoggedFrame& logged) {
        if (dump.take(logged) && outputs.log) {
            outputs.log->print(candumpLine(logged));
        }
    };
    try {
        const auto input = openInput(name);
        while (outputs.good() && outputs.signals.awaitInput(input->descriptor()) &&
               input->read(take)) {
            outputs.flush();
        }
        remark = input->remark();
    } catch (const std::exception& error) {
        remark = error.what();
        complete = false;
    }
    outputs.flush();
    if (!remark.empty()) {
        Tool::complain(description, remark);
    }
    return complete;
}

/// A reader that has ended is not an error.
void checkWritten(const Output& output)
{
    if (output.error() != 0 && output.error() != EPIPE) {
        throw Tool::Failure(Tool::exitOutput, output.complaint());
    }
}

std::string noFrame(const DumpOptions& options)
{
    const std::string ids = options.ids ? " of " + canIdText(options.ids->first) + " or " +
                                              canIdText(options.ids->second)
                                        : "";
    return "got no frame" + ids +
           ", expected classic CAN data frames on a bus or in a log of candump";
}

int dump(const DumpOptions& options)
{
    Outputs outputs;
    if (!options.log.empty()) {
        outputs.log = std::make_unique<Output>(outputs.signals, options.log);
    }
    if (!options.svg.empty()) {
        outputs.picture = std::make_unique<Output>(outputs.signals, options.svg);
    }
    Dump dump(
        options, [&](const std::string& line) { outputs.lines.print(line); },
        [](const std::string& line) { Tool::complain(description, line); });
    bool complete = true;
    for (const std::string& name : options.inputs) {
        if (!outputs.signals.arrived() && outputs.good()) {
            complete = takeAll(name, outputs, dump) && complete;
        }
    }
    if (dump.frames() != 0) {
        dump.finish();
        outputs.flush();
        if (outputs.picture) {
            outputs.picture->print(dump.picture());
            outputs.picture->flush();
        }
    }
    for (const Output* output : {&outputs.lines, outputs.log.get(), outputs.picture.get()}) {
        if (output != nullptr) {
            checkWritten(*output);
        }
    }
    if (outputs.lines.error() != 0) {
        return Tool::exitFine;
    }
    for (const std::string& remark : dump.remarks()) {
        Tool::complain(description, remark);
    }
    if (complete && dump.frames() == 0) {
        throw Tool::Failure(Tool::exitFailed, noFrame(options));
    }
    return complete ? Tool::exitFine : Tool::exitBus;
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, dump);
}
