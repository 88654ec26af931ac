#include "bus/BusReport.h"

#include <cinttypes>
#include <cstdio>

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

} // namespace

void BusReport::printJson(const BusCounters& counters)
{
    char line[512];
    std::size_t length = 0;
    for (const Entry& entry : entries) {
        length += static_cast<std::size_t>(
            std::snprintf(line + length, sizeof line - length, "%s\"%s\":%" PRIu64,
                          length == 0 ? "{" : ",", entry.name, counters.*entry.counter));
    }
    std::fprintf(stderr, "%s}\n", line);
}

void BusReport::printSummary(const BusCounters& counters)
{
    std::fprintf(stderr,
                 "velkcan-bus: %" PRIu64 " nodes, %" PRIu64 " frames carried, %" PRIu64
                 " delivered, %" PRIu64 " dropped, %" PRIu64 " unusable, %" PRIu64
                 " connections refused\n",
                 counters.nodes, counters.carried, counters.delivered, counters.overflowDrops,
                 counters.unusable, counters.tooMany + counters.noResource);
}

void BusReport::printRefusals(const BusCounters& before, const BusCounters& now)
{
    for (const Entry& entry : entries) {
        const std::uint64_t count = now.*entry.counter - before.*entry.counter;
        if (entry.refusal != nullptr && count != 0) {
            std::fprintf(stderr, "velkcan-bus: %" PRIu64 " %s\n", count, entry.refusal);
        }
    }
}
