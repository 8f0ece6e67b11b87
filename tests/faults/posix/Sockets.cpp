// The wrapper's sockets.
#include "platform/Sockets.h"

#include "platform/Clock.h"
#include "tests/faults/posix/Interposition.h"

#include <algorithm>
#include <sys/socket.h>

namespace kqlib::platform {

using test::Call;
using test::FAULT;
using test::Real;

namespace {

constexpr std::uint32_t SHORTAGE_PAUSE_MS = 2;
constexpr std::uint64_t FEW_BYTES = 16;

bool HasOption(SocketHandle handle, int option, int wanted)
{
    int value = 0;
    socklen_t size = sizeof(value);
    return getsockopt(static_cast<int>(handle), SOL_SOCKET, option, &value, &size) == 0 && value == wanted;
}

bool IsStream(SocketHandle handle)
{
    return HasOption(handle, SO_TYPE, SOCK_STREAM);
}

bool IsListener(SocketHandle handle)
{
    return HasOption(handle, SO_ACCEPTCONN, 1);
}

/// A part of size bytes, at least one: every other time a few bytes only.
std::size_t ShortSize(const test::FaultPlan::DRAW& draw, std::size_t size)
{
    if (size < 2)
        return size;
    const std::uint64_t most = draw.Below(2) == 0 ? std::min<std::uint64_t>(size - 1, FEW_BYTES) : size - 1;
    return 1 + static_cast<std::size_t>(draw.random / 2 % most);
}

/// One of several results.
template <std::size_t COUNT> IoResult Choose(const test::FaultPlan::DRAW& draw, const IoResult (&results)[COUNT])
{
    return results[draw.Below(COUNT)];
}

/// What sending and receiving on a stream have in common: the faults that are harmless, then those that are not.
template <class MOVE>
IoResult MoveWithFaults(const Call& call, FAULT blocks, FAULT isShort, FAULT fails, const IoResult (&failures)[3],
                        std::size_t& size, const MOVE& move)
{
    if (call.Draw(blocks)) {
        size = 0;
        return IoResult::WOULD_BLOCK;
    }
    if (const auto draw = call.Draw(fails)) {
        size = 0;
        return Choose(draw, failures);
    }
    if (const auto draw = call.Draw(isShort))
        size = ShortSize(draw, size);
    return move();
}

} // namespace

bool StartSockets()
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::SOCKETS_FAIL) && Real<&StartSockets>()();
}

SocketHandle OpenSocket(bool stream, Family family)
{
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::OPEN_FAILS) ? INVALID_SOCKET_HANDLE : Real<&OpenSocket>()(stream, family);
}

bool BindSocket(SocketHandle handle, const Endpoint& local, bool forListening)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::BIND_FAILS) && Real<&BindSocket>()(handle, local, forListening);
}

bool ListenSocket(SocketHandle handle, int backlog)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::LISTEN_FAILS) && Real<&ListenSocket>()(handle, backlog);
}

IoResult ConnectSocket(SocketHandle handle, const Endpoint& remote)
{
    const Call call(__builtin_return_address(0));
    if (const auto draw = call.Draw(FAULT::CONNECT_FAILS))
        return draw.Below(2) == 0 ? IoResult::REFUSED : IoResult::FAILED;
    const IoResult result = Real<&ConnectSocket>()(handle, remote);
    // Datagrams have nothing to wait for.
    return result == IoResult::DONE && IsStream(handle) && call.Draw(FAULT::CONNECT_LASTS) ? IoResult::IN_PROGRESS
                                                                                           : result;
}

IoResult PollConnect(SocketHandle handle, std::uint32_t waitMicros)
{
    const Call call(__builtin_return_address(0));
    if (const auto draw = call.Draw(FAULT::CONNECT_FAILS))
        return draw.Below(2) == 0 ? IoResult::REFUSED : IoResult::FAILED;
    return call.Draw(FAULT::CONNECT_LASTS) ? IoResult::IN_PROGRESS : Real<&PollConnect>()(handle, waitMicros);
}

WaitResult WaitSocket(SocketHandle handle, bool forRead, std::uint32_t waitMs)
{
    const Call call(__builtin_return_address(0));
    if (!call)
        return Real<&WaitSocket>()(handle, forRead, waitMs);
    const bool listens = IsListener(handle);
    if (call.Draw(listens ? FAULT::ACCEPT_FAILS : FAULT::WAIT_FAILS))
        return WaitResult::FAILED;
    // A single wait of a test for a connection stands for the whole of its patience.
    if ((!listens || test::IsLibraryThread()) && call.Draw(FAULT::WAIT_SPURIOUS))
        return WaitResult::READY;
    const WaitResult result = Real<&WaitSocket>()(handle, forRead, waitMs);
    if (const auto draw = call.Draw(FAULT::WAIT_LATE))
        Real<&SleepMs>()(static_cast<std::uint32_t>(1 + draw.Below(5)));
    return result;
}

