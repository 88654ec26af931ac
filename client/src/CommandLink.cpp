// SPDX-License-Identifier: MIT
#include "CommandLink.h"

#include "velk/Millisleep.h"

#include "Failure.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>

#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef __GLIBC_PREREQ
#define __GLIBC_PREREQ(major, minor) 0
#endif

namespace {

constexpr int graceMs = 1000; ///< To end by itself, and again after SIGTERM.
constexpr int stepMs = 10;

/// The shell starts with default signals, and with no descriptor of this process except stderr.
class SpawnSettings {
public:
    explicit SpawnSettings(int standardStreams)
    {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                  POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, standardStreams, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, standardStreams, STDOUT_FILENO);
        closeOthers();
    }
    ~SpawnSettings()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};

private:
#if __GLIBC_PREREQ(2, 34) && !defined(VELK_WITHOUT_CLOSEFROM)
    void closeOthers() { posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1); }
#else
    /// Misses a descriptor that another thread opens now, if it is not close-on-exec.
    void closeOthers()
    {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int open = std::stoi(entry.path().filename());
            if (open > STDERR_FILENO) {
                posix_spawn_file_actions_addclose(&actions, open);
            }
        }
    }
#endif
};

} // namespace

CommandLink::CommandLink(const std::string& command, Tally& counters)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == -1) {
        throwErrno("no socket for the command", errno);
    }
    Descriptor own = aboveStandardStreams(Descriptor(ends[0]));
    const Descriptor other = aboveStandardStreams(Descriptor(ends[1]));
    if (own.get() == -1 || other.get() == -1) {
        throwErrno("no socket for the command", errno);
    }
    socket = std::make_unique<StreamLink>(std::move(own), counters);
    const SpawnSettings settings(other.get());
    std::string words[] = {"sh", "-c", command};
    char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    const int error =
        posix_spawn(&shell, "/bin/sh", &settings.actions, &settings.attributes, arguments, environ);
    if (error != 0) {
        throwErrno("cannot start /bin/sh", error);
    }
}

CommandLink::~CommandLink()
{
    socket.reset();
    Shell state = afterGrace();
    if (state == Shell::running) {
        kill(-shell, SIGTERM);
        state = afterGrace();
    }
    if (state != Shell::reaped) {
        kill(-shell, SIGKILL); // also processes that the shell left behind
        waitpid(shell, nullptr, 0);
    }
}

/// Leaves the shell a zombie until its group is gone, so that no other group can get its id.
CommandLink::Shell CommandLink::afterGrace() const
{
    for (int waitedMs = 0; waitedMs < graceMs; waitedMs += stepMs) {
        siginfo_t info{};
        if (waitid(P_PID, static_cast<id_t>(shell), &info, WEXITED | WNOHANG | WNOWAIT) == -1) {
            return Shell::reaped;
        }
        if (info.si_pid != 0) {
            return Shell::ended;
        }
        millisleep(stepMs);
    }
    return Shell::running;
}
