// The session registry of a service: retiring, closing, control messages, sums, destruction.
#include "net/status/NetServiceLiveStatus.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"
#include "tests/net/service/ServiceFixture.h"
#include "tests/net/status/CounterTable.h"
#include "tests/peers/PrivateMember.h"
#include "tests/peers/TempFolder.h"

#include <gmock/gmock.h>

#include <chrono>
#include <list>
#include <memory>
#include <thread>

namespace kqlib::test {

/// The number of the next session.
struct NextSession
{
    friend std::uint32_t NetTCPService::*GetPrivateMember(NextSession);
};
template struct PrivateMember<NextSession, &NetTCPService::m_nextSession>;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using TEXTS = std::vector<std::string>;

class NetTCPServiceSessionsTest : public ServiceFixture
{
protected:
    /// A session without a connection that runs until its end is asked for.
    TestSession* MakeOutgoing(const EventLogSessionID& id, const std::string& name = "")
    {
        TestSession::HOOKS hooks;
        hooks.name = name;
        hooks.handle = RunUntilAsked;
        return new TestSession(*m_service, nullptr, id, hooks);
    }
    static void RunUntilAsked(TestSession& session)
    {
        while (!session.ShouldEnd()) {
            session.NoteMessages();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    /// count clients, each with its session running. One after the other, for the backlog of a port is short.
    std::list<TestClient> Connect(USHORT port, ULONG count)
    {
        const std::size_t before = m_service->GetIDs().size();
        std::list<TestClient> clients;
        for (ULONG index = 0; index < count; ++index) {
            clients.emplace_back(port);
            EXPECT_TRUE(clients.back().IsConnected());
            EXPECT_TRUE(WaitFor([&] { return m_service->GetIDs().size() == before + clients.size(); }));
        }
        EXPECT_TRUE(WaitForSessions(count));
        return clients;
    }
    NetServiceStatus GetStatus() const
    {
        NetServiceStatus status;
        m_service->GetStatus(status);
        return status;
    }
    TEXTS GetTrace() const { return m_service->GetTrace()->Get(); }
};

// ------------------------------------------------------------------------------------------------------- outgoing

TEST_F(NetTCPServiceSessionsTest, AddOutgoingConnection_BeforeInit_FalseCallerKeepsIt)
{
    m_service->SetSettings(Binds(""), 10, 10);
    const std::unique_ptr<TestSession> session(MakeOutgoing(m_service->GenSessionID()));
    EXPECT_FALSE(m_service->AddOutgoingConnection(session.get()));
    EXPECT_EQ(m_service->GetSessionCount(), 0U);
}

TEST_F(NetTCPServiceSessionsTest, AddOutgoingConnection_AtTheLimit_TrueButNotTakenOnPurpose)
{
    Init("", 0, 2);
    EXPECT_FALSE(m_service->GetIsMaxOutgoingConnectionsReached());
    EXPECT_TRUE(m_service->AddOutgoingConnection(MakeOutgoing(m_service->GenSessionID())));
    EXPECT_TRUE(m_service->AddOutgoingConnection(MakeOutgoing(m_service->GenSessionID())));
    EXPECT_TRUE(m_service->GetIsMaxOutgoingConnectionsReached());
    const std::unique_ptr<TestSession> third(MakeOutgoing(m_service->GenSessionID()));
    EXPECT_TRUE(m_service->AddOutgoingConnection(third.get()));
    EXPECT_EQ(GetStatus().GetCurrentConnectionsOut(), 2U);
    EXPECT_EQ(GetStatus().GetCurrentConnectionsIn(), 0U);
}

TEST_F(NetTCPServiceSessionsTest, AddOutgoingConnection_SessionThatEndedAlready_Retired)
{
    Init("", 0, 5);
    TestSession::HOOKS hooks;
    hooks.name = "short";
    hooks.handle = [](TestSession&) {};
    auto session = std::make_unique<TestSession>(*m_service, nullptr, m_service->GenSessionID(), hooks);
    ASSERT_TRUE(WaitFor([&] { return session->IsComplete(); }));
    ASSERT_TRUE(m_service->AddOutgoingConnection(session.release()));
    EXPECT_TRUE(WaitFor([this] { return GetTrace() == TEXTS{"end short"}; }));
    EXPECT_EQ(m_service->GetSessionCount(), 0U);
}

// ------------------------------------------------------------------------------------------------ retiring, status

TEST_F(NetTCPServiceSessionsTest, Connection_WhileRunningAndAfterwards_CountedOnce)
{
    const USHORT port = Start();
    {
        TestClient client(port);
        ASSERT_TRUE(client.Talk("hello"));
        EXPECT_EQ(GetStatus().GetConnectionsIn(), 1U);
        EXPECT_EQ(GetStatus().GetCurrentConnectionsIn(), 1U);
    }
    ASSERT_TRUE(WaitForSessions(0));
    const NetServiceStatus status = GetStatus();
    EXPECT_EQ(status.GetConnectionsIn(), 1U);
    EXPECT_EQ(status.GetCurrentConnectionsIn(), 0U);
    EXPECT_EQ(status.GetCommandsIn(), 1U);
    EXPECT_EQ(status.GetCommandsOut(), 1U);
    EXPECT_EQ(status.GetDataInBytes(), 7U);
    EXPECT_EQ(status.GetDataOutBytes(), 10U);
}

TEST_F(NetTCPServiceSessionsTest, RemoveDone_BothListsInOnePass_OutgoingFirstInOrder)
{
    std::atomic<bool> finish{false};
    const auto waitForFinish = [&finish](TestSession&) { WaitFor([&finish] { return finish.load(); }, 20000); };
    std::vector<TestSession*> sessions;
    std::atomic<unsigned> made{0};
    m_service->SetFactory([&](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        if (made == 2) {
            // The lock is held here: nothing is retired before all four are complete.
            finish = true;
            EXPECT_TRUE(WaitFor([&] {
                return std::all_of(sessions.begin(), sessions.end(),
                                   [](const TestSession* session) { return session->IsComplete(); });
            }));
            return nullptr;
        }
        TestSession::HOOKS hooks;
        hooks.name = "in" + std::to_string(++made);
        hooks.handle = waitForFinish;
        sessions.push_back(new TestSession(*m_service, connection, id, hooks));
        return sessions.back();
    });
    const USHORT port = Start();
    TestClient first(port);
    TestClient second(port);
    ASSERT_TRUE(WaitForSessions(2));
    for (const char* name : {"out1", "out2"}) {
        TestSession::HOOKS hooks;
        hooks.name = name;
        hooks.handle = waitForFinish;
        sessions.push_back(new TestSession(*m_service, nullptr, m_service->GenSessionID(), hooks));
        ASSERT_TRUE(m_service->AddOutgoingConnection(sessions.back()));
    }
    TestClient third(port);
    ASSERT_TRUE(WaitForSessions(0));
    EXPECT_THAT(GetTrace(), ElementsAre("end out1", "end out2", "end in1", "end in2"));
}

TEST_F(NetTCPServiceSessionsTest, CloseSessions_BothLists_IncomingFirstAllCounted)
{
    std::atomic<unsigned> made{0};
    m_service->SetFactory([&](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        TestSession::HOOKS hooks;
        hooks.name = "in" + std::to_string(++made);
        return new TestSession(*m_service, connection, id, hooks);
    });
    const USHORT port = Start();
    TestClient first(port);
    ASSERT_TRUE(first.Talk("hello"));
    TestClient second(port);
    ASSERT_TRUE(second.Talk("hello"));
    ASSERT_TRUE(m_service->AddOutgoingConnection(MakeOutgoing(m_service->GenSessionID(), "out1")));
    ASSERT_TRUE(m_service->AddOutgoingConnection(MakeOutgoing(m_service->GenSessionID(), "out2")));
    m_service->CloseSessions();
    EXPECT_THAT(GetTrace(), ElementsAre("end in1", "end in2", "end out1", "end out2"));
    const NetServiceStatus status = GetStatus();
    EXPECT_EQ(status.GetCurrentConnectionsIn(), 0U);
    EXPECT_EQ(status.GetCurrentConnectionsOut(), 0U);
    EXPECT_EQ(status.GetConnectionsIn(), 2U);
    EXPECT_EQ(status.GetCommandsIn(), 2U);
    EXPECT_TRUE(first.WaitClosed());
    EXPECT_TRUE(TestClient(port).Talk("next")) << "the ports stay open";
}

TEST_F(NetTCPServiceSessionsTest, CloseSessionsAsync_Sessions_RetiredByTheListenerThread)
{
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 5);
    m_service->CloseSessionsAsync();
    EXPECT_TRUE(WaitForSessions(0));
    EXPECT_EQ(GetStatus().GetConnectionsIn(), 5U);
    for (TestClient& client : clients)
        EXPECT_TRUE(client.WaitClosed());
}

TEST_F(NetTCPServiceSessionsTest, GetLiveSessions_BothLists_IncomingFirstAppended)
{
    const USHORT port = Start();
    TestClient client(port);
    ASSERT_TRUE(client.Talk("LOGIN someone"));
    const EventLogSessionID outgoing = m_service->GenSessionID();
    ASSERT_TRUE(m_service->AddOutgoingConnection(MakeOutgoing(outgoing)));
    NetServiceLiveStatus live;
    live.GiveStatus(new NetSessionLiveStatus());
    m_service->GetLiveSessions(live);
    ASSERT_EQ(live.GetCount(), 3U);
    const NetSessionStatus& status = live.GetStatus(1).GetStatus();
    EXPECT_TRUE(status.GetSessionID() == m_service->GetIDs().at(0));
    EXPECT_EQ(status.GetUser(), String("someone"));
    EXPECT_EQ(status.GetLocalPort(), port);
    EXPECT_EQ(status.GetRemotePort(), client.GetLocalPort());
    EXPECT_TRUE(live.GetStatus(2).GetStatus().GetSessionID() == outgoing);
}

TEST_F(NetTCPServiceSessionsTest, Sums_SessionLogActivityLogAndStatus_Equal)
{
    const TempFolder folder;
    m_service->SetMonitoringEnabled(folder.GetFilePath(), "", "activity", "sessions");
    const USHORT port = Start();
    constexpr ULONG SESSIONS = 12;
    for (ULONG index = 0; index < SESSIONS; ++index) {
        {
            TestClient client(port);
            EXPECT_TRUE(client.Talk("LOGIN user" + std::to_string(index)));
            EXPECT_TRUE(client.Talk("FAIL"));
            for (ULONG count = 0; count <= index; ++count)
                EXPECT_TRUE(client.Talk("STORE"));
            EXPECT_TRUE(client.Talk("FETCH"));
        }
        ASSERT_TRUE(WaitForSessions(0)) << "retired one after the other, so that the log has them in this order";
    }

    const ThreadEvent cancel;
    Messages messages;
    DataLogResults sessions;
    DataLogResults activity;
    ASSERT_TRUE(m_service->QueryOldSessions(DataLogQuery(), cancel, sessions, messages));
    ASSERT_TRUE(m_service->QueryActivity(DataLogQuery(), cancel, activity, messages));
    ASSERT_EQ(sessions.GetCount(), SESSIONS);
    NetServiceStatus sessionSum;
    for (ULONG index = 0; index < sessions.GetCount(); ++index) {
        const auto& record = dynamic_cast<const NetSessionStatus&>(sessions.Get(index));
        EXPECT_EQ(record.GetUser(), String("user" + std::to_string(index)));
        EXPECT_TRUE(record.GetStartTime().IsSet());
        EXPECT_GE(record.GetEndTime(), record.GetStartTime());
        sessionSum.AddDataFrom(record);
    }

    const NetServiceStatus status = GetStatus();
    const auto counters = AllCounters<NetServiceStatus>();
    const auto activityCounters = AllCounters<NetSessionActivity>();
    for (std::size_t place = 2; place < counters.size(); ++place) { // all but the current connections
        ULONG8 activitySum = 0;
        for (ULONG index = 0; index < activity.GetCount(); ++index)
            activitySum += activityCounters[place].get(dynamic_cast<const NetSessionActivity&>(activity.Get(index)));
        EXPECT_EQ(counters[place].get(sessionSum), counters[place].get(status)) << counters[place].name;
        EXPECT_EQ(activitySum, counters[place].get(status)) << counters[place].name;
    }
    EXPECT_EQ(status.GetConnectionsIn(), SESSIONS);
    EXPECT_EQ(status.GetLoginSuccesses(), SESSIONS);
    EXPECT_EQ(status.GetLoginFails(), SESSIONS);
    EXPECT_EQ(status.GetFilesCreated(), SESSIONS * (SESSIONS + 1) / 2) << "an upload counts as a file created";
    EXPECT_EQ(status.GetFilesRead(), SESSIONS);
}

TEST_F(NetTCPServiceSessionsTest, SessionLog_ClosedSessions_KeptToo)
{
    const TempFolder folder;
    m_service->SetMonitoringEnabled(folder.GetFilePath(), "", "activity", "sessions");
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 3);
    m_service->CloseSessions();
    const ThreadEvent cancel;
    Messages messages;
    DataLogResults results;
    ASSERT_TRUE(m_service->QueryOldSessions(DataLogQuery(), cancel, results, messages));
    EXPECT_EQ(results.GetCount(), 3U);
}

// ------------------------------------------------------------------------------------------------ control messages

TEST_F(NetTCPServiceSessionsTest, SendControlMsg_OneID_OnlyThatSession)
{
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 3);
    const std::vector<EventLogSessionID> ids = m_service->GetIDs();
    m_service->SendControlMsg(ids[1], 42, "text");
    m_service->SendControlMsgStopTransfer(ids[1], "stop");
    EXPECT_TRUE(WaitFor([this] { return GetTrace() == TEXTS{"42:text", "2:stop"}; }));
    m_service->SendControlMsgDisconnect(ids[1], "go");
    EXPECT_TRUE(WaitForSessions(2));
    EXPECT_THAT(GetTrace(), ElementsAre("42:text", "2:stop", "disconnect:go"));
    EXPECT_TRUE(std::next(clients.begin())->WaitClosed());
    EXPECT_TRUE(clients.front().Talk("hello"));
    EXPECT_TRUE(clients.back().Talk("hello"));
}

