#include "common/Signals.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <sys/signalfd.h>
#include <unistd.h>

Signals::Signals(std::initializer_list<int> others)
{
    sigset_t taken;
    sigemptyset(&taken);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        sigaddset(&taken, number);
    }
    for (const int number : others) {
        sigaddset(&taken, number);
    }
    pthread_sigmask(SIG_BLOCK, &taken, nullptr);
    source = Descriptor(signalfd(-1, &taken, SFD_NONBLOCK | SFD_CLOEXEC));
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
