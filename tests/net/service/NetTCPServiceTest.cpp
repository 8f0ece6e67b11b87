// The listener of a service: start-up, ports, accepting, settings, logs.
#include "net/service/NetTCPService.h"

#include "common/EventLogSettings.h"
#include "net/status/NetServiceLiveStatus.h"
#include "platform/Threads.h"
#include "tests/net/service/ServiceFixture.h"
#include "tests/peers/KnownName.h"
#include "tests/peers/Missing.h"
#include "tests/peers/PrivateMember.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/posix/DescriptorShortage.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <list>
#include <mutex>
#include <new>
#include <set>
#include <thread>

namespace kqlib::test {

/// Whether somebody has asked for the listening sockets and not got them yet.
struct AccessRequested
{
    friend std::atomic<bool> NetTCPService::*GetPrivateMember(AccessRequested);
};
template struct PrivateMember<AccessRequested, &NetTCPService::m_accessRequested>;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using TEXTS = std::vector<std::string>;

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// The one file of a folder, empty when there is none.
std::string ReadOnlyFile(const TempFolder& folder)
{
    for (const auto& entry : std::filesystem::directory_iterator(folder.GetPath()))
        return ReadFile(entry.path());
    return std::string();
}

class NetTCPServiceTest : public ServiceFixture
{
protected:
    void TearDown() override
    {
        JoinStopper();
        ServiceFixture::TearDown();
    }

    std::string Port(USHORT port) const { return "127.0.0.1:" + std::to_string(port); }
    std::string Opened(USHORT port) const { return "Open Listening Port Success|" + Port(port) + "|"; }
    std::string Closed(USHORT port) const { return "Close Listening Port|" + Port(port) + "|"; }
    std::string Failed(USHORT port) const { return "Open Listening Port Fail|" + Port(port) + "|"; }

    /// A StartListen or StopListen waits for the listening sockets.
    bool IsAccessRequested() const
    {
        return (static_cast<NetTCPService&>(*m_service).*GetPrivateMember(AccessRequested())).load();
    }
    /// Makes the factory do so while it makes the first session.
    void DuringTheFirstSession(std::function<void()> action)
    {
        m_service->SetFactory([this, action](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
            if (id.GetSession() == 0)
                action();
            return new TestSession(*m_service, connection, id, {});
        });
    }
    /// StopListen on a thread of its own, as soon as the first session is being made; then action, in the factory.
    void StopListenDuringTheFirstSession(std::function<void()> action)
    {
        DuringTheFirstSession([this, action] {
            m_stopper = std::thread([this] { m_service->StopListen(); });
            action();
        });
    }
    void JoinStopper()
    {
        if (m_stopper.joinable())
            m_stopper.join();
    }
    /// So many clients, each with a line sent, in the backlog of a port. The first limit above 0 lets them in at once.
    std::list<TestClient> ConnectToBacklog(USHORT port, int count) const
    {
        std::list<TestClient> clients;
        for (int index = 0; index < count; ++index) {
            clients.emplace_back(port);
            EXPECT_TRUE(clients.back().SendLine("hello"));
        }
        return clients;
    }
    void SetLimit(ULONG maxIncoming, const std::string& binds = "127.0.0.1:0")
    {
        m_service->SetSettings(Binds(binds), maxIncoming, 0);
    }

private:
    std::thread m_stopper; // begun by the factory, ended before the service
};

// ------------------------------------------------------------------------------------------------------ start-up

TEST_F(NetTCPServiceTest, Construct_Fresh_NothingRuns)
{
    EXPECT_FALSE(m_service->GetIsActive());
    EXPECT_FALSE(m_service->GetIsListening());
    NetServiceStatus status;
    m_service->GetStatus(status);
    EXPECT_FALSE(status.GetCreateTime().IsSet());
}

TEST_F(NetTCPServiceTest, Init_TwiceThenStatus_ActiveAndCreateTimeStamped)
{
    const TimePos before = TimePos::sNow();
    Messages messages;
    EXPECT_TRUE(m_service->Init(messages));
    EXPECT_TRUE(m_service->GetIsActive());
    NetServiceStatus first;
    m_service->GetStatus(first);
    EXPECT_GE(first.GetCreateTime(), before);
    EXPECT_LE(first.GetCreateTime(), TimePos::sNow());

    EXPECT_TRUE(m_service->Init(messages));
    NetServiceStatus second;
    m_service->GetStatus(second);
    EXPECT_EQ(second.GetCreateTime(), first.GetCreateTime()) << "the second Init does nothing";
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

TEST_F(NetTCPServiceTest, Init_NoThreadForThePurger_Message3AndNothingRuns)
{
    ThreadPool onlyOne(1);
    TestService service(onlyOne, m_cache);
    Messages messages;
    messages.AddMessage(99);
    EXPECT_FALSE(service.Init(messages));
    ASSERT_EQ(messages.GetMessageCount(), 2U);
    EXPECT_EQ(messages.Get(1), 3);
    EXPECT_FALSE(service.GetIsActive());
    NetServiceStatus status;
    service.GetStatus(status);
    EXPECT_FALSE(status.GetCreateTime().IsSet());
}

TEST_F(NetTCPServiceTest, Init_NoThreadAtAll_Message3)
{
    ThreadPool busy(1);
    std::atomic<bool> end{false};
    ASSERT_TRUE(busy.Run([&end] { WaitFor([&end] { return end.load(); }, 20000); }));
    {
        TestService service(busy, m_cache);
        Messages messages;
        EXPECT_FALSE(service.Init(messages));
        ASSERT_EQ(messages.GetMessageCount(), 1U);
        EXPECT_EQ(messages.Get(0), 3);
    }
    end = true;
}

TEST_F(NetTCPServiceTest, Init_RunningWhileThePortsAreChanged_TrueAtOnce)
{
    std::atomic<bool> answered{false};
    std::atomic<bool> inTime{false};
    StopListenDuringTheFirstSession([&] { inTime = WaitFor([&] { return answered.load(); }); });
    const TestClient client(Start());
    EXPECT_TRUE(WaitFor([this] { return IsAccessRequested(); }));
    Messages messages;
    EXPECT_TRUE(m_service->Init(messages));
    answered = true;
    EXPECT_TRUE(WaitFor([this] { return !m_service->GetIsListening(); }));
    EXPECT_TRUE(inTime);
}

// --------------------------------------------------------------------------------------------------------- ports

TEST_F(NetTCPServiceTest, StartListen_BeforeInit_EveryBindingFailedAndAppended)
{
    m_service->SetSettings(Binds("127.0.0.1:0,21,x:990"), 10, 10);
    NetPortBinds failed = Binds("7");
    m_service->StartListen(failed);
    EXPECT_EQ(failed.GetLine(), String("7,127.0.0.1:0,21,x:990"));
    EXPECT_FALSE(m_service->GetIsListening());
    EXPECT_THAT(m_log.GetEvents(), IsEmpty());
}

TEST_F(NetTCPServiceTest, StartListen_RandomPort_ActualPortLoggedAndListed)
{
    const USHORT port = Start();
    EXPECT_NE(port, 0);
    EXPECT_TRUE(m_service->GetIsListening());
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Opened(port)));
    NetServiceStatus status;
    m_service->GetStatus(status);
    ASSERT_EQ(status.GetActivePorts().GetCount(), 1U);
    EXPECT_EQ(status.GetActivePorts().Get(0).port, port);
    EXPECT_TRUE(status.GetActivePorts().Get(0).ip == NetIP(String("127.0.0.1")));
    TestClient client(port);
    EXPECT_TRUE(client.Talk("hello"));
}