IoResult AcceptSocket(SocketHandle listener, SocketHandle& accepted)
{
    const Call call(__builtin_return_address(0));
    if (call.Draw(FAULT::ACCEPT_FAILS))
        return IoResult::FAILED;
    if (call && test::IsLibraryThread() && call.Draw(FAULT::ACCEPT_BLOCKS)) {
        Real<&SleepMs>()(SHORTAGE_PAUSE_MS);
        return IoResult::WOULD_BLOCK;
    }
    return Real<&AcceptSocket>()(listener, accepted);
}

IoResult SendSocket(SocketHandle handle, const unsigned char* data, std::size_t& size)
{
    const Call call(__builtin_return_address(0));
    const auto send = [&] { return Real<&SendSocket>()(handle, data, size); };
    if (std::size_t most = 0; call.IsFromLibraries() && test::FaultPlan::sTakeScriptedSend(most)) {
        size = std::min(size, most);
        return most != 0 ? send() : IoResult::WOULD_BLOCK;
    }
    if (!call || !IsStream(handle))
        return send();
    constexpr IoResult FAILURES[] = {IoResult::RESET, IoResult::RESET, IoResult::FAILED};
    return MoveWithFaults(call, FAULT::SEND_BLOCKS, FAULT::SHORT_SEND, FAULT::SEND_FAILS, FAILURES, size, send);
}

IoResult RecvSocket(SocketHandle handle, unsigned char* buffer, std::size_t& size)
{
    const Call call(__builtin_return_address(0));
    const auto receive = [&] { return Real<&RecvSocket>()(handle, buffer, size); };
    if (!call || !IsStream(handle))
        return receive();
    constexpr IoResult FAILURES[] = {IoResult::RESET, IoResult::CLOSED, IoResult::FAILED};
    return MoveWithFaults(call, FAULT::RECV_BLOCKS, FAULT::SHORT_RECV, FAULT::RECV_FAILS, FAILURES, size, receive);
}

IoResult SendSocketTo(SocketHandle handle, const unsigned char* data, std::size_t& size, const Endpoint& to)
{
    const Call call(__builtin_return_address(0));
    const bool fails = bool(call.Draw(FAULT::SEND_FAILS));
    if (!fails && !call.Draw(FAULT::SEND_BLOCKS))
        return Real<&SendSocketTo>()(handle, data, size, to);
    size = 0;
    return fails ? IoResult::FAILED : IoResult::WOULD_BLOCK;
}

IoResult RecvSocketFrom(SocketHandle handle, unsigned char* buffer, std::size_t& size, Endpoint& from)
{
    const Call call(__builtin_return_address(0));
    const auto failure = call.Draw(FAULT::RECV_FAILS);
    if (!failure && !call.Draw(FAULT::RECV_BLOCKS))
        return Real<&RecvSocketFrom>()(handle, buffer, size, from);
    size = 0;
    if (!failure)
        return IoResult::WOULD_BLOCK;
    return failure.Below(2) == 0 ? IoResult::REFUSED : IoResult::FAILED;
}

bool GetLocalEndpointIP4(SocketHandle handle, Endpoint& out)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::ADDRESS_FAILS) && Real<&GetLocalEndpointIP4>()(handle, out);
}

bool GetRemoteEndpointIP4(SocketHandle handle, Endpoint& out)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::ADDRESS_FAILS) && Real<&GetRemoteEndpointIP4>()(handle, out);
}

std::uint32_t GetRecvBufferSize(SocketHandle handle)
{
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::BUFFER_FAILS) ? 0 : Real<&GetRecvBufferSize>()(handle);
}

std::uint32_t GetSendBufferSize(SocketHandle handle)
{
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::BUFFER_FAILS) ? 0 : Real<&GetSendBufferSize>()(handle);
}

bool SetRecvBufferSize(SocketHandle handle, std::uint32_t bytes)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::BUFFER_FAILS) && Real<&SetRecvBufferSize>()(handle, bytes);
}

bool SetSendBufferSize(SocketHandle handle, std::uint32_t bytes)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::BUFFER_FAILS) && Real<&SetSendBufferSize>()(handle, bytes);
}

std::size_t LookupHostIP4(const char* host, unsigned char (*out)[4], std::size_t maxResults)
{
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::LOOKUP_FAILS) ? 0 : Real<&LookupHostIP4>()(host, out, maxResults);
}

} // namespace kqlib::platform
