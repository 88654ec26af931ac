#include "dump/DumpOptions.h"

#include "common/CANId.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace {

constexpr const char* description =
    "Reads what candump has logged (candump -L) or prints, and prints each frame in words, and "
    "each\n"
    "message put together behind the frame that ends it: acknowledged; refused, by code 0 or 2;\n"
    "restarted, which is to say sent again before an answer; or incomplete.\n";

constexpr const char* footer =
    "\nWithout -s and -d all ids are followed, and the log has to tell who answers whom: an "
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
    "  velkcan-dump --stats candump-2024-01-31_120000.log\n";

std::uint32_t parseId(const std::string& option, const std::string& text)
{
    const auto id = parseCANId(text);
    if (!id) {
        throw CLI::ValidationError(option, "got '" + text +
                                               "', expected a hexadecimal id up to 7FF, or one of "
                                               "8 digits up to 1FFFFFFF");
    }
    return *id;
}

void takeIds(const std::string& own, const std::string& peer, DumpOptions& options)
{
    if (own.empty() && peer.empty()) {
        return;
    }
    if (own.empty() || peer.empty()) {
        throw CLI::ValidationError(own.empty() ? "-d" : "-s",
                                   "got it alone, expected -s and -d, or neither");
    }
    options.ids = {parseId("-s", own), parseId("-d", peer)};
    if (options.ids->first == options.ids->second) {
        throw CLI::ValidationError("-d", "got '" + peer + "' for both, expected two different ids");
    }
}

} // namespace

std::optional<DumpOptions> readDumpOptions(int count, char** arguments, int& exitCode)
{
    DumpOptions options;
    std::string own;
    std::string peer;
    CLI::App app(description, dumpName);
    app.set_version_flag("--version", std::string(dumpName) + " " + VELK_VERSION);
    app.footer(footer);
    app.add_option("FILE", options.file, "The log (default: standard input)");
    app.add_option("-s", own, "Follow only this id and its peer")->type_name("ID");
    app.add_option("-d", peer, "The peer's id")->type_name("ID");
    app.add_flag("--ladder", options.ladder, "Draw each frame on an arrow between the two ids");
    app.add_flag("--stats", options.stats,
                 "Print only a table at the end; with --ladder that too. For each\n"
                 "direction: messages, how many were acknowledged, retries, refused\n"
                 "attempts, and times from first frame to acknowledgement");
    try {
        app.parse(count, arguments);
        takeIds(own, peer, options);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            exitCode = app.exit(error);
            return std::nullopt;
        }
        const bool said = dynamic_cast<const CLI::ValidationError*>(&error) != nullptr;
        std::cerr << dumpName << ": " << error.what()
                  << (said ? "" : "; expected [-s ID -d ID] [--ladder] [--stats] [FILE]")
                  << std::endl;
        exitCode = dumpExitUsage;
        return std::nullopt;
    }
    return options;
}
