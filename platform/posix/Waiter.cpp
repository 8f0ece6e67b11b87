#include "platform/Waiter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <memory>
#include <new>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kqlib::platform {

namespace {

constexpr std::int64_t NANOS_PER_SECOND = 1'000'000'000;
constexpr std::int64_t NANOS_PER_MILLI = 1'000'000;

/// How often a wait looks for a wake-up where the system had no descriptor for its signal.
constexpr std::int64_t SLICE_NANOS = 20 * NANOS_PER_MILLI;

std::int64_t NowNanos()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * NANOS_PER_SECOND + now.tv_nsec;
}

/// What poll is asked: the sockets, and the signal at the end. Few sockets need no memory of their own.
class PollSet
{
public:
    PollSet(const WaitedSocket* sockets, std::size_t count, std::intptr_t signal)
        : m_count(count)
    {
        if (count >= m_few.size())
            m_many.reset(new (std::nothrow) pollfd[count + 1]);
        m_entries = count < m_few.size() ? m_few.data() : m_many.get();
        if (m_entries == nullptr)
            return;
        for (std::size_t index = 0; index < count; ++index) {
            const int events = (sockets[index].forRead ? POLLIN : 0) | (sockets[index].forWrite ? POLLOUT : 0);
            // The invalid handle becomes a descriptor below 0, which poll passes over.
            m_entries[index] = {static_cast<int>(sockets[index].handle), static_cast<short>(events), 0};
        }
        m_entries[count] = {static_cast<int>(signal), POLLIN, 0};
    }

    /// False: no memory.
    bool IsUsable() const { return m_entries != nullptr; }
    /// The result of ppoll; nanos below 0: without end.
    int Poll(std::int64_t nanos)
    {
        const timespec time = {nanos / NANOS_PER_SECOND, nanos % NANOS_PER_SECOND};
        return ppoll(m_entries, m_count + 1, nanos < 0 ? nullptr : &time, nullptr);
    }
    bool IsSignalled() const { return m_entries[m_count].revents != 0; }
    /// What came of a socket.
    WaitResult GetResult(std::size_t index) const
    {
        const pollfd& entry = m_entries[index];
        if (entry.fd < 0 || (entry.revents & POLLNVAL) != 0)
            return WaitResult::FAILED;
        return entry.revents != 0 ? WaitResult::READY : WaitResult::TIMED_OUT;
    }

private:
    const std::size_t m_count;
    std::array<pollfd, 8> m_few;
    std::unique_ptr<pollfd[]> m_many;
    pollfd* m_entries = nullptr;
};

} // namespace

Waiter::~Waiter()
{
    if (m_signal != NO_SIGNAL)
        close(static_cast<int>(m_signal));
}

void Waiter::xMakeSignal()
{
    if (m_signal == NO_SIGNAL)
        m_signal = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void Waiter::xSignal()
{
    if (m_signal != NO_SIGNAL)
        static_cast<void>(eventfd_write(static_cast<int>(m_signal), 1)); // cannot fail: it is emptied each time
}

WaitResult Waiter::xWait(WaitedSocket* sockets, std::size_t count, std::uint32_t waitMs)
{
    PollSet set(sockets, count, m_signal);
    if (!set.IsUsable())
        return WaitResult::FAILED;
    // A socket without a handle is an answer by itself.
    if (std::any_of(sockets, sockets + count,
                    [](const WaitedSocket& one) { return one.handle == INVALID_SOCKET_HANDLE; }))
        waitMs = 0;
    const std::int64_t deadline = NowNanos() + waitMs * NANOS_PER_MILLI;
    std::int64_t rest = waitMs * NANOS_PER_MILLI;
    for (;;) {
        std::int64_t slice = waitMs == FOREVER ? -1 : rest;
        if (m_signal == NO_SIGNAL && waitMs != 0)
            slice = slice < 0 ? SLICE_NANOS : std::min(slice, SLICE_NANOS);
        const int found = set.Poll(slice);
        if (found < 0 && errno != EINTR)
            return WaitResult::FAILED;
        bool any = false;
        for (std::size_t index = 0; found >= 0 && index < count; ++index) {
            sockets[index].result = set.GetResult(index);
            any = any || sockets[index].result != WaitResult::TIMED_OUT;
        }
        eventfd_t ignored = 0;
        if (found > 0 && set.IsSignalled())
            static_cast<void>(eventfd_read(static_cast<int>(m_signal), &ignored));
        if (any)
            return WaitResult::READY;
        rest = std::max<std::int64_t>(deadline - NowNanos(), 0);
        // A signal without a wake-up comes from a waker that was late: the wait before has taken what it told of. An
        // interrupted wait goes on for the rest of its time, but asks the sockets once at least.
        const bool isOver = xIsWoken() || (waitMs != FOREVER && rest == 0);
        if (isOver && found >= 0)
            return WaitResult::TIMED_OUT;
        if (isOver) {
            waitMs = 0;
            rest = 0;
        }
    }
}

} // namespace kqlib::platform