TEST_F(NetTCPServiceTest, StartListen_EmptyHost_AllAddresses)
{
    const USHORT port = Start("0");
    EXPECT_THAT(m_log.GetServiceTexts(),
                ElementsAre("Open Listening Port Success|0.0.0.0:" + std::to_string(port) + "|"));
    TestClient client(port);
    EXPECT_TRUE(client.Talk("hello"));
}

TEST_F(NetTCPServiceTest, StartListen_AnyAddressAsHost_AllAddresses)
{
    const USHORT port = Start("0.0.0.0:0");
    EXPECT_THAT(m_log.GetServiceTexts(),
                ElementsAre("Open Listening Port Success|0.0.0.0:" + std::to_string(port) + "|"));
    NetTCP socket(NetIP::LOOKUP_ANY);
    EXPECT_TRUE(socket.Connect(NetIP(String("127.0.0.9")), port));
}

TEST_F(NetTCPServiceTest, StartListen_IP6Address_ServedButWithoutAddressSoOpenedAnewOnPurpose)
{
    const NetIP loopback6(String("::1"));
    const USHORT port = FreePort();
    NetTCP probe(NetIP::LOOKUP_ANY);
    if (!probe.ListenSpecific(port, loopback6))
        KQ_MISSING("this machine has no ::1");
    probe.Close();
    m_service->SetSettings(NetPortBinds(NetPortBind(port, "::1")), 10, 0);
    Messages messages;
    ASSERT_TRUE(m_service->Init(messages));
    for (int round = 0; round < 2; ++round) {
        NetPortBinds failed;
        m_service->StartListen(failed);
        EXPECT_EQ(failed.GetCount(), 0U);
        EXPECT_THAT(GetPorts(), ElementsAre(0));
        NetTCP socket(NetIP::LOOKUP_ANY);
        EXPECT_TRUE(socket.Connect(loopback6, port));
    }
    EXPECT_THAT(m_log.GetServiceTexts(),
                ElementsAre("Open Listening Port Success|0.0.0.0:0|", "Close Listening Port|0.0.0.0:0|",
                            "Open Listening Port Success|0.0.0.0:0|"));
}