TEST_F(NetTCPServiceSessionsTest, SessionIDs_Near2To32_GoOnAt0AndEachReachesItsSession)
{
    const TempFolder folder;
    m_service->SetMonitoringEnabled(folder.GetFilePath(), "", "activity", "sessions");
    static_cast<NetTCPService&>(*m_service).*GetPrivateMember(NextSession()) = 0xFFFFFFFDU;
    const USHORT port = Start();
    EXPECT_EQ(m_service->GenSessionID().GetSession(), 0xFFFFFFFDU);
    std::list<TestClient> clients = Connect(port, 4);
    const std::vector<EventLogSessionID> ids = m_service->GetIDs();
    std::vector<ULONG> numbers;
    for (const EventLogSessionID& id : ids)
        numbers.push_back(id.GetSession());
    EXPECT_THAT(numbers, ElementsAre(0xFFFFFFFEU, 0xFFFFFFFFU, 0U, 1U));
    EXPECT_EQ(m_service->GenSessionID().GetSession(), 2U);

    m_service->SendControlMsgDisconnect(ids[1], "highest");
    ASSERT_TRUE(WaitForSessions(3));
    EXPECT_TRUE(std::next(clients.begin())->WaitClosed());
    m_service->SendControlMsgDisconnect(ids[2], "lowest");
    ASSERT_TRUE(WaitForSessions(2));
    EXPECT_TRUE(std::next(clients.begin(), 2)->WaitClosed());
    EXPECT_THAT(GetTrace(), ElementsAre("disconnect:highest", "disconnect:lowest"));
    EXPECT_TRUE(clients.front().Talk("hello"));
    EXPECT_TRUE(clients.back().Talk("hello"));

    const ThreadEvent cancel;
    Messages messages;
    DataLogResults stored;
    ASSERT_TRUE(m_service->QueryOldSessions(DataLogQuery(), cancel, stored, messages));
    ASSERT_EQ(stored.GetCount(), 2U);
    std::vector<ULONG> storedNumbers;
    for (ULONG index = 0; index < 2; ++index)
        storedNumbers.push_back(dynamic_cast<const NetSessionStatus&>(stored.Get(index)).GetSessionID().GetSession());
    EXPECT_THAT(storedNumbers, testing::UnorderedElementsAre(0xFFFFFFFFU, 0U));
}

