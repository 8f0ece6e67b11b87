// Construction, the thread, connecting and closing, time-out, control messages.
#include "net/session/NetTCPSession.h"

#include "tests/net/session/SessionFixture.h"

#include <atomic>
#include <cstddef>
#include <new>
#include <thread>

namespace kqlib::test {

namespace {

using C = NetCounterBlock;

class NetTCPSessionLife : public SessionFixture
{
protected:
    /// A port of 127.0.0.1 that nobody serves (a moment ago).
    static USHORT UnservedPort()
    {
        NetTCP listener(NetIP::LOOKUP_ANY);
        EXPECT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
        return listener.GetLocalPort();
    }
    /// A listener of the test.
    struct LISTENER : NetTCP
    {
        LISTENER()
            : NetTCP(NetIP::LOOKUP_ANY)
        {
            EXPECT_TRUE(ListenSpecific(0, LOOPBACK()));
            SetBlockTime(5000);
        }
        std::string Text() const { return "127.0.0.1:" + std::to_string(GetLocalPort()); }
    };
};

/// Takes a connection over and tells, on any thread, how much it has received.
class TellingSocket : public NetTCP
{
public:
    explicit TellingSocket(NetTCP& connected)
        : NetTCP(NetIP::LOOKUP_ANY)
    {
        xAttachFrom(connected);
    }

    using NetTCP::Recv;
    bool Recv(unsigned char* buf, unsigned long& len) override
    {
        const bool done = NetTCP::Recv(buf, len);
        received += len;
        return done;
    }

    std::atomic<std::size_t> received{0};
};

/// A session of a host that handles nothing.
class BareSession : public NetTCPSession
{
public:
    BareSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& dataLog, EventLog& eventLog,
                const EventLogSessionID& id, NetTCP* const socket)
        : NetTCPSession(pool, cache, dataLog, eventLog, id, 60, socket)
    {
    }
    ~BareSession() override { xDeconstrEndSession(); }

    using NetTCPSession::xConstrStartSession;
    using NetTCPSession::xGetMainSocket;
    using NetTCPSession::xSetDataMode;
    using NetTCPSession::xSetMaxCmdSize;
    using NetTCPSession::xSetPeriodicMilliSecs;
};

} // namespace

// --- construction

TEST_F(NetTCPSessionLife, Construct_NullSocket_OwnsAnUnconnectedOne)
{
    TestHostSession& session = Make(nullptr);
    ASSERT_NE(session.xGetMainSocket(), nullptr);
    EXPECT_FALSE(session.xGetMainSocket()->IsActive());
    EXPECT_EQ(session.xGetMainSocket()->GetIPLookupMode(), NetIP::LOOKUP_ANY);
    EXPECT_EQ(session.xGetResolver().GetIPLookupMode(), NetIP::LOOKUP_ANY);
    EXPECT_EQ(session.xGetResolver().GetCache(), &m_cache);
    EXPECT_EQ(session.xGetMainSocket()->GetBlockTimeMs(), 2U);
    EXPECT_EQ(session.xGetMainNetState().remotePort, 0);
    EXPECT_TRUE(session.xGetSessionID() == ID);
    EXPECT_TRUE(session.IsComplete());
    EXPECT_FALSE(session.IsBusy());
    EXPECT_EQ(Status().GetConnectionsIn(), 0U);
    Run();
    EXPECT_EQ(Lines(), (TEXTS{Line({}, "Session Started"), Line({}, "Session Ended")}));
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "end"}));
    EXPECT_EQ(Status().GetConnectionsIn(), 0U);
}

TEST_F(NetTCPSessionLife, Construct_UnconnectedSocket_StartsAndEndsWithoutAConnection)
{
    TestHostSession& session = Make(std::make_unique<NetTCP>(NetIP::LOOKUP_IP4));
    EXPECT_EQ(session.xGetMainSocket()->GetIPLookupMode(), NetIP::LOOKUP_IP4);
    EXPECT_EQ(session.xGetMainSocket()->GetBlockTimeMs(), 2U);
    Run();
    EXPECT_EQ(Lines(), (TEXTS{Line({}, "Session Started"), Line({}, "Session Ended")}));
    EXPECT_EQ(Status().GetConnectionsIn(), 0U);
}

TEST_F(NetTCPSessionLife, Construct_ConnectedSocket_LogsAcceptedAndNoEnd)
{
    const NETSTATE state = TestHostSession::xsGetNetState(m_served.get());
    TestHostSession& session = MakeServed();
    EXPECT_EQ(Line(session.xGetMainNetState(), ""), Line(state, ""));
    EXPECT_EQ(state.remotePort, m_client->GetLocalPort());
    session.hooks.handle = [](TestHostSession&) {};
    Run();
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Connection Accepted"), Line(state, "Connection Closed")}));
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "end", "mainNetClosed"}));
}

