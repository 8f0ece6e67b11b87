// Log lines, records and their counters, live status, the bookkeeping of activity.
#include "net/session/NetTCPSession.h"

#include "common/FilePath.h"
#include "platform/Threads.h"
#include "tests/net/session/SessionFixture.h"

#include <array>
#include <atomic>
#include <memory>
#include <set>
#include <vector>

namespace kqlib::test {

namespace {

using C = NetCounterBlock;

const NETSTATE STATE{NetIP(String("10.1.1.1")), 21, NetIP(String("10.2.2.2")), 4000};

/// An action of the client that takes one path.
struct PATHCASE
{
    void (*record)(TestHostSession&, bool);
    const char* success;
    const char* fail;
    NetCounterBlock::COUNTER counter;
};

#define PATH_RECORD(operation)                                                                                         \
    [](TestHostSession& session, bool success) { session.operation(STATE, success, FilePath("/a b"), "why"); }

const std::vector<PATHCASE>& PathCases()
{
    static const std::vector<PATHCASE> cases{
        {PATH_RECORD(xRecordDirCreated), "Directory Create Success", "Directory Create Fail", C::DIRS_CREATED},
        {PATH_RECORD(xRecordDirDeleted), "Directory Delete Success", "Directory Delete Fail", C::DIRS_DELETED},
        {PATH_RECORD(xRecordDirViewed), "Directory View Success", "Directory View Fail", C::DIRS_READ},
        {PATH_RECORD(xRecordFileAppended), "File Append Success", "File Append Fail", C::FILES_APPENDED},
        {PATH_RECORD(xRecordFileCreated), "File Create Success", "File Create Fail", C::FILES_CREATED},
        {PATH_RECORD(xRecordFileDeleted), "File Delete Success", "File Delete Fail", C::FILES_DELETED},
        {PATH_RECORD(xRecordFileDownloaded), "File Download Success", "File Download Fail", C::FILES_READ},
        {PATH_RECORD(xRecordFileRead), "File Read Success", "File Read Fail", C::FILES_READ},
        {PATH_RECORD(xRecordFileUploaded), "File Upload Success", "File Upload Fail", C::FILES_CREATED},
    };
    return cases;
}

#undef PATH_RECORD

class NetTCPSessionEvents : public SessionFixture
{
protected:
    /// Runs the thread and expects exactly these counters of the session and of the activity log, all others 0.
    void ExpectCounters(std::vector<std::pair<NetCounterBlock::COUNTER, ULONG8>> expected)
    {
        m_session->hooks.handle = [](TestHostSession&) {};
        Run();
        for (std::uint32_t i = 0; i < C::COUNTER_COUNT; ++i) {
            const auto counter = static_cast<NetCounterBlock::COUNTER>(i);
            ULONG8 value = 0;
            for (const auto& [known, count] : expected)
                value = known == counter ? count : value;
            EXPECT_EQ(Status().GetCounter(counter), value) << "counter " << i;
            EXPECT_EQ(Stored(counter), value) << "counter " << i;
        }
    }
};

} // namespace

// --- log lines

TEST_F(NetTCPSessionEvents, PrintLogNormal_ThreeForms_GiveTheRemoteEndFirst)
{
    TestHostSession& session = Make(nullptr);
    session.xPrintLogNormal(STATE, "event", "detail", "comment");
    session.xPrintLogNormal(m_served.get(), "of socket", "d", "c");
    session.xPrintLogNormal("bare", "", "c");
    const auto events = m_log.GetEvents();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_TRUE(events[0].remote == STATE.remoteIP);
    EXPECT_EQ(events[0].remotePort, 4000);
    EXPECT_TRUE(events[0].local == STATE.localIP);
    EXPECT_EQ(events[0].localPort, 21);
    EXPECT_EQ(Lines(), (TEXTS{"10.2.2.2:4000 10.1.1.1:21 event|detail|comment",
                              Line(TestHostSession::xsGetNetState(m_served.get()), "of socket", "d", "c"),
                              "0.0.0.0:0 0.0.0.0:0 bare||c"}));
    EXPECT_TRUE(Lines('D').empty());
}

TEST_F(NetTCPSessionEvents, PrintLogDebug_ThreeForms_GiveDebugLines)
{
    TestHostSession& session = Make(nullptr);
    session.xPrintLogDebug(STATE, "event", "detail", "comment");
    session.xPrintLogDebug(m_served.get(), "of socket", "d", "c");
    session.xPrintLogDebug("bare", "d", "c");
    EXPECT_EQ(Lines('D'), (TEXTS{"10.2.2.2:4000 10.1.1.1:21 event|detail|comment",
                                 Line(TestHostSession::xsGetNetState(m_served.get()), "of socket", "d", "c"),
                                 "0.0.0.0:0 0.0.0.0:0 bare|d|c"}));
    EXPECT_TRUE(Lines('N').empty());
}

TEST_F(NetTCPSessionEvents, PrintLogDebug_Bytes_EscapesAndCutsThemIntoPiecesOf76)
{
    TestHostSession& session = Make(nullptr);
    const auto details = [&](const std::string& bytes) {
        m_log.Clear();
        session.xPrintLogDebug(STATE, "Received Data", reinterpret_cast<const unsigned char*>(bytes.data()),
                               static_cast<ULONG>(bytes.size()));
        TEXTS found;
        for (const auto& event : m_log.GetEvents()) {
            EXPECT_EQ(event.kind, 'D');
            EXPECT_EQ(event.event, "Received Data");
            EXPECT_EQ(event.comment, "");
            EXPECT_EQ(event.localPort, 21);
            found.push_back(event.detail.str());
        }
        return found;
    };
    EXPECT_EQ(details(std::string(200, 'x')),
              (TEXTS{std::string(76, 'x'), std::string(76, 'x'), std::string(48, 'x')}));
    EXPECT_EQ(details(std::string(76, 'x')), (TEXTS{std::string(76, 'x')}));
    EXPECT_EQ(details(std::string(77, 'x')), (TEXTS{std::string(76, 'x'), "x"}));
    EXPECT_EQ(details("\r\n"), (TEXTS{"%0D%0A"}));
    EXPECT_EQ(details(std::string("a\tb%c\x7F\x1F \x80\xFF\0~", 12)), (TEXTS{"a\tb%25c\x7F%1F %80%FF%00~"}));
    EXPECT_EQ(details(""), TEXTS{});
    std::string escaped;
    for (int i = 0; i < 76; ++i)
        escaped += "%80";
    EXPECT_EQ(details(std::string(77, '\x80')), (TEXTS{escaped, "%80"})); // the pieces are cut before escaping
}

TEST_F(NetTCPSessionEvents, PrintLogDebug_BytesOfASocket_TakeItsAddresses)
{
    TestHostSession& session = Make(nullptr);
    session.xPrintLogDebug(m_served.get(), "Sent Data", reinterpret_cast<const unsigned char*>("ab"), 2);
    EXPECT_EQ(Lines('D'), (TEXTS{Line(TestHostSession::xsGetNetState(m_served.get()), "Sent Data", "ab")}));
}

// --- the hook

TEST_F(NetTCPSessionEvents, LogHook_On_AnnouncesTheConnectionAndCopiesNormalLinesOnly)
{
    CapturedEventLog hooked;
    TestHostSession& session = MakeServed();
    NetTCP* const main = session.xGetMainSocket();
    session.xPrintLogNormal(STATE, "before", "", "");
    session.xSetLogHookNormalOn(main, hooked);
    session.xPrintLogNormal(STATE, "normal", "d", "c");
    session.xPrintLogDebug(STATE, "debug", "d", "c");
    session.xSetLogHookNormalOff(main);
    session.xPrintLogNormal(STATE, "after", "", "");
    EXPECT_EQ(Lines(hooked),
              (TEXTS{Line(session.xGetMainNetState(), "Connection Accepted"), Line(STATE, "normal", "d", "c")}));
    EXPECT_TRUE(Lines(hooked, 'D').empty());
    EXPECT_EQ(Lines(), (TEXTS{Line(STATE, "before"), Line(STATE, "normal", "d", "c"), Line(STATE, "after")}));
    EXPECT_EQ(Lines('D').size(), 1U);
}

TEST_F(NetTCPSessionEvents, LogHook_LaterOnes_AreNotAnnounced_KeptOnPurpose)
{
    CapturedEventLog first;
    CapturedEventLog second;
    TestHostSession& session = MakeServed();
    NetTCP* const main = session.xGetMainSocket();
    session.xSetLogHookNormalOn(main, first);
    session.xSetLogHookNormalOn(main, first);
    session.xSetLogHookNormalOn(main, second);
    session.xSetLogHookNormalOff(main);
    session.xSetLogHookNormalOn(main, first);
    session.xPrintLogNormal("line", "", "");
    EXPECT_EQ(first.Count("Connection Accepted"), 1U);
    EXPECT_EQ(first.Count("line"), 1U);
    EXPECT_TRUE(second.GetEvents().empty());
}

// --- records

TEST_F(NetTCPSessionEvents, Records_OfOnePath_Succeed_LogThePathAndCountOne)
{
    for (const PATHCASE& record : PathCases()) {
        m_log.Clear();
        TestHostSession& session = Make(nullptr);
        record.record(session, true);
        EXPECT_EQ(Lines(), (TEXTS{Line(STATE, record.success, "/a b")}));
        const ULONG8 before = Stored(record.counter);
        session.hooks.handle = [](TestHostSession&) {};
        Run();
        EXPECT_EQ(Stored(record.counter), before + 1) << record.success;
        for (std::uint32_t i = 0; i < C::COUNTER_COUNT; ++i)
            EXPECT_EQ(Status().GetCounter(static_cast<NetCounterBlock::COUNTER>(i)), i == record.counter ? 1U : 0U);
    }
}

TEST_F(NetTCPSessionEvents, Records_OfOnePath_Fail_LogTheReasonAndCountNothing)
{
    TestHostSession& session = Make(nullptr);
    TEXTS expected;
    for (const PATHCASE& record : PathCases()) {
        record.record(session, false);
        expected.push_back(Line(STATE, record.fail, "/a b", "why"));
    }
    EXPECT_EQ(Lines(), expected);
    ExpectCounters({});
}

TEST_F(NetTCPSessionEvents, Records_DownloadUploadAndView_ShareTheCountersOfReadCreateAndRead_KeptOnPurpose)
{
    TestHostSession& session = Make(nullptr);
    session.xRecordFileDownloaded(STATE, true, FilePath("/f"), "");
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    session.xRecordFileUploaded(STATE, true, FilePath("/f"), "");
    session.xRecordFileCreated(STATE, true, FilePath("/f"), "");
    session.xRecordDirViewed(STATE, true, FilePath("/"), "");
    ExpectCounters({{C::FILES_READ, 2}, {C::FILES_CREATED, 2}, {C::DIRS_READ, 1}});
}

TEST_F(NetTCPSessionEvents, RecordMoved_BothPaths_LogsFromAndTo)
{
    TestHostSession& session = Make(nullptr);
    session.xRecordDirMoved(STATE, true, FilePath("/from"), FilePath("/to"), "unused");
    session.xRecordFileMoved(STATE, true, FilePath("/from"), FilePath("/to"), "unused");
    session.xRecordDirMoved(STATE, false, FilePath("/from"), FilePath("/to"), "why");
    session.xRecordFileMoved(STATE, false, FilePath("/from"), FilePath("/to"), "why");
    const std::string both = "From=/from, To=/to";
    EXPECT_EQ(Lines(),
              (TEXTS{Line(STATE, "Directory Move Success", both), Line(STATE, "File Move Success", both),
                     Line(STATE, "Directory Move Fail", both, "why"), Line(STATE, "File Move Fail", both, "why")}));
    ExpectCounters({{C::DIRS_MOVED, 1}, {C::FILES_MOVED, 1}});
}

TEST_F(NetTCPSessionEvents, RecordMoved_EmptyDestination_LogsTheSourceAlone)
{
    TestHostSession& session = Make(nullptr);
    session.xRecordDirMoved(STATE, true, FilePath("/from"), FilePath(""), "unused");
    session.xRecordFileMoved(STATE, true, FilePath("/from"), FilePath(""), "unused");
    session.xRecordDirMoved(STATE, false, FilePath("/from"), FilePath(""), "why");
    session.xRecordFileMoved(STATE, false, FilePath("/from"), FilePath(""), "why");
    EXPECT_EQ(Lines(), (TEXTS{Line(STATE, "Directory Move Success", "/from"), Line(STATE, "File Move Success", "/from"),
                              Line(STATE, "Directory Move Fail", "/from", "why"),
                              Line(STATE, "File Move Fail", "/from", "why")}));
    ExpectCounters({{C::DIRS_MOVED, 1}, {C::FILES_MOVED, 1}});
}

TEST_F(NetTCPSessionEvents, RecordLoginAttempt_BothOutcomes_LogTwoTextsNeverTheThird_KeptOnPurpose)
{
    TestHostSession& session = Make(nullptr);
    session.xRecordLoginAttempt(STATE, true, "anna", "password", "third", "fourth");
    session.xRecordLoginAttempt(STATE, false, "bob", "", "third", "fourth");
    session.xRecordLoginAttempt(STATE, false, "", "key", "third", "");
    EXPECT_EQ(Lines(), (TEXTS{Line(STATE, "Login Success", "anna: password"),
                              Line(STATE, "Login Fail", "bob: ", "fourth"), Line(STATE, "Login Fail", ": key")}));
    ExpectCounters({{C::LOGIN_SUCCESSES, 1}, {C::LOGIN_FAILS, 2}});
}

TEST_F(NetTCPSessionEvents, RecordLogout_TwoTexts_LogsTheUserAndCountsNothing)
{
    TestHostSession& session = Make(nullptr);
    session.xRecordLogout(STATE, "anna", "second");
    EXPECT_EQ(Lines(), (TEXTS{Line(STATE, "Logged Out", "anna")}));
    ExpectCounters({});
}

TEST_F(NetTCPSessionEvents, RecordSSLHandshake_BothOutcomes_LoggedAndCounted)
{
    TestHostSession& session = Make(nullptr);
    session.xRecordSSLHandshake(STATE, true, "d");
    session.xRecordSSLHandshake(STATE, false, "e");
    EXPECT_EQ(Lines(), (TEXTS{Line(STATE, "Connect SSL Success", "d"), Line(STATE, "Connect SSL Fail", "e")}));
    ExpectCounters({{C::SSL_SUCCESSES, 1}, {C::SSL_FAILS, 1}});
}

// --- live status

TEST_F(NetTCPSessionEvents, GetStatus_EachSetterUsed_TellsUserActionAndDetail)
{
    TestHostSession& session = Make(nullptr);
    NetSessionLiveStatus live;
    session.GetStatus(live);
    EXPECT_EQ(live.GetStatus().GetUser(), "");
    EXPECT_EQ(live.GetAction(), 0U);
    EXPECT_EQ(live.GetDetail(), "");
    session.xSetCurrentUser("anna");
    session.xSetCurrentAction(4);
    session.xSetCurrentDetail("/file");
    session.GetStatus(live);
    EXPECT_EQ(live.GetStatus().GetUser(), "anna");
    EXPECT_EQ(live.GetAction(), 4U);
    EXPECT_EQ(live.GetDetail(), "/file");
    session.xSetCurrentActionDetail(0xFFFFFFFF, "other");
    session.GetStatus(live);
    EXPECT_EQ(live.GetAction(), 0xFFFFFFFFU);
    EXPECT_EQ(live.GetDetail(), "other");
    EXPECT_TRUE(live.GetStatus().GetSessionID() == ID);
    EXPECT_FALSE(live.GetStatus().GetEndTime().IsSet());
}

TEST_F(NetTCPSessionEvents, SetPrimaryConnectionStatus_OfAnotherSocket_ReadsTheMainOne_KeptOnPurpose)
{
    std::unique_ptr<NetTCP> other;
    std::unique_ptr<NetTCP> otherClient;
    Pair(other, otherClient);
    TestHostSession& session = MakeServed();
    session.xSetPrimaryConnectionStatus(other.get());
    EXPECT_EQ(Status().GetRemotePort(), m_client->GetLocalPort());
    session.xSetPrimaryConnectionStatus(nullptr);
    EXPECT_EQ(Status().GetRemotePort(), m_client->GetLocalPort());
}

// --- bookkeeping of activity

namespace {

constexpr SLONG8 START_MS = 2000000000000;
constexpr ULONG START_UNIT = 2000000000;

} // namespace

TEST_F(NetTCPSessionEvents, Activity_WithinOneUnit_IsWrittenAtTheEndOnly)
{
    const MovedCalendar calendar(START_MS + 5);
    TestHostSession& session = MakeServed();
    session.hooks.handle = [&](TestHostSession& self) {
        self.xRecordFileRead(STATE, true, FilePath("/f"), "");
        EXPECT_TRUE(Rows().empty());
        EXPECT_EQ(Status().GetFilesRead(), 0U); // what is live lags behind
        EXPECT_EQ(Status().GetConnectionsIn(), 1U);
    };
    Run();
    const auto rows = Rows();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].GetTimeUnit(), START_UNIT);
    EXPECT_EQ(rows[0].GetFilesRead(), 1U);
    EXPECT_EQ(rows[0].GetConnectionsIn(), 1U);
    EXPECT_EQ(Status().GetFilesRead(), 1U);
}

