// Exceptions that leave a host's handler: they end that session, in the order of any other end, and no other session.
#include "net/session/NetTCPSession.h"

#include "tests/net/session/SessionFixture.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <new>
#include <ostream>
#include <stdexcept>
#include <tuple>

namespace kqlib::test {

namespace {

using C = NetCounterBlock;

struct EXCEPTION
{
    const char* name;
    void (*fail)();
    std::string text; ///< of the log line
};

/// An exception that says nothing.
struct SilentException : std::exception
{
    const char* what() const noexcept override { return nullptr; }
};

const EXCEPTION EXCEPTIONS[] = {
    {"RuntimeError", [] { throw std::runtime_error("the index is gone"); }, "the index is gone"},
    {"BadAlloc", [] { throw std::bad_alloc(); }, std::bad_alloc().what()},
    {"Int", [] { throw 42; }, "Exception of an unknown kind"},
};

using FAIL = std::function<void()>;
using SESSION = TestHostSession;

struct HOOK
{
    const char* name;
    void (*arm)(SESSION& session, const FAIL& fail);
    void (*poke)(SESSION& session, NetTCP& client); ///< makes the session call the hook
    bool failsFirst;                                ///< before the connection is closed
    bool isMonitored;                               ///< the monitor runs
};

void PrintTo(const EXCEPTION& exception, std::ostream* out)
{
    *out << exception.name;
}

void PrintTo(const HOOK& hook, std::ostream* out)
{
    *out << hook.name;
}

void Nothing(SESSION&, NetTCP&) {}

void ClientSays(NetTCP& client, const std::string& text)
{
    for (unsigned long done = 0; done < text.size();) {
        unsigned long length = text.size() - done;
        ASSERT_TRUE(client.Send(text.data() + done, length));
        done += length;
    }
}

const HOOK HOOKS[] = {
    {"Start", [](SESSION& session, const FAIL& fail) { session.hooks.start = [fail](SESSION&) { fail(); }; }, Nothing,
     true, false},
    {"HandleSession", [](SESSION& session, const FAIL& fail) { session.hooks.handle = [fail](SESSION&) { fail(); }; },
     Nothing, true, false},
    {"End",
     [](SESSION& session, const FAIL& fail) {
         session.hooks.handle = [](SESSION&) {};
         session.hooks.end = [fail](SESSION&) { fail(); };
     },
     Nothing, true, false},
    {"PreRead",
     [](SESSION& session, const FAIL& fail) { session.hooks.preRead = [fail](SESSION&, bool, ULONG&) { fail(); }; },
     Nothing, true, true},
    {"PreReadPeriodic",
     [](SESSION& session, const FAIL& fail) {
         session.xSetPeriodicMilliSecs(0);
         session.hooks.preRead = [fail](SESSION&, bool periodic, ULONG&) {
             if (periodic)
                 fail();
         };
     },
     Nothing, true, true},
    {"DataRecv",
     [](SESSION& session, const FAIL& fail) {
         session.xSetDataMode(true);
         session.hooks.data = [fail](SESSION&, const std::string&, ULONG&) { fail(); };
     },
     [](SESSION&, NetTCP& client) { ClientSays(client, "bytes"); }, true, true},
    {"CmdRecv",
     [](SESSION& session, const FAIL& fail) { session.hooks.command = [fail](SESSION&, const String&) { fail(); }; },
     [](SESSION&, NetTCP& client) { ClientSays(client, "LIST\r\nNEVER SEEN\r\n"); }, true, true},
    {"CmdOverSizeRecv",
     [](SESSION& session, const FAIL& fail) { session.hooks.oversized = [fail](SESSION&, const String&) { fail(); }; },
     [](SESSION&, NetTCP& client) { ClientSays(client, std::string(1024, 'x')); }, true, true},
    {"Closing", [](SESSION& session, const FAIL& fail) { session.hooks.closing = [fail](SESSION&) { fail(); }; },
     [](SESSION&, NetTCP& client) { client.Close(); }, false, true},
    {"Closed", [](SESSION& session, const FAIL& fail) { session.hooks.closed = [fail](SESSION&) { fail(); }; },
     [](SESSION&, NetTCP& client) { client.Close(); }, false, true},
    {"ControlMsgRecv",
     [](SESSION& session, const FAIL& fail) {
         session.xSetPeriodicMilliSecs(0);
         session.hooks.control = [fail](SESSION&, const CTRLMSG&) { fail(); };
     },
     [](SESSION& session, NetTCP&) { session.SendControlMsg(5, "text"); }, true, true},
    {"ControlMsgDisconnectRecv",
     [](SESSION& session, const FAIL& fail) {
         session.xSetPeriodicMilliSecs(0);
         session.hooks.disconnect = [fail](SESSION&, const String&) { fail(); };
     },
     [](SESSION& session, NetTCP&) { session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "go"); }, false, true},
    {"WaitingForNetShouldWait",
     [](SESSION& session, const FAIL& fail) {
         session.hooks.command = [](SESSION& self, const String&) { self.xSendCommand(self.xGetMainSocket(), "200"); };
         session.hooks.shouldWait = [fail](SESSION&) -> bool {
             fail();
             return true;
         };
     },
     [](SESSION&, NetTCP& client) { ClientSays(client, "NOOP\r\n"); }, true, true},
    {"MainNetClosedAtTheEnd",
     [](SESSION& session, const FAIL& fail) {
         session.hooks.handle = [](SESSION&) {};
         session.hooks.mainNetClosed = [fail](SESSION&) { fail(); };
     },
     Nothing, false, false},
    {"MainNetClosedByThePeer",
     [](SESSION& session, const FAIL& fail) { session.hooks.mainNetClosed = [fail](SESSION&) { fail(); }; },
     [](SESSION&, NetTCP& client) { client.Close(); }, false, true},
    {"MainNetClosedByTheHost",
     [](SESSION& session, const FAIL& fail) {
         session.hooks.command = [](SESSION& self, const String&) { self.xClose(self.xGetMainSocket()); };
         session.hooks.mainNetClosed = [fail](SESSION&) { fail(); };
     },
     [](SESSION&, NetTCP& client) { ClientSays(client, "QUIT\r\n"); }, false, true},
    {"MainNetClosedByShutdown",
     [](SESSION& session, const FAIL& fail) {
         session.hooks.command = [](SESSION& self, const String&) { self.xShutdownAndClose(self.xGetMainSocket()); };
         session.hooks.mainNetClosed = [fail](SESSION&) { fail(); };
     },
     [](SESSION&, NetTCP& client) { ClientSays(client, "QUIT\r\n"); }, false, true},
    {"MainNetClosedByADisconnect",
     [](SESSION& session, const FAIL& fail) {
         session.xSetPeriodicMilliSecs(0);
         session.hooks.mainNetClosed = [fail](SESSION&) { fail(); };
     },
     [](SESSION& session, NetTCP&) { session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "go"); }, false, true},
};