TEST_F(NetTCPSessionLife, Construct_ConnectedSocket_CountsStraightIntoTheRecordAndOnceOnly_KeptOnPurpose)
{
    MakeServed();
    EXPECT_EQ(Status().GetConnectionsIn(), 1U);
    EXPECT_EQ(FinalCount(C::CONNECTIONS_IN), 1U);
}

TEST_F(NetTCPSessionLife, Record_OfAnAcceptedSession_TellsWhoWhereAndWhen)
{
    const NETSTATE state = TestHostSession::xsGetNetState(m_served.get());
    MovedCalendar calendar(1000000000000);
    TestHostSession& session = MakeServed();
    session.hooks.handle = [&](TestHostSession& self) {
        self.xSetCurrentUser("anna");
        calendar.Set(1000000007000);
    };
    Run();
    const NetSessionStatus status = Status();
    EXPECT_TRUE(status.GetSessionID() == ID);
    EXPECT_EQ(status.GetStartTime().GetMilliSeconds(), 1000000000000);
    EXPECT_EQ(status.GetEndTime().GetMilliSeconds(), 1000000007000);
    EXPECT_EQ(status.GetUser(), "anna");
    EXPECT_EQ(Line({status.GetLocalIP(), status.GetLocalPort(), status.GetRemoteIP(), status.GetRemotePort()}, ""),
              Line(state, ""));
}

TEST_F(NetTCPSessionLife, Record_OfAnOutgoingSession_HasNoAddressesUnlessTheHostSetsThem)
{
    LISTENER listener;
    TestHostSession& session = Make(nullptr);
    ASSERT_TRUE(session.xConnect(session.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
    EXPECT_EQ(Status().GetRemotePort(), 0);
    session.xSetPrimaryConnectionStatus(session.xGetMainSocket());
    EXPECT_EQ(Status().GetRemotePort(), listener.GetLocalPort());
    EXPECT_TRUE(Status().GetRemoteIP() == LOOPBACK());
    EXPECT_EQ(Status().GetLocalPort(), session.xGetMainSocket()->GetLocalPort());
}

TEST_F(NetTCPSessionLife, Destroy_NeverStarted_ClosesTheSocketAndLogsNothing)
{
    MakeServed();
    m_session.reset();
    EXPECT_TRUE(ClientSeesEnd());
    EXPECT_TRUE(m_log.GetEvents().empty());
}

// --- the thread

TEST_F(NetTCPSessionLife, Thread_EndAskedForBeforeTheProtocol_SkipsItButStartsAndEnds)
{
    TestHostSession& session = MakeServed();
    session.hooks.start = [](TestHostSession& self) { self.ForceCompleteAsync(); };
    Run();
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "end", "mainNetClosed"}));
}

TEST_F(NetTCPSessionLife, Thread_EndAskedForByAnotherThreadRightAway_StillStartsAndEnds)
{
    TestHostSession& session = MakeServed();
    ASSERT_TRUE(session.xConstrStartSession());
    session.ForceComplete();
    EXPECT_TRUE(session.IsComplete());
    const TEXTS notes = session.GetNotes();
    ASSERT_FALSE(notes.empty());
    EXPECT_EQ(notes.front(), "start");
    EXPECT_EQ(notes[notes.size() - 2], "end");
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionLife, Thread_WhileItRuns_IsBusyAndNotComplete)
{
    TestHostSession& session = MakeServed();
    std::atomic<bool> inside{false};
    session.hooks.handle = [&](TestHostSession& self) {
        inside = true;
        EXPECT_TRUE(WaitFor([&] { return self.xShouldSessionEnd(); }));
        EXPECT_FALSE(self.xShouldSessionContinue());
    };
    ASSERT_TRUE(session.xConstrStartSession());
    ASSERT_TRUE(WaitFor([&] { return inside.load(); }));
    EXPECT_TRUE(session.IsBusy());
    EXPECT_FALSE(session.IsComplete());
    session.ForceComplete();
    EXPECT_FALSE(session.IsBusy());
    EXPECT_TRUE(session.IsComplete());
}

TEST_F(NetTCPSessionLife, Thread_ForceCompleteOnItself_OnlyAsks)
{
    TestHostSession& session = MakeServed();
    session.hooks.handle = [](TestHostSession& self) {
        self.ForceComplete();
        EXPECT_TRUE(self.xShouldSessionEnd());
        EXPECT_TRUE(self.IsBusy());
    };
    Run();
}

