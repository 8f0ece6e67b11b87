#include "tests/net/sockets/posix/SocketFault.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>

namespace kqlib::test {

namespace {

struct FAULT
{
    std::atomic<int> error{0};
    std::atomic<int> left{0};
};
FAULT g_faults[SocketFault::COUNT];
std::atomic<int> g_lastBacklog{0};

/// True when the call is to fail; errno is set then.
bool IsToFail(SocketFault::FUNCTION function)
{
    FAULT& fault = g_faults[function];
    int left = fault.left.load();
    while (left > 0 && !fault.left.compare_exchange_weak(left, left - 1)) {
        // another thread took one meanwhile
    }
    if (left <= 0)
        return false;
    errno = fault.error.load();
    return true;
}

/// The function of that name behind this program's own.
template <class FUNCTION> FUNCTION* Next(FUNCTION* /*own*/, const char* name)
{
    return reinterpret_cast<FUNCTION*>(dlsym(RTLD_NEXT, name));
}

} // namespace

SocketFault::SocketFault(FUNCTION function, int error, int times)
    : m_function(function)
{
    g_faults[function].error = error;
    g_faults[function].left = times;
}

SocketFault::~SocketFault()
{
    g_faults[m_function].left = 0;
}

bool SocketFault::IsUsedUp() const
{
    return g_faults[m_function].left.load() == 0;
}

int SocketFault::sGetLastBacklog()
{
    return g_lastBacklog;
}

} // namespace kqlib::test

using kqlib::test::g_lastBacklog;
using kqlib::test::IsToFail;
using kqlib::test::Next;
using kqlib::test::SocketFault;

// Visible to the libraries of the program, whose calls they take.
#pragma GCC visibility push(default)
extern "C" {

int socket(int family, int type, int protocol) noexcept
{
    static const auto next = Next(&socket, "socket");
    return IsToFail(SocketFault::SOCKET) ? -1 : next(family, type, protocol);
}

int listen(int descriptor, int backlog) noexcept
{
    static const auto next = Next(&listen, "listen");
    g_lastBacklog = backlog;
    return IsToFail(SocketFault::LISTEN) ? -1 : next(descriptor, backlog);
}

int accept4(int descriptor, sockaddr* address, socklen_t* length, int flags)
{
    static const auto next = Next(&accept4, "accept4");
    return IsToFail(SocketFault::ACCEPT) ? -1 : next(descriptor, address, length, flags);
}

int connect(int descriptor, const sockaddr* address, socklen_t length)
{
    static const auto next = Next(&connect, "connect");
    const int result = next(descriptor, address, length);
    return IsToFail(SocketFault::CONNECT) ? -1 : result;
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags)
{
    static const auto next = Next(&send, "send");
    return IsToFail(SocketFault::SEND) ? -1 : next(descriptor, bytes, size, flags);
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags)
{
    static const auto next = Next(&recvmsg, "recvmsg");
    return IsToFail(SocketFault::RECEIVE) ? -1 : next(descriptor, message, flags);
}

int ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* signals)
{
    static const auto next = Next(&ppoll, "ppoll");
    return IsToFail(SocketFault::WAIT) ? -1 : next(entries, count, timeout, signals);
}
}
#pragma GCC visibility pop
