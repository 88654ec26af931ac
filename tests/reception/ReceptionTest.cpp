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

TEST(Reception, aMessageIsDeliveredUnderItsShortIdAndAcknowledgedUnderTheOwnOne)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.setSendCANid(0xF923); // sent() tells every id but 0x123
    endpoint.frame({0x07, 1, 2, 3, 4, 5, 6, 7}, 0xABCD1234);
    EXPECT_EQ(endpoint.delivered(), (std::vector<Bytes>{{1, 2, 3, 4, 5, 6, 7}}));
    EXPECT_EQ(endpoint.lastDeliveredId, 0x1234U);
    endpoint.framesOf(pattern(13), 0, 1);
    endpoint.frame({0x20}, 0x12345);
    endpoint.delivered();
    EXPECT_EQ(endpoint.lastDeliveredId, 0x2345U) << "of the frame that makes it whole";
    EXPECT_EQ(endpoint.sent(), (Lines{fc(3), fc(1), fc(3)}));
}

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
