// Exceptions that leave the host's code on the listener thread, and what a service loses without being asked.
#include "tests/net/service/ServiceFixture.h"

#include <gmock/gmock.h>

#include <new>
#include <stdexcept>

namespace kqlib::test {
namespace {

using testing::ElementsAre;

/// A session that an exception ends after it has taken its connection over.
class UnfinishedSession : public NetTCPSession
{
public:
    UnfinishedSession(TestService& service, NetTCP* connection, const EventLogSessionID& id)
        : NetTCPSession(service.GetPool(), service.GetCache(), service.GetActivityLog(), service.GetEventLog(), id, 60,
                        connection)
    {
        throw std::runtime_error("not finished");
    }
};

class NetTCPServiceFailuresTest : public ServiceFixture
{
protected:
    /// Makes the factory of the first connection do so; the others get sessions.
    void SetFirstFactory(TestService::FACTORY factory)
    {
        m_service->SetFactory([this, factory](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
            if (id.GetSession() == 0)
                return factory(connection, id);
            return new TestSession(*m_service, connection, id, {});
        });
    }
    /// The first client is refused for that reason, and the next one served.
    void ExpectFirstRefused(const std::string& why)
    {
        const USHORT port = Start();
        TestClient first(port);
        EXPECT_TRUE(first.WaitClosed());
        EXPECT_TRUE(TestClient(port).Talk("hello"));
        const std::vector<CapturedEventLog::EVENT> refused = GetEvents("Connection Refused");
        ASSERT_EQ(refused.size(), 1U);
        EXPECT_EQ(refused[0].kind, 'N');
        EXPECT_TRUE(refused[0].id == m_service->GetIDs().at(0));
        EXPECT_EQ(refused[0].localPort, port);
        EXPECT_TRUE(refused[0].remote == NetIP(String("127.0.0.1")));
        EXPECT_NE(refused[0].remotePort, 0);
        EXPECT_EQ(refused[0].detail, String());
        EXPECT_EQ(refused[0].comment, String(why));
        EXPECT_EQ(m_service->GetIDs().size(), 2U);
    }
    std::vector<CapturedEventLog::EVENT> GetEvents(const std::string& text) const
    {
        std::vector<CapturedEventLog::EVENT> events;
        for (const auto& event : m_log.GetEvents())
            if (event.event == String(text))
                events.push_back(event);
        return events;
    }
};

// --------------------------------------------------------------------------------------------------- the factory

TEST_F(NetTCPServiceFailuresTest, CreateSession_StandardException_RefusedWithItsText)
{
    SetFirstFactory([](NetTCP*, EventLogSessionID) -> NetTCPSession* { throw std::runtime_error("no table left"); });
    ExpectFirstRefused("no table left");
}

TEST_F(NetTCPServiceFailuresTest, CreateSession_NoMemory_Refused)
{
    SetFirstFactory([](NetTCP*, EventLogSessionID) -> NetTCPSession* { throw std::bad_alloc(); });
    ExpectFirstRefused(std::bad_alloc().what());
}

TEST_F(NetTCPServiceFailuresTest, CreateSession_ExceptionWithoutText_Refused)
{
    SetFirstFactory([](NetTCP*, EventLogSessionID) -> NetTCPSession* { throw 42; });
    ExpectFirstRefused("Exception of an unknown kind");
}

TEST_F(NetTCPServiceFailuresTest, CreateSession_ExceptionAfterTheSessionTookTheConnection_RefusedAndClosedOnce)
{
    SetFirstFactory([this](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        return new UnfinishedSession(*m_service, connection, id);
    });
    ExpectFirstRefused("not finished");
}

TEST_F(NetTCPServiceFailuresTest, CreateSession_ExceptionAfterTheFactoryDeletedTheConnection_RefusedAndClosedOnce)
{
    SetFirstFactory([](NetTCP* connection, EventLogSessionID) -> NetTCPSession* {
        const std::unique_ptr<NetTCP> careful(connection);
        throw std::runtime_error("gone");
    });
    ExpectFirstRefused("gone");
}

TEST_F(NetTCPServiceFailuresTest, CreateSession_ExceptionWhileASessionLivesOnElsewhere_ItsConnectionStays)
{
    std::unique_ptr<TestSession> elsewhere;
    SetFirstFactory([&](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        elsewhere = std::make_unique<TestSession>(*m_service, connection, id, TestSession::HOOKS());
        throw std::runtime_error("too late");
    });
    TestClient client(Start());
    EXPECT_TRUE(client.Talk("hello"));
    EXPECT_EQ(m_service->GetSessionCount(), 0U);
    EXPECT_EQ(m_log.Count("Connection Refused"), 1U);
    elsewhere.reset();
    EXPECT_TRUE(client.WaitClosed());
}

TEST_F(NetTCPServiceFailuresTest, CreateSession_NullAfterTheSessionWentAgain_ClosedOnceAndNotLogged)
{
    SetFirstFactory([this](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
        const TestSession unwanted(*m_service, connection, id, {});
        return nullptr;
    });
    const USHORT port = Start();
    EXPECT_TRUE(TestClient(port).WaitClosed());
    EXPECT_TRUE(TestClient(port).Talk("hello"));
    EXPECT_EQ(m_log.Count("Connection Refused"), 0U);
}

// ----------------------------------------------------------------------------------------- other code of the host

/// A host's log that fails to write a refusal.
class FailingLog : public CapturedEventLog
{
public:
    void PrintIPNormal(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local, USHORT localPort,
                       const String& event, const String& detail, const String& comment) override
    {
        CapturedEventLog::PrintIPNormal(id, remote, remotePort, local, localPort, event, detail, comment);
        if (event == String("Connection Refused"))
            throw std::runtime_error("disk on fire");
    }
};

TEST_F(NetTCPServiceFailuresTest, EventLog_FailsOnTheListenerThread_ConnectionClosedOthersServed)
{
    FailingLog log;
    m_service->SetLogModeShared(&log, true);
    SetFirstFactory([](NetTCP*, EventLogSessionID) -> NetTCPSession* { throw 42; });
    const USHORT port = Start();
    EXPECT_TRUE(TestClient(port).WaitClosed());
    EXPECT_TRUE(TestClient(port).Talk("hello"));
    EXPECT_EQ(log.Count("Connection Refused"), 1U);
    m_service.reset(); // before its log
}

/// A host's log that cannot write anything about ports.
class FailingPortLog : public EventLog
{
public:
    void PrintServiceNormal(const String&, const String&, const String&) override
    {
        throw std::runtime_error("disk on fire");
    }
    void PrintPurge() override { throw std::runtime_error("disk on fire"); }
};

// The line of a port that was open already was followed by the closing of it, and one in the destructor by the end of
// the process.
TEST_F(NetTCPServiceFailuresTest, EventLog_FailsForPorts_TheyAreOpenedAndClosedAllTheSame)
{
    FailingPortLog log;
    m_service->SetLogModeShared(&log, true);
    Init("127.0.0.1:0,127.0.0.1:0");
    NetPortBinds failed;
    EXPECT_NO_THROW(m_service->StartListen(failed));
    EXPECT_EQ(failed.GetCount(), 0U);
    ASSERT_EQ(GetPorts().size(), 2U);
    for (const USHORT port : GetPorts())
        EXPECT_TRUE(TestClient(port).Talk("hello"));
    EXPECT_NO_THROW(m_service->StopListen());
    EXPECT_FALSE(m_service->GetIsListening());
    EXPECT_NO_THROW(m_service->StartListen(failed));
    ASSERT_EQ(GetPorts().size(), 2U);
    TestClient client(GetPorts()[1]);
    EXPECT_TRUE(client.Talk("hello"));
    m_service.reset();
    EXPECT_TRUE(client.WaitClosed());
}

// --------------------------------------------------------------------------------------------------------- losses

class NetTCPServiceLossesTest : public NetTCPServiceFailuresTest
{
protected:
    /// Of these the listener, the purger and the first session take one each.
    static constexpr ULONG THREADS = 3;

