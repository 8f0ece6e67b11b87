// Tests of NetTCPSessionControllableSSL: requests, their cancelling and their order, time-outs, state.
#include "net/session/NetTCPSessionControllableSSL.h"

#include "net/sockets/NetTCPSSL.h"
#include "tests/net/session/SessionFixture.h"
#include "tests/peers/PrivateMember.h"

#include <gmock/gmock.h>

#include <future>
#include <mutex>
#include <thread>

namespace kqlib::test {

/// The id of the next request.
struct NextRequest
{
    friend std::uint32_t NetTCPSessionControllableSSL::*GetPrivateMember(NextRequest);
};
template struct PrivateMember<NextRequest, &NetTCPSessionControllableSSL::m_nextReq>;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Controllable = NetTCPSessionControllableSSL;

/// Notes what it is called for. Its requests run on its thread; the test holds and releases them.
class RequestHost : public Controllable
{
public:
    /// Codes of requests.
    enum CODE : ULONG
    {
        QUICK = 1,
        HELD = 2,     ///< runs until released
        OBEDIENT = 3, ///< runs until cancelled or the session ends
        SENDING = 4   ///< sends much to a peer that does not read
    };

    RequestHost(ThreadPool& pool, NetDNSCache& cache, DataLogTime& dataLog, EventLog& log, EventLogSessionID id,
                ULONG timeOutSecs, NetTCPSSL* socket)
        : NetTCPSessionControllableSSL(pool, cache, dataLog, log, id, timeOutSecs, socket)
    {
    }
    ~RequestHost() override { xDeconstrEndSession(); }

    bool Start() { return xConstrStartSession(); }
    ULONG Queue(ULONG code, bool visible = true)
    {
        xLockCtrlData();
        const ULONG id = xAddReq(code, visible);
        xUnlockCtrlData();
        return id;
    }
    ULONG CountVisible()
    {
        xLockCtrlData();
        const ULONG count = xVisibleReqsCount();
        xUnlockCtrlData();
        return count;
    }
    void Release() { m_released = true; }
    TEXTS GetNotes() const
    {
        const std::lock_guard lock(m_mutex);
        return m_notes;
    }
    bool WaitForNote(const std::string& note) const
    {
        return WaitFor([&] {
            const TEXTS notes = GetNotes();
            return std::find(notes.begin(), notes.end(), note) != notes.end();
        });
    }

    using Controllable::xAddReq;
    using Controllable::xGetMainSocket;
    using Controllable::xIsCurrentReqCancelled;
    using Controllable::xLockCtrlData;
    using Controllable::xSetCurrentActionDetail;
    using Controllable::xSetTimeOutPrevent;
    using Controllable::xsGetNetState;
    using Controllable::xShouldReqContinue;
    using Controllable::xShouldReqEnd;
    using Controllable::xUnlockCtrlData;
    using Controllable::xUpdateState;
    using Controllable::xWaitingForNetShouldWait;

    bool resetOnTimeOut = false;        ///< before Start
    bool resetOnTick = false;           ///< before Start
    std::atomic<bool> lastResult{true}; ///< of the last SENDING
    std::atomic<ULONG> ticks{0};        ///< calls of xHandleCtrlTimeOutPrevent
    std::atomic<ULONG> handled{0};      ///< calls of all three request handlers below
    std::atomic<ULONG> cancelled{0};
    std::atomic<ULONG> completed{0};
    bool noteAll = true;    ///< before Start
    std::string throwingIn; ///< the note, or "tick", with which an int is thrown; before Start

protected:
    void xHandleCtrlReq(ULONG id, ULONG code, bool& unused) override
    {
        EXPECT_FALSE(unused);
        unused = true; // nobody reads it
        xNote("begin", id);
        if (code == HELD)
            WaitFor([this] { return m_released.load(); });
        else if (code == OBEDIENT)
            WaitFor([this] { return xShouldReqEnd(); });
        else if (code == SENDING)
            lastResult = xSendMuch();
        if (xIsCurrentReqCancelled(false))
            xNote("saw cancel", id);
        ++handled;
        xNote("end", id);
    }
    void xHandleCtrlReqCancelled(ULONG id, ULONG, bool& unused) override
    {
        EXPECT_FALSE(unused);
        unused = true;
        ++cancelled;
        xNote("cancelled", id);
    }
    void xHandleCtrlTimedOut() override
    {
        xNote("timed out", 0);
        if (resetOnTimeOut)
            xResetTimeOut();
    }
    void xHandleCtrlReqComplete(ULONG id, ULONG) override
    {
        ++completed;
        xNote("complete", id);
    }
    void xHandleCtrlTimeOutPrevent() override
    {
        if (resetOnTick)
            xResetTimeOut();
        ++ticks;
        if (throwingIn == "tick")
            throw 42;
    }

private:
    bool xSendMuch()
    {
        const std::vector<unsigned char> much(64 << 20, 'm');
        return xSendAllData(xGetMainSocket(), much.data(), static_cast<ULONG>(much.size()));
    }
    void xNote(const std::string& what, ULONG id)
    {
        if (!noteAll)
            return;
        const std::string note = what + " " + std::to_string(id);
        {
            const std::lock_guard lock(m_mutex);
            m_notes.push_back(note);
        }
        if (note == throwingIn)
            throw 42;
    }

