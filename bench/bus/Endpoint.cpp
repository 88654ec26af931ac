// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"
#include "velk/Descriptor.h"

#include "bus/Subject.h"
#include "common/Records.h"

#include <csignal>
#include <functional>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// An endpoint by itself, with velkcan-proxy for its bus.
class Endpoint : public Subject {
public:
    Endpoint(const Carrier& carrier, Side side)
    {
        endpoint.setLogSink([](LogUtil::Level, const std::string&) {}); // rows are on stdout
        endpoint.open(messages, requests);
        endpoint.setConnection(toProxy.ends[1]);
        endpoint.setSendCANid(static_cast<unsigned short>(ownId(side)));
        std::function<void(CANTransportThread::statuschange_t, unsigned short)> delegate =
            [this](CANTransportThread::statuschange_t status, unsigned short) { report(status); };
        endpoint.setDelegate(delegate);
        startProxy(carrier.bus, peerId(side));
        endpoint.start();
    }
    ~Endpoint() override
    {
        endpoint.stop();
        kill(proxy, SIGTERM);
        waitpid(proxy, nullptr, 0);
    }
    void send(std::size_t size) override
    {
        Records::put(requests, Records::request(size));
        Records::take(acknowledged.ends[0], 1);
    }
    void receive(std::size_t size) override
    {
        const std::size_t all = Records::messageHeader + size;
        unsigned char room[Records::messageHeader + Records::longestMessage];
        for (std::size_t had = 0; had < all;) { // above 4096 bytes it comes in parts
            const ssize_t count = ::read(messages, room + had, all - had);
            if (count <= 0) {
                Program::fail("the endpoint delivers nothing more");
            }
            had += static_cast<std::size_t>(count);
        }
    }

private:
    void report(CANTransportThread::statuschange_t status) const
    {
        switch (status) {
        case CANTransportThread::CTT_CONNECTED:
            return;
        case CANTransportThread::CTT_ACKNOWLEDGED:
            Records::put(acknowledged.ends[1], {1});
            return;
        case CANTransportThread::CTT_DISCONNECTED:
        case CANTransportThread::CTT_SEND_TIMEOUT:
        case CANTransportThread::CTT_RECEIVE_TIMEOUT:
            Program::fail("a message is not acknowledged");
        }
    }
    void startProxy(const std::string& interface, unsigned int accepted)
    {
        char filter[16];
        std::snprintf(filter, sizeof filter, "%x", accepted);
        std::string name = interface;
        char program[] = "velkcan-proxy";
        char accept[] = "--accept";
        char quiet[] = "--quiet";
        char* arguments[] = {program, quiet, accept, filter, name.data(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toProxy.ends[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, requests, STDOUT_FILENO);
        if (posix_spawnp(&proxy, program, &actions, nullptr, arguments, environ) != 0) {
            Program::fail("velkcan-proxy is not in the path");
        }
        posix_spawn_file_actions_destroy(&actions);
        usleep(100000); // until it listens
    }

    Records::Pipe toProxy;
    Records::Pipe acknowledged;
    CANTransportThread endpoint;
    int messages = -1;
    int requests = -1;
    pid_t proxy = -1;
};

} // namespace

std::unique_ptr<Subject> openEndpoint(const Carrier& carrier, Subject::Side side)
{
    return std::make_unique<Endpoint>(carrier, side);
}
