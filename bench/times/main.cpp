// SPDX-License-Identifier: MIT
#include "common/HandDriven.h"
#include "times/EnginePair.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <iterator>

#include <sys/resource.h>

using namespace Records;

namespace {

/// Each call returns the CPU seconds for one message or burst.
using Side = std::function<double()>;

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Measures floor and subject alternately, block by block, and swaps the order each time, so that a drift of
/// the machine affects both.
void compare(benchmark::State& state, const Side& floor, const Side& subject)
{
    std::vector<double> floors{floor()}; // the first of each is a warm-up
    std::vector<double> subjects{subject()};
    std::vector<double> ratios;
    for ([[maybe_unused]] auto block : state) {
        if (ratios.size() % 2 == 0) {
            floors.push_back(floor());
            subjects.push_back(subject());
        } else {
            subjects.push_back(subject());
            floors.push_back(floor());
        }
        ratios.push_back(subjects.back() / floors.back());
        state.SetIterationTime(subjects.back());
    }
    state.counters["ratio"] = medianOf(ratios);
    state.counters["seconds"] = medianOf(subjects);
    state.counters["seconds of floor"] = medianOf(floors);
}

using Create = std::function<Side()>;

/// Adds a row. @param frames in one message or burst. @param blocks how often both are measured.
void add(const std::string& name, double frames, const Create& floor, const Create& subject,
         double atMost, double aim, int blocks)
{
    const auto run = [=](benchmark::State& state) {
        compare(state, floor(), subject());
        state.counters["at most"] = atMost;
        state.counters["aim"] = aim;
        state.counters["frames"] = frames;
    };
    benchmark::RegisterBenchmark(name.c_str(), run)->Iterations(blocks)->UseManualTime();
}

constexpr double trusted = 1.02; ///< If a floor differs from itself by more, no ratio is valid.

void addWithFloor(const std::string& name, double frames, const Create& floor,
                  const Create& subject, double atMost, double aim, int blocks)
{
    add(name + ": floor / floor", frames, floor, floor, trusted, trusted, blocks);
    add(name, frames, floor, subject, atMost, aim, blocks);
}

/// Prints the rows of the table instead of Google Benchmark's own.
class Rows : public benchmark::BenchmarkReporter {
public:
    bool valid = true;

    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            const auto of = [&](const char* counter) { return run.counters.at(counter).value; };
            const bool ofFloors = of("at most") == trusted;
            const double ratio = ofFloors ? std::max(of("ratio"), 1 / of("ratio")) : of("ratio");
            const double seconds = of("seconds");
            char note[96];
            std::snprintf(note, sizeof note, "%.1f us, floor %.1f us, %.0f frames per CPU second",
                          seconds * 1e6, of("seconds of floor") * 1e6, of("frames") / seconds);
            const bool holds = Program::printFigure(run.run_name.function_name, ratio,
                                                    of("at most"), of("aim"), note);
            valid = valid && (holds || !ofFloors);
        }
    }
};

template <typename Action> double threadSeconds(Action action)
{
    const double before = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
    action();
    return cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - before;
}

/// The pass of the loop that sends the 585 consecutive frames of a message of 4095 bytes: a select, two
/// reads, and the writes to a pipe that is not read during the pass. The pipe takes all of them, because the
/// kernel merges small writes on one page.
Side burstOfFrames()
{
    const auto endpoint = std::make_shared<HandDriven>();
    return [endpoint, message = request(longestMessage)] {
        double seconds = 0;
        endpoint->send(message, [&] { seconds = threadSeconds([&] { endpoint->pass(); }); });
        return seconds;
    };
}

/// Only the writes of prepared records.
Side burstOfWrites()
{
    return [pipe = std::make_shared<Pipe>(), records = frames(longestMessage)] {
        const double seconds = threadSeconds([&] {
            for (std::size_t at = frameSize; at < records.size(); at += frameSize) {
                put(pipe->ends[1], &records[at], frameSize);
            }
        });
        take(pipe->ends[0], records.size() - frameSize);
        return seconds;
    };
}

/// Carries `messages` messages of `size` bytes, divided among `count` pairs of engines.
Create transfers(std::size_t count, const std::function<std::unique_ptr<EnginePair>()>& create,
                 std::size_t size, long messages)
{
    return [=] {
        auto engines = std::make_shared<std::vector<std::unique_ptr<EnginePair>>>();
        std::generate_n(std::back_inserter(*engines), count, create);
        return [=] { return carry(*engines, size, messages / static_cast<long>(count)); };
    };
}

void addAll()
{
    const auto bare = [](std::size_t size, long messages) {
        return transfers(
            1, [size] { return bareEngines(size); }, size, messages);
    };
    const auto pairs = [](std::size_t count) {
        return transfers(count, endpoints, longestMessage, 500);
    };
    constexpr double frames = frameCount(longestMessage) + 2; // with the peer's answers
    addWithFloor("585 frames sent / 585 writes", 585, burstOfWrites, burstOfFrames, 1.10, 1.05,
                 2000);
    addWithFloor("4095 bytes acknowledged / bare engine", frames, bare(longestMessage, 20),
                 transfers(1, endpoints, longestMessage, 20), 1.12, 1.06, 100);
    addWithFloor(
        "7 bytes acknowledged / bare engine", 2, bare(CANTransportFrame::singleFrameBytes, 500),
        transfers(1, endpoints, CANTransportFrame::singleFrameBytes, 500), 1.15, 1.07, 200);
    add("CPU time of a frame, 10 pairs / 1 pair", frames, pairs(1), pairs(10), 1.15, 1, 24);
    add("CPU time of a frame, 100 pairs / 1 pair", frames, pairs(1), pairs(100), 1.15, 1, 24);
    add("CPU time of a frame, 500 pairs / 1 pair", frames, pairs(1), pairs(500), 1.15, 1, 24);
}

/// 500 pairs need 4000 descriptors.
void raiseDescriptorLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 4200;
    if (setrlimit(RLIMIT_NOFILE, &limit) == -1) {
        Program::fail("500 pairs need a hard limit of 4200 descriptors");
    }
}

} // namespace

/// Prints the ratios of times, each with the CPU times of one message or burst. Run it on one CPU with the
/// batch scheduler. Exits with 3 if the ratios are not valid.
int main()
{
    std::cout.setstate(std::ios_base::failbit); // no log lines between the rows
    Program::startIdleThread();
    raiseDescriptorLimit();
    addAll();
    Rows rows;
    benchmark::RunSpecifiedBenchmarks(&rows);
    return rows.valid ? 0 : 3;
}
