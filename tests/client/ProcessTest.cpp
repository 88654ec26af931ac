// SPDX-License-Identifier: MIT
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
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const auto echo = ids(1, 1); ///< Hears itself, so it answers itself.

std::string textOf(const fs::path& file)
{
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
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
    const std::string status = textOf("/proc/" + process + "/status");
    return !status.empty() && status.find("State:\tZ") == std::string::npos;
}

/// Threads of this process that block all signals but those that nobody can block.
int countDeafThreads()
{
    int count = 0;
    for (const std::string& thread : namesIn("/proc/self/task")) {
        const std::string status = textOf("/proc/self/task/" + thread + "/status");
        count += status.find("SigBlk:\tfffffffe7ffbfeff") == std::string::npos ? 0 : 1;
    }
    return count;
}

} // namespace

TEST(Process, startsACommandAsAShellWould)
{
    const Descriptor inheritable(dup(STDERR_FILENO)); // before others take the lowest number
    const TemporaryBus folder;
    const std::string file = folder.path() + "2";
    sigset_t blocked;
    sigset_t after;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    signal(SIGPIPE, SIG_IGN);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    const int before = countDeafThreads();
    {
        CANTransportClient client("exec:(echo $0; ls /proc/self/fd; s=/proc/self/status;"
                                  "grep -c '^SigBlk:.0*$' $s;"
                                  "grep -c '^SigIgn:.*[08]0000000$' $s;"
                                  "grep -c \"^NSpgid:.$$\\$\" $s) >" +
                                      file + "; exec cat",
                                  echo);
        EXPECT_EQ(client.send({1}), Result::acknowledged);
        EXPECT_EQ(countDeafThreads() - before, 1);
    }
    pthread_sigmask(SIG_UNBLOCK, &blocked, &after);
    EXPECT_TRUE(sigismember(&after, SIGTERM) == 1 && sigismember(&after, SIGINT) == 0);
    signal(SIGPIPE, SIG_DFL);
    EXPECT_EQ(textOf(file), "sh\n0\n1\n2\n3\n1\n1\n1\n") << "descriptor 3 is that of ls";
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
            "exec:exec 2>'" + file + "'; " + entry.command, echo);
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
    CANTransportClient gone("exec:true", echo);
    EXPECT_THROW(gone.receive(1h), CANTransportClient::BusLost);

    signal(SIGCHLD, SIG_IGN); // the kernel reaps the shell, and another group may get its id
    const std::string file = folder.path() + "reaped";
    {
        CANTransportClient reaped("exec:sleep 1000 <&- >&- & echo $! >'" + file + "'", echo);
        EXPECT_THROW(reaped.receive(1h), CANTransportClient::BusLost);
    }
    signal(SIGCHLD, SIG_DFL);
    const std::string left = textOf(file).substr(0, textOf(file).find('\n'));
    EXPECT_TRUE(isAlive(left)) << "no signal to a group that may be another";
    kill(std::stoi(left), SIGKILL);
}

TEST(Process, hasDescriptorsThatDisturbNobody)
{
    const TemporaryBus folder;
    const std::string path = folder.path() + "2";
    const Descriptor listener = bindTo(path);
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
        CANTransportClient commanding("exec:cat", echo);
        wrong += commanding.send({1}) == Result::acknowledged ? "" : "result ";
        CANTransportClient connected("unix:" + path, echo);
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

TEST(Process, reconnectsAndEndsWholeInAThreadThatIsBeingCancelled)
{
    bool hasEnded = false;
    std::thread owner([&] {
        auto client = std::make_unique<CANTransportClient>("exec:cat", echo);
        pthread_cancel(pthread_self());
        client->reconnect();
        client.reset();
        hasEnded = true;
    });
    owner.join();
    EXPECT_TRUE(hasEnded);
}

TEST(Process, keepsItsStreams)
{
    LogCapture capture;
    for (const bool logs : {false, true}) {
        std::map<LogUtil::Level, int> lines;
        auto options = echo;
        options.debugLevel = 3;
        if (logs) {
            options.log = [&](LogUtil::Level level, const std::string&) { ++lines[level]; };
        }
        {
            CANTransportClient client("exec:cat", options);
            EXPECT_EQ(client.send({1}), Result::acknowledged);
            client.reconnect();
        }
        EXPECT_EQ(lines[LogUtil::Level::debug] > 0, logs);
    }
    EXPECT_EQ(capture.out() + capture.err(), "");
}
