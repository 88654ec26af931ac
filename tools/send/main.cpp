#include "common/Options.h"
#include "common/ProgressBar.h"
#include "common/Tool.h"
#include "send/MessageSource.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>

namespace {

constexpr Tool::Description description{
    "velkcan-send",
    "Sends a message to a peer on a CAN bus, and says whether the peer has acknowledged it. The\n"
    "message comes from stdin as hexadecimal bytes, if no option says otherwise. What the peer\n"
    "sends meanwhile is acknowledged and dropped.\n",
    "-s ID -d ID [options] BUS",
    "Exit status: 0 acknowledged; 1 given up; 2 wrong arguments or input; 3 no bus.\n"
    "\n"
    "Example:\n"
    "  echo 'DE AD BEEF' | velkcan-send -s 123 -d 456 can0\n"};

using Clock = CANTransportClient::Clock;

struct Options {
    Tool::Line line;
    std::string file;
    bool raw = false;
    std::uint64_t generated = 0;
    std::uint64_t count = 1;
    std::uint64_t timeoutMs = 0;
};

void declare(CLI::App& app, Options& options)
{
    constexpr std::uint64_t one = 1;
    constexpr std::uint64_t longest = CANTransportThread::MAX_MESSAGE_LENGTH;
    constexpr std::uint64_t longestTimeoutMs = INT32_MAX;
    Tool::addLine(app, options.line);
    auto* const file =
        app.add_option("--file", options.file, "Send the bytes of this file")->type_name("FILE");
    auto* const raw = app.add_flag("--raw", options.raw, "Take stdin as it is, not as hexadecimal");
    Tool::addNumber(app, "-D LEN", options.generated, one, longest,
                    "Send so many bytes: 01 02 03 and so on");
    Tool::addNumber(app, "-l N", options.count, one, UINT64_MAX, "Send the message so many times");
    Tool::addNumber(app, "--timeout MS", options.timeoutMs, one, longestTimeoutMs,
                    "Give a message up after so many milliseconds\n"
                    "(default: when the protocol does)");
    file->excludes(raw)->excludes("-D");
    raw->excludes("-D");
}

MessageSource::Bytes messageOf(const Options& options)
{
    if (options.generated != 0) {
        return MessageSource::generated(options.generated);
    }
    if (!options.file.empty()) {
        return MessageSource::fromFile(options.file);
    }
    return options.raw ? MessageSource::asTheyAre(std::cin, "standard input")
                       : MessageSource::fromHex(std::cin);
}

bool sendOne(CANTransportClient& client, const MessageSource::Bytes& message,
             std::uint64_t timeoutMs)
{
    const auto result =
        timeoutMs == 0 ? client.send(message)
                       : client.send(message, Clock::now() + std::chrono::milliseconds(timeoutMs));
    if (result != CANTransportClient::SendResult::acknowledged) {
        client.receive(std::chrono::milliseconds(0)); // throws if the bus is lost
    }
    return result == CANTransportClient::SendResult::acknowledged;
}

void report(std::uint64_t sent, std::size_t bytes, Clock::duration time)
{
    const double seconds = std::max(std::chrono::duration<double>(time).count(), 1e-6);
    std::printf("%llu messages in %.2f s, %.1f messages/s, %.0f bytes/s\n",
                static_cast<unsigned long long>(sent), seconds, static_cast<double>(sent) / seconds,
                static_cast<double>(sent * bytes) / seconds);
}

int send(const Options& options)
{
    const auto message = messageOf(options);
    const Tool::LibraryLog log(options.line);
    auto clientOptions = Tool::clientOptions(options.line);
    clientOptions.queueLength = 0;
    CANTransportClient client(options.line.bus, clientOptions);
    const auto begin = Clock::now();
    ProgressBar bar;
    std::uint64_t sent = 0;
    while (sent < options.count && sendOne(client, message, options.timeoutMs)) {
        bar.show(++sent, options.count);
    }
    bar.erase();
    if (options.count > 1 && sent > 0) {
        report(sent, message.size(), Clock::now() - begin);
    }
    if (sent < options.count) {
        Tool::complain(description, "message " + std::to_string(sent + 1) + " was given up");
        return Tool::exitFailed;
    }
    return Tool::exitFine;
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, send);
}
