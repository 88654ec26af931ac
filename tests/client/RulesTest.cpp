// SPDX-License-Identifier: MIT
#include "Gathering.h"
#include "LogLimiter.h"
#include "SendPace.h"
#include "StatusFilter.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

TEST(StatusFilter, passesEachChangeOnce)
{
    using T = CANTransportThread;
    constexpr auto nothing = std::nullopt;
    const struct {
        T::statuschange_t status = T::CTT_CONNECTED;
        bool peerAnswers = false;
        std::optional<T::statuschange_t> heard{};
    } story[] = {
        {T::CTT_SEND_TIMEOUT, true, nothing}, // refused by one who has not been reported yet
        {T::CTT_DISCONNECTED, false, T::CTT_SEND_TIMEOUT},
        {T::CTT_SEND_TIMEOUT, false, nothing},
        {T::CTT_CONNECTED, true, T::CTT_CONNECTED},
        {T::CTT_CONNECTED, true, nothing},
        {T::CTT_ACKNOWLEDGED, true, T::CTT_ACKNOWLEDGED},
        {T::CTT_ACKNOWLEDGED, true, T::CTT_ACKNOWLEDGED},
        {T::CTT_RECEIVE_TIMEOUT, true, T::CTT_RECEIVE_TIMEOUT},
        {T::CTT_DISCONNECTED, true, nothing},
        {T::CTT_SEND_TIMEOUT, false, T::CTT_DISCONNECTED}, // of a fresh endpoint
        {T::CTT_DISCONNECTED, false, nothing},
        {T::CTT_CONNECTED, true, T::CTT_CONNECTED},
    };
    StatusFilter filter;
    for (const auto& step : story) {
        const auto heard = filter.filter({step.status, 7}, step.peerAnswers);
        ASSERT_EQ(heard.has_value(), step.heard.has_value()) << &step - story;
        if (heard) {
            EXPECT_EQ(heard->status, *step.heard) << &step - story;
            EXPECT_EQ(heard->value, 7);
        }
    }
}

TEST(LogLimiter, passesTenLinesOfAKindInASecondAndTheNumberOfTheOthers)
{
    using Level = LogUtil::Level;
    std::vector<std::string> lines;
    Tally tally;
    LogLimiter log(
        [&](Level level, const std::string& line) {
            lines.push_back(std::to_string(static_cast<int>(level)) + line);
            throw std::runtime_error("of the program");
        },
        tally);
    EXPECT_TRUE(log.isActive());
    const LogLimiter::Clock::time_point start{1h};
    const auto passed = [&](Level level, const std::string& text, int count, auto after) {
        lines.clear();
        for (int i = 0; i < count; ++i) {
            log.pass(level, text + std::to_string(i), start + after);
        }
        return lines;
    };
    EXPECT_EQ(passed(Level::error, "frame ", 13, 0ms).back(), "2frame 9");
    EXPECT_EQ(passed(Level::info, "other ", 11, 0ms).size(), 10U);
    EXPECT_EQ(passed(Level::debug, "frame ", 50, 0ms).size(), 50U) << "the details are not limited";
    EXPECT_TRUE(passed(Level::error, "frame ", 1, 999ms).empty());
    EXPECT_EQ(tally.linesLeftOut, 5U);
    EXPECT_EQ(passed(Level::error, "frame ", 20, 1s).size(), 11U);
    EXPECT_EQ(lines.front(), "24 lines left out: frame ");
    EXPECT_EQ(passed(Level::error, "frame ", 1, 2s).front(), "210 lines left out: frame ");
    EXPECT_EQ(passed(Level::error, "frame ", 1, 3s).size(), 1U);
    std::size_t count = 0;
    for (char kind = 'A'; kind < 'A' + 40;
         ++kind) { // beside the two above 29 of their own, 11 share
        count += passed(Level::error, {kind}, 10, 3s).size();
    }
    EXPECT_EQ(count, 300U);
    EXPECT_EQ(passed(Level::error, "more ", 1, 4s).front(), "2100 lines left out: of other kinds");
    EXPECT_EQ(passed(Level::error, "still more ", 10, 4s).size(), 9U);
    LogLimiter silent({}, tally);
    EXPECT_FALSE(silent.isActive());
    silent.pass(Level::error, "nobody reads this");
}

TEST(Gathering, letsOnlyTheMiddleOfAMessageWait)
{
    Gathering gathering(2ms);
    Gathering::Time now{1h};
    const auto take = [&](std::uint8_t first, int count, std::chrono::microseconds after) {
        now += after;
        for (int i = 0; i < count; ++i) {
            gathering.onFrame({1, 8, {first, 100}}); // of a first frame: 14 follow it
        }
        gathering.onTaken(now);
        return gathering.pause();
    };
    for (int message = 0; message < 2; ++message) {
        EXPECT_EQ(take(0x10, 1, 50ms), message == 0 ? 0us : 1ms) << "as in the last message";
        EXPECT_EQ(take(0x20, 1, 50ms), message == 0 ? 0us : 900us);
        EXPECT_EQ(take(0x21, 2, 200us), 700us) << "7 before the last four, 100 us each";
        EXPECT_EQ(take(0x30, 1, 100us), 700us) << "is not one of them";
        EXPECT_EQ(take(0x23, 4, 300us), 300us);
        EXPECT_EQ(take(0x27, 1, 100us), 0us) << "not worthwhile";
        EXPECT_EQ(take(0x28, 2, 2h), 0us) << "the last four";
        EXPECT_EQ(take(0x20, 4, 400us), 0us);
        EXPECT_EQ(take(0x2C, 1, 100us), 0us);
    }
    take(0x10, 1, 50ms);
    take(0x20, 1, 1h);
    EXPECT_EQ(take(0x21, 1, 1h), 2ms) << "the longest";
    EXPECT_EQ(take(0x01, 1, 1ms), 0us) << "a single frame ends the message";
}

TEST(SendPace, restsUntilTheLinkIsNearlyEmpty)
{
    SendPace pace;
    SendPace::Time now{1h};
    const auto blocked = [&](int sent, std::chrono::microseconds after) {
        now += after;
        for (int i = 0; i < sent; ++i) {
            pace.onSent();
        }
        return pace.onBlocked(now);
    };
    for (int burst = 0; burst < 2; ++burst) {
        EXPECT_EQ(blocked(12, 50ms), 0us) << "the room of the link";
        EXPECT_EQ(blocked(4, 400us), 900us) << "all but three, 100 us each";
        EXPECT_EQ(blocked(12, 5ms), 1080us) << "a bus that was idle is not slow";
        EXPECT_EQ(blocked(10, 1ms), 900us);
        EXPECT_EQ(blocked(0, 1ms), 0us) << "poll() knows better";
        EXPECT_EQ(blocked(60, 400us), 0us) << "not worthwhile";
        pace.onIdle();
    }
    blocked(12, 1ms);
    EXPECT_EQ(blocked(6, 1h), 10ms) << "the longest";
    pace.onIdle();
    blocked(3, 50ms);
    EXPECT_EQ(blocked(2, 600us), 300us) << "the room is for few";
    pace.onIdle();
    blocked(12, 50ms);
    EXPECT_EQ(blocked(3, 900us), 300us) << "less than half of the room";
    pace.onIdle();
    blocked(150, 50ms); // most had left meanwhile
    EXPECT_EQ(blocked(6, 600us), 300us) << "the room is less than it seemed";
}