TEST_F(NetTCPSessionEvents, Activity_NewUnit_MergesAndWritesTheOldOneAtARandomMoment)
{
    MovedCalendar calendar(START_MS);
    TestHostSession& session = Make(nullptr);
    platform::RandSeed(5);
    const SLONG8 offset = platform::RandNext() % 1000;
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    platform::RandSeed(5);
    calendar.Set(START_MS + 1000);
    session.xRecordLogout(STATE, "", "");
    EXPECT_EQ(Status().GetFilesRead(), 1U);
    EXPECT_EQ(Status().GetUser(), "");
    EXPECT_TRUE(Rows().empty());
    calendar.Set(START_MS + 1000 + offset);
    session.xRecordLogout(STATE, "", "");
    EXPECT_TRUE(Rows().empty()); // not later than its time yet
    calendar.Set(START_MS + 1000 + offset + 1);
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    ASSERT_EQ(Rows().size(), 1U);
    EXPECT_EQ(Rows()[0].GetTimeUnit(), START_UNIT);
    session.xRecordLogout(STATE, "", "");
    calendar.Set(START_MS + 1999);
    session.xRecordLogout(STATE, "", "");
    EXPECT_EQ(Stored(C::FILES_READ), 1U); // written once
    EXPECT_EQ(Status().GetFilesRead(), 1U);
}

