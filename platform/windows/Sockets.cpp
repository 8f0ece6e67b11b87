#include "platform/Sockets.h"

#include "platform/windows/SystemHeaders.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/NativeAddress.inl"

namespace kqlib::platform {

namespace {

// How long accepting pauses when descriptors or memory are short.
constexpr DWORD SHORTAGE_PAUSE_MS = 2;

SOCKET ToSocket(SocketHandle handle)
{
    return static_cast<SOCKET>(handle);
}

timeval ToTimeval(std::uint64_t micros)
{
    constexpr std::uint64_t microsPerSecond = 1000000;
    timeval time{};
    time.tv_sec = static_cast<long>(micros / microsPerSecond);
    time.tv_usec = static_cast<long>(micros % microsPerSecond);
    return time;
}

// A socket option that is a number; fallback when it cannot be read.
int GetOption(SocketHandle handle, int option, int fallback)
{
    int value = 0;
    int length = sizeof(value);
    if (getsockopt(ToSocket(handle), SOL_SOCKET, option, reinterpret_cast<char*>(&value), &length) == SOCKET_ERROR)
        return fallback;
    return value;
}

bool SetOption(SocketHandle handle, int level, int option, int value)
{
    return setsockopt(ToSocket(handle), level, option, reinterpret_cast<const char*>(&value), sizeof(value)) !=
           SOCKET_ERROR;
}

bool IsDatagram(SocketHandle handle)
{
    return GetOption(handle, SO_TYPE, SOCK_STREAM) == SOCK_DGRAM;
}

bool IsRefusal(int error)
{
    return error == WSAECONNRESET || error == WSAECONNREFUSED;
}

// Some systems note the refusal of a datagram in the socket's error alone: neither a wait nor a receive tells of it.
bool HasNotedRefusal(SocketHandle handle)
{
    return IsDatagram(handle) && IsRefusal(GetOption(handle, SO_ERROR, 0));
}

// What the error of a failed send or receive means.
IoResult FromTransferError(SocketHandle handle, int error)
{
    switch (error) {
    case WSAEWOULDBLOCK:
        return HasNotedRefusal(handle) ? IoResult::REFUSED : IoResult::WOULD_BLOCK;
    case WSAECONNREFUSED:
        return IoResult::REFUSED;
    case WSAECONNRESET: // of a datagram: the peer's system refused an earlier one
        return IsDatagram(handle) ? IoResult::REFUSED : IoResult::RESET;
    case WSAECONNABORTED: // this system or the network broke it off
    case WSAENETRESET:
    case WSAESHUTDOWN:
        return IoResult::RESET;
    default:
        return IoResult::FAILED;
    }
}

// A new socket that no child process inherits, from the moment it is made: a child that another thread starts just then
// would hold it open.
SOCKET MakeSocket(int family, int type, int protocol)
{
    const SOCKET socket =
        WSASocketW(family, type, protocol, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (socket != INVALID_SOCKET || WSAGetLastError() != WSAEINVAL)
        return socket;
    // Windows 7 without its service pack does not know the flag.
    return WSASocketW(family, type, protocol, nullptr, 0, WSA_FLAG_OVERLAPPED);
}

// Every socket of ours: never waits by itself and is not handed to child processes. An accepted socket has the flags
// that its listener was made with, so that it is not inherited either; where a system does not keep to that, or does
// not know the flag, it is taken from the handle here.
bool PrepareSocket(SOCKET socket)
{
    u_long nonBlocking = 1;
    // Sockets of a layered provider are no kernel handles: then nothing can be inherited either.
    SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
    return ioctlsocket(socket, static_cast<long>(FIONBIO), &nonBlocking) != SOCKET_ERROR;
}

enum class Readiness : std::uint8_t
{
    READ,
    WRITE,
    EXCEPT
};

// Waits for one kind of readiness. The result of the system's call: above 0 ready, 0 timed out, SOCKET_ERROR failed.
int Select(SocketHandle handle, Readiness kind, std::uint64_t micros)
{
    fd_set set;
    FD_ZERO(&set);
    set.fd_array[0] = ToSocket(handle);
    set.fd_count = 1;
    timeval time = ToTimeval(micros);
    return select(0, kind == Readiness::READ ? &set : nullptr, kind == Readiness::WRITE ? &set : nullptr,
                  kind == Readiness::EXCEPT ? &set : nullptr, &time);
}

} // namespace

bool StartSockets()
{
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

void EndSockets()
{
    WSACleanup();
}

SocketHandle OpenSocket(bool stream, Family family)
{
    const SOCKET socket = MakeSocket(family == Family::IP4 ? AF_INET : AF_INET6, stream ? SOCK_STREAM : SOCK_DGRAM,
                                     stream ? IPPROTO_TCP : IPPROTO_UDP);
    if (socket == INVALID_SOCKET)
        return INVALID_SOCKET_HANDLE;
    const auto handle = static_cast<SocketHandle>(socket);
    if (!PrepareSocket(socket) || (family == Family::IP6 && !SetOption(handle, IPPROTO_IPV6, IPV6_V6ONLY, 1))) {
        closesocket(socket);
        return INVALID_SOCKET_HANDLE;
    }
    // Accepted sockets take it over from their listener. Without it sending is slower and nothing else.
    if (stream)
        SetOption(handle, IPPROTO_TCP, TCP_NODELAY, 1);
    return handle;
}

void CloseSocket(SocketHandle handle)
{
    if (handle != INVALID_SOCKET_HANDLE)
        closesocket(ToSocket(handle));
}

void AbortSocket(SocketHandle handle)
{
    const linger atOnce = {1, 0};
    setsockopt(ToSocket(handle), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&atOnce), sizeof(atOnce));
    CloseSocket(handle);
}

bool BindSocket(SocketHandle handle, const Endpoint& local, bool /*forListening*/)
{
    // An address that a listener has left can be had again at once here without asking. SO_REUSEADDR would let another
    // process take the port of a listener that lives.
    const NativeAddress address(local);
    return bind(ToSocket(handle), address.Get(), address.length) != SOCKET_ERROR;
}

bool ListenSocket(SocketHandle handle, int backlog)
{
    return listen(ToSocket(handle), backlog) != SOCKET_ERROR;
}

IoResult ConnectSocket(SocketHandle handle, const Endpoint& remote)
{
    const NativeAddress address(remote);
    if (connect(ToSocket(handle), address.Get(), address.length) != SOCKET_ERROR)
        return IoResult::DONE;
    switch (WSAGetLastError()) {
    case WSAEWOULDBLOCK:
        return IoResult::IN_PROGRESS;
    case WSAECONNREFUSED:
        return IoResult::REFUSED;
    default:
        return IoResult::FAILED;
    }
}

IoResult PollConnect(SocketHandle handle, std::uint32_t waitMicros)
{
    // Success makes the socket writable; failure is told in the set of exceptions alone.
    const int made = Select(handle, Readiness::WRITE, waitMicros);
    if (made > 0)
        return IoResult::DONE;
    const int failed = made == SOCKET_ERROR ? SOCKET_ERROR : Select(handle, Readiness::EXCEPT, waitMicros);
    if (failed == 0)
        return IoResult::IN_PROGRESS;
    return GetOption(handle, SO_ERROR, 0) == WSAECONNREFUSED ? IoResult::REFUSED : IoResult::FAILED;
}

WaitResult WaitSocket(SocketHandle handle, bool forRead, std::uint32_t waitMs)
{
    constexpr std::uint64_t microsPerMs = 1000;
    const int result = Select(handle, forRead ? Readiness::READ : Readiness::WRITE, waitMs * microsPerMs);
    if (result == SOCKET_ERROR)
        return WaitResult::FAILED;
    if (result > 0)
        return WaitResult::READY;
    return HasNotedRefusal(handle) ? WaitResult::READY : WaitResult::TIMED_OUT;
}

IoResult AcceptSocket(SocketHandle listener, SocketHandle& accepted)
{
    // No address is asked for: with a buffer for IPv4 a connection over IPv6, or one that the peer has reset already,
    // would fail here and be lost.
    const SOCKET socket = accept(ToSocket(listener), nullptr, nullptr);
    if (socket == INVALID_SOCKET) {
        switch (WSAGetLastError()) {
        case WSAEWOULDBLOCK:
        case WSAECONNRESET:
        case WSAECONNABORTED:
            return IoResult::WOULD_BLOCK;
        case WSAEMFILE:
        case WSAENOBUFS:
            Sleep(SHORTAGE_PAUSE_MS);
            return IoResult::WOULD_BLOCK;
        default:
            return IoResult::FAILED;
        }
    }
    if (!PrepareSocket(socket)) {
        closesocket(socket);
        return IoResult::WOULD_BLOCK;
    }
    accepted = static_cast<SocketHandle>(socket);
    return IoResult::DONE;
}

IoResult SendSocket(SocketHandle handle, const unsigned char* data, std::size_t& size)
{
    const int offered = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    size = 0;
    const int moved = send(ToSocket(handle), reinterpret_cast<const char*>(data), offered, 0);
    if (moved == SOCKET_ERROR)
        return FromTransferError(handle, WSAGetLastError());
    size = static_cast<std::size_t>(moved);
    return IoResult::DONE;
}

IoResult RecvSocket(SocketHandle handle, unsigned char* buffer, std::size_t& size)
{
    const int room = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    size = 0;
    const int moved = recv(ToSocket(handle), reinterpret_cast<char*>(buffer), room, 0);
    if (moved == SOCKET_ERROR)
        return FromTransferError(handle, WSAGetLastError());
    if (moved == 0)
        return IoResult::CLOSED;
    size = static_cast<std::size_t>(moved);
    return IoResult::DONE;
}

IoResult SendSocketTo(SocketHandle handle, const unsigned char* data, std::size_t& size, const Endpoint& to)
{
    const NativeAddress address(to);
    const int offered = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    size = 0;
    const int moved =
        sendto(ToSocket(handle), reinterpret_cast<const char*>(data), offered, 0, address.Get(), address.length);
    if (moved == SOCKET_ERROR)
        return FromTransferError(handle, WSAGetLastError());
    size = static_cast<std::size_t>(moved);
    return IoResult::DONE;
}

IoResult RecvSocketFrom(SocketHandle handle, unsigned char* buffer, std::size_t& size, Endpoint& from)
{
    NativeAddress sender;
    const int room = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    size = 0;
    const int moved =
        recvfrom(ToSocket(handle), reinterpret_cast<char*>(buffer), room, 0, sender.Get(), &sender.length);
    if (moved == SOCKET_ERROR)
        return FromTransferError(handle, WSAGetLastError());
    from = sender.GetEndpoint();
    size = static_cast<std::size_t>(moved);
    return IoResult::DONE;
}

void ShutdownSocket(SocketHandle handle)
{
    shutdown(ToSocket(handle), SD_BOTH);
}

bool GetLocalEndpointIP4(SocketHandle handle, Endpoint& out)
{
    NativeAddress address;
    return getsockname(ToSocket(handle), address.Get(), &address.length) != SOCKET_ERROR && address.GetIP4(out);
}

bool GetRemoteEndpointIP4(SocketHandle handle, Endpoint& out)
{
    NativeAddress address;
    return getpeername(ToSocket(handle), address.Get(), &address.length) != SOCKET_ERROR && address.GetIP4(out);
}

std::uint32_t GetRecvBufferSize(SocketHandle handle)
{
    return static_cast<std::uint32_t>(GetOption(handle, SO_RCVBUF, 0));
}

std::uint32_t GetSendBufferSize(SocketHandle handle)
{
    return static_cast<std::uint32_t>(GetOption(handle, SO_SNDBUF, 0));
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
    // The result belongs to the calling thread, so no lock is needed.
    const hostent* const found = gethostbyname(host);
    if (!found || found->h_addrtype != AF_INET || found->h_length != 4)
        return 0;
    std::size_t count = 0;
    while (count < maxResults && found->h_addr_list[count]) {
        std::memcpy(out[count], found->h_addr_list[count], 4);
        count++;
    }
    return count;
}

} // namespace kqlib::platform