    /// Serves one client while a second finds no thread.
    void LoseASession(bool logLosses)
    {
        m_service = std::make_unique<TestService>(m_fewThreads, m_cache);
        m_service->SetLogModeShared(&m_log, true);
        m_service->SetLogLosses(logLosses);
        const USHORT port = Start();
        TestClient first(port);
        ASSERT_TRUE(first.Talk("hello"));
        TestClient second(port);
        m_lostPort = second.GetLocalPort();
        EXPECT_TRUE(second.WaitClosed());
        EXPECT_TRUE(WaitForSessions(1));
        EXPECT_TRUE(first.Talk("still here"));
    }
    NetTCPService::LOSSES GetLosses() const
    {
        NetTCPService::LOSSES losses;
        m_service->GetLosses(losses);
        return losses;
    }
    /// A session whose protocol an exception leaves.
    void LoseASessionByAnException()
    {
        SetFirstFactory([this](NetTCP* connection, EventLogSessionID id) -> NetTCPSession* {
            TestSession::HOOKS hooks;
            hooks.handle = [](TestSession&) { throw std::bad_alloc(); };
            return new TestSession(*m_service, connection, id, hooks);
        });
        const USHORT port = Start();
        EXPECT_TRUE(TestClient(port).WaitClosed());
        EXPECT_TRUE(WaitForSessions(0));
        EXPECT_TRUE(TestClient(port).Talk("hello"));
    }

