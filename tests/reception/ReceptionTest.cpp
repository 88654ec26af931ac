// SPDX-License-Identifier: MIT
#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <exception>
#include <mutex>

namespace {

using Delegate = std::function<void(CANTransportThread::statuschange_t, unsigned short)>;

/// Client code that logs, and so takes the mutex of the log.
struct LoggingException : std::exception {
    const char* what() const noexcept override
    {
        const std::unique_lock<std::mutex> lock(LogUtil::logMutex, std::try_to_lock);
        return lock.owns_lock() ? "oops" : "asked for its text under the log's mutex";
    }
};

const std::string tag = "[ERROR] CANTransportThread::";

} // namespace

TEST(Reception, aMissingOrFaultyDelegateChangesNothing)
{
    const std::string line = tag + "handleCANData() exception from the delegate: ";
    const std::pair<Delegate, std::string> rows[] = {
        {nullptr, ""},
        {[](auto, auto) { throw LoggingException(); }, line + "oops\n"},
        {[](auto, auto) { throw 1; }, line + "not a std::exception\n"},
    };
    for (auto [delegate, text] : rows) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.setDelegate(delegate);
        endpoint.frame({0x01, 5});
        EXPECT_EQ(log.out().empty(), delegate == nullptr);
        EXPECT_EQ(log.err(), text);
        EXPECT_EQ(endpoint.sent(), Lines{fc(3)});
    }
}
