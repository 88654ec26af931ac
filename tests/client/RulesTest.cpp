#include "LogLimiter.h"
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