TEST_F(NetTCPServiceSessionsTest, SendControlMsg_UnknownID_Nothing)
{
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 2);
    m_service->SendControlMsgDisconnect(m_service->GenSessionID(), "nobody");
    m_service->SendControlMsg(m_service->GetIDs()[0], 5, "after"); // looked at after the other one would have been
    ASSERT_TRUE(WaitFor([this] { return m_service->GetTrace()->GetCount() > 0; }));
    EXPECT_THAT(GetTrace(), ElementsAre("5:after"));
    EXPECT_EQ(m_service->GetSessionCount(), 2U);
}

TEST_F(NetTCPServiceSessionsTest, SendControlMsg_TwoSessionsWithOneID_BothReceiveItOnPurpose)
{
    m_service->SetFactory([&](NetTCP* connection, EventLogSessionID) -> NetTCPSession* {
        return new TestSession(*m_service, connection, EventLogSessionID(7, 7), {});
    });
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 2);
    m_service->SendControlMsg(EventLogSessionID(7, 7), 9, "both");
    EXPECT_TRUE(WaitFor([this] { return GetTrace() == TEXTS{"9:both", "9:both"}; }));
}

TEST_F(NetTCPServiceSessionsTest, SendControlMsgAll_EveryForm_EverySession)
{
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 3);
    m_service->SendControlMsgAll(8, "x");
    ASSERT_TRUE(WaitFor([this] { return GetTrace() == TEXTS(3, "8:x"); }));
    m_service->SendControlMsgStopTransferAll("y");
    ASSERT_TRUE(WaitFor([this] { return m_service->GetTrace()->GetCount() == 6; }));
    EXPECT_EQ(GetTrace()[5], "2:y");
    m_service->SendControlMsgDisconnectAll("z");
    EXPECT_TRUE(WaitForSessions(0));
    EXPECT_EQ(GetTrace()[8], "disconnect:z");
}

