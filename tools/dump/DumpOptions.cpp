#include "dump/DumpOptions.h"

#include "common/CANId.h"
#include "common/Options.h"

#include <memory>

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

} // namespace

void declare(CLI::App& app, DumpOptions& options)
{
    const auto ids = std::make_shared<std::pair<std::string, std::string>>();
    app.add_option("FILE", options.inputs, "Logs of candump, - for standard input (default: -)")
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
    app.callback([ids, &options, own] {
        if (options.inputs.empty()) {
            options.inputs = {"-"};
        }
        if (*own) {
            takeIds(ids->first, ids->second, options);
        }
    });
}
