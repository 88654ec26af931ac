// SPDX-License-Identifier: MIT
#include "demo/Summary.h"

#include "velk/CANTransportFrame.h"

#include "bus/Pace.h"
#include "demo/Exchange.h"

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <sstream>

namespace {

std::size_t longestMessage(const DemoOptions& options, std::size_t fileBytes)
{
    return std::min(options.longestMessage(), fileBytes + 1);
}

/// The time limit starts after the first frame; a single frame counts as one.
unsigned int framesAfterTheFirst(std::size_t messageBytes)
{
    const auto bytes = static_cast<unsigned int>(messageBytes);
    return std::max(CANTransportFrame::frameCountOf(bytes) - 1, 1U);
}

std::string perSecond(double amount, std::chrono::duration<double> time)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(0) << amount / std::max(time.count(), 1e-6);
    return text.str();
}

std::string seconds(std::chrono::duration<double> time)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << time.count() << " s";
    return text.str();
}

template <typename Number> std::string counted(Number number, const std::string& what)
{
    return std::to_string(number) + ' ' + what;
}

std::string statusTally(const ExchangeResult& result)
{
    std::ostringstream text;
    for (const auto& [status, count] : result.statusChanges) {
        text << (text.tellp() == 0 ? "" : ", ") << count << ' ' << status;
    }
    return text.str();
}

} // namespace

std::string paceWarning(const DemoOptions& options, std::size_t fileBytes)
{
    const std::size_t longest = longestMessage(options, fileBytes);
    const std::size_t sharingTheBus = 2 * options.pairs;
    const auto bits = static_cast<double>(framesAfterTheFirst(longest) * sharingTheBus *
                                          Pace::bitsOfFrame(CANTransportFrame::dataBytes));
    const auto bitrate = static_cast<double>(options.bitrate);
    if (options.bitrate == 0 || bits <= bitrate) {
        return "";
    }
    return "at " + std::to_string(options.bitrate) + " bit/s a message of " +
           std::to_string(longest) + " bytes takes up to " +
           seconds(std::chrono::duration<double>(bits / bitrate)) +
           " on the shared bus, but must arrive within 1 s";
}

std::vector<std::string> summary(const Input& input, const ExchangeResult& result)
{
    const Direction::Counters& sent = result.directions;
    const VirtualBus::Counters& bus = result.bus;
    const std::uint64_t frames = bus.carried + bus.faultDrops;
    return {
        "file         " + input.name + ", " + counted(input.bytes.size(), "bytes"),
        "arrived      " + counted(sent.nibbles / 2, "bytes in ") +
            counted(sent.messages, "messages, ") + seconds(result.time),
        "throughput   " + perSecond(static_cast<double>(sent.nibbles) / 2, result.time) +
            " bytes/s, " + perSecond(static_cast<double>(frames), result.time) + " frames/s",
        "status       " + statusTally(result),
        "retries      " + counted(result.retries(),
                                  "by the endpoints (first and single frames beyond one "
                                  "for each request)"),
        "sent again   " + counted(sent.givenUp + sent.falseAcknowledgements, "by the demo: ") +
            counted(sent.givenUp, "given up, ") +
            counted(sent.falseAcknowledgements, "falsely acknowledged"),
        "repeats      " + counted(sent.repeats, "messages arrived once more"),
        "bus          " + counted(bus.carried, "frames carried, ") +
            counted(bus.delivered, "delivered, ") + counted(bus.overflowDrops, "overflowed, ") +
            counted(bus.unusable, "unusable"),
        "faults       " + counted(bus.faultDrops, "dropped, ") +
            counted(bus.duplicates, "duplicated, ") + counted(bus.strays, "stray"),
    };
}
