// A host that lives outside both libraries: it derives from NetTCPService and NetTCPSession, overrides every virtual
// operation of both, and serves two clients. It proves that the exported interface is enough for a host: on Linux it is
// built against the installed package, on Windows against the two DLLs. It also takes the addresses of the constants
// that exported classes have. Exit code 0: every override was called, every constant read.
#include "common/DataLogEntryRecord.h"
#include "common/DataLogEntryTime.h"
#include "common/Messages.h"
#include "common/SettingsTransportSet.h"
#include "common/ThreadPool.h"
#include "net/dns/NetDNSCache.h"
#include "net/ipcontrol/NetAntiHammer.h"
#include "net/service/NetTCPService.h"
#include "net/session/NetTCPSession.h"
#include "net/session/NetTCPSessionControllableSSL.h"
#include "net/sockets/NetTCP.h"
#include "net/ssl/NetSSLCertControl.h"
#include "net/status/NetServiceLiveStatus.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionLiveStatus.h"
#include "net/status/NetSessionStatus.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <thread>

using namespace kqlib;

namespace {

/// The virtual operations that are overridden, in slot order.
enum CALL : std::size_t
{
    SERVICE_DESTRUCTOR,
    SERVICE_THREAD,
    CREATE_SESSION,
    SESSION_DESTRUCTOR,
    SESSION_THREAD,
    HANDLE_SESSION,
    DISCONNECT_RECV,
    MONITOR_NET,
    DATA_PASS,
    CMD_PASS,
    SHOULD_WAIT,
    SESSION_START,
    PRE_READ,
    DATA_RECV,
    CMD_RECV,
    CMD_OVERSIZE,
    MON_CLOSING,
    MON_CLOSED,
    CONTROL_MSG,
    SESSION_END,
    MAIN_NET_CLOSED,
    CALL_COUNT
};

constexpr std::array<const char*, CALL_COUNT> CALL_NAMES = {"service destructor",
                                                            "service xThread",
                                                            "xCreateSession",
                                                            "session destructor",
                                                            "session xThread",
                                                            "xHandleSession",
                                                            "xEventControlMsgDisconnectRecv",
                                                            "xMonitorNet",
                                                            "xMonitorNetDataPass",
                                                            "xMonitorNetCmdPass",
                                                            "xWaitingForNetShouldWait",
                                                            "xEventSessionStart",
                                                            "xEventMonPreReadData",
                                                            "xEventMonDataRecv",
                                                            "xEventMonCmdRecv",
                                                            "xEventMonCmdOverSizeRecv",
                                                            "xEventMonClosing",
                                                            "xEventMonClosed",
                                                            "xEventMonControlMsgRecv",
                                                            "xEventSessionEnd",
                                                            "xEventMainNetClosed"};

std::array<std::atomic<int>, CALL_COUNT> g_calls{};

void Note(CALL call)
{
    ++g_calls[call];
}

bool WasCalled(CALL call)
{
    return g_calls[call] > 0;
}

template <class CONDITION> bool Wait(CONDITION condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

/// Answers each command with "OK <command>"; after "DATA" it sends back every byte.
class HostSession : public NetTCPSession
{
public:
    HostSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activity, EventLog& events,
                const EventLogSessionID& id, NetTCP* connection)
        : NetTCPSession(pool, cache, activity, events, id, 60, connection)
    {
        xSetPeriodicMilliSecs(10);
        xSetMaxCmdSize(64);
        xConstrStartSession();
    }
    ~HostSession() override
    {
        xDeconstrEndSession();
        Note(SESSION_DESTRUCTOR);
    }

protected:
    void xHandleSession() override
    {
        Note(HANDLE_SESSION);
        NetTCPSession::xHandleSession();
    }
    void xEventControlMsgDisconnectRecv(const String& text) override
    {
        Note(DISCONNECT_RECV);
        NetTCPSession::xEventControlMsgDisconnectRecv(text);
    }
    void xMonitorNet(NetTCP* const socket) override
    {
        Note(MONITOR_NET);
        NetTCPSession::xMonitorNet(socket);
    }
    bool xMonitorNetDataPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                             ULONG& wait) override
    {
        Note(DATA_PASS);
        return NetTCPSession::xMonitorNetDataPass(socket, state, buffer, continuing, wait);
    }
    bool xMonitorNetCmdPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                            String& command, ULONG& wait) override
    {
        Note(CMD_PASS);
        return NetTCPSession::xMonitorNetCmdPass(socket, state, buffer, continuing, command, wait);
    }
    bool xWaitingForNetShouldWait() override
    {
        Note(SHOULD_WAIT);
        return NetTCPSession::xWaitingForNetShouldWait();
    }
    void xEventSessionStart() override { Note(SESSION_START); }
    void xEventMonPreReadData(bool /*periodic*/, ULONG& /*activity*/) override { Note(PRE_READ); }
    void xEventMonDataRecv(const unsigned char* data, ULONG& length) override
    {
        Note(DATA_RECV);
        xSendAllData(xGetMainSocket(), data, length);
    }
    void xEventMonCmdRecv(const String& command) override
    {
        Note(CMD_RECV);
        xSendCommand(xGetMainSocket(), String("OK ") + command);
        if (command == "DATA")
            xSetDataMode(true);
    }
    void xEventMonCmdOverSizeRecv(const String& /*command*/) override
    {
        Note(CMD_OVERSIZE);
        xSendCommand(xGetMainSocket(), "TOO LONG");
    }
    void xEventMonClosing() override { Note(MON_CLOSING); }
    void xEventMonClosed() override { Note(MON_CLOSED); }
    void xEventMonControlMsgRecv(const CTRLMSG& message) override
    {
        Note(CONTROL_MSG);
        xSendCommand(xGetMainSocket(), String("MESSAGE ") + message.text);
    }
    void xEventSessionEnd() override { Note(SESSION_END); }
    void xEventMainNetClosed() override { Note(MAIN_NET_CLOSED); }
};

