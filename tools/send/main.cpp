// SPDX-License-Identifier: MIT
#include "common/Options.h"
#include "common/ProgressBar.h"
#include "send/LineReader.h"
#include "send/Sender.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>

#include <unistd.h>

namespace {

constexpr Tool::Description description{
    "velkcan-send",
    R"(Sends a message to a peer on a CAN bus, and reports whether the peer has acknowledged it.
Without other options it reads the message from stdin as hexadecimal bytes. Messages that
the peer sends while it runs are acknowledged and dropped, except replies.
)",
    "-s ID -d ID [options] BUS",
    R"(Examples:
  echo 'DE AD BEEF' | velkcan-send -s 123 -d 456 can0

  echo '22 F1 90' | velkcan-send -s 123 -d 456 --reply can0
)"};

using Clock = CANTransportClient::Clock;
using Bytes = MessageSource::Bytes;

Bytes messageOf(const SendOptions& options)
{
    constexpr const char* input = "standard input";
    if (options.generated != 0) {
        return MessageSource::generated(options.generated);
    }
    if (!options.file.empty()) {
        return MessageSource::fromFile(options.file);
    }
    return options.format.raw ? MessageSource::asTheyAre(std::cin, input)
                              : MessageSource::fromHex(std::cin, input);
}

/// The rates of -l, printed however it ends.
class Report {
public:
    Report(const Sender& ofSender, std::size_t bytesOfMessage, bool besideReplies)
        : sender(ofSender),
          bytes(bytesOfMessage),
          onStderr(besideReplies)
    {
    }

    void print() const
    {
        using std::chrono::duration;
        const double seconds = std::max(duration<double>(Clock::now() - start).count(), 1e-6);
        const auto sent = sender.acknowledged();
        char line[128];
        std::snprintf(line, sizeof line, "%llu messages in %.2f s, %.1f messages/s, %.0f bytes/s",
                      static_cast<unsigned long long>(sent), seconds,
                      static_cast<double>(sent) / seconds,
                      static_cast<double>(sent * bytes) / seconds);
        if (onStderr) {
            Tool::printError(line);
        } else {
            Tool::printLine(line);
        }
    }

private:
    const Sender& sender;
    const std::size_t bytes;
    const bool onStderr;
    const Clock::time_point start = Clock::now();
};

void sendRepeatedly(Sender& sender, const Bytes& message, const SendOptions& options)
{
    const Report report(sender, message.size(), options.replyMs != 0);
    ProgressBar bar;
    std::exception_ptr failure;
    try {
        for (std::uint64_t sent = 0; sent < options.count; ++sent) {
            sender.send(message);
            bar.show(sent + 1, options.count);
        }
    } catch (...) {
        failure = std::current_exception();
    }
    bar.erase();
    try {
        report.print();
    } catch (...) { // what came first counts
        failure = failure ? failure : std::current_exception();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

/// Continues after a line that fails: the next one may be typed by hand.
/// @return the exit code of the first failure.
int sendLines(Sender& sender)
{
    LineReader input(STDIN_FILENO);
    int status = Tool::exitFine;
    for (std::uint64_t number = 1; !input.isAtEnd();) {
        const auto line = input.takeLine();
        if (!line) {
            sender.waitForInput(STDIN_FILENO);
            input.read();
            continue;
        }
        try {
            if (line->find_first_not_of(" \t\r") != std::string::npos) {
                sender.send(MessageSource::fromLine(*line));
            }
        } catch (const Tool::Failure& failure) {
            if (failure.exitCode == Tool::exitOutput) {
                throw;
            }
            Tool::complain(description, "line " + std::to_string(number) + ": " + failure.what());
            status = status == Tool::exitFine ? failure.exitCode : status;
        }
        ++number;
    }
    return status;
}

int send(const SendOptions& options)
{
    if (options.lines) {
        const Signals signals;
        Sender sender(options, signals);
        return sendLines(sender);
    }
    const Bytes message = messageOf(options); // waits for a user, whose Ctrl-C has to end it
    const Signals signals;
    Sender sender(options, signals);
    if (options.count > 1) {
        sendRepeatedly(sender, message, options);
    } else {
        sender.send(message);
    }
    return Tool::exitFine;
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declareSendOptions, send);
}
