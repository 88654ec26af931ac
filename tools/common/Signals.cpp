// SPDX-License-Identifier: MIT
#include "common/Signals.h"

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <sys/signalfd.h>

Signals::Signals(std::initializer_list<int> others)
{
    sigset_t taken;
    sigemptyset(&taken);
    for (const int number : {SIGINT, SIGTERM}) {
        sigaddset(&taken, number);
    }
    for (const int number : others) {
        sigaddset(&taken, number);
    }
    struct sigaction hangup {};
    if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN) {
        sigaddset(&taken, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &taken, nullptr);
    source = aboveStandardStreams(Descriptor(signalfd(-1, &taken, SFD_NONBLOCK | SFD_CLOEXEC)));
    if (source.get() == -1) {
        throw std::system_error(errno, std::generic_category(), "no descriptor for signals");
    }
}

int Signals::next() const
{
    signalfd_siginfo info{};
    const ssize_t count = read(source.get(), &info, sizeof info);
    return count == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}
