#include "common/Tool.h"

#include "common/CANId.h"
#include "common/Options.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sstream>

namespace {

/// Prints only the type after the name of an option, as in a man page.
struct Formatter : CLI::Formatter {
    std::string make_option_opts(const CLI::Option* option) const override
    {
        return option->get_type_size() == 0 ? "" : " " + option->get_type_name();
    }
};

void addId(CLI::App& app, const std::string& name, std::uint16_t& target, const std::string& help)
{
    const auto store = [&target, name](const std::string& text) {
        const auto id = parseCANId(text);
        constexpr std::uint32_t largest = 0x7FF;
        if (!id || *id > largest) {
            throw CLI::ValidationError(
                name, Tool::complaint(text, "a CAN id from 0 to 7FF in hexadecimal"));
        }
        target = static_cast<std::uint16_t>(*id);
    };
    app.add_option_function<std::string>(name, store, help)->type_name("ID")->required();
}

/// Prints what --help or --version asks for.
int printInformation(const CLI::App& app, const CLI::ParseError& request,
                     const Tool::Description& description)
{
    std::ostringstream stream;
    app.exit(request, stream, stream);
    const std::string text = stream.str();
    const bool written =
        std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (!written && errno != EPIPE) { // its reader may have seen enough
        Tool::complain(description, "cannot write to standard output");
        return Tool::exitOutput;
    }
    return Tool::exitFine;
}

} // namespace

std::string Tool::complaint(const std::string& given, const std::string& expected)
{
    return "got '" + given + "', expected " + expected;
}

void Tool::complain(const Description& description, const std::string& text)
{
    std::fprintf(stderr, "%s: %s\n", description.name, text.c_str());
}

int Tool::runProgram(int count, char** arguments, const Description& description,
                     const std::function<void(CLI::App&)>& declare, const std::function<int()>& run)
{
    CLI::App app(description.what, description.name);
    app.formatter(std::make_shared<Formatter>());
    app.footer(description.example);
    app.set_version_flag("--version", std::string(description.name) + " " + VELK_VERSION);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        declare(app);
        app.parse(count, arguments);
        return run();
    } catch (const CLI::ValidationError& error) {
        complain(description, error.what());
        return exitUsage;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return printInformation(app, error, description);
        }
        complain(description, std::string(error.what()) + "; expected " + description.usage);
        return exitUsage;
    } catch (const Failure& failure) {
        complain(description, failure.what());
        return failure.exitCode;
    } catch (const std::exception& error) {
        complain(description, error.what());
        return description.exitCode;
    }
}

void Tool::addConnection(CLI::App& app, Connection& connection)
{
    addId(app, "-s", connection.ownId, "Own CAN id, in hexadecimal");
    addId(app, "-d", connection.peerId, "The peer's CAN id, in hexadecimal");
    app.add_option("BUS", connection.bus, "can0, unix:PATH or exec:COMMAND")
        ->required()
        ->type_name("");
    app.add_flag("-v", connection.verbosity,
                 "Show the log on stderr; -vv, -vvv and -vvvv show more");
}

CANTransportClient::Options Tool::clientOptions(const Connection& connection)
{
    CANTransportClient::Options options;
    options.sendId = connection.ownId;
    options.receiveId = connection.peerId;
    options.debugLevel = std::max(0, connection.verbosity - 1);
    if (connection.verbosity > 0) {
        options.log = logToStderr();
    }
    return options;
}

LogUtil::Sink Tool::logToStderr()
{
    return [](LogUtil::Level level, const std::string& line) {
        constexpr const char* tags[] = {"DEBUG", "INFO", "ERROR"};
        std::fprintf(stderr, "[%s] %s\n", tags[static_cast<int>(level)], line.c_str());
    };
}

void Tool::print(const void* bytes, std::size_t count)
{
    if (std::fwrite(bytes, 1, count, stdout) != count || std::fflush(stdout) != 0) {
        throw Failure(exitOutput, "cannot write to standard output");
    }
}
