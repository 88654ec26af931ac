#include "demo/Interruption.h"

#include <ctime>

Interruption::Interruption()
{
    std::signal(SIGPIPE, SIG_IGN);
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool Interruption::wait(int milliseconds)
{
    const timespec timeout{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    if (!come && sigtimedwait(&signals, nullptr, &timeout) > 0) {
        come = true;
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
    return come;
}
