// The part of the wait that needs no system: the remembered wake-up.
#include "platform/Waiter.h"

namespace kqlib::platform {

// One word tells both sides of each other: whoever comes second to it, the waker or the thread that begins to wait,
// sees what the first has set. So either the wait does not begin, or it is signalled.
void Waiter::Wake()
{
    if ((m_state.fetch_or(WOKEN) & (WOKEN | WAITING)) == WAITING)
        xSignal();
}

WaitResult Waiter::Wait(WaitedSocket* sockets, std::size_t count, std::uint32_t waitMs, bool& woken)
{
    // Where the system cannot wait, nothing may stay of what a wait before has found.
    for (std::size_t index = 0; index < count; ++index)
        sockets[index].result = WaitResult::TIMED_OUT;
    bool mayWait = waitMs != 0 && !xIsWoken();
    if (mayWait) {
        xMakeSignal();
        mayWait = (m_state.fetch_or(WAITING) & WOKEN) == 0;
    }
    const WaitResult result = xWait(sockets, count, mayWait ? waitMs : 0);
    woken = (m_state.exchange(0) & WOKEN) != 0;
    return woken && result == WaitResult::TIMED_OUT ? WaitResult::READY : result;
}

WaitResult Waiter::Wait(SocketHandle handle, bool forRead, std::uint32_t waitMs, bool& woken)
{
    WaitedSocket socket;
    socket.handle = handle;
    socket.forRead = forRead;
    socket.forWrite = !forRead;
    const WaitResult result = Wait(&socket, 1, waitMs, woken);
    return socket.result == WaitResult::FAILED ? WaitResult::FAILED : result;
}

} // namespace kqlib::platform