TEST_F(NetTCPServiceSessionsTest, SendControlMsg_OutgoingSession_ReachedByItsIDAndWithAllOthers)
{
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 1);
    const EventLogSessionID id = m_service->GenSessionID();
    ASSERT_TRUE(m_service->AddOutgoingConnection(MakeOutgoing(id)));
    m_service->SendControlMsgStopTransfer(id, "one");
    ASSERT_TRUE(WaitFor([this] { return GetTrace() == TEXTS{"2:one"}; }));
    m_service->SendControlMsgAll(7, "both");
    EXPECT_TRUE(WaitFor([this] { return GetTrace() == TEXTS{"2:one", "7:both", "7:both"}; }));
}

TEST_F(NetTCPServiceSessionsTest, SendControlMsgAll_FromSessionsWhileTheyAreClosed_NoDeadlock)
{
    m_service->SetFactory([&](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        TestSession::HOOKS hooks;
        hooks.atEnd = [this, id](TestSession&) {
            m_service->SendControlMsgAll(3, "I am leaving");
            m_service->SendControlMsg(id, 4, "myself");
        };
        return new TestSession(*m_service, connection, id, hooks);
    });
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 10);
    m_service->CloseSessions();
    EXPECT_EQ(m_service->GetSessionCount(), 0U);
    EXPECT_EQ(GetStatus().GetConnectionsIn(), 10U);
}