TEST_F(NetTCPSessionEvents, Activity_NeighbouringSessions_DrawMomentsFarApart)
{
    constexpr std::size_t COUNT = 16;
    std::array<std::atomic<std::uint32_t>, COUNT> draws{};
    std::atomic<std::size_t> drawn{0};
    std::vector<std::unique_ptr<TestHostSession>> sessions;
    for (std::size_t index = 0; index < COUNT; ++index) {
        sessions.push_back(std::make_unique<TestHostSession>(m_pool, m_cache, m_dataLog, m_log,
                                                             EventLogSessionID(index + 1, 9), 60, nullptr));
        sessions.back()->hooks.handle = [&, index](TestHostSession&) {
            draws[index] = platform::RandNext() % 1000;
            ++drawn;
            WaitFor([&] { return drawn == COUNT; }); // so that each has a thread of its own
        };
        ASSERT_TRUE(sessions.back()->xConstrStartSession());
    }
    for (const auto& session : sessions)
        ASSERT_TRUE(WaitFor([&] { return session->IsComplete(); }));
    const std::set<std::uint32_t> moments(draws.begin(), draws.end());
    EXPECT_GT(moments.size(), COUNT / 2);
    EXPECT_GT(*moments.rbegin() - *moments.begin(), 300U);
}

