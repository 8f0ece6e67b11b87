// Requests to stop or reload, on POSIX: the signals are blocked in every thread and taken by the one that waits, so
// that no handler ever runs.
#include "platform/Signals.h"

#include <csignal>
#include <ctime>

namespace kqlib::platform {

namespace {

sigset_t RequestSignals()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGHUP);
    return signals;
}

} // namespace

void HoldProcessRequests()
{
    const sigset_t signals = RequestSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr); // inherited by the threads made from here on
}

ProcessRequest WaitForProcessRequest(std::uint32_t waitMs)
{
    const sigset_t signals = RequestSignals();
    struct timespec wait = {};
    wait.tv_sec = static_cast<time_t>(waitMs / 1000);
    wait.tv_nsec = static_cast<long>(waitMs % 1000) * 1000000;
    switch (::sigtimedwait(&signals, nullptr, &wait)) { // cut short by any other signal: reads as nothing asked
    case SIGTERM:
    case SIGINT:
        return ProcessRequest::STOP;
    case SIGHUP:
        return ProcessRequest::RELOAD;
    default:
        return ProcessRequest::NONE;
    }
}

} // namespace kqlib::platform
