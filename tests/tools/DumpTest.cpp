// SPDX-License-Identifier: MIT
#include "dump/Dump.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

/// @return the lines printed for a log, and the remarks, that contain `part`.
std::string dumpOf(const std::string& log, const std::string& part, const DumpOptions& options = {})
{
    std::string printed;
    const auto print = [&](const std::string& line) {
        printed += line.find(part) == std::string::npos ? "" : line + '\n';
    };
    Dump dump(options, print, print);
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        if (const auto logged = parseCandumpLine(line)) {
            dump.take(*logged);
        }
    }
    dump.finish();
    for (const std::string& remark : dump.remarks()) {
        print(remark);
    }
    if (!options.svg.empty()) {
        print(dump.picture());
    }
    return printed;
}

DumpOptions with(bool DumpOptions::*option)
{
    DumpOptions options;
    options.*option = true;
    return options;
}

} // namespace

TEST(Dump, readsWhatCandumpWrites)
{
    const std::string lines[][2] = {
        {"(1.5) can0 123#1014010203040506", "123  [8]  FF len 20  01 02 03 04 05 06\n"},
        {"(1.5) can0 00000123#2F5A T", "00000123  [2]  CF 15      5A\n"},
        {"  can0  123   [2]  33 00   '3.'\r", "123  [2]  FC acknowledge\n"},
        {" (2024-01-31 12:00:00.5)  vcan0  RX B E  7FF   [0]", "7FF  [0]  SF len 0 \n"},
        {"c 1#R8\nc 1##10141\nc 1#014\nc 1#010203040506070809\nc 20000080#00\nc 1 [2] 01\n"
         "c 1 [02] 01 02\nc 1 [0] remote request\nc 20000004 [2] 01 00 ERRORFRAME\nc\033[2J "
         "1#01\nc\x9b 1#01\n"
         "c 1 [1] 01 '\a'",
         ""}};
    for (const auto& [line, expected] : lines) {
        EXPECT_EQ(dumpOf(line, "["), expected);
    }
}

TEST(Dump, reportsTheOutcomeOfEachMessage)
{
    // Two pairs start together and answer in reverse order; 5, and 1 on another bus, have no peer.
    EXPECT_EQ(dumpOf("c 1#0141\nc 3#0143\nc 4#33\nc 2#33\nc 3#0144\nc 5#0145\nd 1#0146\nc 4#33\n"
                     "c 3#0147\nc 4#33\n",
                     "->"),
              "003 -> 004  acknowledged, 1 byte  43\n003 -> 004  acknowledged, 1 byte  44\n"
              "001 -> 002  acknowledged, 1 byte  41\n003 -> 004  acknowledged, 1 byte  47\n"
              "005 -> ???  incomplete, 1 byte  45\nd:001 -> ???  incomplete, 1 byte  46\n");
    const std::string log =
        "(1) c 1#1008010203040506\n(1.25) c 1#1008010203040506\n(3) c 2#31\n(3) c 1#21\n"
        "(3) c 1#200708\n(3) c 2#32\n(3) c 1#1008010203040506\n(3) c 1#2007080910111213\n"
        "(3.5) c 2#33\n(4) c 1#1008010203040506\n(5) c 1#0142\n";
    EXPECT_EQ(dumpOf(log, "->"),
              "001 -> 002  restarted, 6 of 8 bytes  01 02 03 04 05 06\n"
              "001 -> 002  refused, attempt 2, 6 of 8 bytes  01 02 03 04 05 06\n"
              "001 -> 002  acknowledged, attempt 3, 8 bytes  01 02 03 04 05 06 07 08\n"
              "001 -> 002  incomplete, 6 of 8 bytes  01 02 03 04 05 06\n"
              "001 -> 002  incomplete, 1 byte  42\n");
    EXPECT_EQ(dumpOf(log, "FC ready", with(&DumpOptions::ladder)),
              "001 |<--------------- FC ready to receive --| 002\n");
    // The sixth attempt is another message: a message ends with its fifth failure.
    const std::string again = "(6) c 1#0142\n";
    EXPECT_EQ(dumpOf(log + again + again + again + again + again + "(7) c 2#33\n", "1 ->",
                     with(&DumpOptions::stats)),
              "001 -> 002             4             2             6             1"
              "      1000.000      1750.000      2500.000\n");
}

