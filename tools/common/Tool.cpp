#include "common/Tool.h"

#include <charconv>
#include <csignal>
#include <iostream>
#include <streambuf>

#include <unistd.h>

namespace {

struct Nowhere : std::streambuf {
    int overflow(int character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

int complain(const Tool::Description& description, const char* text, int exitCode)
{
    std::fprintf(stderr, "%s: %s\n", description.name, text);
    return exitCode;
}

/// What the library logs while it lives.
class LogTarget {
public:
    explicit LogTarget(bool verbose)
    {
        std::cout.rdbuf(verbose ? std::cerr.rdbuf() : &nowhere);
        if (!verbose) {
            std::cerr.rdbuf(&nowhere);
        }
    }
    ~LogTarget()
    {
        std::cout.rdbuf(standardOutput);
        std::cerr.rdbuf(standardError);
    }
    LogTarget(const LogTarget&) = delete;
    LogTarget& operator=(const LogTarget&) = delete;

private:
    Nowhere nowhere;
    std::streambuf* const standardOutput = std::cout.rdbuf();
    std::streambuf* const standardError = std::cerr.rdbuf();
};

template <typename Number> bool parse(const std::string& text, Number& number, int base)
{
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, base);
    return result.ec == std::errc() && result.ptr == end;
}

void addId(CLI::App& app, const std::string& name, std::uint16_t& target, const std::string& help)
{
    const auto store = [&target, name](const std::string& text) {
        constexpr std::uint16_t largest = 0x7FF;
        if (!parse(text, target, 16) || target > largest) {
            throw CLI::ValidationError(
                name, Tool::complaint(text, "a CAN id from 0 to 7FF in hexadecimal"));
        }
    };
    app.add_option_function<std::string>(name, store, help)->type_name("ID")->required();
}

} // namespace

std::string Tool::complaint(const std::string& given, const std::string& expected)
{
    return "got '" + given + "', expected " + expected;
}

int Tool::runProgram(int count, char** arguments, const Description& description,
                     const std::function<void(CLI::App&)>& declare,
                     const std::function<int(int)>& run)
{
    int verbosity = 0;
    CLI::App app(description.what, description.name);
    app.footer(description.example);
    app.set_version_flag("--version", std::string(description.name) + " " + VELK_VERSION);
    app.add_flag("-v", verbosity, "Show the log on stderr; -vv and so on show more of it");
    try {
        declare(app);
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error)
                                          : complain(description, error.what(), exitUsage);
    }
    std::signal(SIGPIPE, SIG_IGN); // a reader of the output who has gone shows as a failed write
    try {
        const LogTarget target(verbosity > 0);
        return run(std::max(0, verbosity - 1));
    } catch (const UsageError& error) {
        return complain(description, error.what(), exitUsage);
    } catch (const std::exception& error) {
        return complain(description, error.what(), exitBus);
    }
}

void Tool::addLine(CLI::App& app, Line& line)
{
    addId(app, "-s", line.ownId, "The own CAN id, in hexadecimal");
    addId(app, "-d", line.peerId, "The peer's CAN id, in hexadecimal");
    app.add_option("BUS", line.bus, "can0, unix:PATH or exec:COMMAND")->required();
}

CANTransportClient::Options Tool::clientOptions(const Line& line, int debugLevel)
{
    CANTransportClient::Options options;
    options.sendId = line.ownId;
    options.receiveId = line.peerId;
    options.debugLevel = debugLevel;
    return options;
}

std::uint64_t Tool::parseNumber(const std::string& name, const std::string& text,
                                std::uint64_t lowest, std::uint64_t highest)
{
    std::uint64_t number = 0;
    if (!parse(text, number, 10) || number < lowest || number > highest) {
        throw CLI::ValidationError(name, complaint(text, "a number from " + std::to_string(lowest) +
                                                             " to " + std::to_string(highest)));
    }
    return number;
}

void Tool::print(const void* bytes, std::size_t count)
{
    if (std::fwrite(bytes, 1, count, stdout) != count || std::fflush(stdout) != 0) {
        throw std::runtime_error("cannot write to standard output");
    }
}
