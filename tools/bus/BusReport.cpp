// SPDX-License-Identifier: MIT
#include "bus/BusReport.h"

#include <charconv>
#include <iterator>
#include <string_view>

#include <poll.h>
#include <unistd.h>

namespace {

struct Entry {
    const char* name;
    std::uint64_t BusCounters::*counter;
    const char* refusal; ///< Words after the number; null if the counter counts no refusals.
};

constexpr Entry entries[] = {
    {"nodes", &BusCounters::present, nullptr},
    {"connections", &BusCounters::nodes, nullptr},
    {"carried", &BusCounters::carried, nullptr},
    {"delivered", &BusCounters::delivered, nullptr},
    {"dropped", &BusCounters::overflowDrops, "frames dropped for nodes that read too slowly"},
    {"unusable", &BusCounters::unusable,
     "packets refused, expected exactly one record of a classic frame"},
    {"refused_full", &BusCounters::tooMany, "connections refused, the bus is full: see --nodes"},
    {"refused_resources", &BusCounters::noResource,
     "connections refused, no memory or no descriptor"},
    {"fault_drops", &BusCounters::faultDrops, nullptr},
    {"fault_duplicates", &BusCounters::duplicates, nullptr},
    {"fault_strays", &BusCounters::strays, nullptr},
};

/// A line for stderr. If stderr does not take it at once, as a terminal that was stopped, it is dropped: the
/// program must still end when a signal arrives.
class Line {
public:
    bool isEmpty() const { return length == 0; }
    Line& operator<<(std::string_view words)
    {
        length += words.copy(text + length, sizeof text - length);
        return *this;
    }
    Line& operator<<(std::uint64_t number)
    {
        char digits[24];
        const char* const end = std::to_chars(digits, std::end(digits), number).ptr;
        return *this << std::string_view(digits, static_cast<std::size_t>(end - digits));
    }
    void print() const
    {
        pollfd output{STDERR_FILENO, POLLOUT, 0};
        if (poll(&output, 1, 0) == 1 && write(STDERR_FILENO, text, length) == -1) {
            return; // there is nobody to complain to
        }
    }

private:
    char text[512]{};
    std::size_t length = 0;
};

} // namespace

void BusReport::printJson(const BusCounters& counters)
{
    Line line;
    for (const Entry& entry : entries) {
        line << (line.isEmpty() ? "{\"" : ",\"") << entry.name << "\":" << counters.*entry.counter;
    }
    line << "}\n";
    line.print();
}

void BusReport::printSummary(const BusCounters& counters)
{
    Line line;
    line << "velkcan-bus: " << counters.nodes << " nodes, " << counters.carried
         << " frames carried, " << counters.delivered << " delivered, " << counters.overflowDrops
         << " dropped, " << counters.unusable << " unusable, "
         << counters.tooMany + counters.noResource << " connections refused\n";
    line.print();
}

void BusReport::printRefusals(const BusCounters& before, const BusCounters& now)
{
    for (const Entry& entry : entries) {
        const std::uint64_t count = now.*entry.counter - before.*entry.counter;
        if (entry.refusal != nullptr && count != 0) {
            Line line;
            line << "velkcan-bus: " << count << " " << entry.refusal << "\n";
            line.print();
        }
    }
}