TEST_F(NetTCPServiceTest, StartListen_PortInUse_FailLoggedOthersOpened)
{
    NetTCP other(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(other.ListenSpecific(0, NetIP(String("127.0.0.1"))));
    const USHORT busy = other.GetLocalPort();
    Init("127.0.0.1:" + std::to_string(busy) + ",127.0.0.1:0");
    NetPortBinds failed;
    m_service->StartListen(failed);
    EXPECT_EQ(failed.GetLine(), String(Port(busy)));
    ASSERT_EQ(GetPorts().size(), 1U);
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Failed(busy), Opened(GetPorts()[0])));

    other.Close();
    NetPortBinds again;
    m_service->StartListen(again);
    EXPECT_EQ(again.GetCount(), 0U) << "the port is free now";
    EXPECT_EQ(GetPorts().size(), 2U);
}

TEST_F(NetTCPServiceTest, StartListen_HostCannotBeResolved_FailedAndNothingLogged)
{
    Init("not..a..name:21,127.0.0.1:0");
    NetPortBinds failed;
    m_service->StartListen(failed);
    EXPECT_EQ(failed.GetLine(), String("not..a..name:21"));
    ASSERT_EQ(GetPorts().size(), 1U);
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Opened(GetPorts()[0])));
}

TEST_F(NetTCPServiceTest, StartListen_HostFromTheSharedCache_Resolved)
{
    MakeNameKnown(m_cache, "server.example", "127.0.0.1");
    const USHORT port = Start("server.example:0");
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Opened(port)));
}

TEST_F(NetTCPServiceTest, StartListen_LogEventsOff_NothingLogged)
{
    m_service->SetLogModeShared(&m_log, false);
    Start();
    m_service->StopListen();
    EXPECT_THAT(m_log.GetServiceTexts(), IsEmpty());
}

TEST_F(NetTCPServiceTest, StartListen_EqualBindings_SecondSatisfiedSilently)
{
    const USHORT fixed = FreePort();
    Init("127.0.0.1:" + std::to_string(fixed) + ",127.0.0.1:" + std::to_string(fixed));
    NetPortBinds failed;
    m_service->StartListen(failed);
    EXPECT_EQ(failed.GetCount(), 0U);
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Opened(fixed)));
}

TEST_F(NetTCPServiceTest, StartListen_OneBindingChanged_OtherKeepsItsSocket)
{
    const USHORT kept = FreePort();
    const USHORT left = FreePort();
    const USHORT taken = FreePort();
    Init(Port(kept) + "," + Port(left), 0);
    NetPortBinds failed;
    m_service->StartListen(failed);
    ASSERT_EQ(failed.GetCount(), 0U);
    TestClient waiting(kept); // in the backlog of that very socket, for nothing is accepted yet
    ASSERT_TRUE(waiting.IsConnected());
    m_log.Clear();

    m_service->SetSettings(Binds(Port(kept) + "," + Port(taken)), 10, 0);
    m_service->StartListen(failed);
    EXPECT_EQ(failed.GetCount(), 0U);
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Closed(left), Opened(taken)));
    EXPECT_THAT(GetPorts(), ElementsAre(kept, taken));
    EXPECT_TRUE(waiting.Talk("still here"));
    EXPECT_FALSE(TestClient(left).IsConnected());
    EXPECT_TRUE(TestClient(taken).Talk("new"));
}

TEST_F(NetTCPServiceTest, StartListen_UnchangedRandomPort_OpenedAnewOnPurpose)
{
    const USHORT before = Start();
    m_log.Clear();
    NetPortBinds failed;
    m_service->StartListen(failed);
    EXPECT_EQ(failed.GetCount(), 0U);
    ASSERT_EQ(GetPorts().size(), 1U);
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Closed(before), Opened(GetPorts()[0])));
}

TEST_F(NetTCPServiceTest, StartListen_NoBindings_ClosesAll)
{
    const USHORT port = Start();
    m_service->SetSettings(NetPortBinds(), 10, 0);
    NetPortBinds failed;
    m_service->StartListen(failed);
    EXPECT_FALSE(m_service->GetIsListening());
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Opened(port), Closed(port)));
}

TEST_F(NetTCPServiceTest, StopListen_TwoPorts_ClosedInOrderSessionsGoOn)
{
    Start("127.0.0.1:0,127.0.0.1:0");
    const std::vector<USHORT> ports = GetPorts();
    ASSERT_EQ(ports.size(), 2U);
    TestClient client(ports[1]);
    ASSERT_TRUE(client.Talk("before"));
    m_log.Clear();
    m_service->StopListen();
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Closed(ports[0]), Closed(ports[1])));
    EXPECT_FALSE(m_service->GetIsListening());
    EXPECT_FALSE(TestClient(ports[0]).IsConnected());
    EXPECT_TRUE(client.Talk("after"));
}