    std::atomic<bool> m_released{false};
    mutable std::mutex m_mutex;
    TEXTS m_notes;
};

/// A host that has only what it must have.
class PlainRequestHost : public Controllable
{
public:
    PlainRequestHost(ThreadPool& pool, NetDNSCache& cache, DataLogTime& dataLog, EventLog& log, EventLogSessionID id,
                     NetTCPSSL* socket)
        : NetTCPSessionControllableSSL(pool, cache, dataLog, log, id, 0, socket)
    {
    }
    ~PlainRequestHost() override { xDeconstrEndSession(); }

    using Controllable::xAddReq;
    using Controllable::xConstrStartSession;
    using Controllable::xLockCtrlData;
    using Controllable::xSetCurrentAction;
    using Controllable::xSetCurrentDetail;
    using Controllable::xSetTimeOutPrevent;
    using Controllable::xShouldSessionContinue;
    using Controllable::xUnlockCtrlData;

    std::atomic<ULONG> handled{0};
    std::atomic<bool> timedOut{false};

protected:
    void xHandleCtrlReq(ULONG, ULONG, bool&) override { ++handled; }
    void xHandleCtrlReqCancelled(ULONG, ULONG, bool&) override {}
    void xHandleCtrlTimedOut() override { timedOut = true; }
};

class NetTCPSessionControllableSSLTest : public SessionFixture
{
protected:
    void SetUp() override
    {
        SessionFixture::SetUp();
        MakeHost();
    }
    void TearDown() override
    {
        m_host.reset();
        SessionFixture::TearDown();
    }

    void MakeHost(ULONG timeOutSecs = 60)
    {
        m_host.reset();
        Pair(m_served, m_client);
        auto socket = std::make_unique<NetTCPSSL>(NetIP::LOOKUP_ANY);
        socket->Upgrade(*m_served);
        m_host = std::make_unique<RequestHost>(m_pool, m_cache, m_dataLog, m_log, ID, timeOutSecs, socket.release());
    }
    /// Waits until the idle session has gone round several times with the tick as it is.
    static bool WaitTurns()
    {
        const std::size_t asked = MovedTick::sGetAskedCount();
        return WaitFor([&] { return MovedTick::sGetAskedCount() > asked + 10; });
    }
    bool WaitComplete() const
    {
        return WaitFor([this] { return m_host->IsComplete(); }, 20000);
    }

