#include "bus/FaultInjector.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

CANFrame frameWith(std::uint8_t head) { return {0x123, 8, {head}}; }

/// The heads of a message of `count` consecutive frames.
std::vector<CANFrame> message(unsigned int count)
{
    std::vector<CANFrame> frames{frameWith(0x10)};
    for (unsigned int i = 0; i < count; ++i) {
        frames.push_back(frameWith(static_cast<std::uint8_t>(0x20 | i % 16)));
    }
    return frames;
}

bool isWrongForEveryReceiver(const CANFrame& stray, unsigned int due)
{
    const unsigned int low = stray.data[0] & 0x0FU;
    switch (stray.data[0] >> 4U) {
    case 0:
        return low == 0 || low > 7;
    case 1:
        return false;
    case 2:
        return low != due;
    case 3:
        return low != CANTransportThread::CTP_FC_ACKNOWLEDGE;
    default:
        return true;
    }
}

} // namespace

TEST(FaultInjector, makesTheSameFaultsFromTheSameSeed)
{
    const auto heads = [](std::uint64_t seed) {
        FaultInjector injector({0.2, 0.2, 0.2, seed});
        std::vector<int> all;
        for (const CANFrame& frame : message(200)) {
            const auto verdict = injector.judge(frame);
            all.push_back(verdict.dropped);
            all.push_back(verdict.duplicated);
            all.push_back(verdict.stray ? verdict.stray->data[0] : -1);
        }
        return all;
    };
    EXPECT_EQ(heads(7), heads(7));
    EXPECT_NE(heads(7), heads(8));
}

TEST(FaultInjector, straysOnlyWithFramesThatAReceiverCanTellToBeWrong)
{
    FaultInjector injector({0.5, 0, 1, 3});
    bool seen[16] = {};
    for (int run = 0; run < 50; ++run) {
        unsigned int due = 16; // none: nothing is being received
        for (const CANFrame& frame : message(40)) {
            const auto verdict = injector.judge(frame);
            ASSERT_TRUE(verdict.stray.has_value());
            if (!verdict.dropped && frame.data[0] == 0x10) {
                due = 0;
            } else if (!verdict.dropped && (frame.data[0] & 0x0FU) == due) {
                due = (due + 1) % 16;
            }
            EXPECT_TRUE(isWrongForEveryReceiver(*verdict.stray, due))
                << int{verdict.stray->data[0]} << " with " << due << " due";
            EXPECT_EQ(verdict.stray->canID, frame.canID);
            seen[verdict.stray->data[0] >> 4U] = true;
        }
    }
    for (const int kind : {0, 2, 3, 4, 15}) {
        EXPECT_TRUE(seen[kind]) << "no stray frame of kind " << kind;
    }
}