    ThreadPool m_fewThreads{THREADS};
    USHORT m_lostPort = 0;
};

TEST_F(NetTCPServiceLossesTest, Session_NoThread_CountedAndLoggedWhenAsked)
{
    LoseASession(true);
    const NetTCPService::LOSSES losses = GetLosses();
    EXPECT_EQ(losses.sessionsWithoutThread, 1U);
    EXPECT_EQ(losses.sessionsFailed + losses.connectionsRefused + losses.listenersLost, 0U);
    const std::vector<CapturedEventLog::EVENT> lost = GetEvents("Session Lost");
    ASSERT_EQ(lost.size(), 1U);
    EXPECT_EQ(lost[0].kind, 'N');
    EXPECT_TRUE(lost[0].id == m_service->GetIDs().at(1));
    EXPECT_EQ(lost[0].remotePort, m_lostPort);
    EXPECT_EQ(lost[0].detail, String());
    EXPECT_EQ(lost[0].comment, String("No Thread"));
}

TEST_F(NetTCPServiceLossesTest, Session_NoThread_NotLoggedUnlessAsked)
{
    LoseASession(false);
    EXPECT_EQ(GetLosses().sessionsWithoutThread, 1U);
    EXPECT_EQ(m_log.Count("Session Lost"), 0U);
}

TEST_F(NetTCPServiceLossesTest, Session_NoMemory_CountedAndLoggedWhenAsked)
{
    m_service->SetLogLosses(true);
    LoseASessionByAnException();
    EXPECT_EQ(GetLosses().sessionsFailed, 1U);
    EXPECT_EQ(GetLosses().sessionsWithoutThread, 0U);
    const std::vector<CapturedEventLog::EVENT> lost = GetEvents("Session Lost");
    ASSERT_EQ(lost.size(), 1U);
    EXPECT_TRUE(lost[0].id == m_service->GetIDs().at(0));
    EXPECT_EQ(lost[0].comment, String("Failed"));
}

TEST_F(NetTCPServiceLossesTest, Session_NoMemory_NotLoggedUnlessAsked)
{
    LoseASessionByAnException();
    EXPECT_EQ(GetLosses().sessionsFailed, 1U);
    EXPECT_EQ(m_log.Count("Session Lost"), 0U);
}

TEST_F(NetTCPServiceLossesTest, Connection_Refused_Counted)
{
    SetFirstFactory([](NetTCP*, EventLogSessionID) -> NetTCPSession* { throw 42; });
    EXPECT_TRUE(TestClient(Start()).WaitClosed());
    EXPECT_EQ(GetLosses().connectionsRefused, 1U);
}

} // namespace
} // namespace kqlib::test
