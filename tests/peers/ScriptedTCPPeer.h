// ScriptedTCPPeer: the opposite end of a TCP connection in tests, playing a script on a thread of its own.
#pragma once

#include "platform/Sockets.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// Plays a list of steps as a server or client on 127.0.0.1 and records what it received.
///
///     ScriptedTCPPeer peer;
///     peer.Send("220 ready\r\n").ReceiveUntil("\r\n").SendPieces("331 more\r\n", 1).HangUp();
///     ASSERT_TRUE(peer.StartServer());
///     ... connect to peer.GetPort() and talk ...
///     EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
///
/// Add every step before the start. After the last step the connection is ended in order. A server accepts one
/// connection before the first step and another at each NextConnection.
///
/// Ownership: owns its sockets and thread; the destructor ends both, wherever the script stands.
/// Threads: steps and start by one thread; Continue, WaitDone and the questions by any.
/// Errors: a step that fails or takes longer than its limit ends the script; GetFailure tells which and why.
class ScriptedTCPPeer
{
public:
    ScriptedTCPPeer() = default;
    ~ScriptedTCPPeer();
    ScriptedTCPPeer(const ScriptedTCPPeer&) = delete;
    ScriptedTCPPeer& operator=(const ScriptedTCPPeer&) = delete;

    // --- the steps
    ScriptedTCPPeer& Send(std::string bytes);
    /// Sends size bytes at a time (1: byte by byte) with a short pause after each piece, so that the opposite end
    /// receives many small parts.
    ScriptedTCPPeer& SendPieces(std::string bytes, std::size_t size = 1);
    /// Receives until text occurs in what came since the last receiving step ended; what follows it stays for the next.
    ScriptedTCPPeer& ReceiveUntil(std::string text);
    /// Receives until count bytes came since the last receiving step ended.
    ScriptedTCPPeer& ReceiveBytes(std::size_t count);
    /// Receives until the opposite end closes or breaks off the connection.
    ScriptedTCPPeer& ReceiveToEnd();
    /// Does nothing, neither sends nor receives, until Continue was called (once for each Stall).
    ScriptedTCPPeer& Stall();
    /// Ends the connection in order.
    ScriptedTCPPeer& HangUp();
    /// Breaks the connection off: the opposite end sees a reset.
    ScriptedTCPPeer& Reset();
    /// Server only: ends the connection in order, if there still is one, and accepts another.
    ScriptedTCPPeer& NextConnection();

    /// The limit of each step in milliseconds, 5000 at first.
    void SetStepLimit(std::uint32_t ms) { m_stepLimitMs = ms; }

    // --- running
    /// Only listens, for steps that need to know the port; StartServer goes on from here. False: no port could be had.
    bool Listen();
    /// Listens, unless it does so already (the port stands when this returns), and plays the script. False: no port
    /// could be had.
    bool StartServer();
    /// Connects to a port of 127.0.0.1 and plays the script. False: no socket could be had.
    bool StartClient(std::uint16_t port);
    std::uint16_t GetPort() const { return m_port; }
    void Continue();
    /// True when the whole script was played within ms; false when a step failed or it still runs.
    bool WaitDone(unsigned ms = 10000);

    // --- questions
    /// Everything received so far, over all connections.
    std::string GetReceived() const;
    /// Connections made or accepted so far.
    std::size_t GetConnectionCount() const;
    /// What went wrong; empty when nothing did.
    std::string GetFailure() const;

private:
    struct STEP
    {
        std::string name;
        std::function<bool()> play;
    };

    ScriptedTCPPeer& xAdd(std::string name, std::function<bool()> play);
    void xStart();
    void xRun();
    bool xAcceptOne();
    bool xFinishConnect();
    void xEndConnection();
    bool xSendAll(const std::string& bytes);
    bool xReceiveOnce(bool& ended);
    bool xReceiveWhile(const std::function<bool()>& wanted);
    bool xStall();
    bool xTimeIsUp() const;
    bool xShouldEnd() const;

    std::vector<STEP> m_steps; // these six: set before the thread starts
    std::uint32_t m_stepLimitMs = 5000;
    std::uint16_t m_port = 0;
    bool m_isServer = false;
    kqlib::platform::SocketHandle m_listener = kqlib::platform::INVALID_SOCKET_HANDLE;
    std::thread m_thread;

    kqlib::platform::SocketHandle m_connection = kqlib::platform::INVALID_SOCKET_HANDLE; // these four: playing thread
    std::uint32_t m_stepStart = 0;
    std::string m_unread; // received, not yet taken by a receiving step

    mutable std::mutex m_lock; // guards the rest
    std::condition_variable m_changed;
    std::string m_received;
    std::string m_failure;
    std::size_t m_connectionCount = 0;
    std::size_t m_continueCount = 0;
    bool m_done = false;
    bool m_end = false;
};
