#include "tests/peers/ScriptedTCPPeer.h"

#include "platform/Clock.h"
#include "tests/peers/Sockets.h"

#include <algorithm>
#include <chrono>
#include <utility>

using namespace kqlib::platform;
using kqlib::test::Loopback;

namespace {

constexpr std::uint32_t LOOK_MS = 10; // how often a waiting step looks whether it is to end
constexpr std::uint32_t PIECE_MS = 1; // pause after each piece
constexpr std::size_t RECV_SIZE = 65536;
constexpr int BACKLOG = 16;

} // namespace

ScriptedTCPPeer::~ScriptedTCPPeer()
{
    {
        const std::lock_guard guard(m_lock);
        m_end = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
    CloseSocket(m_connection);
    CloseSocket(m_listener);
}

ScriptedTCPPeer& ScriptedTCPPeer::Send(std::string bytes)
{
    return xAdd("Send", [this, bytes = std::move(bytes)] { return xSendAll(bytes); });
}

ScriptedTCPPeer& ScriptedTCPPeer::SendPieces(std::string bytes, std::size_t size)
{
    return xAdd("SendPieces", [this, bytes = std::move(bytes), size] {
        for (std::size_t at = 0; at < bytes.size(); at += size) {
            if (!xSendAll(bytes.substr(at, size)))
                return false;
            SleepMs(PIECE_MS);
        }
        return true;
    });
}

ScriptedTCPPeer& ScriptedTCPPeer::ReceiveUntil(std::string text)
{
    return xAdd("ReceiveUntil", [this, text = std::move(text)] {
        if (!xReceiveWhile([&] { return m_unread.find(text) == std::string::npos; }))
            return false;
        m_unread.erase(0, m_unread.find(text) + text.size());
        return true;
    });
}

ScriptedTCPPeer& ScriptedTCPPeer::ReceiveBytes(std::size_t count)
{
    return xAdd("ReceiveBytes", [this, count] {
        if (!xReceiveWhile([&] { return m_unread.size() < count; }))
            return false;
        m_unread.erase(0, count);
        return true;
    });
}

ScriptedTCPPeer& ScriptedTCPPeer::ReceiveToEnd()
{
    return xAdd("ReceiveToEnd", [this] {
        bool ended = false;
        while (!ended) {
            if (xTimeIsUp() || !xReceiveOnce(ended))
                return false;
        }
        m_unread.clear();
        return true;
    });
}

ScriptedTCPPeer& ScriptedTCPPeer::Stall()
{
    return xAdd("Stall", [this] { return xStall(); });
}

ScriptedTCPPeer& ScriptedTCPPeer::HangUp()
{
    return xAdd("HangUp", [this] {
        xEndConnection();
        return true;
    });
}

ScriptedTCPPeer& ScriptedTCPPeer::Reset()
{
    return xAdd("Reset", [this] {
        AbortSocket(std::exchange(m_connection, INVALID_SOCKET_HANDLE));
        return true;
    });
}

ScriptedTCPPeer& ScriptedTCPPeer::NextConnection()
{
    return xAdd("NextConnection", [this] {
        xEndConnection();
        return xAcceptOne();
    });
}

bool ScriptedTCPPeer::Listen()
{
    m_isServer = true;
    kqlib::test::OwnedSocket listener = kqlib::test::MakeListener(0, BACKLOG);
    m_port = kqlib::test::LocalPort(listener);
    m_listener = listener.Release();
    return m_port != 0;
}

bool ScriptedTCPPeer::StartServer()
{
    if (m_port == 0 && !Listen())
        return false;
    xStart();
    return true;
}

bool ScriptedTCPPeer::StartClient(std::uint16_t port)
{
    m_port = port;
    m_connection = OpenSocket(true, Family::IP4);
    if (m_connection == INVALID_SOCKET_HANDLE)
        return false;
    xStart();
    return true;
}

void ScriptedTCPPeer::Continue()
{
    const std::lock_guard guard(m_lock);
    ++m_continueCount;
    m_changed.notify_all();
}

bool ScriptedTCPPeer::WaitDone(unsigned ms)
{
    std::unique_lock guard(m_lock);
    m_changed.wait_for(guard, std::chrono::milliseconds(ms), [this] { return m_done; });
    return m_done && m_failure.empty();
}

std::string ScriptedTCPPeer::GetReceived() const
{
    const std::lock_guard guard(m_lock);
    return m_received;
}

std::size_t ScriptedTCPPeer::GetConnectionCount() const
{
    const std::lock_guard guard(m_lock);
    return m_connectionCount;
}

std::string ScriptedTCPPeer::GetFailure() const
{
    const std::lock_guard guard(m_lock);
    return m_failure;
}

ScriptedTCPPeer& ScriptedTCPPeer::xAdd(std::string name, std::function<bool()> play)
{
    m_steps.push_back({std::to_string(m_steps.size() + 1) + " " + std::move(name), std::move(play)});
    return *this;
}

void ScriptedTCPPeer::xStart()
{
    STEP first = m_isServer ? STEP{"accept", [this] { return xAcceptOne(); }}
                            : STEP{"connect", [this] { return xFinishConnect(); }};
    m_steps.insert(m_steps.begin(), std::move(first));
    m_thread = std::thread([this] { xRun(); });
}

void ScriptedTCPPeer::xRun()
{
    std::string failure;
    for (const STEP& step : m_steps) {
        m_stepStart = TickMs();
        if (!step.play()) {
            failure = "step " + step.name + (xTimeIsUp() ? " took too long" : " failed");
            break;
        }
    }
    xEndConnection();
    const std::lock_guard guard(m_lock);
    m_failure = std::move(failure);
    m_done = true;
    m_changed.notify_all();
}

bool ScriptedTCPPeer::xAcceptOne()
{
    IoResult result = IoResult::WOULD_BLOCK;
    while (result == IoResult::WOULD_BLOCK) {
        if (xTimeIsUp())
            return false;
        if (WaitSocket(m_listener, true, LOOK_MS) == WaitResult::READY)
            result = AcceptSocket(m_listener, m_connection);
    }
    const std::lock_guard guard(m_lock);
    ++m_connectionCount;
    return result == IoResult::DONE;
}

bool ScriptedTCPPeer::xFinishConnect()
{
    if (!BindSocket(m_connection, Loopback(0), false))
        return false;
    IoResult result = ConnectSocket(m_connection, Loopback(m_port));
    while (result == IoResult::IN_PROGRESS) {
        if (xTimeIsUp())
            return false;
        result = PollConnect(m_connection, 1000);
    }
    const std::lock_guard guard(m_lock);
    m_connectionCount += result == IoResult::DONE ? 1 : 0;
    return result == IoResult::DONE;
}

void ScriptedTCPPeer::xEndConnection()
{
    if (m_connection == INVALID_SOCKET_HANDLE)
        return;
    ShutdownSocket(m_connection);
    CloseSocket(std::exchange(m_connection, INVALID_SOCKET_HANDLE));
}

bool ScriptedTCPPeer::xSendAll(const std::string& bytes)
{
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        if (xTimeIsUp())
            return false;
        std::size_t size = bytes.size() - sent;
        const IoResult result = SendSocket(m_connection, data + sent, size);
        sent += size;
        if (result == IoResult::WOULD_BLOCK)
            WaitSocket(m_connection, false, LOOK_MS);
        else if (result != IoResult::DONE)
            return false;
    }
    return true;
}