TEST_F(NetTCPSessionEvents, Activity_NextUnitBeforeItsMoment_WritesThePendingOneFirst)
{
    MovedCalendar calendar(START_MS);
    TestHostSession& session = Make(nullptr);
    for (int unit = 0; unit < 4; ++unit) {
        calendar.Set(START_MS + unit * 1000);
        session.xRecordFileRead(STATE, true, FilePath("/f"), "");
        EXPECT_EQ(Rows().size(), unit < 2 ? 0U : static_cast<std::size_t>(unit - 1));
    }
    EXPECT_EQ(Status().GetFilesRead(), 3U);
    ExpectCounters({{C::FILES_READ, 4}});
    EXPECT_EQ(Rows().size(), 4U);
}

TEST_F(NetTCPSessionEvents, Activity_AfterAGap_OnlyTheLastActiveUnitIsPending)
{
    MovedCalendar calendar(START_MS);
    TestHostSession& session = Make(nullptr);
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    calendar.Set(START_MS + 3600000);
    EXPECT_TRUE(Rows().empty());
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    EXPECT_TRUE(Rows().empty());
    calendar.Set(START_MS + 7200000);
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    ASSERT_EQ(Rows().size(), 1U);
    ExpectCounters({{C::FILES_READ, 3}});
    const auto rows = Rows();
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].GetTimeUnit(), START_UNIT);
    EXPECT_EQ(rows[1].GetTimeUnit(), START_UNIT + 3600);
    EXPECT_EQ(rows[2].GetTimeUnit(), START_UNIT + 7200);
}