TEST(Dump, printsTimesCharactersAndColours)
{
    setenv("TZ", "XYZ-1", 1);
    const std::string log = "(1706702400.5) c 1#0241FF\n(1970-01-01 01:00:01.25) c 2#33\nc 1#20\n"
                            "(1706702402.000001) c 1#00\n";
    const struct {
        char style;
        const char* stamps[3];
    } rows[] = {
        {'a', {"(1706702400.500000) ", "(0000000001.250000) ", "(1706702402.000001) "}},
        {'A',
         {"(2024-01-31 13:00:00.500000) ", "(1970-01-01 01:00:01.250000) ",
          "(2024-01-31 13:00:02.000001) "}},
        {'d', {"(000.000000) ", "(000.000000) ", "(1706702400.750001) "}},
        {'z', {"(000.000000) ", "(000.000000) ", "(001.500001) "}},
    };
    DumpOptions options;
    options.ascii = true;
    for (const auto& [style, stamps] : rows) {
        options.times = style;
        const std::string blanks(std::string(stamps[1]).size(), ' ');
        EXPECT_EQ(dumpOf(log, "", options),
                  std::string(stamps[0]) + "001  [3]  SF len 2   41 FF                 'A.'\n" +
                      stamps[1] + "002  [1]  FC acknowledge\n" + blanks +
                      "001 -> 002  acknowledged, 2 bytes  41 FF  'A.'\n" + blanks +
                      "001  [1]  CF 0                             ''\n" + stamps[2] +
                      "001  [1]  SF len 0                         ''\n" +
                      std::string(std::string(stamps[2]).size(), ' ') +
                      "001 -> 002  incomplete, 0 bytes  ''\n");
    }
    DumpOptions colours = with(&DumpOptions::ladder);
    colours.colour = true;
    EXPECT_EQ(dumpOf("(1) c 2#32\n(1) c 1#0141\n(1) c 2#33\n", "\033", colours),
              "\033[31m??? |<---------------- FC not acknowledge --| 002\033[0m\n"
              "\033[36m001 |-- SF len 1 -------------------------->| ???\033[0m\n"
              "\033[32m001 |<-------------------- FC acknowledge --| 002\033[0m\n"
              "\033[1;32m001 -> 002  acknowledged, 1 byte  41\033[0m\n");
}

TEST(Dump, marksGuessesAndRecognisesIsoTp)
{
    const std::string both = "c 1#0141\nc 3#0143\nc 4#33\nc 2#33\n";
    EXPECT_EQ(dumpOf(both, "?"), "001 -> 004?  acknowledged, 1 byte  41\n"
                                 "003 -> 002?  acknowledged, 1 byte  43\n"
                                 "a peer with a ? is a guess, which -s and -d settle\n");
    DumpOptions chosen;
    chosen.ids = {3, 4};
    EXPECT_EQ(dumpOf(both, "?", chosen), "");
    const struct {
        std::string log;
        const char* frame; ///< That gives it away; null: none.
    } rows[] = {
        {"c 1#1014\nc 2#300000\nc 1#21\nc 1#22\n", "3"},
        {"c 1#1014\nc 1#21\n", "2"},
        {"c 1#1014\nc 2#31\nc 2#30\nc 1#21\n", "4"}, // it waits, then continues
        {"c 1#28\nc 2#300800\nc 1#29\n", "3"},
        {"c 1#1014\nc 2#31\nc 1#20\nc 2#30\nc 1#21\n", nullptr},
        {"c 1#1014\nc 2#31\nc 1#21\n", nullptr}, // number 0 was lost
        {"c 1#1014\nc 2#30\nc 1#1014\nc 2#31\nc 1#20\nc 1#21\n", nullptr},
    };
    for (const auto& [log, frame] : rows) {
        EXPECT_EQ(dumpOf(log, "ISO"), frame == nullptr
                                          ? ""
                                          : "this looks like ISO-TP, another protocol: frame " +
                                                std::string(frame) + ", of 001\n")
            << log;
    }
}

