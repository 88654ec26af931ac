// SPDX-License-Identifier: MIT
#pragma once

#include "bus/BusCounters.h"

/// What velkcan-bus prints on stderr. Allocates no memory, so that it works when there is none.
namespace BusReport {

/// Prints the counters as one JSON object.
void printJson(const BusCounters& counters);
/// Prints one line in words, at the end of the program.
void printSummary(const BusCounters& counters);
/// Prints one line for each kind of refusal that has happened since `before`.
void printRefusals(const BusCounters& before, const BusCounters& now);

} // namespace BusReport
