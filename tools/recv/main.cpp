#include "common/Options.h"
#include "common/Tool.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <sstream>

namespace {

constexpr Tool::Description description{
    "velkcan-recv",
    "Prints messages from a peer on a CAN bus, each as hexadecimal bytes on a line; one message, "
    "if no\n"
    "option says otherwise. Up to 1024 wait to be printed: the peer gets an acknowledgement when "
    "a\n"
    "message has come, and what is not printed by the end is lost.\n",
    "-s ID -d ID [options] BUS",
    "Exit status: 0 all came; 1 timeout; 2 wrong arguments; 3 no bus; 4 the output\n"
    "cannot be written.\n"
    "\n"
    "Example:\n"
    "  velkcan-recv -s 456 -d 123 -l can0\n"};

using Message = CANTransportClient::Message;

struct Options {
    Tool::Line line;
    bool forEver = false;
    std::uint64_t count = 1;
    std::uint64_t timeoutMs = 0;
    bool raw = false;
    bool json = false;
    bool status = false;
};

void declare(CLI::App& app, Options& options)
{
    Tool::addLine(app, options.line);
    constexpr std::uint64_t one = 1;
    constexpr std::uint64_t longestTimeoutMs = INT32_MAX;
    Tool::addNumber(app, "-n N", options.count, one, UINT64_MAX,
                    "Print so many messages (default: 1)");
    app.add_flag("-l", options.forEver, "Print messages for ever")->excludes("-n");
    Tool::addNumber(app, "--timeout MS", options.timeoutMs, one, longestTimeoutMs,
                    "End if none comes for so many milliseconds (default: wait)");
    auto* const raw = app.add_flag("--raw", options.raw, "Print the bytes as they are");
    app.add_flag("--json", options.json,
                 "Print one JSON object a line: time (seconds), id, length, data")
        ->excludes(raw);
    app.add_flag("--status", options.status, "Print status changes on stderr");
}

std::string hexOf(const CANTransportClient::Bytes& bytes, const char* separator)
{
    constexpr const char* digits = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += text.empty() ? "" : separator;
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

std::string jsonOf(const Message& message)
{
    using std::chrono::system_clock;
    const std::chrono::duration<double> time = system_clock::now().time_since_epoch();
    char head[96];
    std::snprintf(head, sizeof head, R"({"time":%.6f,"id":"%03X","length":%zu,"data":")",
                  time.count(), message.canID, message.bytes.size());
    return head + hexOf(message.bytes, "") + "\"}\n";
}

void print(const Message& message, const Options& options)
{
    if (options.raw) {
        Tool::print(message.bytes.data(), message.bytes.size());
        return;
    }
    const std::string line = options.json ? jsonOf(message) : hexOf(message.bytes, " ") + '\n';
    Tool::print(line.data(), line.size());
}

void printStatus(CANTransportClient::Status status, unsigned short value)
{
    std::ostringstream line;
    line << status << ' ' << value << '\n';
    std::fputs(line.str().c_str(), stderr);
}

int receive(const Options& options)
{
    const Tool::LibraryLog log(options.line);
    auto clientOptions = Tool::clientOptions(options.line);
    if (options.status) {
        clientOptions.statusHandler = printStatus;
    }
    const auto timeout = options.timeoutMs == 0 ? std::chrono::milliseconds::max()
                                                : std::chrono::milliseconds(options.timeoutMs);
    CANTransportClient client(options.line.bus, clientOptions);
    for (std::uint64_t left = options.count; options.forEver || left > 0; --left) {
        const auto message = client.receive(timeout);
        if (!message) {
            Tool::complain(description,
                           "no message within " + std::to_string(options.timeoutMs) + " ms");
            return Tool::exitFailed;
        }
        print(*message, options);
    }
    return Tool::exitFine;
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, receive);
}