/// Receives what comes within LOOK_MS. ended: the opposite end has closed or broken off. False: any other failure.
bool ScriptedTCPPeer::xReceiveOnce(bool& ended)
{
    ended = false;
    if (WaitSocket(m_connection, true, LOOK_MS) == WaitResult::TIMED_OUT)
        return true;
    std::vector<unsigned char> buffer(RECV_SIZE);
    std::size_t size = buffer.size();
    const IoResult result = RecvSocket(m_connection, buffer.data(), size);
    ended = result == IoResult::CLOSED || result == IoResult::RESET;
    const std::string bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
    m_unread += bytes;
    const std::lock_guard guard(m_lock);
    m_received += bytes;
    return ended || result == IoResult::DONE || result == IoResult::WOULD_BLOCK;
}

/// Receives as long as wanted. False: the connection ended before, or the time is up.
bool ScriptedTCPPeer::xReceiveWhile(const std::function<bool()>& wanted)
{
    while (wanted()) {
        bool ended = false;
        if (xTimeIsUp() || !xReceiveOnce(ended) || ended)
            return false;
    }
    return true;
}

bool ScriptedTCPPeer::xStall()
{
    std::unique_lock guard(m_lock);
    m_changed.wait_for(guard, std::chrono::milliseconds(m_stepLimitMs),
                       [this] { return m_continueCount > 0 || m_end; });
    if (m_continueCount == 0)
        return false;
    --m_continueCount;
    return true;
}

/// True when the step has reached its limit or the peer is to end.
bool ScriptedTCPPeer::xTimeIsUp() const
{
    return TickMs() - m_stepStart >= m_stepLimitMs || xShouldEnd();
}

bool ScriptedTCPPeer::xShouldEnd() const
{
    const std::lock_guard guard(m_lock);
    return m_end;
}
