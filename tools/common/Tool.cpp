// SPDX-License-Identifier: MIT
#include "common/Tool.h"

#include "common/CANId.h"
#include "common/Options.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <sstream>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

/// In each man page, where it becomes a section.
constexpr const char* exitStatus = R"(
Exit status:
  0  success; for velkcan-bus, velkcan-dump and velkcan-proxy also the end by a signal
  1  failure: a message was given up or did not arrive, a log has no frame
  2  wrong arguments or input
  3  the bus cannot be reached or is lost, a log cannot be read
  4  the output cannot be written, or is no longer read; velkcan-dump: 0
     if its reader has seen enough
  128 + N  velkcan-send or velkcan-recv was ended by signal N
)";

/// Prints only the type after the name of an option, as in a man page, and no default value in the name.
class Formatter : public CLI::Formatter {
public:
    explicit Formatter(std::string usageLine) : usage(std::move(usageLine)) {}

    std::string make_usage(const CLI::App* app, std::string) const override
    {
        return "Usage: " + app->get_name() + " " + usage + "\n";
    }
    std::string make_option_name(const CLI::Option* option, bool isPositional) const override
    {
        const std::string name = CLI::Formatter::make_option_name(option, isPositional);
        const std::size_t defaultValue = name.find('{');
        return defaultValue == std::string::npos ? name : name.substr(0, defaultValue) + "[=MS]";
    }
    std::string make_option_opts(const CLI::Option* option) const override
    {
        return option->get_type_size() == 0 ? "" : " " + option->get_type_name();
    }

private:
    const std::string usage;
};

/// Opened the wrong way round, so that a read from stdin and a write to stdout or stderr fail.
void openStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) { // open() takes the lowest number, which is this one
            static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

/// Prints the help or the version.
int finish(const CLI::App& app, const CLI::ParseError& request)
{
    std::ostringstream text;
    app.exit(request, text, text);
    Tool::print(text.str().data(), text.str().size());
    return Tool::exitFine;
}

/// Waits until the stream takes bytes. Only meanwhile are the signals that end a program not blocked.
void awaitOutput(int stream)
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        sigdelset(&mask, number);
    }
    pollfd output{stream, POLLOUT, 0};
    ppoll(&output, 1, nullptr, &mask);
}

/// In parts that a writable pipe takes at once. @return 0, or the errno value.
int writeAll(int stream, const char* bytes, std::size_t count)
{
    while (count > 0) {
        awaitOutput(stream);
        const ssize_t written = write(stream, bytes, std::min<std::size_t>(count, PIPE_BUF));
        if (written != -1) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        } else if (errno != EINTR && errno != EAGAIN) {
            return errno;
        }
    }
    return 0;
}

void addId(CLI::App& app, const std::string& name, std::uint16_t& target, const std::string& help)
{
    const auto store = [&target, name](const std::string& text) {
        const auto id = parseGivenCANId(text);
        constexpr std::uint32_t largest = 0x7FF;
        if (!id || *id > largest) {
            throw CLI::ValidationError(
                name, Tool::complaint(text, "a CAN id of 11 bits, from 0 to 7FF in hexadecimal"));
        }
        target = static_cast<std::uint16_t>(*id);
    };
    app.add_option_function<std::string>(name, store, help)->type_name("ID")->required();
}

} // namespace

std::string Tool::complaint(const std::string& given, const std::string& expected)
{
    return "got '" + given + "', expected " + expected;
}

void Tool::complain(const Description& description, const std::string& text)
{
    printError(std::string(description.name) + ": " + text);
}

int Tool::runProgram(int count, char** arguments, const Description& description,
                     const std::function<void(CLI::App&)>& declare, const std::function<int()>& run)
{
    openStandardStreams();
    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app(description.what, description.name);
    app.formatter(std::make_shared<Formatter>(description.usage));
    app.footer(std::string(description.example) + exitStatus);
    app.set_version_flag("--version", std::string(description.name) + " " + VELK_VERSION);
    try {
        try {
            declare(app);
            app.parse(count, arguments);
        } catch (const CLI::ValidationError& error) {
            throw Failure(exitUsage, error.what());
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() == 0) {
                return finish(app, error);
            }
            throw Failure(exitUsage, std::string(error.what()) + "; expected " + description.usage);
        }
        return run();
    } catch (const Interrupted& interrupted) {
        constexpr int bySignal = 128;
        return bySignal + interrupted.signal;
    } catch (const OutputClosed&) {
        return exitOutput;
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
    app.callback([&connection] {
        if (connection.ownId == connection.peerId) {
            throw CLI::ValidationError(
                "-d", complaint(canIdText(connection.peerId), "another id than that of -s"));
        }
    });
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
        printError(std::string("[") + tags[static_cast<int>(level)] + "] " + line);
    };
}

void Tool::print(const void* bytes, std::size_t count)
{
    const int error = writeAll(STDOUT_FILENO, static_cast<const char*>(bytes), count);
    if (error == EPIPE) {
        throw OutputClosed{};
    }
    if (error != 0) {
        throw Failure(exitOutput,
                      std::string("cannot write to standard output: ") + std::strerror(error));
    }
}

void Tool::printError(const std::string& line)
{
    writeAll(STDERR_FILENO, (line + '\n').data(), line.size() + 1);
}
