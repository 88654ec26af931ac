// SPDX-License-Identifier: MIT
#include "velk/CANTransportGate.h"

#include "Retrial.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace CANTransportFrame;
using namespace std::chrono_literals;
using Verdict = Retrial::Verdict;

constexpr CANTransportGate::Time start{};

/// S: a single frame. F: a first frame of 20 bytes, two consecutive frames follow. C: one of them.
/// L: a first frame of 4095 bytes. A digit: a flow-control frame with that code.
CANTransportGate::Frame frameOf(char name, std::uint32_t canID)
{
    switch (name) {
    case 'S':
        return {canID, 8, {0x01}};
    case 'F':
        return {canID, 8, {0x10, 20}};
    case 'L':
        return {canID, 8, {0x1F, 0xFF}};
    case 'C':
        return {canID, 8, {0x20}};
    default:
        return {canID, 8, {static_cast<std::uint8_t>(0x30 | (name - '0'))}};
    }
}

char nameOf(const CANTransportGate::Frame& frame)
{
    constexpr const char* names = "SFC";
    const auto kind = kindOf(frame.data);
    return kind == CTP_FLOW_CONTROL ? static_cast<char>('0' + codeOf(frame.data)) : names[kind];
}

/// Plays a script to the gate of an endpoint whose id is above its peer's, and returns what came of it.
///
/// `>F`: the endpoint writes a frame; `>300C`: 300 of them. `<1`: one of the peer's comes, and `+` or `-`
/// says whether the endpoint gets it. `out`: all that may leave leaves; more than 8 frames are only
/// counted. `held`: the answer that is released. `wake`: in how many ms, -1 for never. `5ms` pass.
std::string play(const std::string& script, CANTransportGate& gate)
{
    std::istringstream tokens(script);
    std::ostringstream result;
    auto now = start;
    for (std::string token; tokens >> token;) {
        if (token[0] == '>') {
            const int count = token.size() > 2 ? std::stoi(token.substr(1)) : 1;
            for (int i = 0; i < count; ++i) {
                gate.fromEndpoint(frameOf(token.back(), 0x456), now);
            }
        } else if (token[0] == '<') {
            result << (gate.admit(frameOf(token[1], 0x123), now) ? '+' : '-') << token[1] << ' ';
        } else if (token == "out") {
            std::string names;
            while (const auto* const frame = gate.next(now)) {
                names += nameOf(*frame);
                gate.left(now);
            }
            result << "out:" << (names.size() > 8 ? std::to_string(names.size()) : names) << ' ';
        } else if (token == "held") {
            const auto answer = gate.released(now);
            result << "held:" << (answer ? std::string(1, nameOf(*answer)) : "") << ' ';
        } else if (token == "wake") {
            const auto wake = gate.wakeAt(now);
            result << "wake:" << (wake == CANTransportGate::Time::max() ? -1 : (wake - now) / 1ms)
                   << ' ';
        } else {
            now += std::chrono::milliseconds(std::stoi(token));
        }
    }
    return result.str();
}

} // namespace