TEST_F(NetTCPServiceSessionsTest, SendControlMsgAll_WhileSessionsComeAndGo_Safe)
{
    const USHORT port = Start();
    std::atomic<bool> end{false};
    std::vector<std::thread> senders;
    for (int sender = 0; sender < 2; ++sender)
        senders.emplace_back([&] {
            while (!end) {
                m_service->SendControlMsgAll(5, "hello");
                m_service->SendControlMsg(EventLogSessionID(1, 1), 6, "one");
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    for (int count = 0; count < 40; ++count)
        EXPECT_TRUE(TestClient(port).Talk("QUIT"));
    end = true;
    for (std::thread& sender : senders)
        sender.join();
    EXPECT_TRUE(WaitForSessions(0));
    EXPECT_EQ(GetStatus().GetConnectionsIn(), 40U);
}

// ----------------------------------------------------------------------------------------------------- destruction

TEST_F(NetTCPServiceSessionsTest, Destroy_Running_PortsThenSessionsThenPurge)
{
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 2);
    m_log.Clear();
    m_service.reset();
    TEXTS order;
    for (const auto& event : m_log.GetEvents())
        if (event.event != String("Connection Accepted"))
            order.push_back(event.event.str());
    EXPECT_THAT(order, ElementsAre("Close Listening Port", "Connection Closed", "Connection Closed", "Purge"));
    for (TestClient& client : clients)
        EXPECT_TRUE(client.WaitClosed());
}

TEST_F(NetTCPServiceSessionsTest, Destroy_BothLists_AllAreAskedBeforeAnyIsWaitedFor)
{
    constexpr unsigned SESSIONS = 4; // two of each list
    struct COUNTS
    {
        std::atomic<unsigned> running{0};
        std::atomic<unsigned> asked{0};
        std::atomic<unsigned> sawAllAsked{0};
    };
    const auto counts = std::make_shared<COUNTS>(); // held by the sessions too, which may outlive a failed test
    TestSession::HOOKS hooks;
    hooks.handle = [counts](TestSession& session) {
        ++counts->running;
        RunUntilAsked(session);
        ++counts->asked;
        if (WaitFor([&] { return counts->asked == SESSIONS; }))
            ++counts->sawAllAsked;
    };
    m_service->SetFactory([this, hooks](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        return new TestSession(*m_service, connection, id, hooks);
    });
    const USHORT port = Start();
    const std::list<TestClient> clients = Connect(port, 2);
    for (int count = 0; count < 2; ++count)
        ASSERT_TRUE(
            m_service->AddOutgoingConnection(new TestSession(*m_service, nullptr, m_service->GenSessionID(), hooks)));
    ASSERT_TRUE(WaitFor([&] { return counts->running == SESSIONS; }));
    m_service.reset();
    EXPECT_EQ(counts->sawAllAsked, SESSIONS);
}

TEST_F(NetTCPServiceSessionsTest, Destroy_NeverStarted_OnlyPurge)
{
    m_service.reset();
    ASSERT_EQ(m_log.GetEvents().size(), 1U);
    EXPECT_EQ(m_log.GetEvents()[0].kind, 'P');
}

TEST_F(NetTCPServiceSessionsTest, Restart_LiveConnections_PortBackAtOnce)
{
    const USHORT port = FreePort();
    const std::string bind = "127.0.0.1:" + std::to_string(port);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(Start(bind), port);
        std::list<TestClient> clients = Connect(port, 3);
        ASSERT_TRUE(clients.front().Talk("hello"));
        m_service.reset();
        MakeService();
        Init(bind);
        ASSERT_EQ(Listen(), port) << "while the old clients are still there";
        m_service.reset();
        MakeService();
    }
}

TEST_F(NetTCPServiceSessionsTest, Destroy_200Sessions_EveryClientClosedAndEveryEndLogged)
{
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 200);
    m_service.reset();
    EXPECT_EQ(m_log.Count("Connection Closed"), 200U);
    for (TestClient& client : clients)
        EXPECT_TRUE(client.WaitClosed());
}

TEST_F(NetTCPServiceSessionsTest, CloseSessions_200Sessions_EveryOneCounted)
{
    const USHORT port = Start();
    std::list<TestClient> clients = Connect(port, 200);
    m_service->CloseSessions();
    EXPECT_EQ(m_log.Count("Connection Closed"), 200U);
    EXPECT_EQ(GetStatus().GetConnectionsIn(), 200U);
}

} // namespace
} // namespace kqlib::test
