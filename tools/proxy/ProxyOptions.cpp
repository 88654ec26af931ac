#include "proxy/ProxyOptions.h"

#include "proxy/ProxyFailure.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdint>
#include <iostream>
#include <string_view>

namespace {

constexpr std::size_t extendedDigits = 8; ///< So many tell an id of 29 bits from one of 11.

constexpr const char* description =
    "Carries CAN frames between stdin and stdout, where they are serialised trace messages, and "
    "an\n"
    "interface. A full queue of the interface holds stdin up; no frame is lost, repeated or out of "
    "order.\n";

constexpr const char* footer =
    "\nOnly data frames of classic CAN come through. SIGUSR1 and the end print the counters on "
    "stderr.\n"
    "\n"
    "Exit status: 0 stdin is at its end and all is sent, or a signal; 1 any other failure; 2 "
    "wrong\n"
    "arguments; 3 no such interface, or no CAN here; 4 the interface is down or gone; 5 nobody "
    "reads\n"
    "stdout any more.\n"
    "\n"
    "Example, a message to a device on the bus of another machine:\n"
    "  velkcan-send -s 123 -d 321 -D 20 'exec:ssh gateway velkcan-proxy --accept 321 can0'\n";

std::optional<canid_t> parseHex(std::string_view text, canid_t highest)
{
    canid_t value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, 16);
    if (result.ec != std::errc() || result.ptr != end || value > highest) {
        return std::nullopt;
    }
    return value;
}

std::optional<can_filter> parseFilter(std::string_view text)
{
    const std::size_t colon = std::min(text.find(':'), text.size());
    const bool extended = colon == extendedDigits;
    const canid_t highest = extended ? CAN_EFF_MASK : CAN_SFF_MASK;
    const auto id = parseHex(text.substr(0, colon), highest);
    const auto mask = colon == text.size() ? highest : parseHex(text.substr(colon + 1), highest);
    if (!id || !mask) {
        return std::nullopt;
    }
    // With both flags in the mask an id of 11 bits never matches one of 29, nor a remote frame.
    return can_filter{*id | (extended ? CAN_EFF_FLAG : 0), *mask | CAN_EFF_FLAG | CAN_RTR_FLAG};
}

void addAccept(CLI::App& app, ProxyOptions& options)
{
    const auto store = [&options](const std::vector<std::string>& values) {
        for (const std::string& text : values) {
            const auto filter = parseFilter(text);
            if (!filter) {
                throw CLI::ValidationError(
                    "--accept", "got '" + text +
                                    "', expected a hexadecimal id up to 7FF, or one of 8 digits up "
                                    "to 1FFFFFFF, and perhaps ':' and a mask of the same kind");
            }
            options.accepted.push_back(*filter);
        }
    };
    app.add_option_function<std::vector<std::string>>(
           "--accept", store,
           "Let only frames with this id through, where the bits of the mask decide (hexadecimal;\n"
           "an id of 8 digits has 29 bits). May be given many times (default: all ids)")
        ->type_name("ID[:MASK]")
        ->allow_extra_args(false);
}

} // namespace

std::optional<ProxyOptions> readCommandLine(int count, char** arguments, int& exitCode)
{
    ProxyOptions options;
    CLI::App app(description, proxyName);
    app.set_version_flag("--version", std::string(proxyName) + " " + VELK_VERSION);
    app.footer(footer);
    addAccept(app, options);
    app.add_option("IFACE", options.interface, "The CAN interface, as can0")->required();
    try {
        app.parse(count, arguments);
    } catch (const CLI::ValidationError& error) {
        std::cerr << proxyName << ": " << error.what() << std::endl;
        exitCode = proxyExitUsage;
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            exitCode = app.exit(error);
        } else {
            std::cerr << proxyName << ": " << error.what()
                      << "; expected [--accept ID[:MASK]]... IFACE" << std::endl;
            exitCode = proxyExitUsage;
        }
        return std::nullopt;
    }
    return options;
}
