// The wait for sockets, for a wake-up from another thread, and for a time, whichever comes first.
// Inside the library only.
#pragma once

#include "platform/Export.h"
#include "platform/Sockets.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kqlib::platform {

/// A socket that a wait looks at, for one purpose at least, and what the wait found.
struct WaitedSocket
{
    SocketHandle handle = INVALID_SOCKET_HANDLE; ///< borrowed for the time of the wait
    bool forRead = true;                         ///< ends the wait when something can be received or accepted
    bool forWrite = false; ///< ends the wait when something can be sent, or a connection attempt is decided
    /// Set by the wait. READY: as asked for, or broken or closed: the operation itself then tells. TIMED_OUT: nothing
    /// came. FAILED: it is no socket.
    WaitResult result = WaitResult::TIMED_OUT;
};

/// One place to wait at, for one thread at a time; any thread may wake it up.
///
/// A wake-up is remembered until a wait has taken it, so that one which comes before the wait, or while its thread is
/// busy, is not lost; several that nobody has taken count as one. There is no limit on how many sockets a wait looks
/// at, or on how many threads wait at waiters of their own. Waiting costs no processor time.
///
/// Cost: nothing until the first wait that is not over at once. Then the system's object for the wake-up, kept for the
/// next ones: on Linux a descriptor (about half a KiB of the kernel's memory), on Windows an event handle. A wake-up
/// while nobody waits is one atomic operation and no call to the system.
///
/// Ownership: borrows the sockets for the time of a wait. A socket is waited for at one waiter at a time. Threads: Wake
/// any thread; Wait one thread at a time; the destructor when no other thread is in either. Errors: by result; nothing
/// throws.
class KQCOMMON_API Waiter
{
public:
    /// No end of the time.
    static constexpr std::uint32_t FOREVER = 0xFFFFFFFFU;

    /// No wake-up is remembered.
    Waiter() = default;
    ~Waiter();
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    /// Ends the wait that is going on, or the next one at once.
    void Wake();

    /// Waits until one of the sockets is ready or has failed, a wake-up comes, or waitMs milliseconds have passed (0:
    /// only asks; FOREVER: no time limit). woken: whether a wake-up had come; it is taken. READY: a socket's result
    /// says something, or woken is true. The sockets are asked in any case, so that wake-ups without end do not hide
    /// them. FAILED: the system could not wait; woken and the sockets' results count all the same.
    WaitResult Wait(WaitedSocket* sockets, std::size_t count, std::uint32_t waitMs, bool& woken);
    /// The same for one socket. READY: it is, or woken is true. FAILED: it is no socket, or the system could not wait.
    WaitResult Wait(SocketHandle handle, bool forRead, std::uint32_t waitMs, bool& woken);
    /// The same without a socket.
    WaitResult Wait(std::uint32_t waitMs, bool& woken) { return Wait(nullptr, 0, waitMs, woken); }

private:
    /// Bits of m_state.
    static constexpr std::uint32_t WOKEN = 1;   ///< a wake-up that no wait has taken
    static constexpr std::uint32_t WAITING = 2; ///< a thread waits: who sets WOKEN must signal

    bool xIsWoken() const { return (m_state.load() & WOKEN) != 0; }

    // The system's half.
    void xMakeSignal();
    void xSignal();
    WaitResult xWait(WaitedSocket* sockets, std::size_t count, std::uint32_t waitMs);

    std::atomic<std::uint32_t> m_state{0};
    /// The system's object that ends a wait, NO_SIGNAL until it is needed. Written by the thread that waits, before
    /// WAITING is set.
    std::intptr_t m_signal = NO_SIGNAL;
    static constexpr std::intptr_t NO_SIGNAL = -1;
};

} // namespace kqlib::platform
