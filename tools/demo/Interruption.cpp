#include "demo/Interruption.h"

#include <atomic>
#include <csignal>

namespace {

std::atomic<const WakeUp*> target{nullptr};

void onSignal(int)
{
    if (const WakeUp* const wake = target) {
        wake->notify();
    }
}

} // namespace

Interruption::Interruption()
{
    target = &wake;
    struct sigaction action {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

Interruption::~Interruption()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    target = nullptr;
}
