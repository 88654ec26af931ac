// SPDX-License-Identifier: MIT
#include "dump/BusInput.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <spawn.h>
#include <sys/socket.h>

namespace {

[[noreturn]] void fail(int error)
{
    throw std::system_error(error, std::generic_category(), "cannot start /bin/sh");
}

} // namespace

CommandInput::Started CommandInput::start(const std::string& command)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == -1) {
        fail(errno);
    }
    Started started{aboveStandardStreams(Descriptor(ends[0])), -1};
    const Descriptor other = aboveStandardStreams(Descriptor(ends[1]));
    if (started.socket.get() == -1 || other.get() == -1) {
        fail(errno);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, other.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, other.get(), STDOUT_FILENO);
    // The signals of this process are blocked or ignored; a Ctrl-C is not for the command.
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                              POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    std::string words[] = {"sh", "-c", command};
    char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    const int error =
        posix_spawn(&started.shell, "/bin/sh", &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        fail(error);
    }
    return started;
}

/// Does not wait: the program ends next.
CommandInput::~CommandInput()
{
    socket.reset();
    kill(-shell, SIGTERM);
}
