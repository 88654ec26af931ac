// SPDX-License-Identifier: MIT
#include "Retrial.h"

using namespace std::chrono_literals;

namespace {

/// By then, a reception of the peer has ended.
constexpr auto pause = 1050ms;
constexpr int mostRetries = 3;

} // namespace

Retrial::Decision Retrial::givenUp(Time now)
{
    if (!heard) {
        return {Verdict::noAnswer, {}};
    }
    if (retries == mostRetries || now > notAfter - pause) {
        return {Verdict::refused, {}};
    }
    ++retries;
    return {Verdict::again, now + pause};
}