class HostService : public NetTCPService
{
public:
    HostService(ThreadPool& pool, NetDNSCache& cache)
        : NetTCPService(pool, cache)
        , m_pool(pool)
        , m_cache(cache)
    {
    }
    ~HostService() override
    {
        xEndThread();
        Note(SERVICE_DESTRUCTOR);
    }

protected:
    NetTCPSession* xCreateSession(NetTCP* const connection, EventLogSessionID id) override
    {
        Note(CREATE_SESSION);
        return new HostSession(m_pool, m_cache, GetActivityLog(), GetEventLog(), id, connection);
    }

private:
    ThreadPool& m_pool;
    NetDNSCache& m_cache;
};

/// A session and a service whose threads do something else altogether.
class OwnThreadSession : public NetTCPSession
{
public:
    OwnThreadSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activity, EventLog& events)
        : NetTCPSession(pool, cache, activity, events, EventLogSessionID(1, 1), 60, nullptr)
    {
        xConstrStartSession();
    }
    ~OwnThreadSession() override { xDeconstrEndSession(); }

private:
    void xThread() override { Note(SESSION_THREAD); }
};

class OwnThreadService : public NetTCPService
{
public:
    using NetTCPService::NetTCPService;
    ~OwnThreadService() override { xEndThread(); }

private:
    void xThread() override { Note(SERVICE_THREAD); }
    NetTCPSession* xCreateSession(NetTCP* const /*connection*/, EventLogSessionID /*id*/) override { return nullptr; }
};

/// The other end.
class Client
{
public:
    explicit Client(USHORT port)
        : m_socket(NetIP::LOOKUP_ANY)
    {
        m_socket.Connect(NetIP(String("127.0.0.1")), port);
        m_socket.SetBlockTime(10);
    }

    /// Sends the text and waits until exactly the answer came.
    bool Talk(const std::string& text, const std::string& answer)
    {
        unsigned long size = static_cast<unsigned long>(text.size());
        m_received.clear();
        return m_socket.Send(text.data(), size) && size == text.size() && WaitFor(answer);
    }
    bool WaitFor(const std::string& answer)
    {
        return Wait([&] { return !xReceive() || m_received.size() >= answer.size(); }) && m_received == answer;
    }
    bool WaitUntilClosed()
    {
        return Wait([this] { return !xReceive(); });
    }
    void Close() { m_socket.ShutdownAndClose(); }
    void Forget() { m_received.clear(); }

private:
    bool xReceive()
    {
        char bytes[256];
        unsigned long size = sizeof(bytes);
        if (!m_socket.Recv(bytes, size))
            return false;
        m_received.append(bytes, size);
        return true;
    }

    NetTCP m_socket;
    std::string m_received;
};

bool Check(bool passed, const char* what)
{
    if (!passed)
        std::printf("FAILED: %s\n", what);
    return passed;
}

/// A constant member of an exported class, and what it should hold.
struct CONSTANT
{
    const ULONG* address;
    ULONG value;
};

