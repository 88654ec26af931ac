#include "velk/CANTransportClient.h"

#include "client/Waiting.h"
#include "support/LogCapture.h"
#include "tools/TemporaryBus.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Result = CANTransportClient::SendResult;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

CANTransportClient::Options echo()
{
    CANTransportClient::Options options;
    options.sendId = 1;
    options.receiveId = 1; // hears itself, so it answers itself
    return options;
}

std::string textOf(const fs::path& file)
{
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

/// The lines of a status file of /proc by their names.
std::map<std::string, std::string> statusOf(const std::string& file)
{
    std::map<std::string, std::string> values;
    std::istringstream lines(textOf(file));
    for (std::string line; std::getline(lines, line);) {
        const auto colon = line.find(":\t");
        values[line.substr(0, colon)] = colon == std::string::npos ? "" : line.substr(colon + 2);
    }
    return values;
}

std::set<std::string> namesIn(const char* folder)
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.insert(entry.path().filename());
    }
    return names;
}

bool isAlive(const std::string& process)
{
    const std::string state = statusOf("/proc/" + process + "/status")["State"];
    return !state.empty() && state[0] != 'Z';
}

} // namespace

TEST(Process, startsACommandAsAShellWould)
{
    const TemporaryBus folder;
    const std::string file = folder.path() + "2";
    sigset_t blocked;
    sigset_t after;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    signal(SIGPIPE, SIG_IGN);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    const Descriptor inheritable(dup(STDERR_FILENO));
    const auto threadsBefore = namesIn("/proc/self/task");
    {
        CANTransportClient client("exec:(cat /proc/self/status; echo Files:'\t'$(ls /proc/self/fd);"
                                  "echo Shell:'\t'$$) >" +
                                      file + "; exec cat",
                                  echo());
        EXPECT_EQ(client.send({1}), Result::acknowledged);
        constexpr unsigned long most = 0x7FFBFEFF; // all but SIGKILL and SIGSTOP
        int threads = 0;
        for (const std::string& thread : namesIn("/proc/self/task")) {
            if (threadsBefore.count(thread) == 0) {
                ++threads;
                const auto mask = statusOf("/proc/self/task/" + thread + "/status")["SigBlk"];
                EXPECT_EQ(std::stoul(mask, nullptr, 16) & most, most);
            }
        }
        EXPECT_EQ(threads, 1);
    }
    pthread_sigmask(SIG_UNBLOCK, &blocked, &after);
    EXPECT_TRUE(sigismember(&after, SIGTERM) == 1 && sigismember(&after, SIGINT) == 0);
    signal(SIGPIPE, SIG_DFL);
    auto status = statusOf(file);
    EXPECT_EQ(status["SigBlk"], "0000000000000000");
    EXPECT_EQ(std::stoul(status["SigIgn"], nullptr, 16) & 0x7FFFFFFFU, 0U);
    EXPECT_EQ(status["NSpgid"], status["Shell"]);
    EXPECT_EQ(status["Files"], "0 1 2 3") << "3 is that of ls";
}

TEST(Process, endsACommandWithItsWholeGroup)
{
    const TemporaryBus folder;
    const struct {
        const char* what;
        const char* command; ///< Writes the ids of its processes.
        bool asked;
        std::chrono::seconds least;
    } cases[] = {
        {"ends by itself", "trap 'echo asked' TERM; echo $$ >&2; cat", false, 0s},
        {"leaves a part", "sleep 1000 <&- >&- & echo $$ $! >&2; cat", false, 0s},
        {"is asked", "trap 'echo asked >&2; exit' TERM; echo $$ >&2; while sleep 0.02; do :; done",
         true, 1s},
        {"is killed", "trap '' TERM; sleep 1000 & echo $$ $! >&2; wait", false, 2s},
    };
    for (const auto& entry : cases) {
        const std::string file = folder.path() + entry.what[0] + entry.what[3];
        auto client = std::make_unique<CANTransportClient>(
            "exec:exec 2>'" + file + "'; " + entry.command, echo());
        waitUntil([&] { return textOf(file).find('\n') != std::string::npos; });
        std::istringstream words(textOf(file));
        const auto start = CANTransportClient::Clock::now();
        client.reset();
        EXPECT_GE(CANTransportClient::Clock::now() - start, entry.least) << entry.what;
        EXPECT_EQ(textOf(file).find("asked") != std::string::npos, entry.asked) << entry.what;
        for (std::string id; words >> id;) {
            waitUntil([&] { return !isAlive(id); });
        }
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << entry.what << ": a child is left";
    }
    CANTransportClient gone("exec:true", echo());
    EXPECT_THROW(gone.receive(1h), CANTransportClient::BusLost);
}

TEST(Process, hasDescriptorsThatDisturbNobody)
{
    const TemporaryBus folder;
    const std::string path = folder.path() + "2";
    const Descriptor listener(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.get(), 9), 0);
    Descriptor standard[3];
    for (int fd = 0; fd < 3; ++fd) {
        standard[fd] = Descriptor(fcntl(fd, F_DUPFD_CLOEXEC, 100));
    }
    const auto before = namesIn("/proc/self/fd");
    for (int fd = 0; fd < 3; ++fd) {
        close(fd);
    }
    std::string wrong;
    {
        CANTransportClient commanding("exec:cat", echo());
        wrong += commanding.send({1}) == Result::acknowledged ? "" : "result ";
        CANTransportClient connected("unix:" + path, echo());
        connected.submit({1});
        waitUntil([&] { return connected.counters().framesSent == 1; });
        for (int fd = 0; fd < 100; ++fd) {
            const int flags = fcntl(fd, F_GETFD);
            const bool isNew = flags != -1 && before.count(std::to_string(fd)) == 0;
            if ((fd < 3 && flags != -1) || (isNew && (flags & FD_CLOEXEC) == 0)) {
                wrong += std::to_string(fd) + " ";
            }
        }
    }
    for (int fd = 0; fd < 3; ++fd) {
        dup2(standard[fd].get(), fd);
    }
    EXPECT_EQ(wrong, "");
    EXPECT_EQ(namesIn("/proc/self/fd"), before) << "all are closed again";
}

TEST(Process, keepsItsStreams)
{
    LogCapture capture;
    for (const bool logs : {false, true}) {
        std::map<LogUtil::Level, int> lines;
        auto options = echo();
        options.debugLevel = 3;
        if (logs) {
            options.log = [&](LogUtil::Level level, const std::string&) { ++lines[level]; };
        }
        {
            CANTransportClient client("exec:cat", options);
            for (int i = 0; i < 20; ++i) {
                EXPECT_EQ(client.send({1}), Result::acknowledged);
            }
            client.reconnect();
        }
        EXPECT_EQ(lines[LogUtil::Level::debug] > 0, logs);
        EXPECT_LE(lines[LogUtil::Level::error], 100);
    }
    EXPECT_EQ(capture.out() + capture.err(), "");
}
