#include "platform/Waiter.h"

#include "platform/windows/SystemHeaders.h"

#include <algorithm>

namespace kqlib::platform {

namespace {

/// How often a wait looks for a wake-up where the system had no event for its signal.
constexpr DWORD SLICE_MS = 20;

/// How long a wait for room to send lasts before it asks again. The system promises to tell of room only to a socket
/// whose last send was refused for want of it; one that was taken in part is not told.
constexpr DWORD WRITE_SLICE_MS = 250;

HANDLE ToHandle(std::intptr_t signal)
{
    return reinterpret_cast<HANDLE>(signal); // NOLINT(performance-no-int-to-ptr): a handle, not an address
}

/// Lets the system set one event for all of the sockets, for the time of a wait. One event for all has no limit, where
/// a wait for several events takes 64 at most. Afterwards the sockets are as they were: they stay non-blocking, which
/// ours always are, and a connection that is accepted inherits no event from its listener.
class EventSelection
{
public:
    EventSelection(WaitedSocket* sockets, std::size_t count, std::intptr_t signal)
        : m_sockets(sockets)
        , m_count(count)
    {
        for (std::size_t index = 0; index < count; ++index) {
            const WaitedSocket& one = sockets[index];
            const long events =
                FD_CLOSE | (one.forRead ? FD_READ | FD_ACCEPT : 0) | (one.forWrite ? FD_WRITE | FD_CONNECT : 0);
            // A handle that is no socket is found by the questions that follow.
            WSAEventSelect(one.handle, ToHandle(signal), events);
        }
    }
    ~EventSelection()
    {
        for (std::size_t index = 0; index < m_count; ++index)
            WSAEventSelect(m_sockets[index].handle, nullptr, 0);
    }
    EventSelection(const EventSelection&) = delete;
    EventSelection& operator=(const EventSelection&) = delete;

private:
    WaitedSocket* const m_sockets;
    const std::size_t m_count;
};

/// What can be said of a socket now. The events only say when to ask: some of them are told once and not again.
WaitResult Ask(const WaitedSocket& socket)
{
    WaitResult result = WaitResult::TIMED_OUT;
    if (socket.handle == INVALID_SOCKET_HANDLE)
        return WaitResult::FAILED;
    if (socket.forRead)
        result = WaitSocket(socket.handle, true, 0);
    if (result == WaitResult::TIMED_OUT && socket.forWrite)
        result = WaitSocket(socket.handle, false, 0);
    // A connection attempt that has failed makes the socket neither readable nor writable here.
    if (result == WaitResult::TIMED_OUT && socket.forWrite && PollConnect(socket.handle, 0) != IoResult::IN_PROGRESS)
        result = WaitResult::READY;
    return result;
}

/// Asks all; true when one has an answer.
bool AskAll(WaitedSocket* sockets, std::size_t count)
{
    bool any = false;
    for (std::size_t index = 0; index < count; ++index) {
        sockets[index].result = Ask(sockets[index]);
        any = any || sockets[index].result != WaitResult::TIMED_OUT;
    }
    return any;
}

} // namespace

Waiter::~Waiter()
{
    if (m_signal != NO_SIGNAL)
        CloseHandle(ToHandle(m_signal));
}

void Waiter::xMakeSignal()
{
    if (m_signal != NO_SIGNAL)
        return;
    HANDLE const event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (event != nullptr)
        m_signal = reinterpret_cast<std::intptr_t>(event);
}

void Waiter::xSignal()
{
    if (m_signal != NO_SIGNAL)
        SetEvent(ToHandle(m_signal));
}

WaitResult Waiter::xWait(WaitedSocket* sockets, std::size_t count, std::uint32_t waitMs)
{
    if (waitMs == 0)
        return AskAll(sockets, count) ? WaitResult::READY : WaitResult::TIMED_OUT;

    const ULONGLONG start = GetTickCount64();
    const bool forWrite = std::any_of(sockets, sockets + count, [](const WaitedSocket& one) { return one.forWrite; });
    const bool hasSignal = m_signal != NO_SIGNAL;
    const EventSelection selection(sockets, hasSignal ? count : 0, m_signal);
    // Whatever comes after the sockets were asked sets the event.
    while (!AskAll(sockets, count)) {
        const ULONGLONG passed = GetTickCount64() - start;
        if (xIsWoken() || (waitMs != FOREVER && passed >= waitMs))
            return WaitResult::TIMED_OUT;
        DWORD slice = waitMs == FOREVER ? INFINITE : static_cast<DWORD>(waitMs - passed);
        if (forWrite)
            slice = std::min(slice, WRITE_SLICE_MS);
        if (!hasSignal)
            Sleep(std::min(slice, SLICE_MS));
        else if (WaitForSingleObject(ToHandle(m_signal), slice) == WAIT_FAILED)
            return WaitResult::FAILED;
    }
    return WaitResult::READY;
}

} // namespace kqlib::platform