/// The members are looked up where they are, not replaced by their values: a host may bind references to them.
bool ReadConstants()
{
    const CONSTANT constants[] = {
        {&DataLogEntryRecord::OWN_SIZE, 16},
        {&DataLogEntryTime::OWN_SIZE, 4},
        {&NetAntiHammer::MAX_ENTRIES, 1747626},
        {&NetCounterBlock::SIZE, 104},
        {&NetSSLCertControl::SEED_BLOCK_SIZE, 2344},
        {&NetSessionActivity::BLOCK_SIZE, 136},
        {&NetSessionLiveStatus::ACTION_RESET, 89},
        {&NetSessionStatus::BLOCK_SIZE, 292},
        {&NetSessionStatus::USER_SIZE, 32},
        {&NetTCPSession::MSG_DISCONNECT, 1},
        {&NetTCPSessionControllableSSL::INVALID_REQID, 0xFFFFFFFF},
    };
    bool passed = true;
    for (const CONSTANT& constant : constants) {
        const ULONG* volatile address = constant.address; // the compiler forgets where it leads
        passed &= Check(address != nullptr && *address == constant.value, "a constant is read at its address");
    }
    const char* const* volatile unnamed = &SettingsTransportSet::UNNAMED;
    const String::size_type* volatile npos = &String::npos;
    const NetIP* volatile any = &NetIP::ANY_IP4;
    passed &= Check(*unnamed != nullptr && **unnamed == 0, "the name of what has none is empty");
    passed &= Check(String("text").find("other") == *npos, "a search without result ends at npos");
    passed &= Check(any->IsIP4(), "the address of every IPv4 end is one");
    return passed;
}

bool IsListed(NetTCPService& service)
{
    NetServiceLiveStatus sessions;
    service.GetLiveSessions(sessions);
    return sessions.GetCount() != 0;
}

bool ServeClients(ThreadPool& pool, NetDNSCache& cache)
{
    HostService service(pool, cache);
    Messages messages;
    NetPortBinds failed;
    service.SetSettings(NetPortBinds(NetPortBind(0, "127.0.0.1")), 10, 10);
    if (!Check(service.Init(messages), "the service starts"))
        return false;
    service.StartListen(failed);
    Vector<NetServiceStatus::ACTIVEPORT> ports;
    service.GetListeningPorts(ports);
    if (!Check(ports.GetCount() == 1, "the service listens"))
        return false;

    Client first(ports.Get(0).port);
    bool passed = Check(first.Talk("HELLO\r\n", "OK HELLO\r\n"), "a command is answered");
    passed &= Check(first.Talk(std::string(64, 'x') + "\r\n", "TOO LONG\r\nOK \r\n"), "an overlong line is told");
    passed &= Check(first.Talk("DATA\r\n", "OK DATA\r\n"), "data mode is entered");
    passed &= Check(first.Talk("raw bytes", "raw bytes"), "data comes back");
    first.Close();
    passed &= Check(Wait([] { return WasCalled(SESSION_DESTRUCTOR); }), "the session ends with its connection");

    Client second(ports.Get(0).port);
    passed &= Check(second.Talk("HELLO\r\n", "OK HELLO\r\n"), "the next client is served");
    second.Forget();
    // A session may answer before the service has it in its list, from which messages are sent.
    passed &= Check(Wait([&] { return IsListed(service); }), "the session is listed");
    service.SendControlMsgAll(7, "news");
    passed &= Check(second.WaitFor("MESSAGE news\r\n"), "a control message arrives");
    service.SendControlMsgDisconnectAll("enough");
    passed &= Check(second.WaitUntilClosed(), "a disconnect message ends the connection");
    service.StopListen();
    service.CloseSessions();
    return passed;
}

bool RunOwnThreads(ThreadPool& pool, NetDNSCache& cache)
{
    OwnThreadService service(pool, cache);
    Messages messages;
    bool passed = Check(service.Init(messages), "a service with a thread body of its own starts");
    passed &= Check(Wait([] { return WasCalled(SERVICE_THREAD); }), "its body runs");
    OwnThreadSession session(pool, cache, service.GetActivityLog(), service.GetEventLog());
    return Check(Wait([] { return WasCalled(SESSION_THREAD); }), "the session's own body runs") && passed;
}

} // namespace

int main()
{
    if (!NetSocket::sStartSockets())
        return 1;
    bool passed = ReadConstants();
    {
        ThreadPool pool;
        NetDNSCache cache;
        passed &= ServeClients(pool, cache);
        passed &= RunOwnThreads(pool, cache);
    }
    for (std::size_t call = 0; call < CALL_COUNT; call++)
        passed &= Check(WasCalled(static_cast<CALL>(call)), CALL_NAMES[call]);
    NetSocket::sEndSockets();
    std::printf(passed ? "every override was called\n" : "not every override was called\n");
    return passed ? 0 : 1;
}