class NetTCPSessionFailure : public SessionFixture
{
protected:
    /// Lines of the log with the addresses that the connection had.
    TEXTS LinesOf(const TEXTS& events, const std::string& failure) const
    {
        TEXTS lines;
        for (const std::string& event : events)
            lines.push_back(Line(m_state, event, "", event == "Session Failed" ? failure : ""));
        return lines;
    }
    void TakeState() { m_state = SESSION::xsGetNetState(m_served.get()); }
    static bool HasNote(const SESSION& session, const std::string& note)
    {
        const auto notes = session.GetNotes();
        return std::find(notes.begin(), notes.end(), note) != notes.end();
    }
    static std::size_t CountNotes(const SESSION& session, const std::string& note)
    {
        const auto notes = session.GetNotes();
        return static_cast<std::size_t>(std::count(notes.begin(), notes.end(), note));
    }

    NETSTATE m_state;
};

class NetTCPSessionFailureOf : public NetTCPSessionFailure,
                               public testing::WithParamInterface<std::tuple<HOOK, EXCEPTION>>
{
};

TEST_P(NetTCPSessionFailureOf, Hook_Throws_EndsItsSessionAloneInTheOrderOfAnyEnd)
{
    const auto& [hook, exception] = GetParam();
    // Another session of the same pool, which answers.
    std::unique_ptr<NetTCP> otherServed;
    std::unique_ptr<NetTCP> otherClient;
    Pair(otherServed, otherClient);
    CapturedEventLog otherLog;
    SESSION other(m_pool, m_cache, m_dataLog, otherLog, {8, 9}, 60, otherServed.release());
    other.hooks.command = [](SESSION& self, const String& command) {
        self.xSendCommand(self.xGetMainSocket(), command);
    };
    ASSERT_TRUE(other.xConstrStartSession());

    TakeState();
    SESSION& session = MakeServed();
    std::atomic<int> failures{0};
    hook.arm(session, [&, fail = exception.fail] {
        if (++failures == 1)
            fail();
    });
    ASSERT_TRUE(session.xConstrStartSession());
    hook.poke(session, *m_client);
    ASSERT_TRUE(WaitFor([&] { return session.IsComplete(); }, 20000));

    EXPECT_GE(failures, 1);
    EXPECT_TRUE(session.HasFailed());
    EXPECT_FALSE(session.xGetMainSocket()->IsConnected());
    EXPECT_EQ(Lines(), LinesOf(hook.failsFirst ? TEXTS{"Connection Accepted", "Session Failed", "Connection Closed"}
                                               : TEXTS{"Connection Accepted", "Connection Closed", "Session Failed"},
                               exception.text));
    EXPECT_EQ(CountNotes(session, "mainNetClosed"), 1U);
    EXPECT_EQ(CountNotes(session, "closed"), hook.isMonitored ? 1U : 0U);
    EXPECT_EQ(CountNotes(session, "end"), 1U);
    EXPECT_FALSE(HasNote(session, "command:NEVER SEEN"));
    EXPECT_EQ(Stored(C::CONNECTIONS_IN), 1U);
    EXPECT_NE(Status().GetEndTime(), TimePos());
    EXPECT_TRUE(!m_client->IsConnected() || ClientSeesEnd());

    SendAll(*otherClient, "still there\r\n");
    std::swap(m_client, otherClient);
    EXPECT_EQ(ClientReceives(13), "still there\r\n");
    EXPECT_FALSE(other.HasFailed());
    EXPECT_TRUE(other.IsBusy());
}

