// Sockets of the system, reduced to the few verbs that the socket classes need. Native error codes end here.
//
// A handle is the system's socket number kept in an unsigned 32-bit value; INVALID_SOCKET_HANDLE (all bits set) means
// none. Every socket made here is non-blocking, is not inherited by child processes and raises no signal. Interrupted
// calls go on by themselves. One thread at a time uses a handle; different handles need no lock.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>

struct sockaddr_in;
struct sockaddr_in6;

namespace kqlib::platform {

using SocketHandle = std::uint32_t;
inline constexpr SocketHandle INVALID_SOCKET_HANDLE = 0xFFFFFFFFU;

enum class Family : std::uint8_t
{
    IP4,
    IP6
};

/// One end of a connection. bytes: 4 (IP4) or 16 (IP6) in network order; port in host order.
struct Endpoint
{
    Family family = Family::IP4;
    std::uint16_t port = 0;
    unsigned char bytes[16] = {};
};

/// What a socket call came to. Each verb lists the values it can give.
enum class IoResult : std::uint8_t
{
    DONE,        ///< carried out
    WOULD_BLOCK, ///< nothing could be done at once; try again when ready
    IN_PROGRESS, ///< a connection is being made
    CLOSED,      ///< the peer closed in order (a receive of 0 bytes)
    RESET,       ///< the connection was reset or broken off, by the peer or on the way
    REFUSED,     ///< the peer's port refused a connection or an earlier datagram
    FAILED       ///< any other failure
};

enum class WaitResult : std::uint8_t
{
    READY,
    TIMED_OUT,
    FAILED
};

/// Starts the system's socket library (Winsock 2.2; elsewhere nothing to start). True when sockets can be used. May be
/// called again; each success is paired with one EndSockets.
KQCOMMON_API bool StartSockets();
KQCOMMON_API void EndSockets();

/// Opens a stream (TCP) or datagram (UDP) socket, non-blocking, IPv6 sockets for IPv6 only. Stream sockets, and those
/// accepted from them, send small pieces at once instead of gathering them (RFC 896): the callers send whole replies.
/// INVALID_SOCKET_HANDLE on failure.
KQCOMMON_API SocketHandle OpenSocket(bool stream, Family family);

/// Closes the handle. The invalid handle is ignored.
KQCOMMON_API void CloseSocket(SocketHandle handle);

/// Closes the handle of a connection so that the peer sees it broken off (reset) rather than ended in order. The
/// invalid handle is ignored.
KQCOMMON_API void AbortSocket(SocketHandle handle);

/// Fixes the local end. forListening: the address may be taken again at once after an earlier listener on it ended,
/// never while one lives. Port 0 lets the system choose. False when the address or port cannot be had.
KQCOMMON_API bool BindSocket(SocketHandle handle, const Endpoint& local, bool forListening);

/// Makes a bound stream socket accept connections, with the given backlog.
KQCOMMON_API bool ListenSocket(SocketHandle handle, int backlog);

/// Starts a connection (stream), or fixes the peer (datagram). DONE, IN_PROGRESS, REFUSED or FAILED.
KQCOMMON_API IoResult ConnectSocket(SocketHandle handle, const Endpoint& remote);

/// Asks whether a connection in progress has been decided, waiting at most waitMicros twice (for success, then for
/// failure). DONE, REFUSED or FAILED when decided, else IN_PROGRESS.
KQCOMMON_API IoResult PollConnect(SocketHandle handle, std::uint32_t waitMicros);

/// Waits until the handle can be read, or written, at most waitMs milliseconds (0: only asks). A broken or closed
/// connection counts as ready: the operation itself then reports it. FAILED: the handle is none, told at once.
KQCOMMON_API WaitResult WaitSocket(SocketHandle handle, bool forRead, std::uint32_t waitMs);

/// Takes one waiting connection, non-blocking. DONE: accepted holds it. WOULD_BLOCK: nothing to take; also when the one
/// that waited has gone again, or when descriptors or memory are short (then after a pause of 2 ms), for neither says
/// anything about the listener. FAILED: the listener is unusable.
KQCOMMON_API IoResult AcceptSocket(SocketHandle listener, SocketHandle& accepted);

/// Sends once. size: in, bytes offered; out, bytes taken by the system (0 unless DONE).
/// DONE, WOULD_BLOCK, REFUSED (datagrams: the peer's system refused an earlier one; a reset by it means the same),
/// RESET or FAILED.
KQCOMMON_API IoResult SendSocket(SocketHandle handle, const unsigned char* data, std::size_t& size);

/// Receives once. size: in, room; out, bytes stored (0 unless DONE). A datagram longer than the room is FAILED.
/// DONE, WOULD_BLOCK, CLOSED (0 bytes came), REFUSED (datagrams: an earlier one was refused), RESET or FAILED.
KQCOMMON_API IoResult RecvSocket(SocketHandle handle, unsigned char* buffer, std::size_t& size);

/// The same for a datagram socket without a fixed peer, one datagram per call: to and from name the other end.
/// DONE (a datagram of 0 bytes too), WOULD_BLOCK, REFUSED (some earlier datagram was refused) or FAILED.
KQCOMMON_API IoResult SendSocketTo(SocketHandle handle, const unsigned char* data, std::size_t& size,
                                   const Endpoint& to);
KQCOMMON_API IoResult RecvSocketFrom(SocketHandle handle, unsigned char* buffer, std::size_t& size, Endpoint& from);

/// Ends both directions in order, without closing the handle. Failures are of no consequence.
KQCOMMON_API void ShutdownSocket(SocketHandle handle);

/// The address of this end / of the peer. False when it is not known, or not an IPv4 address (nothing is stored then).
KQCOMMON_API bool GetLocalEndpointIP4(SocketHandle handle, Endpoint& out);
KQCOMMON_API bool GetRemoteEndpointIP4(SocketHandle handle, Endpoint& out);

/// Between an endpoint and the system's own structures, for code that calls the system itself. The structures are
/// filled whole: family, port, address, all else zero; the endpoint's family is not looked at.
KQCOMMON_API void ToNative(const Endpoint& from, sockaddr_in& to);
KQCOMMON_API void ToNative(const Endpoint& from, sockaddr_in6& to);
KQCOMMON_API Endpoint FromNative(const sockaddr_in& from);
KQCOMMON_API Endpoint FromNative(const sockaddr_in6& from);

/// Sizes of the system's buffers of this socket, in bytes as the system reports them; 0 when the question fails.
KQCOMMON_API std::uint32_t GetRecvBufferSize(SocketHandle handle);
KQCOMMON_API std::uint32_t GetSendBufferSize(SocketHandle handle);
KQCOMMON_API bool SetRecvBufferSize(SocketHandle handle, std::uint32_t bytes);
KQCOMMON_API bool SetSendBufferSize(SocketHandle handle, std::uint32_t bytes);

/// Puts at most maxResults IPv4 addresses of a host name, as the system's own look-up gives them, into out (4 bytes
/// each, in its order); returns how many, 0 when the name is not known. Blocks. Any thread.
KQCOMMON_API std::size_t LookupHostIP4(const char* host, unsigned char (*out)[4], std::size_t maxResults);

} // namespace kqlib::platform
