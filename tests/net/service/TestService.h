// The host of the service tests: a service, its sessions and a client of them.
#pragma once

#include "common/EventLogSessionID.h"
#include "common/ThreadPool.h"
#include "net/dns/NetDNSCache.h"
#include "net/service/NetTCPService.h"
#include "net/session/NetTCPSession.h"
#include "net/sockets/NetTCP.h"
#include "tests/peers/WaitFor.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kqlib::test {

class TestService;

/// What the sessions of a test saw. Any thread.
class Trace
{
public:
    void Add(const std::string& text)
    {
        const std::lock_guard lock(m_mutex);
        m_texts.push_back(text);
    }
    std::vector<std::string> Get() const
    {
        const std::lock_guard lock(m_mutex);
        return m_texts;
    }
    std::size_t GetCount() const { return Get().size(); }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_texts;
};

/// Answers each command with "OK <command>". "LOGIN <user>", "STORE", "FETCH" and "QUIT" do what they say, "FAIL" fails
/// to log in. It notes control messages as "<code>:<text>" and disconnects as "disconnect:<text>".
class TestSession : public NetTCPSession
{
public:
    struct HOOKS
    {
        std::string name;                         ///< noted as "end <name>" by the destructor when not empty
        std::function<void(TestSession&)> handle; ///< instead of the monitor, on the session's thread
        std::function<void(TestSession&)> atEnd;  ///< xEventSessionEnd
    };

    TestSession(TestService& service, NetTCP* connection, const EventLogSessionID& id, HOOKS hooks);
    ~TestSession() override
    {
        xDeconstrEndSession();
        if (!m_hooks.name.empty())
            m_trace->Add("end " + m_hooks.name);
    }

    bool ShouldEnd() const { return xShouldSessionEnd(); }
    /// For a session without a connection: notes the control messages that wait.
    void NoteMessages()
    {
        for (CTRLMSG message; xProcessMsgsAndTakeNext(message);)
            xEventMonControlMsgRecv(message);
    }

protected:
    void xHandleSession() override
    {
        if (m_hooks.handle)
            m_hooks.handle(*this);
        else
            NetTCPSession::xHandleSession();
    }
    void xEventControlMsgDisconnectRecv(const String& text) override { m_trace->Add("disconnect:" + text.str()); }
    void xEventMonControlMsgRecv(const CTRLMSG& message) override
    {
        m_trace->Add(std::to_string(message.code) + ":" + message.text.str());
    }
    void xEventMonCmdRecv(const String& command) override
    {
        const std::string text = command.str();
        if (text.rfind("LOGIN ", 0) == 0) {
            xSetCurrentUser(String(text.substr(6)));
            xRecordLoginAttempt(xGetMainNetState(), true, String(text.substr(6)), "", "", "");
        } else if (text == "FAIL") {
            xRecordLoginAttempt(xGetMainNetState(), false, "nobody", "", "", "no such user");
        } else if (text == "STORE") {
            xRecordFileUploaded(xGetMainNetState(), true, FilePath("/stored"), "");
        } else if (text == "FETCH") {
            xRecordFileDownloaded(xGetMainNetState(), true, FilePath("/fetched"), "");
        }
        xSendCommand(xGetMainSocket(), String("OK ") + command);
        if (text == "QUIT")
            xShutdownAndClose(xGetMainSocket());
    }
    void xEventSessionEnd() override
    {
        if (m_hooks.atEnd)
            m_hooks.atEnd(*this);
    }

private:
    std::shared_ptr<Trace> m_trace; // lives longer than the service: its base closes the last sessions
    HOOKS m_hooks;
};

/// Makes a TestSession per connection, or what the test's factory makes.
class TestService : public NetTCPService
{
public:
    using FACTORY = std::function<NetTCPSession*(NetTCP*, EventLogSessionID)>;

    TestService(ThreadPool& pool, NetDNSCache& cache)
        : NetTCPService(pool, cache)
    {
    }
    ~TestService() override { xEndThread(); }