TEST_F(NetTCPSessionLife, Thread_SetSessionCompleted_EndsTheMonitor)
{
    TestHostSession& session = MakeServed();
    session.hooks.command = [](TestHostSession& self, const String&) { self.xSetSessionCompleted(); };
    ClientSends("QUIT\r\n");
    Run();
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "command:QUIT", "closed", "end", "mainNetClosed"}));
}

TEST_F(NetTCPSessionLife, Thread_BaseProtocol_MonitorsAConnectedMainSocketUntilThePeerGoes)
{
    const NETSTATE state = TestHostSession::xsGetNetState(m_served.get());
    TestHostSession& session = MakeServed();
    ClientSends("A\r\nB\r\n");
    m_client->ShutdownAndClose();
    Run();
    EXPECT_EQ(session.GetNotes(),
              (TEXTS{"start", "handle", "command:A", "command:B", "mainNetClosed", "closing", "closed", "end"}));
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Connection Accepted"), Line(state, "Connection Closed")}));
}

TEST_F(NetTCPSessionLife, Thread_HostThatHandlesNothing_ReadsCommandsUntilThePeerGoes)
{
    const std::string bytes = "A\r\nmuch too long a line\r\nB\r\n";
    const NETSTATE state = TestHostSession::xsGetNetState(m_served.get());
    BareSession session(m_pool, m_cache, m_dataLog, m_log, ID, m_served.release());
    session.xSetMaxCmdSize(8);
    ClientSends(bytes);
    m_client->ShutdownAndClose();
    ASSERT_TRUE(session.xConstrStartSession());
    EXPECT_TRUE(WaitFor([&] { return session.IsComplete(); }, 20000));
    EXPECT_EQ(session.xGetMainSocket()->GetInDataBytes(), bytes.size());
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Connection Accepted"), Line(state, "Connection Closed")}));
}

TEST_F(NetTCPSessionLife, Thread_HostThatHandlesNothing_DataIsTakenAndMessagesAreDropped)
{
    const std::string bytes(5000, 'x');
    auto* const socket = new TellingSocket(*m_served); // the session owns it
    BareSession session(m_pool, m_cache, m_dataLog, m_log, ID, socket);
    session.xSetDataMode(true);
    session.xSetPeriodicMilliSecs(1);
    ClientSends(bytes);
    ASSERT_TRUE(session.xConstrStartSession());
    EXPECT_TRUE(WaitFor([&] { return socket->received == bytes.size(); }));
    session.SendControlMsg(7, "of the host's own");
    EXPECT_TRUE(session.IsBusy());
    session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "");
    EXPECT_TRUE(WaitFor([&] { return session.IsComplete(); }, 20000));
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionLife, Thread_OutgoingSession_ClosesBeforeItLogsItsEnd)
{
    LISTENER listener;
    TestHostSession& session = Make(nullptr);
    NETSTATE state;
    session.hooks.handle = [&](TestHostSession& self) {
        ASSERT_TRUE(self.xConnect(self.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
        state = self.xGetMainNetState();
    };
    Run();
    EXPECT_EQ(Lines(), (TEXTS{Line({}, "Session Started"), Line(state, "Connect Success", listener.Text()),
                              Line(state, "Connection Closed"), Line({}, "Session Ended")}));
    EXPECT_EQ(Status().GetConnectionsOutSuccesses(), 1U);
}

TEST_F(NetTCPSessionLife, Start_PoolAtItsLimit_FailsAndStaysComplete)
{
    std::atomic<bool> go{false};
    ThreadPool pool(1);
    ASSERT_TRUE(pool.Run([&] { EXPECT_TRUE(WaitFor([&] { return go.load(); })); }));
    TestHostSession session(pool, m_cache, m_dataLog, m_log, ID, 60, nullptr);
    EXPECT_FALSE(session.xConstrStartSession());
    EXPECT_TRUE(session.IsComplete());
    EXPECT_FALSE(session.HasRun());
    EXPECT_FALSE(session.HasFailed());
    go = true;
}

TEST_F(NetTCPSessionLife, HasRun_FromTheThreadsBeginningOn_True)
{
    TestHostSession& session = MakeServed();
    EXPECT_FALSE(session.HasRun());
    bool hadRunAtStart = false;
    session.hooks.start = [&](TestHostSession& self) { hadRunAtStart = self.HasRun(); };
    session.hooks.handle = [](TestHostSession&) {};
    Run();
    EXPECT_TRUE(hadRunAtStart);
    EXPECT_TRUE(session.HasRun());
    EXPECT_FALSE(session.HasFailed());
}

TEST_F(NetTCPSessionLife, HasFailed_WantOfMemoryInTheProtocol_TrueFromThenOn)
{
    TestHostSession& session = MakeServed();
    session.hooks.handle = [](TestHostSession&) { throw std::bad_alloc(); };
    bool hadFailedAtEnd = false;
    session.hooks.end = [&](TestHostSession& self) { hadFailedAtEnd = self.HasFailed(); };
    Run();
    EXPECT_TRUE(hadFailedAtEnd);
    EXPECT_TRUE(session.HasFailed());
    EXPECT_TRUE(session.HasRun());
}

TEST_F(NetTCPSessionLife, HasFailed_AnyExceptionInTheProtocol_TrueAndTheRestFollows)
{
    TestHostSession& session = MakeServed();
    session.hooks.handle = [](TestHostSession&) { throw 42; };
    Run();
    EXPECT_TRUE(session.HasFailed());
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "end", "mainNetClosed"}));
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionLife, Start_DerivedDestructor_EndsTheThread)
{
    TestHostSession& session = MakeServed();
    ASSERT_TRUE(session.xConstrStartSession());
    m_session.reset();
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionLife, PublicOperations_WhileTheThreadWorks_AreSafe)
{
    TestHostSession& session = MakeServed();
    session.xSetPeriodicMilliSecs(0);
    session.hooks.command = [](TestHostSession& self, const String& command) {
        self.xSetCurrentUser(command);
        self.xSetCurrentActionDetail(3, command);
        self.xSetPrimaryConnectionStatus(self.xGetMainSocket());
        self.xSendCommand(self.xGetMainSocket(), command);
    };
    ASSERT_TRUE(session.xConstrStartSession());
    std::thread other([&] {
        for (ULONG i = 0; i < 500; ++i) {
            Status();
            session.SendControlMsg(5, "x");
            session.SendControlMsgIfYourID(ID, 6, "y");
        }
    });
    for (int i = 0; i < 100; ++i)
        ClientSends("NOOP\r\n");
    EXPECT_EQ(ClientReceives(600).size(), 600U);
    other.join();
    session.ForceComplete();
    EXPECT_EQ(Status().GetCommandsIn(), 100U);
}

