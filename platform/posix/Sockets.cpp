#include "platform/Sockets.h"

#include "platform/Clock.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/NativeAddress.inl"

namespace kqlib::platform {

namespace {

constexpr std::int64_t NANOS_PER_SECOND = 1'000'000'000;
constexpr std::int64_t NANOS_PER_MILLI = 1'000'000;
constexpr std::int64_t NANOS_PER_MICRO = 1'000;
constexpr std::uint32_t SHORTAGE_PAUSE_MS = 2; // before an accept that lacked descriptors or memory is tried again

int ToDescriptor(SocketHandle handle)
{
    return static_cast<int>(handle);
}

template <class VALUE> bool SetOption(SocketHandle handle, int level, int name, VALUE value)
{
    return setsockopt(ToDescriptor(handle), level, name, &value, sizeof(value)) == 0;
}

int GetIntOption(SocketHandle handle, int name, int fallback)
{
    int value = fallback;
    socklen_t size = sizeof(value);
    return getsockopt(ToDescriptor(handle), SOL_SOCKET, name, &value, &size) == 0 ? value : fallback;
}

/// The result of a system call, made again as long as a signal interrupts it.
template <class CALL> auto Uninterrupted(const CALL& call)
{
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

std::int64_t NowNanos()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * NANOS_PER_SECOND + now.tv_nsec;
}

/// Waits for events (or an error, or a hang-up) on one handle. An interrupted wait goes on for the rest of its time.
WaitResult WaitForEvents(SocketHandle handle, short events, std::int64_t nanos)
{
    if (handle == INVALID_SOCKET_HANDLE) // which the system would leave out of the wait, and wait
        return WaitResult::FAILED;
    pollfd entry = {ToDescriptor(handle), events, 0};
    const std::int64_t deadline = NowNanos() + nanos;
    for (;;) {
        const timespec timeout = {nanos / NANOS_PER_SECOND, nanos % NANOS_PER_SECOND};
        const int count = ppoll(&entry, 1, &timeout, nullptr);
        if (count > 0)
            return (entry.revents & POLLNVAL) != 0 ? WaitResult::FAILED : WaitResult::READY;
        if (count == 0)
            return WaitResult::TIMED_OUT;
        if (errno != EINTR)
            return WaitResult::FAILED;
        nanos = std::max<std::int64_t>(deadline - NowNanos(), 0);
    }
}

bool IsDatagram(SocketHandle handle)
{
    return GetIntOption(handle, SO_TYPE, SOCK_STREAM) == SOCK_DGRAM;
}

/// What the error of a failed send or receive means.
IoResult FromTransferError(SocketHandle handle, int error)
{
    switch (error) {
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
        return IoResult::WOULD_BLOCK;
    case ECONNREFUSED: // an ICMP "port unreachable" answered an earlier datagram
        return IoResult::REFUSED;
    case ECONNRESET: // of a datagram: the word of some systems for the same
        return IsDatagram(handle) ? IoResult::REFUSED : IoResult::RESET;
    case EPIPE:
        return IoResult::RESET;
    default:
        return IoResult::FAILED;
    }
}

/// What the error of a failed accept means. Linux also reports what befell the waiting connection, or that a firewall
/// refused it; that is no failure of the listener.
IoResult FromAcceptError(int error)
{
    switch (error) {
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
    case ECONNABORTED:
    case EPERM:
    case EPROTO:
    case ENOPROTOOPT:
    case EOPNOTSUPP:
    case ENETDOWN:
    case ENETUNREACH:
    case EHOSTDOWN:
    case EHOSTUNREACH:
#ifdef ENONET
    case ENONET:
#endif
        return IoResult::WOULD_BLOCK;
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
        SleepMs(SHORTAGE_PAUSE_MS);
        return IoResult::WOULD_BLOCK;
    default:
        return IoResult::FAILED;
    }
}

/// What became of a connection whose attempt ended with this error (0: none).
IoResult FromConnectError(int error)
{
    switch (error) {
    case 0:
    case ECONNRESET: // made, and broken off by the peer since: the next receive tells
    case EPIPE:
        return IoResult::DONE;
    case ECONNREFUSED:
        return IoResult::REFUSED;
    default:
        return IoResult::FAILED;
    }
}

using NameQuestion = int (*)(int, sockaddr*, socklen_t*);

/// Asks getsockname or getpeername. The answer is taken only when it is a whole IPv4 address.
bool AskEndpointIP4(NameQuestion question, SocketHandle handle, Endpoint& out)
{
    NativeAddress address;
    return question(ToDescriptor(handle), address.Get(), &address.length) == 0 && address.GetIP4(out);
}

} // namespace

bool StartSockets()
{
    return true;
}

void EndSockets() {}

SocketHandle OpenSocket(bool stream, Family family)
{
    const int type = (stream ? SOCK_STREAM : SOCK_DGRAM) | SOCK_NONBLOCK | SOCK_CLOEXEC;
    const int protocol = stream ? IPPROTO_TCP : IPPROTO_UDP;
    const int descriptor = socket(family == Family::IP4 ? AF_INET : AF_INET6, type, protocol);
    if (descriptor < 0)
        return INVALID_SOCKET_HANDLE;
    const auto handle = static_cast<SocketHandle>(descriptor);
    if (family == Family::IP6 && !SetOption(handle, IPPROTO_IPV6, IPV6_V6ONLY, 1)) {
        CloseSocket(handle);
        return INVALID_SOCKET_HANDLE;
    }
    // Accepted sockets take it over from their listener. Without it sending is slower and nothing else.
    if (stream)
        SetOption(handle, IPPROTO_TCP, TCP_NODELAY, 1);
    return handle;
}

void CloseSocket(SocketHandle handle)
{
    // An interrupted close has closed all the same, so the result has nothing to say.
    if (handle != INVALID_SOCKET_HANDLE)
        close(ToDescriptor(handle));
}

void AbortSocket(SocketHandle handle)
{
    SetOption(handle, SOL_SOCKET, SO_LINGER, linger{1, 0});
    CloseSocket(handle);
}

bool BindSocket(SocketHandle handle, const Endpoint& local, bool forListening)
{
    if (forListening && !SetOption(handle, SOL_SOCKET, SO_REUSEADDR, 1))
        return false;
#ifdef IP_BIND_ADDRESS_NO_PORT
    // Leaves the choice of the port to connect, which can share ports between different peers. Without it the choice is
    // merely narrower, so a refusal does not matter.
    if (!forListening && local.port == 0)
        SetOption(handle, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, 1);
#endif
    const NativeAddress address(local);
    return bind(ToDescriptor(handle), address.Get(), address.length) == 0;
}

bool ListenSocket(SocketHandle handle, int backlog)
{
    return listen(ToDescriptor(handle), backlog) == 0;
}

IoResult ConnectSocket(SocketHandle handle, const Endpoint& remote)
{
    const NativeAddress address(remote);
    if (connect(ToDescriptor(handle), address.Get(), address.length) == 0)
        return IoResult::DONE;
    // An interrupted attempt goes on by itself.
    if (errno == EINPROGRESS || errno == EINTR)
        return IoResult::IN_PROGRESS;
    return errno == ECONNREFUSED ? IoResult::REFUSED : IoResult::FAILED;
}

IoResult PollConnect(SocketHandle handle, std::uint32_t waitMicros)
{
    // Success and failure both make the handle writable; one wait of both lengths serves for the two.
    switch (WaitForEvents(handle, POLLOUT, 2 * NANOS_PER_MICRO * std::int64_t{waitMicros})) {
    case WaitResult::TIMED_OUT:
        return IoResult::IN_PROGRESS;
    case WaitResult::FAILED:
        return IoResult::FAILED;
    case WaitResult::READY:
        break;
    }
    return FromConnectError(GetIntOption(handle, SO_ERROR, EIO));
}

WaitResult WaitSocket(SocketHandle handle, bool forRead, std::uint32_t waitMs)
{
    return WaitForEvents(handle, forRead ? POLLIN : POLLOUT, NANOS_PER_MILLI * std::int64_t{waitMs});
}

IoResult AcceptSocket(SocketHandle listener, SocketHandle& accepted)
{
    const int descriptor =
        Uninterrupted([&] { return accept4(ToDescriptor(listener), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC); });
    if (descriptor < 0)
        return FromAcceptError(errno);
    accepted = static_cast<SocketHandle>(descriptor);
    return IoResult::DONE;
}

IoResult SendSocket(SocketHandle handle, const unsigned char* data, std::size_t& size)
{
    const std::size_t offered = std::min<std::size_t>(size, INT_MAX);
    size = 0;
    const ssize_t sent = Uninterrupted([&] { return send(ToDescriptor(handle), data, offered, MSG_NOSIGNAL); });
    if (sent < 0)
        return FromTransferError(handle, errno);
    size = static_cast<std::size_t>(sent);
    return IoResult::DONE;
}

IoResult RecvSocket(SocketHandle handle, unsigned char* buffer, std::size_t& size)
{
    iovec room = {buffer, std::min<std::size_t>(size, INT_MAX)};
    size = 0;
    msghdr message = {};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    const ssize_t received = Uninterrupted([&] { return recvmsg(ToDescriptor(handle), &message, 0); });
    if (received < 0)
        return FromTransferError(handle, errno);
    // Only a datagram can be cut off.
    if ((message.msg_flags & MSG_TRUNC) != 0)
        return IoResult::FAILED;
    if (received == 0)
        return IoResult::CLOSED;
    size = static_cast<std::size_t>(received);
    return IoResult::DONE;
}

IoResult SendSocketTo(SocketHandle handle, const unsigned char* data, std::size_t& size, const Endpoint& to)
{
    const NativeAddress address(to);
    const std::size_t offered = size;
    size = 0;
    const ssize_t sent = Uninterrupted(
        [&] { return sendto(ToDescriptor(handle), data, offered, MSG_NOSIGNAL, address.Get(), address.length); });
    if (sent < 0)
        return FromTransferError(handle, errno);
    size = static_cast<std::size_t>(sent);
    return IoResult::DONE;
}

IoResult RecvSocketFrom(SocketHandle handle, unsigned char* buffer, std::size_t& size, Endpoint& from)
{
    NativeAddress sender;
    iovec room = {buffer, size};
    size = 0;
    msghdr message = {};
    message.msg_name = &sender.storage;
    message.msg_namelen = sender.length;
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    const ssize_t received = Uninterrupted([&] { return recvmsg(ToDescriptor(handle), &message, 0); });
    if (received < 0)
        return FromTransferError(handle, errno);
    if ((message.msg_flags & MSG_TRUNC) != 0)
        return IoResult::FAILED;
    from = sender.GetEndpoint();
    size = static_cast<std::size_t>(received);
    return IoResult::DONE;
}

void ShutdownSocket(SocketHandle handle)
{
    shutdown(ToDescriptor(handle), SHUT_RDWR);
}

bool GetLocalEndpointIP4(SocketHandle handle, Endpoint& out)
{
    return AskEndpointIP4(&getsockname, handle, out);
}

bool GetRemoteEndpointIP4(SocketHandle handle, Endpoint& out)
{
    return AskEndpointIP4(&getpeername, handle, out);
}

std::uint32_t GetRecvBufferSize(SocketHandle handle)
{
    return static_cast<std::uint32_t>(GetIntOption(handle, SO_RCVBUF, 0));
}

std::uint32_t GetSendBufferSize(SocketHandle handle)
{
    return static_cast<std::uint32_t>(GetIntOption(handle, SO_SNDBUF, 0));
}

bool SetRecvBufferSize(SocketHandle handle, std::uint32_t bytes)
{
    return SetOption(handle, SOL_SOCKET, SO_RCVBUF, static_cast<int>(bytes));
}

bool SetSendBufferSize(SocketHandle handle, std::uint32_t bytes)
{
    return SetOption(handle, SOL_SOCKET, SO_SNDBUF, static_cast<int>(bytes));
}

std::size_t LookupHostIP4(const char* host, unsigned char (*out)[4], std::size_t maxResults)
{
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &first) != 0)
        return 0;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(first, &freeaddrinfo);
    std::size_t count = 0;
    for (const addrinfo* item = first; item != nullptr && count < maxResults; item = item->ai_next) {
        sockaddr_in native;
        std::memcpy(&native, item->ai_addr, sizeof(native));
        std::memcpy(out[count++], &native.sin_addr, sizeof(out[0]));
    }
    return count;
}

} // namespace kqlib::platform
