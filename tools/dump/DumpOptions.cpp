// SPDX-License-Identifier: MIT
#include "dump/DumpOptions.h"

#include "common/CANId.h"
#include "common/Options.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>

#include <unistd.h>

namespace {

std::uint32_t parseId(const std::string& option, const std::string& text)
{
    const auto id = parseCANId(text);
    if (!id) {
        throw CLI::ValidationError(
            option, Tool::complaint(text, "a hexadecimal id up to 7FF, or one of 8 digits up to "
                                          "1FFFFFFF"));
    }
    return *id;
}

void takeIds(const std::string& own, const std::string& peer, DumpOptions& options)
{
    options.ids = {parseId("-s", own), parseId("-d", peer)};
    if (options.ids->first == options.ids->second) {
        throw CLI::ValidationError("-d", "got '" + peer + "' for both, expected two different ids");
    }
}

/// Adds an option that takes one of several words.
void addChoice(CLI::App& app, const std::string& name, const std::string& type,
               const std::vector<std::string>& words, const std::string& expected,
               const std::function<void(const std::string&)>& take, const std::string& help)
{
    const auto check = [=](const std::string& word) {
        if (std::find(words.begin(), words.end(), word) == words.end()) {
            throw CLI::ValidationError(name, Tool::complaint(word, expected));
        }
        take(word);
    };
    app.add_option_function<std::string>(name, check, help)->type_name(type);
}

/// An output is truncated before the inputs are read.
void keepApart(const std::string& option, const std::string& output, const DumpOptions& options)
{
    for (const std::string& input : options.inputs) {
        std::error_code ignored;
        if (!output.empty() &&
            std::filesystem::equivalent(input == "-" ? "/dev/stdin" : input, output, ignored) &&
            std::filesystem::is_regular_file(output, ignored)) {
            throw CLI::ValidationError(option,
                                       "got the input '" + input + "', expected another file");
        }
    }
}

bool showsColours()
{
    const char* const terminal = std::getenv("TERM");
    const char* const none = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && terminal != std::string("dumb") &&
           (none == nullptr || *none == '\0');
}

} // namespace

void declare(CLI::App& app, DumpOptions& options)
{
    const auto ids = std::make_shared<std::pair<std::string, std::string>>();
    app.add_option("INPUT", options.inputs,
                   "A bus (can0, unix:PATH or exec:COMMAND), or logs of candump\n"
                   "(- for standard input, the default)")
        ->type_name("");
    auto* const own = app.add_option("-s", ids->first, "Follow only this id and its peer");
    auto* const peer = app.add_option("-d", ids->second, "The peer's id");
    own->type_name("ID")->needs(peer);
    peer->type_name("ID")->needs(own);
    app.add_flag("--ladder", options.ladder, "Draw each frame on an arrow between the two ids");
    app.add_flag("--stats", options.stats,
                 "Print only a table at the end; with --ladder print both. For each\n"
                 "direction: messages, how many were acknowledged, retries, refused\n"
                 "attempts, and times from first frame to acknowledgement");
    addChoice(
        app, "-t", "STYLE", {"a", "d", "z", "A"}, "a, d, z or A",
        [&options](const std::string& word) { options.times = word.front(); },
        "Print times as candump does: a absolute, d since the previous\n"
        "frame, z since the first frame, A with date");
    app.add_flag("-a", options.ascii, "Print the characters of the bytes as well");
    options.colour = showsColours();
    addChoice(
        app, "--color", "WHEN", {"auto", "always", "never"}, "auto, always or never",
        [&options](const std::string& word) {
            options.colour = word == "always" || (word == "auto" && showsColours());
        },
        "auto, always or never (default: auto, on a terminal)");
    app.add_option("--log", options.log, "Write the followed frames to a file, as candump -L does")
        ->type_name("FILE");
    app.add_option("--svg", options.svg,
                   "Draw the ladder of the followed frames, at most 1000, as a\n"
                   "picture with the times to scale")
        ->type_name("FILE");
    app.callback([ids, &options, own] {
        if (options.inputs.empty()) {
            options.inputs = {"-"};
        }
        keepApart("--log", options.log, options);
        keepApart("--svg", options.svg, options);
        if (*own) {
            takeIds(ids->first, ids->second, options);
        }
    });
}