    /// Before Init.
    void SetFactory(FACTORY factory) { m_factory = std::move(factory); }
    void EndThread() { xEndThread(); }
    void AskThreadToEnd() { xEndThreadAsync(); }

    ThreadPool& GetPool() const { return xGetPool(); }
    NetDNSCache& GetCache() { return *xGetResolver().GetCache(); }
    std::shared_ptr<Trace> GetTrace() const { return m_trace; }
    /// Ids of the sessions that were made, in order.
    std::vector<EventLogSessionID> GetIDs() const
    {
        const std::lock_guard lock(m_idsMutex);
        return m_ids;
    }
    ULONG GetSessionCount()
    {
        NetServiceStatus status;
        GetStatus(status);
        return static_cast<ULONG>(status.GetCurrentConnectionsIn() + status.GetCurrentConnectionsOut());
    }

protected:
    NetTCPSession* xCreateSession(NetTCP* const connection, EventLogSessionID id) override
    {
        {
            const std::lock_guard lock(m_idsMutex);
            m_ids.push_back(id);
        }
        return m_factory ? m_factory(connection, id) : new TestSession(*this, connection, id, {});
    }

private:
    FACTORY m_factory;
    std::shared_ptr<Trace> m_trace = std::make_shared<Trace>();
    mutable std::mutex m_idsMutex;
    std::vector<EventLogSessionID> m_ids;
};

inline TestSession::TestSession(TestService& service, NetTCP* connection, const EventLogSessionID& id, HOOKS hooks)
    : NetTCPSession(service.GetPool(), service.GetCache(), service.GetActivityLog(), service.GetEventLog(), id, 60,
                    connection)
    , m_trace(service.GetTrace())
    , m_hooks(std::move(hooks))
{
    xSetPeriodicMilliSecs(5); // control messages are looked at this often
    xConstrStartSession();
}

/// A client on 127.0.0.1.
class TestClient
{
public:
    explicit TestClient(USHORT port)
        : m_socket(NetIP::LOOKUP_ANY)
    {
        m_socket.Connect(NetIP(String("127.0.0.1")), port);
        m_socket.SetBlockTime(10);
    }

    bool IsConnected() const { return m_socket.IsConnected(); }
    USHORT GetLocalPort() const { return m_socket.GetLocalPort(); }
    bool SendLine(const std::string& line)
    {
        const std::string bytes = line + "\r\n";
        std::size_t sent = 0;
        WaitFor([&] {
            unsigned long size = static_cast<unsigned long>(bytes.size() - sent);
            if (!m_socket.Send(bytes.data() + sent, size))
                return true;
            sent += size;
            return sent == bytes.size();
        });
        return sent == bytes.size();
    }
    /// The next line without its end; empty when none came in time or the connection ended.
    std::string ReadLine(unsigned ms = waitForMs)
    {
        WaitFor([this] { return xReceive() || m_received.find("\r\n") != std::string::npos; }, ms);
        const std::size_t end = m_received.find("\r\n");
        if (end == std::string::npos)
            return std::string();
        const std::string line = m_received.substr(0, end);
        m_received.erase(0, end + 2);
        return line;
    }
    /// Sends a command and checks the answer.
    bool Talk(const std::string& command) { return SendLine(command) && ReadLine() == "OK " + command; }
    /// True when the service ends the connection within ms.
    bool WaitClosed(unsigned ms = waitForMs)
    {
        return WaitFor([this] { return xReceive(); }, ms);
    }

private:
    /// Receives once. True when the connection has ended.
    bool xReceive()
    {
        char bytes[512];
        unsigned long size = sizeof bytes;
        if (!m_socket.IsConnected() || !m_socket.Recv(bytes, size))
            return true;
        m_received.append(bytes, size);
        return false;
    }

    NetTCP m_socket;
    std::string m_received;
};

} // namespace kqlib::test