    std::unique_ptr<RequestHost> m_host;
};

TEST_F(NetTCPSessionControllableSSLTest, AddReq_ControlLockHeldElsewhere_DoesNotWait_KeptOnPurpose)
{
    m_host->xLockCtrlData();
    std::future<ULONG> id =
        std::async(std::launch::async, [this] { return m_host->xAddReq(RequestHost::QUICK, true); });
    EXPECT_EQ(id.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    m_host->xUnlockCtrlData();
    EXPECT_EQ(id.get(), 1U);
}

TEST_F(NetTCPSessionControllableSSLTest, AddReq_Ids_From1Upwards)
{
    EXPECT_EQ(m_host->Queue(RequestHost::QUICK), 1U);
    EXPECT_EQ(m_host->Queue(RequestHost::QUICK, false), 2U);
    EXPECT_EQ(m_host->Queue(RequestHost::QUICK), 3U);
    EXPECT_EQ(m_host->CountVisible(), 2U);
    EXPECT_EQ(Controllable::INVALID_REQID, 0xFFFFFFFFU);
}

TEST_F(NetTCPSessionControllableSSLTest, AddReq_IdsNear2To32_GoOnAt0AndEachCanBeCancelled)
{
    static_cast<Controllable&>(*m_host).*GetPrivateMember(NextRequest()) = 0xFFFFFFFEU;
    EXPECT_EQ(m_host->Queue(RequestHost::QUICK), 0xFFFFFFFEU);
    EXPECT_EQ(m_host->Queue(RequestHost::OBEDIENT), Controllable::INVALID_REQID);
    EXPECT_EQ(m_host->Queue(RequestHost::QUICK), 0U);
    EXPECT_EQ(m_host->Queue(RequestHost::OBEDIENT), 1U);
    m_host->CancelReq(0);
    ASSERT_TRUE(m_host->Start());
    ASSERT_TRUE(m_host->WaitForNote("begin 4294967295"));
    m_host->CancelReq(Controllable::INVALID_REQID);
    ASSERT_TRUE(m_host->WaitForNote("begin 1"));
    EXPECT_FALSE(m_host->xIsCurrentReqCancelled(false));
    m_host->CancelReq(1);
    ASSERT_TRUE(m_host->WaitForNote("complete 1"));
    EXPECT_THAT(m_host->GetNotes(),
                ElementsAre("begin 4294967294", "end 4294967294", "complete 4294967294", "begin 4294967295",
                            "saw cancel 4294967295", "end 4294967295", "complete 4294967295", "cancelled 0",
                            "complete 0", "begin 1", "saw cancel 1", "end 1", "complete 1"));
}

TEST_F(NetTCPSessionControllableSSLTest, CancelReq_Id2To32Minus1WhileQueued_DisposedOf)
{
    static_cast<Controllable&>(*m_host).*GetPrivateMember(NextRequest()) = 0xFFFFFFFFU;
    const ULONG id = m_host->Queue(RequestHost::QUICK);
    m_host->CancelReq(id);
    EXPECT_FALSE(m_host->xIsCurrentReqCancelled(false)) << "nothing runs";
    ASSERT_TRUE(m_host->Start());
    ASSERT_TRUE(m_host->WaitForNote("complete 4294967295"));
    EXPECT_THAT(m_host->GetNotes(), ElementsAre("cancelled 4294967295", "complete 4294967295"));
}

TEST_F(NetTCPSessionControllableSSLTest, Requests_InOrder_EachCompletedWhenVisible)
{
    m_host->Queue(RequestHost::QUICK);
    m_host->Queue(RequestHost::QUICK, false);
    m_host->Queue(RequestHost::QUICK);
    ASSERT_TRUE(m_host->Start());
    m_host->WaitForAllReqsDone();
    EXPECT_TRUE(m_host->WaitForNote("complete 3"));
    EXPECT_THAT(m_host->GetNotes(),
                ElementsAre("begin 1", "end 1", "complete 1", "begin 2", "end 2", "begin 3", "end 3", "complete 3"));
    EXPECT_TRUE(m_host->IsBusy()) << "idle, not ended";
}

TEST_F(NetTCPSessionControllableSSLTest, CancelReq_Running_SeenUntilItEndsAndClearedForTheNext)
{
    ASSERT_TRUE(m_host->Start());
    const ULONG running = m_host->Queue(RequestHost::OBEDIENT);
    const ULONG next = m_host->Queue(RequestHost::HELD);
    ASSERT_TRUE(m_host->WaitForNote("begin 1"));
    EXPECT_FALSE(m_host->xIsCurrentReqCancelled(false));
    m_host->CancelReq(running);
    ASSERT_TRUE(m_host->WaitForNote("begin 2"));
    EXPECT_THAT(m_host->GetNotes(), ElementsAre("begin 1", "saw cancel 1", "end 1", "complete 1", "begin 2"));
    EXPECT_FALSE(m_host->xIsCurrentReqCancelled(false));
    EXPECT_FALSE(m_host->xShouldReqEnd());
    EXPECT_TRUE(m_host->xShouldReqContinue());
    m_host->CancelReq(next);
    EXPECT_TRUE(m_host->xShouldReqEnd());
    EXPECT_FALSE(m_host->xShouldReqContinue());
    EXPECT_FALSE(m_host->xWaitingForNetShouldWait());
    m_host->Release();
    m_host->WaitForAllReqsDone();
    EXPECT_TRUE(m_host->WaitForNote("complete 2"));
    EXPECT_FALSE(m_host->xShouldReqEnd());
}

TEST_F(NetTCPSessionControllableSSLTest, CancelReq_Queued_DisposedOfAndCompletedWhenVisible)
{
    m_host->Queue(RequestHost::QUICK);
    m_host->CancelReq(m_host->Queue(RequestHost::QUICK));
    m_host->CancelReq(m_host->Queue(RequestHost::QUICK, false));
    ASSERT_TRUE(m_host->Start());
    ASSERT_TRUE(m_host->WaitForNote("cancelled 3"));
    EXPECT_THAT(m_host->GetNotes(),
                ElementsAre("begin 1", "end 1", "complete 1", "cancelled 2", "complete 2", "cancelled 3"));
}

TEST_F(NetTCPSessionControllableSSLTest, CancelReq_UnknownId_Nothing)
{
    m_host->Queue(RequestHost::QUICK);
    for (const ULONG id : {ULONG{0}, ULONG{2}, ULONG{Controllable::INVALID_REQID}})
        m_host->CancelReq(id);
    EXPECT_FALSE(m_host->xIsCurrentReqCancelled(false));
    ASSERT_TRUE(m_host->Start());
    EXPECT_TRUE(m_host->WaitForNote("complete 1"));
    EXPECT_THAT(m_host->GetNotes(), ElementsAre("begin 1", "end 1", "complete 1"));
    m_host->CancelReq(1); // done already
    EXPECT_FALSE(m_host->xIsCurrentReqCancelled(false));
}

TEST_F(NetTCPSessionControllableSSLTest, CancelReq_WhileSending_SendStopsPromptly)
{
    ASSERT_TRUE(m_host->Start());
    const ULONG id = m_host->Queue(RequestHost::SENDING);
    ASSERT_TRUE(m_host->WaitForNote("begin 1"));
    EXPECT_FALSE(ClientReceives(1).empty());
    m_host->CancelReq(id);
    EXPECT_TRUE(m_host->WaitForNote("complete 1"));
    EXPECT_FALSE(m_host->lastResult);
    EXPECT_TRUE(m_host->IsBusy());
}

TEST_F(NetTCPSessionControllableSSLTest, CancelAllReqs_RunningAndQueued_AllOfThem)
{
    ASSERT_TRUE(m_host->Start());
    for (int count = 0; count < 4; ++count)
        m_host->Queue(RequestHost::OBEDIENT);
    ASSERT_TRUE(m_host->WaitForNote("begin 1"));
    m_host->CancelAllReqs();
    m_host->WaitForAllReqsDone();
    EXPECT_TRUE(m_host->WaitForNote("complete 4"));
    EXPECT_THAT(m_host->GetNotes(),
                ElementsAre("begin 1", "saw cancel 1", "end 1", "complete 1", "cancelled 2", "complete 2",
                            "cancelled 3", "complete 3", "cancelled 4", "complete 4"));
}

TEST_F(NetTCPSessionControllableSSLTest, CancelAllReqs_NothingRunning_FlagIsSetAllTheSame_KeptOnPurpose)
{
    m_host->CancelAllReqs();
    EXPECT_TRUE(m_host->xIsCurrentReqCancelled(false));
    EXPECT_TRUE(m_host->xShouldReqEnd());
    EXPECT_FALSE(m_host->xWaitingForNetShouldWait());
    // Taking the next request clears it.
    m_host->Queue(RequestHost::QUICK);
    ASSERT_TRUE(m_host->Start());
    EXPECT_TRUE(m_host->WaitForNote("complete 1"));
    EXPECT_THAT(m_host->GetNotes(), ElementsAre("begin 1", "end 1", "complete 1"));
    EXPECT_FALSE(m_host->xIsCurrentReqCancelled(false));
}

TEST_F(NetTCPSessionControllableSSLTest, IsCurrentReqCancelled_WithinTheLock_Answers)
{
    m_host->CancelAllReqs();
    m_host->xLockCtrlData();
    EXPECT_TRUE(m_host->xIsCurrentReqCancelled(true));
    m_host->xUnlockCtrlData();
}

TEST_F(NetTCPSessionControllableSSLTest, WaitForAllReqsDone_OnlyInvisible_AtOnce)
{
    ASSERT_TRUE(m_host->Start());
    m_host->Queue(RequestHost::HELD, false);
    ASSERT_TRUE(m_host->WaitForNote("begin 1"));
    EXPECT_FALSE(m_host->IsHandlingReqs());
    m_host->WaitForAllReqsDone(); // would wait for ever
    m_host->Queue(RequestHost::QUICK);
    EXPECT_TRUE(m_host->IsHandlingReqs());
    m_host->Release();
    m_host->WaitForAllReqsDone();
    EXPECT_FALSE(m_host->IsHandlingReqs());
}

TEST_F(NetTCPSessionControllableSSLTest, IsHandlingReqs_ThreadNotRunning_False)
{
    m_host->Queue(RequestHost::QUICK);
    EXPECT_EQ(m_host->CountVisible(), 1U);
    EXPECT_FALSE(m_host->IsHandlingReqs());
    m_host->WaitForAllReqsDone();
}

TEST_F(NetTCPSessionControllableSSLTest, IsHandlingReqs_OneRuns_Counts)
{
    ASSERT_TRUE(m_host->Start());
    m_host->Queue(RequestHost::HELD);
    ASSERT_TRUE(m_host->WaitForNote("begin 1"));
    EXPECT_TRUE(m_host->IsHandlingReqs());
    EXPECT_EQ(m_host->CountVisible(), 1U);
    m_host->Release();
    m_host->WaitForAllReqsDone();
}

TEST_F(NetTCPSessionControllableSSLTest, ForceComplete_FullQueue_ReturnsAfterAllAreHandled)
{
    m_host->noteAll = false;
    m_host->Queue(RequestHost::QUICK);
    ASSERT_TRUE(m_host->Start());
    m_host->WaitForAllReqsDone(); // a thread that has not begun would skip the requests
    for (int count = 1; count < 1000; ++count)
        m_host->Queue(RequestHost::QUICK, count % 2 == 0);
    m_host->Queue(RequestHost::HELD, false);
    m_host->ForceCompleteAsync();
    m_host->Release();
    m_host->ForceComplete();
    EXPECT_TRUE(m_host->IsComplete());
    EXPECT_EQ(m_host->handled, 1001U);
    EXPECT_EQ(m_host->completed, 500U);
    EXPECT_EQ(m_host->CountVisible(), 0U);
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionControllableSSLTest, ForceComplete_WhileOneRuns_ItSeesTheEnd)
{
    ASSERT_TRUE(m_host->Start());
    m_host->Queue(RequestHost::OBEDIENT);
    m_host->Queue(RequestHost::OBEDIENT);
    ASSERT_TRUE(m_host->WaitForNote("begin 1"));
    m_host->ForceComplete();
    EXPECT_THAT(m_host->GetNotes(), ElementsAre("begin 1", "end 1", "complete 1", "begin 2", "end 2", "complete 2"));
}

TEST_F(NetTCPSessionControllableSSLTest, Request_HandlerThrows_ItIsDoneAndTheSessionEnds)
{
    m_host->throwingIn = "begin 2";
    for (int count = 0; count < 3; ++count)
        m_host->Queue(RequestHost::QUICK);
    ASSERT_TRUE(m_host->Start());
    ASSERT_TRUE(WaitComplete());
    EXPECT_TRUE(m_host->HasFailed());
    EXPECT_THAT(m_host->GetNotes(), ElementsAre("begin 1", "end 1", "complete 1", "begin 2", "complete 2"));
    EXPECT_EQ(m_host->CountVisible(), 1U) << "the third one is left";
    EXPECT_FALSE(m_host->IsHandlingReqs());
    m_host->WaitForAllReqsDone();
    m_host->CancelReq(Controllable::INVALID_REQID); // runs no more
    EXPECT_FALSE(m_host->xIsCurrentReqCancelled(false));
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionControllableSSLTest, Handlers_EachThrows_TheSessionEndsWithItsLines)
{
    const struct
    {
        const char* throwingIn;
        ULONG timeOutSecs;
    } cases[] = {{"begin 1", 60},     {"end 1", 60},      {"complete 1", 60},
                 {"cancelled 1", 60}, {"timed out 0", 0}, {"tick", 60}};
    for (const auto& [throwingIn, timeOutSecs] : cases) {
        SCOPED_TRACE(throwingIn);
        MakeHost(timeOutSecs);
        m_log.Clear();
        const NETSTATE state = RequestHost::xsGetNetState(m_host->xGetMainSocket());
        m_host->throwingIn = throwingIn;
        const bool isTick = m_host->throwingIn == "tick";
        if (isTick)
            m_host->xSetTimeOutPrevent(true, 0);
        const ULONG id = isTick || timeOutSecs == 0 ? Controllable::INVALID_REQID : m_host->Queue(RequestHost::QUICK);
        if (m_host->throwingIn == "cancelled 1")
            m_host->CancelReq(id);
        ASSERT_TRUE(m_host->Start());
        ASSERT_TRUE(WaitComplete());
        EXPECT_TRUE(m_host->HasFailed());
        EXPECT_EQ(m_host->CountVisible(), 0U);
        EXPECT_EQ(m_host->completed, id == 1 ? 1U : 0U);
        EXPECT_THAT(Lines(), ElementsAre(Line(state, "Connection Accepted"),
                                         Line(state, "Session Failed", "", "Exception of an unknown kind"),
                                         Line(state, "Connection Closed")));
        EXPECT_TRUE(ClientSeesEnd());
    }
}

TEST_F(NetTCPSessionControllableSSLTest, TimeOut_Idle_AskedOnceAndEnds)
{
    MakeHost(0);
    ASSERT_TRUE(m_host->Start());
    EXPECT_TRUE(WaitComplete());
    EXPECT_THAT(m_host->GetNotes(), ElementsAre("timed out 0"));
}

TEST_F(NetTCPSessionControllableSSLTest, TimeOut_ResetByTheHandler_GoesOn)
{
    MovedTick tick(100);
    MakeHost(10);
    m_host->resetOnTimeOut = true;
    ASSERT_TRUE(m_host->Start());
    MovedTick::sAdvance(10000);
    ASSERT_TRUE(m_host->WaitForNote("timed out 0"));
    EXPECT_FALSE(m_host->IsComplete());
    m_host->Queue(RequestHost::QUICK);
    EXPECT_TRUE(m_host->WaitForNote("complete 1"));
    EXPECT_THAT(m_host->GetNotes(), ElementsAre("timed out 0", "begin 1", "end 1", "complete 1"));
}

TEST_F(NetTCPSessionControllableSSLTest, TimeOut_RequestsQueued_HandledFirst_KeptOnPurpose)
{
    MakeHost(0);
    for (int count = 0; count < 3; ++count)
        m_host->Queue(RequestHost::QUICK);
    ASSERT_TRUE(m_host->Start());
    EXPECT_TRUE(WaitComplete());
    EXPECT_EQ(m_host->handled, 3U);
    ASSERT_FALSE(m_host->GetNotes().empty());
    EXPECT_EQ(m_host->GetNotes().back(), "timed out 0");
}

TEST_F(NetTCPSessionControllableSSLTest, TimeOutPrevent_TicksWhileIdle_AndNotWhenOff)
{
    MovedTick tick(100);
    MakeHost();
    m_host->xSetTimeOutPrevent(true, 5000);
    ASSERT_TRUE(m_host->Start());
    for (ULONG count = 1; count <= 3; ++count) {
        MovedTick::sAdvance(4999);
        ASSERT_TRUE(WaitTurns());
        EXPECT_EQ(m_host->ticks, count - 1);
        MovedTick::sAdvance(1);
        ASSERT_TRUE(WaitFor([&] { return m_host->ticks == count; }));
    }
    m_host->xSetTimeOutPrevent(false, 0);
    MovedTick::sAdvance(6000);
    ASSERT_TRUE(WaitTurns());
    EXPECT_EQ(m_host->ticks, 3U);
}

TEST_F(NetTCPSessionControllableSSLTest, TimeOutPrevent_RequestHandled_StartsAnew)
{
    MovedTick tick(100);
    MakeHost();
    m_host->xSetTimeOutPrevent(true, 5000);
    ASSERT_TRUE(m_host->Start());
    MovedTick::sAdvance(4000);
    m_host->Queue(RequestHost::QUICK);
    ASSERT_TRUE(m_host->WaitForNote("complete 1"));
    MovedTick::sAdvance(4999);
    ASSERT_TRUE(WaitTurns());
    EXPECT_EQ(m_host->ticks, 0U);
    MovedTick::sAdvance(1);
    EXPECT_TRUE(WaitFor([&] { return m_host->ticks == 1; }));
}

// An idle connection is kept alive although both have passed: the tick comes first and skips that turn's time-out.
TEST_F(NetTCPSessionControllableSSLTest, TimeOutPrevent_TimeOutPassedTogether_TheTickComesFirst)
{
    MovedTick tick(100);
    MakeHost(5);
    m_host->resetOnTick = true;
    m_host->xSetTimeOutPrevent(true, 5000);
    ASSERT_TRUE(m_host->Start());
    for (ULONG count = 1; count <= 3; ++count) {
        MovedTick::sAdvance(5000);
        ASSERT_TRUE(WaitFor([&] { return m_host->ticks == count; }));
        ASSERT_TRUE(WaitTurns());
    }
    EXPECT_TRUE(m_host->IsBusy());
    EXPECT_THAT(m_host->GetNotes(), IsEmpty());
}

// Its time-out has passed from the start: only the ticks keep it from looking.
TEST_F(NetTCPSessionControllableSSLTest, TimeOutPrevent_IntervalZeroAndNoHandler_RequestsGoOnUntilItIsOff)
{
    PlainRequestHost host(m_pool, m_cache, m_dataLog, m_log, ID, new NetTCPSSL(NetIP::LOOKUP_ANY));
    host.xSetTimeOutPrevent(true, 0);
    ASSERT_TRUE(host.xConstrStartSession());
    for (ULONG done = 1; done <= 3; ++done) {
        host.xLockCtrlData();
        host.xAddReq(1, true);
        host.xUnlockCtrlData();
        EXPECT_TRUE(WaitFor([&] { return host.handled == done; }));
    }
    host.WaitForAllReqsDone();
    EXPECT_TRUE(host.IsBusy());
    EXPECT_FALSE(host.timedOut);
    host.xSetTimeOutPrevent(false, 0);
    EXPECT_TRUE(WaitFor([&] { return host.IsComplete(); }, 20000));
    EXPECT_TRUE(host.timedOut);
}

TEST_F(NetTCPSessionControllableSSLTest, SetCurrentActionAndDetail_EachAlone_TheOtherAsTheSessionHasIt)
{
    PlainRequestHost host(m_pool, m_cache, m_dataLog, m_log, ID, new NetTCPSSL(NetIP::LOOKUP_ANY));
    NetSessionLiveStatus live;
    host.xSetCurrentDetail("a file");
    host.GetStatus(live);
    EXPECT_EQ(live.GetDetail(), "a file");
    EXPECT_EQ(live.GetAction(), 0U);
    host.xSetCurrentAction(5);
    host.GetStatus(live);
    EXPECT_EQ(live.GetAction(), 5U);
    EXPECT_EQ(live.GetDetail(), "a file");
    EXPECT_TRUE(host.xShouldSessionContinue());
    host.ForceCompleteAsync();
    EXPECT_FALSE(host.xShouldSessionContinue());
}

TEST_F(NetTCPSessionControllableSSLTest, DisconnectMessage_Idle_DoesNothing_KeptOnPurpose)
{
    ASSERT_TRUE(m_host->Start());
    m_host->SendControlMsg(NetTCPSession::MSG_DISCONNECT, "bye");
    m_host->Queue(RequestHost::QUICK);
    EXPECT_TRUE(m_host->WaitForNote("complete 1"));
    EXPECT_TRUE(m_host->IsBusy());
    EXPECT_TRUE(m_host->xGetMainSocket()->IsConnected());
}

TEST_F(NetTCPSessionControllableSSLTest, GetState_AfterUpdates_TellsTheLast)
{
    Controllable::STATE state{true, true, {}, 7};
    m_host->GetState(state);
    EXPECT_FALSE(state.connected);
    EXPECT_FALSE(state.secured);
    EXPECT_EQ(state.action, 0U);

    m_host->xUpdateState(true, m_host->xGetMainSocket(), true);
    m_host->GetState(state);
    EXPECT_TRUE(state.connected);
    EXPECT_TRUE(state.secured);
    EXPECT_EQ(state.netState.remotePort, m_client->GetLocalPort());
    EXPECT_EQ(state.netState.localPort, m_client->GetRemotePort());

    m_host->xLockCtrlData();
    m_host->xUpdateState(false, m_host->xGetMainSocket(), false, 42);
    m_host->xUnlockCtrlData();
    m_host->GetState(state);
    EXPECT_TRUE(state.connected);
    EXPECT_FALSE(state.secured);
    EXPECT_EQ(state.action, 42U);
    NetSessionLiveStatus live;
    m_host->GetStatus(live);
    EXPECT_EQ(live.GetAction(), 42U);
    EXPECT_EQ(live.GetDetail(), String());

    NetTCPSSL closed(NetIP::LOOKUP_ANY);
    m_host->xUpdateState(true, &closed, true);
    m_host->GetState(state);
    EXPECT_FALSE(state.connected);
    EXPECT_FALSE(state.secured) << "not connected, whatever is said";
    EXPECT_EQ(state.action, 42U) << "kept";

    m_host->xUpdateState(true, Controllable::STATE{true, false, {}, 3});
    m_host->GetState(state);
    EXPECT_TRUE(state.connected);
    EXPECT_EQ(state.action, 3U);
}

TEST_F(NetTCPSessionControllableSSLTest, UpdateState_WithAnAction_EmptiesTheDetail)
{
    const auto liveDetail = [this] {
        NetSessionLiveStatus live;
        m_host->GetStatus(live);
        return live.GetDetail();
    };
    m_host->xSetCurrentActionDetail(7, "/old.file");
    ASSERT_EQ(liveDetail(), "/old.file");
    m_host->xUpdateState(true, m_host->xGetMainSocket(), true);
    EXPECT_EQ(liveDetail(), "/old.file") << "only the form with an action";
    m_host->xUpdateState(true, m_host->xGetMainSocket(), true, 8);
    EXPECT_EQ(liveDetail(), "");
}

TEST_F(NetTCPSessionControllableSSLTest, Idle_NothingQueued_PausesInEachTurn)
{
    constexpr std::size_t TURNS = 50;
    const MovedTick tick(0);
    MakeHost();
    ASSERT_TRUE(m_host->Start());
    ASSERT_TRUE(WaitTurns());
    const std::size_t before = MovedTick::sGetAskedCount();
    // Each turn asks for the tick twice: for the tick handler, and for the time-out.
    ExpectPauses(TURNS,
                 [&] { EXPECT_TRUE(WaitFor([&] { return MovedTick::sGetAskedCount() >= before + 2 * TURNS; })); });
}

TEST_F(NetTCPSessionControllableSSLTest, SixteenThreads_QueueAndCancel_EveryRequestEndsOnce)
{
    constexpr ULONG THREADS = 16;
    constexpr ULONG EACH = 200;
    m_host->noteAll = false;
    ASSERT_TRUE(m_host->Start());
    std::vector<std::thread> threads;
    std::mutex mutex;
    std::vector<ULONG> ids;
    for (ULONG number = 0; number < THREADS; ++number)
        threads.emplace_back([&, number] {
            for (ULONG count = 0; count < EACH; ++count) {
                const ULONG id = m_host->Queue(RequestHost::QUICK);
                {
                    const std::lock_guard lock(mutex);
                    ids.push_back(id);
                }
                if ((count + number) % 3 == 0)
                    m_host->CancelReq(id);
                Controllable::STATE state{};
                m_host->GetState(state);
                m_host->IsHandlingReqs();
                if (count % 50 == 49)
                    m_host->CancelAllReqs();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    m_host->WaitForAllReqsDone();
    EXPECT_TRUE(WaitFor([&] { return m_host->completed == THREADS * EACH; }));
    EXPECT_EQ(m_host->handled + m_host->cancelled, THREADS * EACH);
    std::sort(ids.begin(), ids.end());
    for (ULONG index = 0; index < ids.size(); ++index)
        ASSERT_EQ(ids[index], index + 1);
}

} // namespace
} // namespace kqlib::test
