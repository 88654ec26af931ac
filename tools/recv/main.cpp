#include "common/Options.h"
#include "common/Tool.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <sstream>

namespace {

constexpr Tool::Description description{
    "velkcan-recv",
    R"(Prints messages from a peer on a CAN bus, each as a line of hexadecimal bytes. Without
other options it prints one message. The peer gets an acknowledgement when a message has
arrived. Up to 1024 messages wait to be printed; those not printed by the end are lost.
)",
    "-s ID -d ID [options] BUS",
    R"(Exit status: 0 all messages arrived; 1 timeout; 2 wrong arguments; 3 no bus; 4 the output
cannot be written.

Example:
  velkcan-recv -s 456 -d 123 -l can0
)"};

using Message = CANTransportClient::Message;

struct Options {
    Tool::Connection connection;
    bool forever = false;
    std::uint64_t count = 1;
    std::uint64_t timeoutMs = 0;
    bool raw = false;
    bool json = false;
    bool status = false;
};

void declare(CLI::App& app, Options& options)
{
    Tool::addConnection(app, options.connection);
    constexpr std::uint64_t one = 1;
    constexpr std::uint64_t longestTimeoutMs = INT32_MAX;
    Tool::addNumber(app, "-n N", options.count, one, UINT64_MAX, "Print N messages (default: 1)");
    app.add_flag("-l", options.forever, "Print messages forever")->excludes("-n");
    Tool::addNumber(app, "--timeout MS", options.timeoutMs, one, longestTimeoutMs,
                    "End if no message arrives for MS milliseconds (default: wait)");
    auto* const raw = app.add_flag("--raw", options.raw, "Print the bytes as they are");
    app.add_flag("--json", options.json,
                 "Print a JSON object on each line: time (seconds), id, length,\ndata")
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
    auto clientOptions = Tool::clientOptions(options.connection);
    if (options.status) {
        clientOptions.statusHandler = printStatus;
    }
    const auto timeout = options.timeoutMs == 0 ? std::chrono::milliseconds::max()
                                                : std::chrono::milliseconds(options.timeoutMs);
    CANTransportClient client(options.connection.bus, clientOptions);
    for (std::uint64_t left = options.count; options.forever || left > 0; --left) {
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