TEST_F(NetTCPServiceTest, StopListen_NothingListens_NothingLogged)
{
    m_service->StopListen();
    Init("127.0.0.1:0");
    m_service->StopListen();
    m_service->StopListen();
    EXPECT_THAT(m_log.GetEvents(), IsEmpty());
    EXPECT_FALSE(m_service->GetIsListening());
    EXPECT_TRUE(GetPorts().empty());
}

TEST_F(NetTCPServiceTest, StopListen_AfterTheThreadEnded_PortsClosed)
{
    const USHORT port = Start();
    m_service->EndThread();
    EXPECT_TRUE(m_service->GetIsListening()) << "the thread leaves its ports open";
    EXPECT_TRUE(TestClient(port).IsConnected());
    m_service->StopListen();
    EXPECT_FALSE(m_service->GetIsListening());
    EXPECT_FALSE(TestClient(port).IsConnected());
    EXPECT_THAT(m_log.GetServiceTexts(), ElementsAre(Opened(port), Closed(port)));
}

TEST_F(NetTCPServiceTest, Init_AfterTheThreadEnded_ListensAgainOnTheSameSocket)
{
    const USHORT port = Start();
    m_service->EndThread();
    TestClient waiting(port);
    ASSERT_TRUE(waiting.IsConnected());
    Messages messages;
    ASSERT_TRUE(m_service->Init(messages));
    EXPECT_TRUE(waiting.Talk("hello"));
}

TEST_F(NetTCPServiceTest, Listeners_SeveralPorts_EachServed)
{
    Start("127.0.0.1:0,127.0.0.1:0,127.0.0.1:0");
    for (int round = 0; round < 3; ++round)
        for (const USHORT port : GetPorts())
            EXPECT_TRUE(TestClient(port).Talk("hello"));
    EXPECT_EQ(m_service->GetIDs().size(), 9U);
}

