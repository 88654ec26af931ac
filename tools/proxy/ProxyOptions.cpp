// SPDX-License-Identifier: MIT
#include "proxy/ProxyOptions.h"

#include "common/CANId.h"
#include "common/Options.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace {

std::optional<can_filter> parseFilter(std::string_view text)
{
    const std::size_t sign = std::min(text.find_first_of(":~"), text.size());
    const auto id = parseCANId(text.substr(0, sign));
    const canid_t highest = id.value_or(0) > CAN_SFF_MASK ? CAN_EFF_MASK : CAN_SFF_MASK;
    const auto mask = sign == text.size() ? highest : parseHex(text.substr(sign + 1));
    if (!id || !mask || *mask > highest) {
        return std::nullopt;
    }
    const canid_t inverse = sign != text.size() && text[sign] == '~' ? CAN_INV_FILTER : 0;
    // With both flags in the mask, an 11-bit id matches neither a 29-bit id nor a remote frame.
    return can_filter{*id | inverse, *mask | CAN_EFF_FLAG | CAN_RTR_FLAG};
}

void addAccept(CLI::App& app, ProxyOptions& options)
{
    const auto store = [&options](const std::vector<std::string>& values) {
        for (const std::string& text : values) {
            const auto filter = parseFilter(text);
            if (!filter) {
                throw CLI::ValidationError(
                    "--accept",
                    Tool::complaint(
                        text, "a hexadecimal id up to 7FF, or one of 8 digits up to "
                              "1FFFFFFF, optionally with ':' or '~' and a mask of the same kind"));
            }
            options.accepted.push_back(*filter);
        }
    };
    app.add_option_function<std::vector<std::string>>(
           "--accept", store,
           "Pass only frames with this id. With a mask, only its bits of the\n"
           "id count; with ~ for :, all frames except these pass. Both are\n"
           "hexadecimal; an id of 8 digits has 29 bits. Can be repeated;\n"
           "one match is enough (default: all ids)")
        ->type_name("ID[:MASK|~MASK]")
        ->allow_extra_args(false);
}

} // namespace

void declare(CLI::App& app, ProxyOptions& options)
{
    addAccept(app, options);
    app.add_flag("--gate", options.gate,
                 "For an endpoint without the client library: stop refused\n"
                 "bursts, and pass only answers that fit what was sent");
    app.add_flag("--quiet", options.quiet, "Print no counters at the end");
    app.add_option("IFACE", options.interface, "The CAN interface, such as can0")
        ->required()
        ->type_name("");
}