TEST(Dump, drawsAPictureToScaleWithItsFaults)
{
    DumpOptions options;
    options.svg = "x";
    const auto arrows = [&](const std::string& log) {
        const std::string svg = dumpOf(log, "<svg", options);
        std::string found; // heights of the arrows, and the faults
        for (std::size_t at = 0; (at = svg.find("<path d='M306.0 ", at)) != std::string::npos;
             ++at) {
            found += svg.substr(at + 16, svg.find('L', at) - at - 16) + ' ';
        }
        for (std::size_t at = 0; (at = svg.find('(', at)) != std::string::npos; ++at) {
            found += svg.substr(at, svg.find(')', at) + 1 - at);
        }
        return found;
    };
    // The room for eight labels is 120 high.
    EXPECT_EQ(arrows("(10) c 1#1014\n(14) c 2#31\n(15) c 1#21\n(16) c 2#32\n(18) c 1#1014\n"
                     "(20) c 1#00\n"),
              "48.0 96.0 108.0 120.0 144.0 168.0 (expected CF 0)(refused)(attempt 2)(invalid)");
    EXPECT_EQ(arrows("c 1#0141\nc 1#0142\na<b 1#21\n"), "48.0 63.0 78.0 (no message)");
    EXPECT_NE(dumpOf("c 1#0141\na<b 1#21\n", "<svg", options).find(">a&lt;b:001<"),
              std::string::npos);
}

TEST(Dump, boundsWhatALogCanFill)
{
    const auto repeat = [](unsigned int count, const auto& line) {
        std::string log;
        for (unsigned int i = 1; i <= count; ++i) {
            log += line(std::to_string(10000000 + i), std::to_string(i));
        }
        return log;
    };
    using Text = const std::string&;
    const struct {
        std::string log;
        const char* part;
        const char* expected;
    } rows[] = {
        {repeat(300, [](Text /*id*/, Text i) { return 'c' + i + " 1#0141\n"; }), "interfaces",
         "too many interfaces; frames left out: 44\n"},
        {repeat(40, [](Text id, Text /*i*/) { return "c " + id + "#0141\n"; }) + "c 1#33\nc 1#33\n",
         "answers", "answers that fit too many ids, so that only the latest count: 1\n"},
        {repeat(65537, [](Text /*id*/, Text /*i*/) { return "c 1#0141\n"; }), "without",
         "too many frames without an answer; frames that are in no message: 65536\n"},
        {repeat(
             16385,
             [](Text id, Text /*i*/) { return "c " + id + "#0141\nc 0" + id.substr(1) + "#33\n"; }),
         "too many ids", "too many ids; frames that are in no message: 2\n"},
    };
    for (const auto& [log, part, expected] : rows) {
        EXPECT_EQ(dumpOf(log, part), expected);
    }
    DumpOptions drawn;
    drawn.svg = "x";
    EXPECT_EQ(dumpOf(repeat(1001, [](Text /*id*/, Text /*i*/) { return "c 1#0141\n"; }), "picture",
                     drawn),
              "too many frames or ids for the picture; frames left out: 1\n");
    // The median of a sample; shortest and longest are exact.
    const auto message = [](Text id, Text i) {
        return '(' + i + ") c 1#0141\n(" + i + ".0" + id.substr(4) + ") c 2#33\n";
    };
    EXPECT_EQ(dumpOf(repeat(3001, message), "1 ->", with(&DumpOptions::stats)),
              "001 -> 002          3001          3001             0             0"
              "         0.010        15.010        30.010\n");
}