TEST_F(NetTCPSessionEvents, Activity_ThreadEndsWithAPendingUnit_WritesBoth)
{
    MovedCalendar calendar(START_MS);
    TestHostSession& session = Make(nullptr);
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    calendar.Set(START_MS + 1000);
    session.xRecordFileDeleted(STATE, true, FilePath("/f"), "");
    EXPECT_TRUE(Rows().empty());
    ExpectCounters({{C::FILES_READ, 1}, {C::FILES_DELETED, 1}});
    EXPECT_EQ(Rows().size(), 2U);
}

TEST_F(NetTCPSessionEvents, Activity_CalendarSetBack_IsANewUnitLikeAnyOther)
{
    MovedCalendar calendar(START_MS);
    TestHostSession& session = Make(nullptr);
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    calendar.Set(START_MS - 5000);
    session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    EXPECT_EQ(Status().GetFilesRead(), 1U);
    ExpectCounters({{C::FILES_READ, 2}});
    EXPECT_EQ(Rows().size(), 2U);
}

TEST_F(NetTCPSessionEvents, Activity_LogCannotWrite_IsDroppedAndTheRecordStaysWhole)
{
    MovedCalendar calendar(START_MS);
    m_dataLog.SetSettings(false, 3600, m_folder.GetFilePath(), "", "activity");
    TestHostSession& session = Make(nullptr);
    for (int unit = 0; unit < 3; ++unit) {
        calendar.Set(START_MS + unit * 1000);
        session.xRecordFileRead(STATE, true, FilePath("/f"), "");
    }
    m_dataLog.SetSettings(true, 3600, m_folder.GetFilePath(), "", "activity");
    session.hooks.handle = [](TestHostSession&) {};
    Run();
    EXPECT_EQ(Stored(C::FILES_READ), 2U); // the first unit is not tried again
    EXPECT_EQ(Status().GetFilesRead(), 3U);
}

TEST_F(NetTCPSessionEvents, Activity_Monitor_WritesAFinishedUnitThoughNothingHappens)
{
    MovedCalendar calendar(START_MS);
    TestHostSession& session = MakeScripted();
    session.xSetPeriodicMilliSecs(0);
    session.hooks.preRead = [&](TestHostSession& self, bool periodic, ULONG&) {
        if (!periodic)
            return;
        calendar.Set(Rows().empty() ? TimePos::sNow().GetMilliSeconds() + 500 : TimePos::sNow().GetMilliSeconds());
        if (!Rows().empty())
            self.xSetSessionCompleted();
    };
    session.xMonitorNet(m_script);
    EXPECT_EQ(Stored(C::CONNECTIONS_IN), 1U);
}

} // namespace kqlib::test