TEST_F(NetTCPServiceTest, HandOver_StartAndStopFromSeveralThreads_NothingLost)
{
    const USHORT port = FreePort();
    Init(Port(port), 1000);
    std::atomic<bool> end{false};
    std::atomic<unsigned> failures{0};
    std::vector<std::thread> threads;
    for (int changer = 0; changer < 4; ++changer)
        threads.emplace_back([&, changer] {
            for (int round = 0; round < 15; ++round) {
                NetPortBinds failed;
                if ((round + changer) % 2 == 0)
                    m_service->StartListen(failed);
                else
                    m_service->StopListen();
                failures += static_cast<unsigned>(failed.GetCount());
            }
        });
    std::thread caller([&] {
        while (!end) {
            TestClient client(port);
            if (client.IsConnected())
                client.SendLine("QUIT");
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    end = true;
    caller.join();
    EXPECT_EQ(failures, 0U);

    NetPortBinds failed;
    m_service->StartListen(failed);
    EXPECT_EQ(failed.GetCount(), 0U);
    EXPECT_THAT(GetPorts(), ElementsAre(port));
    EXPECT_TRUE(TestClient(port).Talk("hello"));
    const std::size_t opened = m_log.Count("Open Listening Port Success");
    EXPECT_EQ(m_log.Count("Close Listening Port") + 1, opened);
}

// ------------------------------------------------------------------------------------------------------ accepting

TEST_F(NetTCPServiceTest, MaxIncoming_Zero_NothingAcceptedUntilRaisedOnPurpose)
{
    Init("127.0.0.1:0", 0);
    const USHORT port = Listen();
    EXPECT_TRUE(m_service->GetIsMaxIncomingConnectionsReached()) << "0 of 0";
    TestClient client(port);
    ASSERT_TRUE(client.IsConnected()) << "waits in the backlog";
    ASSERT_TRUE(client.SendLine("early"));
    EXPECT_TRUE(client.ReadLine(100).empty());
    EXPECT_TRUE(m_service->GetIDs().empty());

    m_service->SetSettings(Binds("127.0.0.1:0"), 1, 0);
    EXPECT_EQ(client.ReadLine(), "OK early") << "limits count at once";
    EXPECT_TRUE(m_service->GetIsMaxIncomingConnectionsReached());
}

TEST_F(NetTCPServiceTest, MaxIncoming_One_SecondWaitsForTheFirstToEnd)
{
    Init("127.0.0.1:0", 1);
    const USHORT port = Listen();
    TestClient first(port);
    ASSERT_TRUE(first.Talk("one"));
    TestClient second(port);
    ASSERT_TRUE(second.SendLine("two"));
    EXPECT_TRUE(second.ReadLine(100).empty());
    ASSERT_TRUE(first.Talk("QUIT"));
    EXPECT_EQ(second.ReadLine(), "OK two");
}

TEST_F(NetTCPServiceTest, MaxIncoming_MoreThan32Bits_LargestValue)
{
    constexpr ULONG8 past32Bits = 0x1'0000'0000ULL;
    const auto limit = static_cast<ULONG>(past32Bits);
    if (limit != past32Bits)
        GTEST_SKIP() << "ULONG has 32 bits here: no such limit can be given";
    Init("127.0.0.1:0", limit, limit);
    EXPECT_FALSE(m_service->GetIsMaxIncomingConnectionsReached());
    EXPECT_FALSE(m_service->GetIsMaxOutgoingConnectionsReached());
    EXPECT_TRUE(TestClient(Listen()).Talk("hello"));
}

TEST_F(NetTCPServiceTest, Accept_SeveralWaitAtEachPort_PortsServedInTurn)
{
    std::mutex mutex;
    std::vector<USHORT> served;
    m_service->SetFactory([&](NetTCP* connection, EventLogSessionID) -> NetTCPSession* {
        const std::lock_guard lock(mutex);
        served.push_back(connection->GetLocalPort());
        return nullptr;
    });
    Init("127.0.0.1:0,127.0.0.1:0,127.0.0.1:0", 0);
    Listen();
    const std::vector<USHORT> ports = GetPorts();
    ASSERT_EQ(ports.size(), 3U);
    std::list<TestClient> clients;
    for (const USHORT port : {ports[0], ports[0], ports[0], ports[2], ports[2], ports[1]})
        clients.emplace_back(port);
    m_service->SetSettings(Binds("127.0.0.1:0"), 10, 0);
    ASSERT_TRUE(WaitFor([&] {
        const std::lock_guard lock(mutex);
        return served.size() == 6;
    }));
    EXPECT_THAT(served, ElementsAre(ports[0], ports[1], ports[2], ports[0], ports[2], ports[0]));
}

TEST_F(NetTCPServiceTest, Accept_FactoryLowersTheLimit_OthersWaitForRoom)
{
    Init("127.0.0.1:0", 0);
    DuringTheFirstSession([this] { SetLimit(1); });
    std::list<TestClient> clients = ConnectToBacklog(Listen(), 4);
    SetLimit(10);
    EXPECT_EQ(clients.front().ReadLine(), "OK hello");
    EXPECT_TRUE(clients.back().ReadLine(100).empty());
    EXPECT_EQ(m_service->GetIDs().size(), 1U);
    SetLimit(10);
    clients.pop_front();
    for (TestClient& client : clients)
        EXPECT_EQ(client.ReadLine(), "OK hello");
}

TEST_F(NetTCPServiceTest, Accept_EndRequestInTheFactory_NoFurtherSessionUntilTheNextInit)
{
    Init("127.0.0.1:0", 0);
    DuringTheFirstSession([this] { m_service->AskThreadToEnd(); });
    std::list<TestClient> clients = ConnectToBacklog(Listen(), 4);
    SetLimit(10);
    ASSERT_TRUE(WaitFor([this] { return !m_service->GetIsActive(); }));
    EXPECT_EQ(m_service->GetIDs().size(), 1U);
    Messages messages;
    ASSERT_TRUE(m_service->Init(messages));
    for (TestClient& client : clients)
        EXPECT_EQ(client.ReadLine(), "OK hello");
}

TEST_F(NetTCPServiceTest, Accept_StopListenWhileASessionIsMade_NoFurtherSessionAndTheOthersClosed)
{
    Init("127.0.0.1:0", 0);
    StopListenDuringTheFirstSession([this] { EXPECT_TRUE(WaitFor([this] { return IsAccessRequested(); })); });
    std::list<TestClient> clients = ConnectToBacklog(Listen(), 4);
    SetLimit(10);
    EXPECT_EQ(clients.front().ReadLine(), "OK hello");
    ASSERT_TRUE(WaitFor([this] { return !m_service->GetIsListening(); }));
    EXPECT_EQ(m_service->GetIDs().size(), 1U);
    EXPECT_TRUE(clients.front().Talk("still here"));
    clients.pop_front();
    for (TestClient& client : clients)
        EXPECT_TRUE(client.WaitClosed());
}

TEST_F(NetTCPServiceTest, StartListen_ConnectionsWaitForRoom_KeptWithTheirPort)
{
    const USHORT kept = FreePort();
    const USHORT left = FreePort();
    Init(Port(kept) + "," + Port(left), 0);
    DuringTheFirstSession([&] { SetLimit(1, Port(kept)); });
    NetPortBinds failed;
    m_service->StartListen(failed);
    std::list<TestClient> atKept = ConnectToBacklog(kept, 2);
    std::list<TestClient> atLeft = ConnectToBacklog(left, 2);
    SetLimit(10, Port(kept));
    ASSERT_TRUE(WaitFor([this] { return m_service->GetIDs().size() == 1; }));
    m_service->StartListen(failed); // one of the four has a session, the others wait for room
    EXPECT_EQ(failed.GetCount(), 0U);
    SetLimit(10, Port(kept));
    for (TestClient& client : atKept)
        EXPECT_EQ(client.ReadLine(), "OK hello");
    EXPECT_TRUE(atLeft.back().WaitClosed());
}

/// A session that finds no memory after it has taken its connection over.
class LateFailingSession : public NetTCPSession
{
public:
    LateFailingSession(TestService& service, NetTCP* connection, const EventLogSessionID& id)
        : NetTCPSession(service.GetPool(), service.GetCache(), service.GetActivityLog(), service.GetEventLog(), id, 60,
                        connection)
    {
        throw std::bad_alloc();
    }
};

// A factory without memory for its session once ended the process.
TEST_F(NetTCPServiceTest, CreateSession_NoMemory_ConnectionClosedOthersServed)
{
    m_service->SetFactory([this](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        if (id.GetSession() == 0)
            throw std::bad_alloc();
        if (id.GetSession() == 1)
            return new LateFailingSession(*m_service, connection, id);
        return new TestSession(*m_service, connection, id, {});
    });
    const USHORT port = Start();
    EXPECT_TRUE(TestClient(port).WaitClosed());
    EXPECT_TRUE(TestClient(port).WaitClosed());
    EXPECT_TRUE(TestClient(port).Talk("hello"));
}

/// A session that keeps its connection itself, instead of giving it to its base. It monitors it, or ends it at once.
class KeepingSession : public NetTCPSession
{
public:
    KeepingSession(TestService& service, NetTCP* connection, const EventLogSessionID& id, bool isMonitored)
        : NetTCPSession(service.GetPool(), service.GetCache(), service.GetActivityLog(), service.GetEventLog(), id, 60,
                        nullptr)
        , m_connection(connection)
        , m_isMonitored(isMonitored)
    {
        xConstrStartSession();
    }
    ~KeepingSession() override { xDeconstrEndSession(); }

protected:
    void xHandleSession() override
    {
        if (m_isMonitored)
            xMonitorNet(m_connection.get());
        m_connection.reset();
    }
    void xEventMonCmdRecv(const String& command) override { xSendCommand(m_connection.get(), String("OK ") + command); }

private:
    std::unique_ptr<NetTCP> m_connection;
    const bool m_isMonitored;
};

TEST_F(NetTCPServiceTest, CreateSession_SessionKeepsTheConnectionItself_NobodyElseClosesIt)
{
    m_service->SetFactory([this](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        return new KeepingSession(*m_service, connection, id, true);
    });
    TestClient client(Start());
    EXPECT_TRUE(client.Talk("hello"));
    EXPECT_TRUE(client.Talk("still here"));
    m_service->CloseSessions();
    EXPECT_TRUE(client.WaitClosed());
}

// The listener thread looked at a connection that the session's thread had deleted meanwhile.
TEST_F(NetTCPServiceTest, CreateSession_SessionEndsTheConnectionOnItsThreadAtOnce_ListenerLooksAtItNoMore)
{
    constexpr ULONG ROUNDS = 200;
    m_service->SetFactory([this](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        return new KeepingSession(*m_service, connection, id, false);
    });
    const USHORT port = Start();
    for (ULONG round = 0; round < ROUNDS; ++round)
        EXPECT_TRUE(TestClient(port).WaitClosed());
    EXPECT_EQ(m_service->GetIDs().size(), ROUNDS);
    EXPECT_TRUE(WaitForSessions(0));
}

// A session without memory for its work once ended the process.
TEST_F(NetTCPServiceTest, Session_NoMemoryInItsWork_EndsAloneAndIsCounted)
{
    m_service->SetFactory([this](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        TestSession::HOOKS hooks;
        if (id.GetSession() == 0) {
            hooks.handle = [](TestSession&) { throw std::bad_alloc(); };
            hooks.atEnd = [this](TestSession&) { m_service->GetTrace()->Add("end"); };
        }
        return new TestSession(*m_service, connection, id, hooks);
    });
    const USHORT port = Start();
    EXPECT_TRUE(TestClient(port).WaitClosed());
    EXPECT_TRUE(TestClient(port).Talk("hello"));
    ASSERT_TRUE(WaitForSessions(0));
    EXPECT_THAT(m_service->GetTrace()->Get(), ElementsAre("end"));
    NetServiceStatus status;
    m_service->GetStatus(status);
    EXPECT_EQ(status.GetConnectionsIn(), 2U);
}

TEST_F(NetTCPServiceTest, CreateSession_Null_ConnectionClosedNothingLogged)
{
    m_service->SetFactory([](NetTCP*, EventLogSessionID) -> NetTCPSession* { return nullptr; });
    const USHORT port = Start();
    m_log.Clear();
    TestClient client(port);
    EXPECT_TRUE(client.WaitClosed());
    EXPECT_TRUE(TestClient(port).WaitClosed()) << "the port goes on";
    EXPECT_EQ(m_service->GetSessionCount(), 0U);
    EXPECT_EQ(m_service->GetIDs().size(), 2U);
    EXPECT_THAT(m_log.GetEvents(), IsEmpty());
}

TEST_F(NetTCPServiceTest, CreateSession_Connection_HasTheServicesModeAndCache)
{
    MakeNameKnown(m_cache, "peer.example", "127.0.0.1");
    NetTCP peer(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(peer.ListenSpecific(0, NetIP(String("127.0.0.1"))));
    std::atomic<bool> resolved{false};
    m_service->SetFactory([&](NetTCP* connection, EventLogSessionID) -> NetTCPSession* {
        EXPECT_EQ(connection->GetIPLookupMode(), NetIP::LOOKUP_ANY);
        resolved = connection->Connect(String("peer.example"), peer.GetLocalPort());
        return nullptr;
    });
    const TestClient client(Start());
    EXPECT_TRUE(WaitFor([&] { return resolved.load(); }));
}

TEST_F(NetTCPServiceTest, CreateSession_FactoryTakesTheLockAgain_NoDeadlock)
{
    EventLogSessionID extra;
    m_service->SetFactory([&](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        extra = m_service->GenSessionID();
        EXPECT_FALSE(m_service->GetIsMaxIncomingConnectionsReached());
        EXPECT_TRUE(m_service->GetIsListening());
        return new TestSession(*m_service, connection, id, {});
    });
    const USHORT port = Start();
    EXPECT_TRUE(TestClient(port).Talk("hello"));
    const std::vector<EventLogSessionID> ids = m_service->GetIDs();
    ASSERT_EQ(ids.size(), 1U);
    EXPECT_EQ(extra.GetSession(), ids[0].GetSession() + 1);
    EXPECT_EQ(extra.GetThread(), ids[0].GetThread());
}

TEST_F(NetTCPServiceTest, GenSessionID_BeforeAndBesideAccepting_NeverTwice)
{
    EXPECT_TRUE(m_service->GenSessionID() == EventLogSessionID(0, 0)) << "no listener thread yet";
    std::atomic<std::uint32_t> factoryThread{0};
    m_service->SetFactory([&](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        factoryThread = platform::CurrentThreadId();
        return new TestSession(*m_service, connection, id, {});
    });
    const USHORT port = Start();
    std::vector<EventLogSessionID> mine;
    std::thread other([&] {
        for (int count = 0; count < 500; ++count)
            mine.push_back(m_service->GenSessionID());
    });
    for (int count = 0; count < 20; ++count)
        EXPECT_TRUE(TestClient(port).Talk("hello"));
    other.join();

    std::set<ULONG> numbers{0};
    for (const auto& id : m_service->GetIDs()) {
        EXPECT_TRUE(numbers.insert(id.GetSession()).second);
        EXPECT_EQ(id.GetThread(), factoryThread.load());
    }
    for (const auto& id : mine)
        EXPECT_TRUE(numbers.insert(id.GetSession()).second);
    EXPECT_EQ(numbers.size(), 521U);
    EXPECT_EQ(*numbers.rbegin(), 520U) << "counted up by one";
}

TEST_F(NetTCPServiceTest, Accept_NoDescriptorLeft_PortGoesOnAfterwards)
{
    if (!DescriptorShortage::IsPossibleWithVirtualCalls())
        GTEST_SKIP()
            << "no limit of descriptors can be lowered here (no setrlimit, or a sanitizer that needs them itself)";
    Init("127.0.0.1:0", 0);
    const USHORT port = Listen();
    TestClient client(port);
    ASSERT_TRUE(client.SendLine("hello"));
    {
        const DescriptorShortage shortage;
        ASSERT_TRUE(shortage.IsApplied());
        m_service->SetSettings(Binds("127.0.0.1:0"), 10, 0);
        EXPECT_FALSE(WaitFor([this] { return !m_service->GetIDs().empty(); }, 100))
            << "there is nothing to accept with";
    }
    EXPECT_EQ(client.ReadLine(), "OK hello");
    EXPECT_TRUE(TestClient(port).Talk("next"));
    EXPECT_EQ(m_log.Count("Close Listening Port"), 0U);
}

// ----------------------------------------------------------------------------------------------------------- logs

TEST_F(NetTCPServiceTest, SetLogModeNormal_OwnLog_EventsInItsFile)
{
    const TempFolder folder;
    EventLogSettings settings;
    settings.SetEnabled(true);
    settings.SetFolder(folder.GetFilePath());
    settings.SetFileName("service.log");
    TestService service(m_pool, m_cache);
    service.SetLogModeNormal(settings, true);
    EventLogSettings applied;
    service.GetEventLog().GetSettings(applied);
    EXPECT_EQ(applied.GetFileName(), String("service.log"));
    service.SetSettings(Binds("127.0.0.1:0"), 10, 0);
    Messages messages;
    ASSERT_TRUE(service.Init(messages));
    NetPortBinds failed;
    service.StartListen(failed);
    service.GetEventLog().PrintPurge();
    EXPECT_THAT(ReadOnlyFile(folder), testing::HasSubstr("\tOpen Listening Port Success\t127.0.0.1:"));
}

TEST_F(NetTCPServiceTest, SetLogModeShared_ThenNormal_FreshOwnLog)
{
    TestService service(m_pool, m_cache);
    EventLog* const firstOwn = &service.GetEventLog();
    service.SetLogModeShared(&m_log, true);
    EXPECT_EQ(&service.GetEventLog(), &m_log);
    CapturedEventLog other;
    service.SetLogModeShared(&other, true);
    EXPECT_EQ(&static_cast<const TestService&>(service).GetEventLog(), &other);
    service.SetLogModeNormal(EventLogSettings(), true);
    EXPECT_NE(&service.GetEventLog(), &other);
    EXPECT_NE(&service.GetEventLog(), firstOwn);
    EventLog* const secondOwn = &service.GetEventLog();
    service.SetLogModeNormal(EventLogSettings(), false);
    EXPECT_EQ(&service.GetEventLog(), secondOwn) << "an own log is kept, only its settings change";
}

TEST_F(NetTCPServiceTest, SetLogModeShared_OwnLogInUse_ItsFileIsClosed)
{
    const TempFolder folder;
    EventLogSettings settings;
    settings.SetEnabled(true);
    settings.SetFolder(folder.GetFilePath());
    settings.SetFileName("service.log");
    TestService service(m_pool, m_cache);
    service.SetLogModeNormal(settings, true);
    EventLog& own = service.GetEventLog();
    own.PrintServiceNormal("first", "", "");
    own.PrintPurge();
    ASSERT_THAT(ReadOnlyFile(folder), testing::HasSubstr("first"));
    service.SetLogModeShared(&m_log, true);
    own.PrintServiceNormal("second", "", ""); // who still refers to it does no harm
    own.PrintPurge();
    EXPECT_THAT(ReadOnlyFile(folder), testing::Not(testing::HasSubstr("second")));
}

TEST_F(NetTCPServiceTest, ActivityLog_WhileRunning_OneSamplePerTimeUnit)
{
    const TempFolder folder;
    m_service->SetMonitoringEnabled(folder.GetFilePath(), "p-", "activity", "sessions");
    EXPECT_TRUE(std::filesystem::exists(folder / "p-activity.db"));
    EXPECT_TRUE(std::filesystem::exists(folder / "p-sessions.db"));
    const USHORT port = Start();
    TestClient client(port);
    ASSERT_TRUE(client.Talk("hello"));

    const ThreadEvent cancel;
    DataLogResults results;
    Messages messages;
    ASSERT_TRUE(WaitFor([&] {
        results.Reset();
        return m_service->QueryActivity(DataLogQuery(), cancel, results, messages) && results.GetCount() >= 3;
    }));
    ULONG previous = 0;
    for (ULONG index = 0; index < results.GetCount(); ++index) {
        const auto& sample = dynamic_cast<const NetSessionActivity&>(results.Get(index));
        EXPECT_GT(sample.GetTimeUnit(), previous) << "one row per time unit, oldest first";
        previous = sample.GetTimeUnit();
    }
    const auto& last = dynamic_cast<const NetSessionActivity&>(results.Get(results.GetCount() - 1));
    EXPECT_EQ(last.GetCurrentConnectionsIn(), 1U);
    EXPECT_EQ(last.GetCurrentConnectionsOut(), 0U);
}

TEST_F(NetTCPServiceTest, Queries_MonitoringDisabledOrCancelled_False)
{
    ThreadEvent cancel;
    DataLogResults results;
    Messages messages;
    EXPECT_FALSE(m_service->QueryActivity(DataLogQuery(), cancel, results, messages));
    EXPECT_FALSE(m_service->QueryOldSessions(DataLogQuery(), cancel, results, messages));
    const TempFolder folder;
    m_service->SetMonitoringEnabled(folder.GetFilePath(), "", "a", "s");
    EXPECT_TRUE(m_service->QueryActivity(DataLogQuery(), cancel, results, messages));
    EXPECT_TRUE(m_service->QueryOldSessions(DataLogQuery(), cancel, results, messages));
    EXPECT_EQ(results.GetCount(), 0U);
    m_service->SetMonitoringDisabled();
    EXPECT_FALSE(m_service->QueryOldSessions(DataLogQuery(), cancel, results, messages));
    EXPECT_FALSE(static_cast<const TestService&>(*m_service).GetActivityLog().IsEnabled());
}

} // namespace
} // namespace kqlib::test