TEST(Gate, letsThroughWhatFitsAndInTime)
{
    struct {
        const char* name;
        const char* script;
        const char* result;
    } const rows[] = {
        {"no attempt", "<0 <1 <2 <3 <4 <S <F <C", "-0 -1 -2 -3 -4 +S +F +C "},
        {"written is not sent", ">S <3 out <3", "-3 out:S +3 "},
        {"one answer", ">S out <1 <4 <3 <3 <0", "out:S -1 -4 +3 -3 -0 "},
        {"ready once, acknowledged when all has left", ">F out <3 <1 <1 >C out <3 >C out <3",
         "out:F -3 +1 -1 out:C -3 out:C +3 "},
        {"code 2 ends the burst", ">F out <1 >2C <2 <0 out", "out:F +1 +2 -0 out: "},
        {"code 0 does not", ">F out <1 >2C <0 <0 out <3", "out:F +1 +0 -0 out:CC -3 "},
        {"a late code 2 does", ">F out <1 >2C <0 <2 out", "out:F +1 +0 -2 out: "},
        {"quiet before the next attempt", ">S out <0 1ms <0 >S wake 2ms out wake 1ms out wake",
         "out:S +0 -0 wake:3 out: wake:1 out:S wake:-1 "},
        {"an attempt replaces one that has not left", ">S out <0 >S >F 3ms out", "out:S +0 out:F "},
        {"and one without an answer", ">S out >S <3 out <3", "out:S -3 out:S +3 "},
        {"own answers first", ">F >1 >2 out", "out:12F "},
        {"one own refusal for each attempt", "<C >0 >0 <S >0 >2 >0 >3 >1 out", "+C +S out:00231 "},
        {"a single frame waits for copies", ">S out 2ms <3 >S wake 4ms out",
         "out:S +3 wake:4 out:S "},
        {"not forever", ">S out 90ms <3 >S wake", "out:S +3 wake:10 "},
        {"a first frame does not", ">S out 2ms <3 >F out", "out:S +3 out:F "},
        {"an acknowledgement waits for a reception", ">S out >1 out <3 held wake >3 held held",
         "out:S out:1 -3 held: wake:10 held:3 held: "},
        {"that goes on", ">S out >1 <3 9ms <C 9ms held 1ms held", "out:S -3 +C held: held:3 "},
        {"as long as the endpoint does", ">S out >1 895ms <3 held 4ms <C held wake 1ms held",
         "out:S -3 held: +C held: wake:1 held:3 "},
        {"unless the attempt is over", ">S out >1 <3 >S held 10ms held", "out:S -3 held: held: "},
        {"a first frame waits for a reception", ">1 >F out 9ms <C wake 10ms out",
         "out:1 +C wake:10 out:F "},
        {"a single frame does not", ">1 >S out", "out:1S "},
        {"a long burst waits for the lower id",
         "<F >1 >L out wake 10ms out <1 <C >129C out wake 10ms out",
         "+F out:1 wake:10 out:F +1 +C out: wake:10 out:129 "},
        {"a short one does not", "<F >1 >L out 10ms out <1 <C >128C out",
         "+F out:1 out:F +1 +C out:128 "},
    };
    for (const auto& row : rows) {
        CANTransportGate gate;
        EXPECT_EQ(play(row.script, gate), row.result) << row.name << ": " << row.script;
    }
}

TEST(Gate, waitsForNoOtherFrameLongerThanTheEndpointCan)
{
    CANTransportGate gate;
    std::string script = ">S out <0 >S";
    std::string result = "out:S +0 ";
    for (int ms = 2; ms < 500; ms += 2) {
        script += " 2ms <0 out";
        result += "-0 out: ";
    }
    EXPECT_EQ(play(script + " 2ms <0 out", gate), result + "-0 out:S ");
}

TEST(Gate, hasRoomForTheLongestMessageAndCountsWhatItDrops)
{
    CANTransportGate gate;
    EXPECT_EQ(play(">L out <1 >585C", gate), "out:F +1 ");
    EXPECT_FALSE(gate.full());
    play(">C", gate);
    EXPECT_TRUE(gate.full());
    play(">C >3", gate);
    EXPECT_EQ(gate.counters().ownFrames, 2U);
    gate.reset();
    EXPECT_FALSE(gate.full());
    EXPECT_EQ(play("<0 <1 <3 <4 >0 >0 out wake", gate), "-0 -1 -3 -4 out:0 wake:-1 ");
    play(">64S", gate);
    const auto dropped = gate.counters();
    EXPECT_EQ(dropped.refusals, 1U);
    EXPECT_EQ(dropped.readies, 1U);
    EXPECT_EQ(dropped.acknowledgements, 1U);
    EXPECT_EQ(dropped.unknownAnswers, 1U);
    EXPECT_EQ(dropped.ownRefusals, 1U);
    EXPECT_EQ(dropped.ownFrames, 2U + 63U);
    CANTransportGate holding;
    play(">S out >1 <3 >S >2 >0", holding);
    EXPECT_EQ(holding.counters().acknowledgements, 1U) << "held back, and then too late";
    EXPECT_EQ(holding.counters().ownRefusals, 1U) << "the peer has stopped";
}

TEST(Retrial, triesAgainWhileThePeerIsHeardAndTheCallerWaits)
{
    Retrial retrial(start + 2100ms);
    retrial.peerHeard();
    retrial.handedOver();
    EXPECT_EQ(retrial.givenUp(start).verdict, Verdict::noAnswer);
    retrial.peerHeard();
    const auto decision = retrial.givenUp(start);
    EXPECT_EQ(decision.verdict, Verdict::again);
    EXPECT_EQ(decision.at, start + 1050ms);
    EXPECT_EQ(retrial.givenUp(start + 1050ms).verdict, Verdict::again);
    EXPECT_EQ(retrial.givenUp(start + 1051ms).verdict, Verdict::refused);
    EXPECT_EQ(retrial.givenUp(start + 1050ms).verdict, Verdict::again);
    EXPECT_EQ(retrial.givenUp(start).verdict, Verdict::refused) << "a fourth time";
}
