// SPDX-License-Identifier: MIT
// velkcan-load: lets a subject carry messages over a bus, and prints what that cost as one row.

#include "velk/CANTransportFrame.h"

#include "bus/Cost.h"
#include "bus/LastFrame.h"
#include "bus/Subject.h"
#include "common/Program.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Options {
    Carrier carrier;
    std::string role = "both";
    std::size_t size = 4095;
    int messages = 10;
    bool latency = false;
};

void send(Subject& subject, const Options& options)
{
    for (int i = 0; i < options.messages; ++i) {
        subject.send(options.size);
    }
}

/// @return from the last frame of each message to its receiver, in µs; none without a spy.
std::vector<double> receive(Subject& subject, const Options& options, LastFrame* spy)
{
    std::vector<double> latencies;
    for (int i = 0; i < options.messages; ++i) {
        subject.receive(options.size);
        if (spy != nullptr) {
            latencies.push_back(spy->ageUs());
        }
    }
    return latencies;
}

double medianOf(std::vector<double> values)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

int run(const Options& options)
{
    const bool sends = options.role != "receive";
    const bool receives = options.role != "send";
    std::optional<LastFrame> spy;
    if (options.latency) {
        spy.emplace(options.carrier.bus);
    }
    auto receiver = receives ? open(options.carrier, Subject::Side::receiver) : nullptr;
    auto sender = sends ? open(options.carrier, Subject::Side::sender) : nullptr;

    const Cost before = Cost::now();
    std::thread sending([&] {
        if (sender) {
            send(*sender, options);
        }
    });
    std::vector<double> latencies;
    if (receiver) {
        latencies = receive(*receiver, options, spy ? &*spy : nullptr);
    }
    sending.join();
    const Cost spent = Cost::now() - before;
    receiver.reset();
    sender.reset();

    const auto frames = CANTransportFrame::frameCountOf(static_cast<unsigned int>(options.size));
    std::printf("%s\t%s\t%zu\t%d\t%ld\t%d\t%u\t%.0f\t%.0f\t%.0f\t%ld\t%.1f\t%ld\t%ld\n",
                options.carrier.subject.c_str(), options.role.c_str(), options.size,
                options.messages, options.carrier.frameTimeNs, options.carrier.gatherUs, frames,
                spent.elapsedUs, spent.busyUs, spent.cpuUs, spent.waits + waitsOfChildren(),
                medianOf(latencies), spent.calls, spent.allocations);
    return 0;
}

int load(int argc, char** argv)
{
    Options options;
    CLI::App app{"Lets a subject carry messages over a bus. Prints one row: subject, role, bytes "
                 "of a message,\n"
                 "messages, ns between two frames, gather in us, frames of a message, elapsed us, "
                 "us that the\n"
                 "machine was busy, CPU us of this process, its waits, us from the last frame to "
                 "the receiver."};
    app.add_option("SUBJECT", options.carrier.subject)
        ->required()
        ->check(CLI::IsMember({"bare", "isotp", "endpoint", "client"}));
    app.add_option("BUS", options.carrier.bus)->required();
    app.add_option("--role", options.role)
        ->check(CLI::IsMember({"both", "send", "receive"}))
        ->capture_default_str();
    app.add_option("--size", options.size)->check(CLI::Range(1, 4095))->capture_default_str();
    app.add_option("--messages", options.messages)
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--frame-time", options.carrier.frameTimeNs,
                   "ns, for those who pace themselves");
    app.add_option("--gather", options.carrier.gatherUs, "us, of a client")->capture_default_str();
    app.add_flag("--latency", options.latency, "look at the bus too, which costs something itself");
    CLI11_PARSE(app, argc, argv);
    return run(options);
}

} // namespace

std::unique_ptr<Subject> open(const Carrier& carrier, Subject::Side side)
{
    static const std::map<std::string, std::unique_ptr<Subject> (*)(const Carrier&, Subject::Side)>
        subjects{{"bare", openBare},
                 {"isotp", openIsoTp},
                 {"endpoint", openEndpoint},
                 {"client", openClient}};
    return subjects.at(carrier.subject)(carrier, side);
}

int main(int argc, char** argv)
{
    try {
        return load(argc, argv);
    } catch (const std::exception& error) {
        Program::fail(error.what());
    }
}