// --- accepting, connecting, listening

TEST_F(NetTCPSessionLife, Accept_NothingWaiting_NullAndNoLine)
{
    LISTENER listener;
    listener.SetBlockTime(0);
    TestHostSession& session = Make(nullptr);
    EXPECT_EQ(session.xAccept(&listener), nullptr);
    EXPECT_TRUE(Lines().empty());
    EXPECT_EQ(FinalCount(C::CONNECTIONS_IN), 0U);
}

TEST_F(NetTCPSessionLife, Accept_Connection_LogsTheListenerAndCounts)
{
    LISTENER listener;
    TestHostSession& session = Make(nullptr);
    NetTCP client(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(client.Connect(LOOPBACK(), listener.GetLocalPort()));
    const std::unique_ptr<NetTCP> accepted(session.xAccept(&listener));
    ASSERT_NE(accepted, nullptr);
    EXPECT_TRUE(accepted->IsConnected());
    EXPECT_EQ(Lines(),
              (TEXTS{Line({LOOPBACK(), listener.GetLocalPort(), NetIP(), 0}, "Connection Accepted", listener.Text())}));
    EXPECT_EQ(session.xGetMainNetState().localPort, 0);
    EXPECT_EQ(FinalCount(C::CONNECTIONS_IN), 1U);
}

TEST_F(NetTCPSessionLife, Accept_OnTheMainSocket_RefreshesItsState)
{
    TestHostSession& session = Make(nullptr);
    NetTCP* const main = session.xGetMainSocket();
    ASSERT_TRUE(main->ListenSpecific(0, LOOPBACK()));
    EXPECT_EQ(session.xGetMainNetState().localPort, 0);
    EXPECT_EQ(session.xAccept(main), nullptr);
    EXPECT_EQ(session.xGetMainNetState().localPort, main->GetLocalPort());
}

TEST_F(NetTCPSessionLife, SelfAccept_Connection_LogsTheEndOfTheListenerAndTheConnection)
{
    TestHostSession& session = Make(nullptr);
    NetTCP* const main = session.xGetMainSocket();
    ASSERT_TRUE(session.xListen(main, true, 0, "127.0.0.1"));
    const std::string text = "127.0.0.1:" + std::to_string(main->GetLocalPort());
    main->SetBlockTime(5000);
    m_log.Clear();
    NetTCP client(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(client.Connect(LOOPBACK(), main->GetLocalPort()));
    ASSERT_TRUE(session.xSelfAccept(main));
    const NETSTATE state = TestHostSession::xsGetNetState(main);
    EXPECT_EQ(state.remotePort, client.GetLocalPort());
    EXPECT_EQ(Line(session.xGetMainNetState(), ""), Line(state, ""));
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Closed Listening Port", text), Line(state, "Connection Accepted", text)}));
    EXPECT_EQ(FinalCount(C::CONNECTIONS_IN), 1U);
}

TEST_F(NetTCPSessionLife, SelfAccept_OfAnotherSocket_LogsTheListenerForTheMainState)
{
    TestHostSession& session = MakeServed();
    LISTENER listener;
    const std::string text = listener.Text();
    NetTCP client(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(client.Connect(LOOPBACK(), listener.GetLocalPort()));
    ASSERT_TRUE(session.xSelfAccept(&listener));
    EXPECT_EQ(Lines(), (TEXTS{Line(session.xGetMainNetState(), "Closed Listening Port", text),
                              Line(TestHostSession::xsGetNetState(&listener), "Connection Accepted", text)}));
}

TEST_F(NetTCPSessionLife, SelfAccept_Fails_LogsAndCountsNothing)
{
    TestHostSession& session = Make(nullptr);
    LISTENER listener;
    listener.SetBlockTime(0);
    EXPECT_FALSE(session.xSelfAccept(&listener));
    EXPECT_TRUE(listener.IsListening());
    EXPECT_FALSE(session.xSelfAccept(session.xGetMainSocket()));
    EXPECT_TRUE(Lines().empty());
    EXPECT_EQ(FinalCount(C::CONNECTIONS_IN), 0U);
}

TEST_F(NetTCPSessionLife, Connect_Succeeds_LogsTheSocketWithTheHostAsGiven)
{
    LISTENER listener;
    TestHostSession& session = Make(nullptr);
    NetTCP* const main = session.xGetMainSocket();
    ASSERT_TRUE(session.xConnect(main, "127.0.0.1", listener.GetLocalPort()));
    EXPECT_EQ(session.xGetMainNetState().remotePort, listener.GetLocalPort());
    EXPECT_EQ(Lines(), (TEXTS{Line(session.xGetMainNetState(), "Connect Success", listener.Text())}));
    EXPECT_EQ(FinalCount(C::CONNECTIONS_OUT_SUCCESSES), 1U);
    EXPECT_EQ(Status().GetConnectionsOutFails(), 0U);
}

TEST_F(NetTCPSessionLife, Connect_WithALocalEnd_UsesIt)
{
    LISTENER listener;
    TestHostSession& session = Make(nullptr);
    NetTCP* const main = session.xGetMainSocket();
    ASSERT_TRUE(session.xConnect(main, "127.0.0.1", listener.GetLocalPort(), "127.0.0.2"));
    EXPECT_TRUE(main->GetLocalIP() == NetIP(String("127.0.0.2")));
    const USHORT port = UnservedPort();
    ASSERT_TRUE(session.xConnect(main, "127.0.0.1", listener.GetLocalPort(), "127.0.0.3", port));
    EXPECT_TRUE(main->GetLocalIP() == NetIP(String("127.0.0.3")));
    EXPECT_EQ(main->GetLocalPort(), port);
    EXPECT_EQ(m_log.Count("Connect Success"), 2U);
}

TEST_F(NetTCPSessionLife, Connect_Refused_LogsForTheMainStateAndCountsAFail)
{
    TestHostSession& session = MakeServed();
    const NETSTATE state = session.xGetMainNetState();
    NetTCP other(NetIP::LOOKUP_ANY);
    const USHORT port = UnservedPort();
    EXPECT_FALSE(session.xConnect(&other, "127.0.0.1", port));
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Connect Fail", "127.0.0.1:" + std::to_string(port))}));
    EXPECT_EQ(FinalCount(C::CONNECTIONS_OUT_FAILS), 1U);
    EXPECT_EQ(Status().GetConnectionsOutSuccesses(), 0U);
}

TEST_F(NetTCPSessionLife, Connect_FailsOnTheMainSocket_LogsItsEmptiedState)
{
    TestHostSession& session = MakeServed();
    const NETSTATE before = session.xGetMainNetState();
    EXPECT_FALSE(session.xConnect(session.xGetMainSocket(), "", 21));
    EXPECT_EQ(Lines(), (TEXTS{Line(before, "Connection Closed"), Line({}, "Connect Fail", ":21")}));
    EXPECT_EQ(session.xGetMainNetState().remotePort, 0);
}

TEST_F(NetTCPSessionLife, Connect_ConnectedSocket_ClosesItFirst)
{
    LISTENER listener;
    TestHostSession& session = MakeServed();
    const NETSTATE before = session.xGetMainNetState();
    ASSERT_TRUE(session.xConnect(session.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
    EXPECT_EQ(Lines(), (TEXTS{Line(before, "Connection Closed"),
                              Line(session.xGetMainNetState(), "Connect Success", listener.Text())}));
    EXPECT_EQ(session.GetNotes(), (TEXTS{"mainNetClosed"}));
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionLife, Listen_OnAnAddress_LogsTheMainStateAndThePortAsAsked)
{
    TestHostSession& session = Make(nullptr);
    NetTCP* const main = session.xGetMainSocket();
    ASSERT_TRUE(session.xListen(main, true, 0, "127.0.0.1"));
    EXPECT_NE(main->GetLocalPort(), 0);
    EXPECT_EQ(session.xGetMainNetState().localPort, main->GetLocalPort());
    EXPECT_EQ(Lines(), (TEXTS{Line(session.xGetMainNetState(), "Open Listening Port Success", "127.0.0.1:0")}));
    EXPECT_EQ(FinalCount(C::CONNECTIONS_IN), 0U);
}

TEST_F(NetTCPSessionLife, Listen_OnAllAddresses_LogsTheUnsetAddress)
{
    TestHostSession& session = MakeServed();
    NetTCP other(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(session.xListen(&other, false, 0));
    EXPECT_EQ(Lines(), (TEXTS{Line(session.xGetMainNetState(), "Open Listening Port Success", "0.0.0.0:0")}));
    EXPECT_EQ(session.xGetMainNetState().remotePort, m_client->GetLocalPort());
}

TEST_F(NetTCPSessionLife, Listen_Fails_LogsOnlyWhenAskedTo)
{
    TestHostSession& session = MakeServed();
    LISTENER taken;
    NetTCP other(NetIP::LOOKUP_ANY);
    EXPECT_FALSE(session.xListen(&other, false, taken.GetLocalPort(), "127.0.0.1"));
    EXPECT_FALSE(session.xListen(&other, false, taken.GetLocalPort()));
    EXPECT_TRUE(Lines().empty());
    EXPECT_FALSE(session.xListen(&other, true, taken.GetLocalPort(), "127.0.0.1"));
    EXPECT_FALSE(session.xListen(&other, true, taken.GetLocalPort()));
    const std::string port = std::to_string(taken.GetLocalPort());
    EXPECT_EQ(Lines(), (TEXTS{Line(session.xGetMainNetState(), "Open Listening Port Fail", "127.0.0.1:" + port),
                              Line(session.xGetMainNetState(), "Open Listening Port Fail", "0.0.0.0:" + port)}));
}

// --- closing

TEST_F(NetTCPSessionLife, Close_MainSocket_TellsTheHostAndLogsOnce)
{
    TestHostSession& session = MakeServed();
    const NETSTATE state = session.xGetMainNetState();
    session.hooks.mainNetClosed = [](TestHostSession& self) { EXPECT_TRUE(self.xGetMainSocket()->IsConnected()); };
    session.xClose(session.xGetMainSocket());
    session.xClose(session.xGetMainSocket());
    session.xShutdownAndClose(session.xGetMainSocket());
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Connection Closed")}));
    EXPECT_EQ(session.GetNotes(), (TEXTS{"mainNetClosed"}));
    EXPECT_EQ(session.xGetMainNetState().remotePort, state.remotePort);
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionLife, Close_MainSocket_TheHandlerComesBeforeTheLine)
{
    for (const bool shutDown : {false, true}) {
        std::unique_ptr<NetTCP> served;
        Pair(served, m_client);
        TestHostSession& session = Make(std::move(served));
        m_log.Clear();
        TEXTS before{"not called"};
        session.hooks.mainNetClosed = [&](TestHostSession& self) {
            before = Lines();
            EXPECT_TRUE(self.xGetMainSocket()->IsConnected());
        };
        if (shutDown)
            session.xShutdownAndClose(session.xGetMainSocket());
        else
            session.xClose(session.xGetMainSocket());
        EXPECT_EQ(before, TEXTS{});
        EXPECT_EQ(Lines().size(), 1U);
    }
}

TEST_F(NetTCPSessionLife, Receive_Fails_TheHandlerComesBeforeTheLine)
{
    TestHostSession& session = MakeScripted();
    m_script->hangUpAtEnd = true;
    TEXTS before{"not called"};
    session.hooks.mainNetClosed = [&](TestHostSession&) { before = Lines(); };
    unsigned char byte = 0;
    ULONG length = 1;
    EXPECT_FALSE(session.xRecvData(m_script, session.xGetMainNetState(), &byte, length));
    EXPECT_EQ(before, TEXTS{});
    EXPECT_EQ(Lines().size(), 1U);
}

TEST_F(NetTCPSessionLife, Thread_Lines_AcceptedBeforeTheStartHandlerClosedAfterTheEndHandler)
{
    TestHostSession& session = MakeServed();
    std::size_t atStart = 0;
    std::size_t atEnd = 0;
    session.hooks.start = [&](TestHostSession&) { atStart = Lines().size(); };
    session.hooks.handle = [](TestHostSession&) {};
    session.hooks.end = [&](TestHostSession&) { atEnd = Lines().size(); };
    Run();
    EXPECT_EQ(atStart, 1U);
    EXPECT_EQ(atEnd, 1U);
    EXPECT_EQ(Lines().size(), 2U);
}

TEST_F(NetTCPSessionLife, ShutdownAndClose_OtherSocket_LogsItsEndsAndTellsNobody)
{
    TestHostSession& session = Make(nullptr);
    const NETSTATE state = TestHostSession::xsGetNetState(m_served.get());
    session.xShutdownAndClose(m_served.get());
    EXPECT_FALSE(m_served->IsActive());
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Connection Closed")}));
    EXPECT_TRUE(session.GetNotes().empty());
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionLife, Close_ListeningSocket_LogsThePortForTheMainState)
{
    TestHostSession& session = MakeServed();
    LISTENER first;
    LISTENER second;
    const TEXTS expected{Line(session.xGetMainNetState(), "Closed Listening Port", first.Text()),
                         Line(session.xGetMainNetState(), "Closed Listening Port", second.Text())};
    session.xClose(&first);
    session.xShutdownAndClose(&second);
    EXPECT_EQ(Lines(), expected);
    EXPECT_TRUE(session.GetNotes().empty());
}

// --- time-out

TEST_F(NetTCPSessionLife, TimeOut_AfterItsSeconds_TriggersAndClosesNothing_KeptOnPurpose)
{
    const MovedTick tick(0xFFFFFF00U); // wraps on the way
    TestHostSession& session = Make(std::move(m_served), 2);
    MovedTick::sAdvance(1999);
    EXPECT_FALSE(session.xIsTimedOut());
    MovedTick::sAdvance(1);
    EXPECT_TRUE(session.xIsTimedOut());
    EXPECT_TRUE(session.xGetMainSocket()->IsConnected());
    session.xResetTimeOut();
    EXPECT_FALSE(session.xIsTimedOut());
    session.xResetTimeOut(TimedEvent::sGetNow() - 2000);
    EXPECT_TRUE(session.xIsTimedOut());
    EXPECT_FALSE(session.xIsTimedOut(TimedEvent::sGetNow() - 1));
}

TEST_F(NetTCPSessionLife, SetTimeOutSecs_WhileItRuns_DoesNotRestart_KeptOnPurpose)
{
    const MovedTick tick(1000);
    TestHostSession& session = Make(nullptr, 60);
    MovedTick::sAdvance(5000);
    session.xSetTimeOutSecs(6);
    EXPECT_FALSE(session.xIsTimedOut());
    session.xSetTimeOutSecs(5);
    EXPECT_TRUE(session.xIsTimedOut());
}

TEST_F(NetTCPSessionLife, SetTimeOutSecs_Zero_HasPassedAtOnceAndEndsTheNextWait)
{
    TestHostSession& session = MakeServed();
    session.hooks.handle = [](TestHostSession& self) {
        self.xSetTimeOutSecs(0);
        self.xResetTimeOut();
        EXPECT_TRUE(self.xIsTimedOut());
        self.xMonitorNet(self.xGetMainSocket());
    };
    Run();
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "closed", "end", "mainNetClosed"}));
}

TEST_F(NetTCPSessionLife, SetTimeOutSecs_Largest_WrapsIn32BitsOfMilliseconds)
{
    const MovedTick tick(5);
    TestHostSession& session = Make(nullptr, 0xFFFFFFFF);
    MovedTick::sAdvance(4294966295U);
    EXPECT_FALSE(session.xIsTimedOut());
    MovedTick::sAdvance(1);
    EXPECT_TRUE(session.xIsTimedOut());
    session.xSetTimeOutSecs(4294968); // 704 ms beyond 32 bits
    session.xResetTimeOut();
    MovedTick::sAdvance(703);
    EXPECT_FALSE(session.xIsTimedOut());
    MovedTick::sAdvance(1);
    EXPECT_TRUE(session.xIsTimedOut());
}

// --- control messages

TEST_F(NetTCPSessionLife, ProcessMsgs_SeveralWait_TakesTheOldestFirst)
{
    TestHostSession& session = Make(nullptr);
    CTRLMSG msg;
    EXPECT_FALSE(session.xProcessMsgsAndTakeNext(msg));
    session.SendControlMsg(2, "a");
    EXPECT_TRUE(session.SendControlMsgIfYourID(EventLogSessionID(7, 9), 0xFFFFFFFF, "b"));
    EXPECT_FALSE(session.SendControlMsgIfYourID(EventLogSessionID(7, 10), 4, "c"));
    EXPECT_FALSE(session.SendControlMsgIfYourID(EventLogSessionID(8, 9), 4, "d"));
    ASSERT_TRUE(session.xProcessMsgsAndTakeNext(msg));
    EXPECT_EQ(msg.code, 2U);
    EXPECT_EQ(msg.text, "a");
    ASSERT_TRUE(session.xProcessMsgsAndTakeNext(msg));
    EXPECT_EQ(msg.code, 0xFFFFFFFFU);
    EXPECT_EQ(msg.text, "b");
    EXPECT_FALSE(session.xProcessMsgsAndTakeNext(msg));
    EXPECT_EQ(msg.text, "b");
}

TEST_F(NetTCPSessionLife, ProcessMsgs_Disconnect_IsKeptAndNotReturned)
{
    TestHostSession& session = MakeServed();
    session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "bye");
    session.SendControlMsg(2, "next");
    CTRLMSG msg{77, "untouched"};
    EXPECT_FALSE(session.xCheckForDisconnectMsg());
    EXPECT_FALSE(session.xProcessMsgsAndTakeNext(msg));
    EXPECT_EQ(msg.code, 77U);
    EXPECT_EQ(msg.text, "untouched");
    EXPECT_TRUE(session.xCheckForDisconnectMsg());
    EXPECT_TRUE(session.xGetMainSocket()->IsConnected());
    EXPECT_TRUE(session.xProcessMsgsAndTakeNext(msg));
    EXPECT_EQ(msg.text, "next");
    session.hooks.disconnect = [](TestHostSession& self, const String&) {
        EXPECT_TRUE(self.xCheckForDisconnectMsg());
        EXPECT_TRUE(self.xGetMainSocket()->IsConnected());
    };
    session.xPerformDisconnectMsg();
    EXPECT_EQ(session.GetNotes(), (TEXTS{"disconnect:bye", "mainNetClosed"}));
    EXPECT_FALSE(session.xCheckForDisconnectMsg());
    EXPECT_FALSE(session.xGetMainSocket()->IsActive());
    EXPECT_TRUE(ClientSeesEnd());
    session.ClearNotes();
    session.hooks.disconnect = nullptr;
    session.xPerformDisconnectMsg();
    EXPECT_EQ(session.GetNotes(), (TEXTS{"disconnect:"}));
}

TEST_F(NetTCPSessionLife, SendControlMsg_The10001st_IsDroppedSilently)
{
    TestHostSession& session = Make(nullptr);
    for (ULONG i = 1; i <= 10001; ++i)
        session.SendControlMsg(1 + i, "");
    CTRLMSG msg;
    ULONG taken = 0;
    while (session.xProcessMsgsAndTakeNext(msg))
        ++taken;
    EXPECT_EQ(taken, 10000U);
    EXPECT_EQ(msg.code, 10001U);
    session.SendControlMsg(5, "room again");
    EXPECT_TRUE(session.xProcessMsgsAndTakeNext(msg));
}

TEST_F(NetTCPSessionLife, SendControlMsgIfYourID_QueueIsFull_AppendsAllTheSame_KeptOnPurpose)
{
    TestHostSession& session = Make(nullptr);
    for (ULONG i = 0; i < 10001; ++i)
        session.SendControlMsg(5, "");
    EXPECT_TRUE(session.SendControlMsgIfYourID(ID, 6, ""));
    CTRLMSG msg;
    ULONG taken = 0;
    while (session.xProcessMsgsAndTakeNext(msg))
        ++taken;
    EXPECT_EQ(taken, 10001U);
    EXPECT_EQ(msg.code, 6U);
}

} // namespace kqlib::test