INSTANTIATE_TEST_SUITE_P(Each, NetTCPSessionFailureOf,
                         testing::Combine(testing::ValuesIn(HOOKS), testing::ValuesIn(EXCEPTIONS)),
                         [](const auto& param) {
                             return std::string(std::get<0>(param.param).name) + std::get<1>(param.param).name;
                         });

TEST_F(NetTCPSessionFailure, OutgoingSession_Throws_LogsItsEndToo)
{
    SESSION& session = Make(nullptr);
    session.hooks.handle = [](SESSION&) { throw std::runtime_error("no"); };
    Run();
    EXPECT_EQ(Lines(),
              (TEXTS{Line({}, "Session Started"), Line({}, "Session Failed", "", "no"), Line({}, "Session Ended")}));
}

TEST_F(NetTCPSessionFailure, OutgoingSession_ThrowsWhenItsConnectionIsClosed_LogsClosedAndItsEnd)
{
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    SESSION& session = Make(nullptr);
    NETSTATE state;
    session.hooks.handle = [&](SESSION& self) {
        ASSERT_TRUE(self.xConnect(self.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
        state = self.xGetMainNetState();
    };
    session.hooks.mainNetClosed = [](SESSION&) { throw std::runtime_error("no"); };
    Run();
    const TEXTS lines = Lines();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[2], Line(state, "Connection Closed"));
    EXPECT_EQ(lines[3], Line(state, "Session Failed", "", "no")); // the ends it had
    EXPECT_EQ(lines[4], Line({}, "Session Ended"));
}

TEST_F(NetTCPSessionFailure, TwoHooks_Throw_EachPartHasItsLine)
{
    TakeState();
    SESSION& session = MakeServed();
    session.hooks.handle = [](SESSION&) { throw std::runtime_error("first"); };
    session.hooks.end = [](SESSION&) { throw SilentException(); };
    session.hooks.mainNetClosed = [](SESSION&) { throw std::runtime_error("third"); };
    Run();
    EXPECT_EQ(Lines(), (TEXTS{Line(m_state, "Connection Accepted"), Line(m_state, "Session Failed", "", "first"),
                              Line(m_state, "Session Failed", "", "Exception without a text"),
                              Line(m_state, "Connection Closed"), Line(m_state, "Session Failed", "", "third")}));
}

TEST_F(NetTCPSessionFailure, HookedLog_Failure_GoesThereToo)
{
    CapturedEventLog hooked;
    TakeState();
    SESSION& session = MakeServed();
    session.hooks.handle = [&](SESSION& self) {
        self.xSetLogHookNormalOn(self.xGetMainSocket(), hooked);
        throw std::runtime_error("no");
    };
    Run();
    EXPECT_EQ(Lines(hooked), LinesOf({"Connection Accepted", "Session Failed", "Connection Closed"}, "no"));
}

TEST_F(NetTCPSessionFailure, Log_ThrowsItself_TheSessionEndsAllTheSame)
{
    class ThrowingLog : public EventLog
    {
    public:
        void PrintIPNormal(const EventLogSessionID&, NetIP, USHORT, NetIP, USHORT, const String&, const String&,
                           const String&) override
        {
            throw std::runtime_error("the log is full");
        }
    } log;
    SESSION session(m_pool, m_cache, m_dataLog, log, ID, 60, m_served.release());
    ASSERT_TRUE(session.xConstrStartSession());
    ASSERT_TRUE(WaitFor([&] { return session.IsComplete(); }));
    EXPECT_TRUE(session.HasFailed());
    EXPECT_TRUE(ClientSeesEnd());
    EXPECT_EQ(session.GetNotes(), (TEXTS{"end", "mainNetClosed"}));
    EXPECT_EQ(Stored(C::CONNECTIONS_IN), 1U);
}

TEST_F(NetTCPSessionFailure, MainNetClosed_ThrowsWithinXClose_ClosedAndLoggedBeforeTheCallerSeesIt)
{
    TakeState();
    SESSION& session = MakeServed();
    session.hooks.mainNetClosed = [](SESSION&) { throw std::bad_alloc(); };
    EXPECT_THROW(session.xClose(session.xGetMainSocket()), std::bad_alloc);
    EXPECT_FALSE(session.xGetMainSocket()->IsConnected());
    EXPECT_EQ(Lines(), (TEXTS{Line(m_state, "Connection Closed")}));
}

TEST_F(NetTCPSessionFailure, MainNetClosed_ThrowsAfterAFailedSend_ClosedAndLoggedOnce)
{
    TakeState();
    SESSION& session = MakeScripted();
    const NETSTATE state = SESSION::xsGetNetState(m_script);
    m_script->failAfterSends = 0;
    session.hooks.mainNetClosed = [](SESSION&) { throw std::runtime_error("no"); };
    EXPECT_THROW(session.xSendCommand(m_script, "200"), std::runtime_error);
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Connection Closed")}));
    EXPECT_EQ(CountNotes(session, "mainNetClosed"), 1U);
}

TEST_F(NetTCPSessionFailure, SendPurgeSendBuf_HookThrows_TheBufferIsEmptyAllTheSame)
{
    SESSION& session = MakeScripted();
    session.m_bufferedMode = true;
    session.xSetBufMode(m_script, true);
    ASSERT_TRUE(session.xSendCommand(m_script, "200"));
    session.hooks.shouldWait = [](SESSION&) -> bool { throw 1; };
    EXPECT_THROW(session.xSendPurgeSendBuf(m_script), int);
    session.hooks.shouldWait = nullptr;
    const std::size_t sends = m_script->sends;
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sends, sends);
}

TEST_F(NetTCPSessionFailure, Disconnect_HandlerThrows_NoneWaitsAfterwards)
{
    SESSION& session = MakeServed();
    session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "go");
    CTRLMSG msg;
    session.xProcessMsgsAndTakeNext(msg);
    session.hooks.disconnect = [](SESSION&, const String&) { throw 1; };
    EXPECT_THROW(session.xPerformDisconnectMsg(), int);
    EXPECT_FALSE(session.xCheckForDisconnectMsg());
    EXPECT_FALSE(session.xGetMainSocket()->IsConnected());
}

TEST_F(NetTCPSessionFailure, Disconnect_HandlerTakesTheNextOne_ItsTextStaysWhatItWas)
{
    SESSION& session = MakeServed();
    session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "first, a text that is longer than a small one");
    session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "second, a text that is longer than a small one");
    CTRLMSG msg;
    session.xProcessMsgsAndTakeNext(msg);
    std::string seen;
    session.hooks.disconnect = [&](SESSION& self, const String& text) {
        self.xProcessMsgsAndTakeNext(msg);
        seen = text.str();
    };
    session.xPerformDisconnectMsg();
    EXPECT_EQ(seen, "first, a text that is longer than a small one");
}

} // namespace

} // namespace kqlib::test
