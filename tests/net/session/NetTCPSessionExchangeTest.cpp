// The monitor and its passes, command and data reception, sending, the send buffer, the Telnet filter.
#include "net/session/NetTCPSession.h"

#include "tests/net/session/SessionFixture.h"

#include <algorithm>
#include <random>
#include <thread>

namespace kqlib::test {

namespace {

using C = NetCounterBlock;

/// The splitting rules, told byte by byte as a person would. Gives "command:TEXT" and "oversized:TEXT".
TEXTS SplitByTheBook(const std::string& bytes, std::size_t maximum, bool loneLFEnds)
{
    TEXTS found;
    std::string command;
    bool lastWasCR = false;
    for (const char byte : bytes) {
        if (byte == '\n' && (lastWasCR || loneLFEnds)) {
            if (lastWasCR && !command.empty())
                command.pop_back();
            found.push_back("command:" + command);
            command.clear();
            lastWasCR = false;
            continue;
        }
        command += byte;
        lastWasCR = byte == '\r';
        if (command.size() >= maximum) {
            found.push_back("oversized:" + command);
            command.clear(); // and whether the last byte was a CR stays as it is
        }
    }
    return found;
}

/// A receive buffer with its bytes.
struct BUFFER
{
    explicit BUFFER(std::size_t capacity = 4096)
        : bytes(capacity)
        , rb{static_cast<ULONG>(capacity), bytes.data(), 0, 0, false}
    {
    }
    std::vector<unsigned char> bytes;
    NetTCP::RECVBUF rb;
};

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string RandomBytes(std::mt19937& random, std::size_t size)
{
    static constexpr char ALPHABET[] = {'a', 'b', '\r', '\r', '\n', '\n', '\0', '\xFF'};
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i)
        bytes += ALPHABET[random() % sizeof ALPHABET];
    return bytes;
}

std::deque<std::string> RandomPieces(std::mt19937& random, const std::string& bytes)
{
    std::deque<std::string> pieces;
    for (std::size_t at = 0; at < bytes.size();) {
        pieces.push_back(bytes.substr(at, 1 + random() % 7));
        at += pieces.back().size();
    }
    return pieces;
}

class NetTCPSessionExchange : public SessionFixture
{
protected:
    /// Runs command passes over the script until it is used up.
    void PassAll()
    {
        while (!m_script->incoming.empty())
            ASSERT_TRUE(CmdPass());
    }
    bool CmdPass() { return xPass(false, false); }
    bool DataPass() { return xPass(true, false); }
    bool ContinuingPass() { return xPass(false, true); }

    /// What passes make of the bytes.
    TEXTS NotesOf(std::deque<std::string> pieces)
    {
        m_script->incoming = std::move(pieces);
        m_session->ClearNotes();
        PassAll();
        return m_session->GetNotes();
    }
    /// xRecvCommand over and over: "command:TEXT", "oversized:TEXT", until it answers false.
    TEXTS ReceiveAll(BUFFER& buffer)
    {
        TEXTS found;
        String command;
        bool oversized = true;
        while (m_session->xRecvCommand(m_session->xGetMainSocket(), m_session->xGetMainNetState(), buffer.rb, command,
                                       oversized))
            found.push_back((oversized ? "oversized:" : "command:") + command.str());
        return found;
    }
    bool SendText(const std::string& text)
    {
        return m_session->xSendAllData(m_session->xGetMainSocket(), Bytes(text), static_cast<ULONG>(text.size()));
    }
    bool SendTextForce(const std::string& text)
    {
        return m_session->xSendAllDataForce(m_session->xGetMainSocket(), Bytes(text), static_cast<ULONG>(text.size()));
    }
    /// Puts a disconnect message into the state in which it waits to be performed.
    void MakeDisconnectPending()
    {
        m_session->SendControlMsg(NetTCPSession::MSG_DISCONNECT, "bye");
        CTRLMSG msg;
        ASSERT_FALSE(m_session->xProcessMsgsAndTakeNext(msg));
        ASSERT_TRUE(m_session->xCheckForDisconnectMsg());
    }
    /// A send buffer of 8192 bytes that is in use.
    void UseBuffer()
    {
        NetTCP unconnected(NetIP::LOOKUP_ANY);
        m_session->xSetBufMode(&unconnected, true);
        m_session->m_bufferedMode = true;
    }

    BUFFER m_buffer;
    String m_command;
    ULONG m_wait = 0;

private:
    bool xPass(bool data, bool continuing)
    {
        NETSTATE state = m_session->xGetMainNetState();
        NetTCP* const main = m_session->xGetMainSocket();
        return data ? m_session->xMonitorNetDataPass(main, state, m_buffer.rb, continuing, m_wait)
                    : m_session->xMonitorNetCmdPass(main, state, m_buffer.rb, continuing, m_command, m_wait);
    }
};

} // namespace

// --- splitting in the command pass

TEST_F(NetTCPSessionExchange, CmdPass_LineWithCRLF_IsDeliveredWithoutThem)
{
    MakeScripted();
    EXPECT_EQ(NotesOf({"USER a\r\n"}), (TEXTS{"command:USER a"}));
    EXPECT_EQ(NotesOf({"USER a\r", "\nQUIT\r\n\r\n"}), (TEXTS{"command:USER a", "command:QUIT", "command:"}));
    EXPECT_EQ(FinalCount(C::COMMANDS_IN), 4U);
    EXPECT_EQ(Status().GetDataInBytes(), 24U);
}

TEST_F(NetTCPSessionExchange, CmdPass_BareLF_IsACharacterUnlessItEndsCommands)
{
    TestHostSession& session = MakeScripted();
    EXPECT_EQ(NotesOf({"A\nB"}), TEXTS{});
    EXPECT_EQ(NotesOf({"\r\n"}), (TEXTS{"command:A\nB"}));
    session.xSetCmdEndIncludesLF(true);
    EXPECT_EQ(NotesOf({"A\nB\r\n\n"}), (TEXTS{"command:A", "command:B", "command:"}));
    session.xSetCmdEndIncludesLF(false);
    EXPECT_EQ(NotesOf({"\n\r\n"}), (TEXTS{"command:\n"}));
}

TEST_F(NetTCPSessionExchange, CmdPass_CRWithoutLF_StaysInTheCommand)
{
    TestHostSession& session = MakeScripted();
    for (const bool loneLF : {false, true}) {
        session.xSetCmdEndIncludesLF(loneLF);
        EXPECT_EQ(NotesOf({"A\rB\r\n"}), (TEXTS{"command:A\rB"}));
        EXPECT_EQ(NotesOf({"A\r\r\n"}), (TEXTS{"command:A\r"}));
        EXPECT_EQ(NotesOf({std::string("A\0B\r\n", 5)}), (TEXTS{std::string("command:A\0B", 11)}));
    }
}

TEST_F(NetTCPSessionExchange, CmdPass_MaximumSize_IsDeliveredOversizedAtItsLastByte)
{
    MakeScripted();
    EXPECT_EQ(NotesOf({std::string(1023, 'x')}), TEXTS{});
    EXPECT_EQ(NotesOf({"y"}), (TEXTS{"oversized:" + std::string(1023, 'x') + "y"}));
    EXPECT_EQ(NotesOf({"rest\r\n"}), (TEXTS{"command:rest"}));
    EXPECT_EQ(NotesOf({std::string(1022, 'x') + "\r\n"}), (TEXTS{"command:" + std::string(1022, 'x')}));
    EXPECT_EQ(FinalCount(C::COMMANDS_IN), 3U);
}

TEST_F(NetTCPSessionExchange, CmdPass_CRAsTheLastByteThatFits_EndsAnEmptyCommandToo_KeptOnPurpose)
{
    MakeScripted();
    EXPECT_EQ(NotesOf({std::string(1023, 'x') + "\r\n"}),
              (TEXTS{"oversized:" + std::string(1023, 'x') + "\r", "command:"}));
    EXPECT_EQ(FinalCount(C::COMMANDS_IN), 2U);
}

TEST_F(NetTCPSessionExchange, CmdPass_AnyBytesInAnyPieces_SplitByTheBook)
{
    TestHostSession& session = MakeScripted();
    std::mt19937 random(20240);
    for (int round = 0; round < 1500; ++round) {
        const std::size_t maximum = round % 5 == 0 ? 1024 : random() % 9;
        const bool loneLF = random() % 2 == 0;
        // Ends with no command under way and no CR remembered, so that the next round begins afresh.
        const std::string bytes = RandomBytes(random, random() % 60) + "\r\n\r\n";
        session.xSetMaxCmdSize(maximum);
        session.xSetCmdEndIncludesLF(loneLF);
        ASSERT_EQ(NotesOf(RandomPieces(random, bytes)), SplitByTheBook(bytes, maximum, loneLF))
            << testing::PrintToString(bytes) << " maximum " << maximum;
        m_command.clear();
        m_buffer.rb.lastWasCR = false;
    }
}

TEST_F(NetTCPSessionExchange, CmdPass_SettingsChangedByAHandler_HoldFromTheNextByteOn)
{
    TestHostSession& session = MakeScripted();
    session.hooks.command = [](TestHostSession& self, const String& command) {
        if (command == "LF")
            self.xSetCmdEndIncludesLF(true);
        if (command == "MAX")
            self.xSetMaxCmdSize(2);
    };
    EXPECT_EQ(NotesOf({"a\nb\r\nLF\r\nc\nMAX\nabc\n"}),
              (TEXTS{"command:a\nb", "command:LF", "command:c", "command:MAX", "oversized:ab", "command:c"}));
}

TEST_F(NetTCPSessionExchange, CmdPass_LeadingTelnetBytes_StayForTheHostToFilter)
{
    TestHostSession& session = MakeScripted();
    std::string filtered;
    session.hooks.command = [&](TestHostSession& self, const String& command) {
        String text(command);
        self.xFilterTelnetSpecials(text);
        filtered = text.str();
    };
    EXPECT_EQ(NotesOf({"\xFF\xF4\xFF", "\xF2", "ABOR\r\n"}), (TEXTS{"command:\xFF\xF4\xFF\xF2"
                                                                    "ABOR"}));
    EXPECT_EQ(filtered, "ABOR");
}

TEST_F(NetTCPSessionExchange, CmdPass_HandlerClosesTheSocket_RemainingCommandsAreStillDelivered_KeptOnPurpose)
{
    TestHostSession& session = MakeScripted();
    session.hooks.command = [](TestHostSession& self, const String&) { self.xClose(self.xGetMainSocket()); };
    EXPECT_EQ(NotesOf({"A\r\nB\r\n"}), (TEXTS{"command:A", "mainNetClosed", "command:B"}));
}

TEST_F(NetTCPSessionExchange, CmdPass_HandlerTurnsToDataMode_BytesReceivedStayCommands_KeptOnPurpose)
{
    TestHostSession& session = MakeServed();
    session.hooks.command = [](TestHostSession& self, const String&) { self.xSetDataMode(true); };
    session.hooks.data = [](TestHostSession& self, const std::string&, ULONG&) { self.xSetSessionCompleted(); };
    ClientSends("DATA\r\nMORE\r\nhalf");
    ASSERT_TRUE(session.xConstrStartSession());
    ASSERT_TRUE(WaitFor([&] { return session.GetNotes().size() >= 4; }));
    ClientSends("raw\r\n");
    ASSERT_TRUE(WaitFor([&] { return session.IsComplete(); }));
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "command:DATA", "command:MORE", "data:raw\r\n", "closed",
                                         "end", "mainNetClosed"}));
}

// --- the passes: results, buffer, counters

TEST_F(NetTCPSessionExchange, Pass_NothingReceived_TrueAndTheWaitCountsUnlessTheBlockTimeIsZero)
{
    MakeScripted();
    EXPECT_TRUE(CmdPass());
    EXPECT_TRUE(DataPass());
    EXPECT_EQ(m_wait, 2U);
    m_script->SetBlockTime(0);
    m_script->incoming = {"x"};
    EXPECT_TRUE(CmdPass());
    EXPECT_TRUE(CmdPass());
    EXPECT_TRUE(DataPass());
    EXPECT_EQ(m_wait, 2U);
}

TEST_F(NetTCPSessionExchange, Pass_AfterTheSplit_TheBufferHasNothingLeft)
{
    MakeScripted();
    m_script->incoming = {"A\r\nhalf"};
    EXPECT_TRUE(CmdPass());
    EXPECT_EQ(m_buffer.rb.length, 7U);
    EXPECT_EQ(m_buffer.rb.position, 7U);
    EXPECT_EQ(m_command, "half");
    // The same buffer may now serve xRecvCommand, which starts a command of its own.
    m_script->incoming = {" B\r\n"};
    m_session->hooks.shouldWait = [](TestHostSession&) { return false; };
    EXPECT_EQ(ReceiveAll(m_buffer), (TEXTS{"command: B"}));
}

TEST_F(NetTCPSessionExchange, Pass_NotContinuing_OffersTheWholeCapacity)
{
    MakeScripted();
    m_buffer.rb.length = 3;
    EXPECT_TRUE(CmdPass());
    EXPECT_EQ(m_script->lastRoom, 4096U);
    m_buffer.rb.length = 3;
    m_script->incoming = {"A\r\nB\r\n"};
    EXPECT_TRUE(ContinuingPass());
    EXPECT_EQ(m_script->lastRoom, 3U);
    EXPECT_EQ(m_session->GetNotes(), (TEXTS{"command:A"}));
}

TEST_F(NetTCPSessionExchange, Pass_PeerGone_ClosesLogsOnceAndStops)
{
    TestHostSession& session = MakeScripted();
    const NETSTATE state = session.xGetMainNetState();
    m_script->hangUpAtEnd = true;
    EXPECT_FALSE(CmdPass());
    EXPECT_EQ(session.GetNotes(), (TEXTS{"mainNetClosed", "closing"}));
    EXPECT_EQ(Lines(), (TEXTS{Line(state, "Connection Closed")}));
    EXPECT_EQ(m_buffer.rb.length, 0U);
    EXPECT_EQ(m_wait, 0U);
    EXPECT_FALSE(DataPass());
    EXPECT_EQ(m_buffer.rb.length, 0U);
    EXPECT_EQ(Lines().size(), 1U);
}

TEST_F(NetTCPSessionExchange, Pass_HandlerConnectsAgain_GoesOn)
{
    TestHostSession& session = MakeScripted();
    m_script->hangUpAtEnd = true;
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    session.hooks.closing = [&](TestHostSession& self) {
        EXPECT_TRUE(self.xConnect(self.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
    };
    EXPECT_TRUE(CmdPass());
    EXPECT_EQ(m_wait, 1U);
    m_script->SetBlockTime(0);
    EXPECT_TRUE(DataPass());
    EXPECT_EQ(m_wait, 1U);
}

TEST_F(NetTCPSessionExchange, Pass_PeerGoneWithADisconnectWaiting_PerformsItInsteadOfTheClosingHandler)
{
    TestHostSession& session = MakeScripted();
    m_script->hangUpAtEnd = true;
    MakeDisconnectPending();
    EXPECT_FALSE(CmdPass());
    EXPECT_EQ(session.GetNotes(), (TEXTS{"mainNetClosed", "disconnect:bye"}));
}

TEST_F(NetTCPSessionExchange, CmdPass_FlushGivesUp_TrueWithoutTheRestOfTheBytes)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    session.hooks.command = [](TestHostSession& self, const String& command) {
        self.xSendCommand(self.xGetMainSocket(), command);
        if (command == "TIME") {
            self.xSetResetTimeOutOnRecv(false);
            self.xSetTimeOutSecs(0);
        }
        if (command == "END")
            self.xSetSessionCompleted();
    };
    EXPECT_EQ(NotesOf({"A\r\nEND\r\nB\r\n"}), (TEXTS{"command:A", "command:END"}));
    EXPECT_EQ(m_script->sent, "A\r\n");
    EXPECT_EQ(NotesOf({"TIME\r\nB\r\n"}), (TEXTS{"command:TIME"}));
    EXPECT_TRUE(m_script->IsConnected());
}

TEST_F(NetTCPSessionExchange, CmdPass_FlushGivesUpForADisconnect_PerformsItUnlessTimedOut)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    session.hooks.command = [this](TestHostSession& self, const String& command) {
        self.xSendCommand(self.xGetMainSocket(), command);
        MakeDisconnectPending();
        self.xSetTimeOutSecs(command == "LATE" ? 0 : 60);
    };
    EXPECT_EQ(NotesOf({"LATE\r\nB\r\n"}), (TEXTS{"command:LATE"}));
    EXPECT_TRUE(session.xCheckForDisconnectMsg());
    EXPECT_EQ(NotesOf({"A\r\nB\r\n"}), (TEXTS{"command:A", "disconnect:bye", "mainNetClosed"}));
    EXPECT_FALSE(session.xCheckForDisconnectMsg());
}

TEST_F(NetTCPSessionExchange, CmdPass_FlushFails_StopsUnlessTheHandlerConnectsAgain)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    m_script->failAfterSends = 0;
    session.hooks.command = [](TestHostSession& self, const String& command) {
        self.xSendCommand(self.xGetMainSocket(), command);
    };
    EXPECT_EQ(NotesOf({"A\r\nB\r\n"}), (TEXTS{"command:A", "mainNetClosed", "closing"}));
    session.hooks.closing = [&](TestHostSession& self) {
        m_script->failAfterSends = m_script->sends + 1;
        EXPECT_TRUE(self.xConnect(self.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
    };
    ASSERT_TRUE(session.xConnect(m_script, "127.0.0.1", listener.GetLocalPort()));
    m_script->failAfterSends = m_script->sends;
    EXPECT_EQ(NotesOf({"A\r\nB\r\n"}), (TEXTS{"command:A", "mainNetClosed", "closing", "command:B"}));
    EXPECT_EQ(m_script->sent, "B\r\n");
}

// --- data pass

TEST_F(NetTCPSessionExchange, DataPass_HandlerLeavesTheLength_AllIsConsumed)
{
    MakeScripted();
    m_script->incoming = {"abc\r\n"};
    EXPECT_TRUE(DataPass());
    EXPECT_EQ(m_session->GetNotes(), (TEXTS{"data:abc\r\n"}));
    EXPECT_EQ(m_buffer.rb.position, 5U);
    EXPECT_EQ(m_wait, 1U);
    EXPECT_EQ(FinalCount(C::DATA_IN_BYTES), 5U);
    EXPECT_EQ(Status().GetCommandsIn(), 0U);
}

TEST_F(NetTCPSessionExchange, DataPass_HandlerConsumesParts_TheRestIsOfferedAgain)
{
    TestHostSession& session = MakeScripted();
    session.hooks.data = [](TestHostSession&, const std::string& bytes, ULONG& length) {
        length = bytes == "c" ? 99 : bytes == "bc" ? 1 : bytes.size() - 2; // 99: more than was offered
    };
    m_script->incoming = {"abc"};
    EXPECT_TRUE(DataPass());
    EXPECT_EQ(session.GetNotes(), (TEXTS{"data:abc", "data:bc", "data:c"}));
    EXPECT_EQ(m_wait, 3U);
}

TEST_F(NetTCPSessionExchange, DataPass_OfferingStops_UnconsumedBytesAreDropped_KeptOnPurpose)
{
    int stopBy = 0;
    TestHostSession& session = MakeScripted();
    session.hooks.data = [&](TestHostSession& self, const std::string& bytes, ULONG& length) {
        length = 0;
        if (bytes == "next")
            length = 4;
        else if (++stopBy == 3)
            self.hooks.shouldWait = [](TestHostSession&) { return false; };
        else if (stopBy == 4)
            self.xSetTimeOutSecs(0);
        else if (stopBy == 5)
            MakeDisconnectPending();
        else if (stopBy == 6)
            self.xSetSessionCompleted();
    };
    for (int stop = 3; stop <= 6; ++stop) {
        m_script->incoming = {"lost", "next"};
        EXPECT_TRUE(DataPass());
        EXPECT_EQ(stopBy, stop);
        EXPECT_EQ(m_buffer.rb.position, m_buffer.rb.length);
        session.hooks.shouldWait = nullptr;
        session.xSetTimeOutSecs(60);
        EXPECT_TRUE(DataPass());
        ASSERT_FALSE(session.GetNotes().empty());
        EXPECT_EQ(session.GetNotes().back(), "data:next");
    }
    EXPECT_TRUE(session.xShouldSessionEnd());
    EXPECT_TRUE(session.xCheckForDisconnectMsg());
}

TEST_F(NetTCPSessionExchange, DataPass_RepliesInTheSendBuffer_GoOutAfterwards)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    session.hooks.data = [this](TestHostSession&, const std::string& bytes, ULONG&) {
        EXPECT_TRUE(SendText(bytes));
        EXPECT_EQ(m_script->sent, "");
    };
    m_script->incoming = {"echo"};
    EXPECT_TRUE(DataPass());
    EXPECT_EQ(m_script->sent, "echo");
}

TEST_F(NetTCPSessionExchange, DataPass_FlushFails_FollowsTheRulesOfAFailedReceive)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    session.hooks.data = [this](TestHostSession&, const std::string& bytes, ULONG&) { SendText(bytes); };
    session.hooks.shouldWait = [](TestHostSession&) { return false; };
    m_script->incoming = {"a"};
    EXPECT_FALSE(DataPass()); // gave up, still connected
    EXPECT_TRUE(m_script->IsConnected());
    session.hooks.shouldWait = nullptr;
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    session.hooks.closing = [&](TestHostSession& self) {
        EXPECT_TRUE(self.xConnect(self.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
    };
    m_script->incoming = {"b"};
    m_script->failAfterSends = m_script->sends;
    m_wait = 0;
    EXPECT_TRUE(DataPass());
    EXPECT_EQ(m_wait, 2U);
    session.hooks.closing = nullptr;
    m_script->incoming = {"c"};
    EXPECT_FALSE(DataPass());
    EXPECT_FALSE(m_script->IsConnected());
}

TEST_F(NetTCPSessionExchange, Pass_ResetOnReceive_RestartsTheTimeOutOnlyWhenItIsOn)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    const auto timedOutAfter = [&](bool reset, bool data) {
        session.xSetResetTimeOutOnRecv(reset);
        session.xResetTimeOut();
        MovedTick::sAdvance(50000);
        m_script->incoming = {"A\r\n"};
        EXPECT_TRUE(data ? DataPass() : CmdPass());
        MovedTick::sAdvance(10000);
        return session.xIsTimedOut();
    };
    for (const bool data : {false, true}) {
        EXPECT_FALSE(timedOutAfter(true, data));
        EXPECT_TRUE(timedOutAfter(false, data));
    }
    session.xSetResetTimeOutOnRecv(true);
    session.xResetTimeOut();
    MovedTick::sAdvance(50000);
    m_script->incoming = {"half"}; // no command yet: received bytes alone do not count
    EXPECT_TRUE(CmdPass());
    MovedTick::sAdvance(10000);
    EXPECT_TRUE(session.xIsTimedOut());
}

TEST_F(NetTCPSessionExchange, CmdPass_OversizedCommand_RestartsTheTimeOutToo)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    session.xSetMaxCmdSize(4);
    MovedTick::sAdvance(50000);
    m_script->incoming = {"abcd"};
    EXPECT_TRUE(CmdPass());
    MovedTick::sAdvance(10000);
    EXPECT_EQ(session.GetNotes(), (TEXTS{"oversized:abcd"}));
    EXPECT_FALSE(session.xIsTimedOut());
}

TEST_F(NetTCPSessionExchange, RecvCommand_OversizedCommand_RestartsTheTimeOutToo)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    session.xSetMaxCmdSize(4);
    MovedTick::sAdvance(50000);
    m_script->incoming = {"abcd"};
    bool oversized = false;
    EXPECT_TRUE(session.xRecvCommand(m_script, session.xGetMainNetState(), m_buffer.rb, m_command, oversized));
    EXPECT_TRUE(oversized);
    MovedTick::sAdvance(10000);
    EXPECT_FALSE(session.xIsTimedOut());
}

TEST_F(NetTCPSessionExchange, CmdPass_TimeOutRestarted_BeforeTheHandler)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    session.xSetMaxCmdSize(4);
    int handled = 0;
    const auto expectRestarted = [&](TestHostSession& self, const String&) {
        EXPECT_FALSE(self.xIsTimedOut());
        ++handled;
    };
    session.hooks.command = expectRestarted;
    session.hooks.oversized = expectRestarted;
    for (const char* bytes : {"A\r\n", "abcd"}) {
        MovedTick::sAdvance(60000);
        m_script->incoming = {bytes};
        EXPECT_TRUE(CmdPass());
    }
    EXPECT_EQ(handled, 2);
}

TEST_F(NetTCPSessionExchange, DataPass_NothingConsumed_PausesBetweenTheOffers)
{
    constexpr int OFFERS = 50;
    TestHostSession& session = MakeScripted();
    int offers = 0;
    session.hooks.data = [&](TestHostSession&, const std::string&, ULONG& length) {
        if (++offers <= OFFERS)
            length = 0;
    };
    m_script->incoming = {"x"};
    ExpectPauses(OFFERS, [&] { EXPECT_TRUE(DataPass()); });
    EXPECT_EQ(offers, OFFERS + 1);
}

// --- the monitor

TEST_F(NetTCPSessionExchange, Monitor_NothingToDoWithoutBlockTime_PausesInEachCycle)
{
    constexpr int CYCLES = 50;
    TestHostSession& session = MakeScripted();
    m_script->SetBlockTime(0);
    session.xSetPeriodicMilliSecs(1000000);
    int cycles = 0;
    session.hooks.preRead = [&](TestHostSession& self, bool, ULONG&) {
        if (++cycles > CYCLES)
            self.xSetSessionCompleted();
    };
    ExpectPauses(CYCLES, [&] { session.xMonitorNet(m_script); });
    EXPECT_EQ(cycles, CYCLES + 1);
}

TEST_F(NetTCPSessionExchange, Monitor_TimeOutAndDisconnectTogether_TheTimeOutIsSeenFirst)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    MakeDisconnectPending();
    MovedTick::sAdvance(60000);
    session.xMonitorNet(m_script);
    EXPECT_EQ(session.GetNotes(), (TEXTS{"closed"}));
    EXPECT_TRUE(session.xCheckForDisconnectMsg());
    EXPECT_TRUE(m_script->IsConnected());
}

TEST_F(NetTCPSessionExchange, Monitor_DisconnectWaits_IsPerformedBeforeAnyHandlerOfTheCycle)
{
    TestHostSession& session = MakeScripted();
    session.hooks.preRead = [](TestHostSession& self, bool, ULONG&) { self.Note("preRead"); };
    MakeDisconnectPending();
    m_script->incoming = {"A\r\n"};
    session.xMonitorNet(m_script);
    EXPECT_EQ(session.GetNotes(), (TEXTS{"disconnect:bye", "mainNetClosed", "closed"}));
}

TEST_F(NetTCPSessionExchange, RecvCommand_TimeOutAndDisconnectTogether_TheTimeOutIsSeenFirst)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    MakeDisconnectPending();
    MovedTick::sAdvance(60000);
    m_script->incoming = {"A\r\n"};
    EXPECT_EQ(ReceiveAll(m_buffer), TEXTS{});
    EXPECT_EQ(session.GetNotes(), TEXTS{});
    EXPECT_TRUE(session.xCheckForDisconnectMsg());
    EXPECT_TRUE(m_script->IsConnected());
}

TEST_F(NetTCPSessionExchange, RecvCommand_NothingComesWithoutBlockTime_PausesInEachTurn)
{
    constexpr int TURNS = 50;
    TestHostSession& session = MakeScripted();
    m_script->SetBlockTime(0);
    int turns = 0;
    session.hooks.shouldWait = [&](TestHostSession&) { return ++turns <= TURNS; };
    ExpectPauses(TURNS, [&] { EXPECT_EQ(ReceiveAll(m_buffer), TEXTS{}); });
    EXPECT_EQ(turns, TURNS + 1);
}

TEST_F(NetTCPSessionExchange, Monitor_ReceiveBuffer_HasTheSizeOfTheSystemsSendBuffer_KeptOnPurpose)
{
    for (const bool data : {false, true}) {
        std::unique_ptr<NetTCP> served;
        Pair(served, m_client);
        TestHostSession& session = Make(std::move(served));
        session.xSetDataMode(data);
        const ULONG expected = std::max<ULONG>(session.xGetMainSocket()->GetBufSendSize(), 1024);
        m_client->ShutdownAndClose();
        Run();
        EXPECT_EQ(session.GetLastCapacity(), expected);
    }
}

TEST_F(NetTCPSessionExchange, Monitor_ByteByByte_YieldsTheCommandsAndRepliesInOrder)
{
    TestHostSession& session = MakeServed();
    session.hooks.command = [](TestHostSession& self, const String& command) {
        EXPECT_TRUE(self.xSendCommand(self.xGetMainSocket(), String("200 ") + command));
        if (command == "QUIT")
            self.xShutdownAndClose(self.xGetMainSocket());
    };
    ASSERT_TRUE(session.xConstrStartSession());
    for (const char byte : std::string("USER a\r\nQUIT\r\n"))
        ClientSends(std::string(1, byte));
    EXPECT_EQ(ClientReceives(std::string::npos), "200 USER a\r\n200 QUIT\r\n");
    ASSERT_TRUE(WaitFor([&] { return session.IsComplete(); }));
    EXPECT_EQ(Status().GetCommandsIn(), 2U);
    EXPECT_EQ(Status().GetCommandsOut(), 2U);
    EXPECT_EQ(Status().GetDataInBytes(), 14U);
    EXPECT_EQ(Status().GetDataOutBytes(), 22U);
}

TEST_F(NetTCPSessionExchange, Monitor_HangUpAtEveryByteOfADialogue_EndsTheSessionCleanly)
{
    const std::string dialogue = "USER a\r\nPASS b\r\nQUIT\r\n";
    for (std::size_t sent = 0; sent <= dialogue.size(); ++sent) {
        std::unique_ptr<NetTCP> served;
        Pair(served, m_client);
        TestHostSession& session = Make(std::move(served));
        session.hooks.command = [](TestHostSession& self, const String& command) {
            self.xSendCommand(self.xGetMainSocket(), command);
        };
        m_log.Clear();
        ClientSends(dialogue.substr(0, sent));
        m_client->ShutdownAndClose();
        Run();
        const std::string whole = dialogue.substr(0, sent);
        ULONG8 commands = 0;
        for (std::size_t at = 0; (at = whole.find("\r\n", at)) != std::string::npos; at += 2)
            ++commands;
        EXPECT_EQ(Status().GetCommandsIn(), commands);
        EXPECT_EQ(m_log.Count("Connection Closed"), 1U);
    }
}

TEST_F(NetTCPSessionExchange, Monitor_TimeOut_EndsAndLeavesTheSocketToTheThread)
{
    for (const bool data : {false, true}) {
        std::unique_ptr<NetTCP> served;
        Pair(served, m_client);
        TestHostSession& session = Make(std::move(served), data ? 0 : 1);
        session.xSetDataMode(data);
        session.hooks.closed = [](TestHostSession& self) {
            EXPECT_TRUE(self.xIsTimedOut());
            EXPECT_TRUE(self.xGetMainSocket()->IsConnected());
        };
        Run();
        EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "closed", "end", "mainNetClosed"}));
        EXPECT_TRUE(ClientSeesEnd());
    }
}

TEST_F(NetTCPSessionExchange, Monitor_DisconnectMessage_IsPerformedWithinAPeriodAndACycle)
{
    TestHostSession& session = MakeServed();
    session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "maintenance");
    Run();
    EXPECT_EQ(session.GetNotes(),
              (TEXTS{"start", "handle", "disconnect:maintenance", "mainNetClosed", "closed", "end"}));
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionExchange, Monitor_DisconnectMessage_TheCycleThatTakesItStillReadsOnce_KeptOnPurpose)
{
    TestHostSession& session = MakeServed();
    session.xSetPeriodicMilliSecs(0);
    session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "");
    ClientSends("LAST\r\n");
    session.xGetMainSocket()->SetBlockTime(5000); // so that this one read is sure to see the bytes
    Run();
    EXPECT_EQ(session.GetNotes(),
              (TEXTS{"start", "handle", "command:LAST", "disconnect:", "mainNetClosed", "closed", "end"}));
}

TEST_F(NetTCPSessionExchange, Monitor_EndRequest_EndsIt)
{
    TestHostSession& session = MakeServed();
    ASSERT_TRUE(session.xConstrStartSession());
    ASSERT_TRUE(WaitFor([&] { return session.GetNotes().size() == 2; }));
    session.ForceCompleteAsync();
    ASSERT_TRUE(WaitFor([&] { return session.IsComplete(); }));
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "closed", "end", "mainNetClosed"}));
}

TEST_F(NetTCPSessionExchange, Monitor_PeriodicCycle_HandlersThenOneMessageAndNoRead)
{
    TestHostSession& session = MakeScripted();
    session.xSetPeriodicMilliSecs(0);
    session.SendControlMsg(2, "a");
    session.SendControlMsg(3, "b");
    m_script->incoming = {"X\r\n"};
    session.hooks.preRead = [](TestHostSession& self, bool periodic, ULONG&) {
        self.Note(periodic ? "pre periodic" : "pre");
    };
    session.hooks.control = [this](TestHostSession&, const CTRLMSG&) { EXPECT_EQ(m_script->receives, 0U); };
    session.hooks.command = [](TestHostSession& self, const String&) { self.xSetSessionCompleted(); };
    session.xMonitorNet(m_script);
    EXPECT_EQ(session.GetNotes(), (TEXTS{"pre", "pre periodic", "control:2:a", "pre", "pre periodic", "control:3:b",
                                         "pre", "pre periodic", "command:X", "closed"}));
}

TEST_F(NetTCPSessionExchange, Monitor_BetweenPeriods_TakesNoMessage)
{
    const MovedTick tick(0xFFFFFFFFU); // periods wrap safely
    TestHostSession& session = MakeScripted();
    session.SendControlMsg(2, "a");
    int cycles = 0;
    session.hooks.preRead = [&](TestHostSession& self, bool periodic, ULONG&) {
        EXPECT_EQ(periodic, periodic && cycles == 11);
        ++cycles;
        MovedTick::sAdvance(100);
        if (cycles > 13)
            self.xSetSessionCompleted();
    };
    session.xMonitorNet(m_script);
    EXPECT_EQ(session.GetNotes(), (TEXTS{"control:2:a", "closed"}));
}

TEST_F(NetTCPSessionExchange, Monitor_HandlerHadWork_TheReadDoesNotWaitAndTheBlockTimeComesBack)
{
    TestHostSession& session = MakeScripted();
    std::vector<ULONG> blockTimes;
    session.hooks.preRead = [&](TestHostSession&, bool, ULONG& activity) {
        EXPECT_EQ(m_script->GetBlockTimeMs(), 2U);
        activity += blockTimes.size() == 1 ? 1 : 0;
    };
    session.hooks.command = [&](TestHostSession& self, const String&) {
        blockTimes.push_back(m_script->GetBlockTimeMs());
        if (blockTimes.size() == 3)
            self.xSetSessionCompleted();
    };
    m_script->incoming = {"A\r\n", "B\r\n", "C\r\n"};
    session.xMonitorNet(m_script);
    EXPECT_EQ(blockTimes, (std::vector<ULONG>{2, 0, 2}));
    EXPECT_EQ(m_script->GetBlockTimeMs(), 2U);
}

TEST_F(NetTCPSessionExchange, Monitor_PassStopsDuringANonWaitingRead_TheBlockTimeComesBack)
{
    TestHostSession& session = MakeScripted();
    m_script->hangUpAtEnd = true;
    session.hooks.preRead = [](TestHostSession&, bool, ULONG& activity) { ++activity; };
    session.xMonitorNet(m_script);
    EXPECT_FALSE(m_script->IsConnected());
    EXPECT_EQ(m_script->GetBlockTimeMs(), 2U);
}

TEST_F(NetTCPSessionExchange, Monitor_HandlerSetsAnotherBlockTime_ItStays)
{
    TestHostSession& session = MakeScripted();
    session.hooks.command = [this](TestHostSession& self, const String& command) {
        if (command == "A")
            m_script->SetBlockTime(7);
        else
            self.xSetSessionCompleted();
    };
    m_script->incoming = {"A\r\n", "B\r\n"};
    session.xMonitorNet(m_script);
    EXPECT_EQ(m_script->GetBlockTimeMs(), 7U);
}

TEST_F(NetTCPSessionExchange, Monitor_HandlerConnectsAgain_MonitoringGoesOn)
{
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    listener.SetBlockTime(5000);
    TestHostSession& session = MakeServed();
    int times = 0;
    session.hooks.closing = [&](TestHostSession& self) {
        if (++times == 1) {
            EXPECT_TRUE(self.xConnect(self.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
        }
    };
    ClientSends("FIRST\r\nha");
    m_client->ShutdownAndClose();
    ASSERT_TRUE(session.xConstrStartSession());
    m_client.reset(listener.Accept());
    ASSERT_NE(m_client, nullptr);
    ClientSends("lf\r\n"); // the command under way goes on too
    ASSERT_TRUE(WaitFor([&] { return session.GetNotes().size() >= 6; }));
    m_client->ShutdownAndClose();
    ASSERT_TRUE(WaitFor([&] { return session.IsComplete(); }));
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "command:FIRST", "mainNetClosed", "closing", "command:half",
                                         "mainNetClosed", "closing", "closed", "end"}));
}

TEST_F(NetTCPSessionExchange, Monitor_OfASecondSocket_LeavesTheMainOneOpen)
{
    std::unique_ptr<NetTCP> second;
    std::unique_ptr<NetTCP> secondClient;
    Pair(second, secondClient);
    TestHostSession& session = MakeServed();
    session.hooks.handle = [&](TestHostSession& self) { self.xMonitorNet(second.get()); };
    SendAll(*secondClient, "X\r\n");
    secondClient->ShutdownAndClose();
    Run();
    EXPECT_EQ(session.GetNotes(), (TEXTS{"start", "handle", "command:X", "closing", "closed", "end", "mainNetClosed"}));
}

// --- xRecvCommand

TEST_F(NetTCPSessionExchange, RecvCommand_AnyBytesInAnyPieces_SplitsByTheBook)
{
    TestHostSession& session = MakeScripted();
    session.hooks.shouldWait = [this](TestHostSession&) { return !m_script->incoming.empty(); };
    std::mt19937 random(4711);
    for (int round = 0; round < 1500; ++round) {
        const std::size_t maximum = round % 5 == 0 ? 1024 : random() % 9;
        const bool loneLF = random() % 2 == 0;
        const std::string bytes = RandomBytes(random, random() % 60);
        session.xSetMaxCmdSize(maximum);
        session.xSetCmdEndIncludesLF(loneLF);
        m_script->incoming = RandomPieces(random, bytes);
        BUFFER buffer(1 + random() % 10);
        ASSERT_EQ(ReceiveAll(buffer), SplitByTheBook(bytes, maximum, loneLF))
            << testing::PrintToString(bytes) << " maximum " << maximum;
    }
}

TEST_F(NetTCPSessionExchange, RecvCommand_BytesBehindTheCommand_StayInTheBuffer)
{
    TestHostSession& session = MakeScripted();
    m_script->incoming = {"A\r\nB\r\nrest"};
    String command;
    bool oversized = true;
    ASSERT_TRUE(session.xRecvCommand(m_script, session.xGetMainNetState(), m_buffer.rb, command, oversized));
    EXPECT_EQ(command, "A");
    EXPECT_FALSE(oversized);
    EXPECT_EQ(m_buffer.rb.position, 3U);
    EXPECT_EQ(m_buffer.rb.length, 10U);
    ASSERT_TRUE(session.xRecvCommand(m_script, session.xGetMainNetState(), m_buffer.rb, command, oversized));
    EXPECT_EQ(command, "B");
    EXPECT_EQ(m_script->receives, 1U);
    EXPECT_EQ(FinalCount(C::COMMANDS_IN), 2U);
}

TEST_F(NetTCPSessionExchange, RecvCommand_Oversized_IsReportedAndTheRestIsANewCommand)
{
    TestHostSession& session = MakeScripted();
    session.hooks.shouldWait = [](TestHostSession&) { return false; };
    m_script->incoming = {std::string(1024, 'x') + "y\r\n" + std::string(1023, 'z') + "\r\n"};
    EXPECT_EQ(ReceiveAll(m_buffer), (TEXTS{"oversized:" + std::string(1024, 'x'), "command:y",
                                           "oversized:" + std::string(1023, 'z') + "\r", "command:"}));
    EXPECT_EQ(FinalCount(C::COMMANDS_IN), 4U);
}

TEST_F(NetTCPSessionExchange, RecvCommand_EndRequestTimeOutOrNoMoreWaiting_FalseAndTheSocketStaysOpen)
{
    TestHostSession& session = MakeScripted();
    int asked = 0;
    session.hooks.shouldWait = [&](TestHostSession&) { return ++asked < 3; };
    m_script->SetBlockTime(0);
    EXPECT_EQ(ReceiveAll(m_buffer), TEXTS{});
    EXPECT_EQ(asked, 3);
    m_script->incoming = {"A\r\n"};
    session.xSetTimeOutSecs(0);
    EXPECT_EQ(ReceiveAll(m_buffer), TEXTS{});
    session.xSetTimeOutSecs(60);
    session.ForceCompleteAsync();
    EXPECT_EQ(ReceiveAll(m_buffer), TEXTS{});
    EXPECT_EQ(m_script->incoming.size(), 1U);
    EXPECT_TRUE(m_script->IsConnected());
}

TEST_F(NetTCPSessionExchange, RecvCommand_WaitingDisconnect_IsPerformed)
{
    TestHostSession& session = MakeScripted();
    m_script->incoming = {"A\r\n"};
    MakeDisconnectPending();
    EXPECT_EQ(ReceiveAll(m_buffer), TEXTS{});
    EXPECT_EQ(session.GetNotes(), (TEXTS{"disconnect:bye", "mainNetClosed"}));
    EXPECT_FALSE(session.xCheckForDisconnectMsg());
    EXPECT_EQ(m_buffer.rb.length, 0U);
}

TEST_F(NetTCPSessionExchange, RecvCommand_PeerGone_FalseWithTheUnfinishedText)
{
    TestHostSession& session = MakeScripted();
    m_script->incoming = {"ha", "lf"};
    m_script->hangUpAtEnd = true;
    String command("old");
    bool oversized = true;
    EXPECT_FALSE(session.xRecvCommand(m_script, session.xGetMainNetState(), m_buffer.rb, command, oversized));
    EXPECT_EQ(command, "half");
    EXPECT_FALSE(oversized);
    EXPECT_EQ(m_buffer.rb.length, 0U);
    EXPECT_EQ(Lines(), (TEXTS{Line(session.xGetMainNetState(), "Connection Closed")}));
    EXPECT_EQ(ReceiveAll(m_buffer), TEXTS{});
    EXPECT_EQ(m_buffer.rb.length, 0U);
    EXPECT_EQ(FinalCount(C::COMMANDS_IN), 0U);
}

TEST_F(NetTCPSessionExchange, RecvCommand_ResetOnReceiveOff_RestartsTheTimeOutAllTheSame_KeptOnPurpose)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    session.xSetResetTimeOutOnRecv(false);
    MovedTick::sAdvance(59000);
    m_script->incoming = {"A\r\n"};
    session.hooks.shouldWait = [](TestHostSession&) { return false; };
    EXPECT_EQ(ReceiveAll(m_buffer), (TEXTS{"command:A"}));
    MovedTick::sAdvance(59999);
    EXPECT_FALSE(session.xIsTimedOut());
    MovedTick::sAdvance(1);
    EXPECT_TRUE(session.xIsTimedOut());
}

TEST_F(NetTCPSessionExchange, RecvCommand_OnTheSessionsThread_WaitsForBytes)
{
    TestHostSession& session = MakeServed();
    session.hooks.handle = [&](TestHostSession& self) {
        String command;
        bool oversized;
        while (self.xRecvCommand(self.xGetMainSocket(), self.xGetMainNetState(), m_buffer.rb, command, oversized))
            EXPECT_TRUE(self.xSendCommand(self.xGetMainSocket(), command));
    };
    ASSERT_TRUE(session.xConstrStartSession());
    ClientSends("A");
    ClientSends("B\r\nC\r\n");
    EXPECT_EQ(ClientReceives(7), "AB\r\nC\r\n");
    m_client->ShutdownAndClose();
    ASSERT_TRUE(WaitFor([&] { return session.IsComplete(); }));
}

// --- xRecvData

TEST_F(NetTCPSessionExchange, RecvData_BytesCame_CountsThemAndLeavesTheTimeOut)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    unsigned char data[4];
    ULONG length = sizeof data;
    EXPECT_TRUE(session.xRecvData(m_script, {}, data, length));
    EXPECT_EQ(length, 0U);
    MovedTick::sAdvance(59000);
    m_script->incoming = {"abcdef"};
    length = sizeof data;
    EXPECT_TRUE(session.xRecvData(m_script, {}, data, length));
    EXPECT_EQ(length, 4U);
    MovedTick::sAdvance(1000);
    EXPECT_TRUE(session.xIsTimedOut());
    EXPECT_EQ(FinalCount(C::DATA_IN_BYTES), 4U);
}

TEST_F(NetTCPSessionExchange, RecvData_OtherSocketFails_LogsTheGivenStateAndTellsNobody)
{
    TestHostSession& session = Make(nullptr);
    ScriptedSocket other(std::move(m_served));
    other.hangUpAtEnd = true;
    const NETSTATE given{NetIP(String("1.2.3.4")), 5, NetIP(String("6.7.8.9")), 10};
    unsigned char data[4];
    ULONG length = sizeof data;
    EXPECT_FALSE(session.xRecvData(&other, given, data, length));
    EXPECT_EQ(length, 0U);
    length = sizeof data;
    EXPECT_FALSE(session.xRecvData(&other, given, data, length));
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(Lines(), (TEXTS{Line(given, "Connection Closed")}));
    EXPECT_TRUE(session.GetNotes().empty());
}

// --- sending

TEST_F(NetTCPSessionExchange, SendCommand_ThreeLetters_SendsFiveBytesAtOnceAndCountsOne)
{
    UseDebugLines();
    TestHostSession& session = MakeScripted();
    const NETSTATE state = session.xGetMainNetState();
    EXPECT_TRUE(session.xSendCommand(m_script, "220"));
    EXPECT_EQ(m_script->sent, "220\r\n");
    EXPECT_EQ(m_script->sends, 1U);
    EXPECT_EQ(Lines('D'), (TEXTS{Line(state, "Sent Command", "220")})); // no "Sent Data" beside it
    EXPECT_TRUE(session.xSendCommandForce(m_script, ""));
    EXPECT_EQ(m_script->sent, "220\r\n\r\n");
    EXPECT_EQ(FinalCount(C::COMMANDS_OUT), 2U);
    EXPECT_EQ(Status().GetDataOutBytes(), 7U);
}

TEST_F(NetTCPSessionExchange, SendCommand_Fails_DoesNotCount)
{
    TestHostSession& session = MakeScripted();
    session.xSetTimeOutSecs(0);
    EXPECT_FALSE(session.xSendCommand(m_script, "220"));
    EXPECT_EQ(FinalCount(C::COMMANDS_OUT), 0U);
}

TEST_F(NetTCPSessionExchange, SendAllData_InParts_SendsEverything)
{
    TestHostSession& session = MakeScripted();
    m_script->sendSizes = {1, 0, 2, 0, 0, 3};
    int asked = 0;
    session.hooks.shouldWait = [&](TestHostSession&) { return ++asked > 0; };
    EXPECT_TRUE(SendText("abcdefghij"));
    EXPECT_EQ(m_script->sent, "abcdefghij");
    EXPECT_EQ(m_script->sends, 7U);
    EXPECT_EQ(asked, 7);
    m_script->SetBlockTime(0);
    m_script->sendSizes = {0, 1};
    EXPECT_TRUE(SendTextForce("kl"));
    EXPECT_EQ(asked, 7);
    EXPECT_EQ(FinalCount(C::DATA_OUT_BYTES), 12U);
    EXPECT_EQ(Status().GetCommandsOut(), 0U);
}

TEST_F(NetTCPSessionExchange, SendAllData_NoMoreWaitingAfterTheLastByte_FailsAlthoughAllWentOut_KeptOnPurpose)
{
    TestHostSession& session = MakeScripted();
    session.hooks.shouldWait = [](TestHostSession&) { return false; };
    EXPECT_FALSE(SendText("abc"));
    EXPECT_EQ(m_script->sent, "abc");
    EXPECT_TRUE(m_script->IsConnected());
    EXPECT_FALSE(session.xSendCommand(m_script, "250"));
    EXPECT_EQ(m_script->sent, "abc250\r\n");
    EXPECT_TRUE(SendText("")); // nothing to send: not asked at all
    EXPECT_EQ(FinalCount(C::DATA_OUT_BYTES), 8U);
    EXPECT_EQ(Status().GetCommandsOut(), 0U);
}

TEST_F(NetTCPSessionExchange, SendAllData_NothingWentOutAndNoMoreWaiting_Fails)
{
    TestHostSession& session = MakeScripted();
    session.hooks.shouldWait = [](TestHostSession&) { return false; };
    m_script->sendSizes = {0};
    EXPECT_FALSE(SendText("abc"));
    EXPECT_EQ(m_script->sends, 1U);
}

TEST_F(NetTCPSessionExchange, SendAllData_Unconnected_FailsQuietly)
{
    TestHostSession& session = Make(nullptr);
    EXPECT_FALSE(SendText("abc"));
    EXPECT_FALSE(SendText(""));
    EXPECT_FALSE(SendTextForce("abc"));
    EXPECT_FALSE(session.xSendCommand(session.xGetMainSocket(), "x"));
    EXPECT_TRUE(Lines().empty());
    EXPECT_TRUE(session.GetNotes().empty());
}

TEST_F(NetTCPSessionExchange, SendAllData_EndRequestTimeOutOrDisconnect_GivesUpWhereForceGoesOn_KeptOnPurpose)
{
    for (int reason = 0; reason < 3; ++reason) {
        std::unique_ptr<NetTCP> client;
        Pair(m_served, client);
        TestHostSession& session = MakeScripted();
        session.hooks.shouldWait = [](TestHostSession&) { return false; };
        if (reason == 0)
            session.ForceCompleteAsync();
        else if (reason == 1)
            session.xSetTimeOutSecs(0);
        else
            MakeDisconnectPending();
        EXPECT_FALSE(SendText("abc"));
        EXPECT_EQ(m_script->sends, 0U);
        EXPECT_TRUE(m_script->IsConnected());
        m_script->sendSizes = {1, 0, 1};
        EXPECT_TRUE(SendTextForce("last"));
        EXPECT_TRUE(session.xSendCommandForce(m_script, "words"));
        EXPECT_EQ(m_script->sent, "lastwords\r\n");
        EXPECT_EQ(session.xCheckForDisconnectMsg(), reason == 2);
    }
}

TEST_F(NetTCPSessionExchange, SendAllData_Fails_LogsTheEndsAsTheyWereOnce)
{
    for (const bool force : {false, true}) {
        std::unique_ptr<NetTCP> client;
        Pair(m_served, client);
        m_log.Clear();
        TestHostSession& session = MakeScripted();
        m_script->sendSizes = {2};
        m_script->failAfterSends = 1;
        EXPECT_FALSE(force ? SendTextForce("abc") : SendText("abc"));
        EXPECT_EQ(m_script->sent, "ab");
        EXPECT_EQ(session.GetNotes(), (TEXTS{"mainNetClosed"}));
        EXPECT_EQ(Lines(), (TEXTS{Line(session.xGetMainNetState(), "Connection Closed")}));
        EXPECT_FALSE(m_script->IsActive());
    }
}

TEST_F(NetTCPSessionExchange, SendAllData_ResetOnSend_RestartsTheTimeOutOnlyWhenItIsOn)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    for (const bool reset : {true, false}) {
        session.xResetTimeOut();
        session.xSetResetTimeOutOnSend(reset);
        MovedTick::sAdvance(59000);
        EXPECT_TRUE(SendText("x"));
        MovedTick::sAdvance(1000);
        EXPECT_EQ(session.xIsTimedOut(), !reset);
    }
}

TEST_F(NetTCPSessionExchange, SendAllData_NothingGoesOut_DoesNotRestartTheTimeOut)
{
    const MovedTick tick(0);
    TestHostSession& session = MakeScripted();
    m_script->sendSizes = {0, 0, 0};
    session.hooks.shouldWait = [](TestHostSession&) {
        MovedTick::sAdvance(40000);
        return true;
    };
    EXPECT_FALSE(SendText("x"));
    EXPECT_EQ(m_script->sends, 2U) << "40 s, 80 s";
    EXPECT_TRUE(session.xIsTimedOut());
}

TEST_F(NetTCPSessionExchange, SendAllData_NothingGoesOutWithoutBlockTime_PausesInEachTurn)
{
    constexpr int TURNS = 50;
    MakeScripted();
    m_script->SetBlockTime(0);
    for (const bool force : {false, true}) {
        m_script->sendSizes.assign(TURNS, 0);
        ExpectPauses(TURNS, [&] { EXPECT_TRUE(force ? SendTextForce("x") : SendText("x")); });
    }
    EXPECT_EQ(m_script->sent, "xx");
}

/// What ends a send to a client that reads nothing.
enum class ENDING
{
    TIME_OUT,
    DISCONNECT,
    END_REQUEST
};

class NetTCPSessionStuckClient : public NetTCPSessionExchange, public testing::WithParamInterface<ENDING>
{
};

// The client never reads, so the send fills the system's buffers and then waits.
TEST_P(NetTCPSessionStuckClient, SendAllData_ClientReadsNothing_IsEndedFromOutside)
{
    const MovedTick tick(0);
    const std::string bytes(64 << 20, 'x');
    TestHostSession& session = MakeServed();
    std::atomic<bool> waiting{false};
    session.hooks.shouldWait = [&](TestHostSession& self) {
        waiting = true;
        CTRLMSG msg;
        self.xProcessMsgsAndTakeNext(msg);
        return true;
    };
    session.hooks.handle = [&](TestHostSession& self) {
        self.xSetResetTimeOutOnSend(false);
        EXPECT_FALSE(SendText(bytes));
        EXPECT_TRUE(self.xGetMainSocket()->IsConnected());
    };
    ASSERT_TRUE(session.xConstrStartSession());
    ASSERT_TRUE(WaitFor([&] { return waiting.load(); }));
    if (GetParam() == ENDING::TIME_OUT)
        MovedTick::sAdvance(60000);
    else if (GetParam() == ENDING::DISCONNECT)
        session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "");
    else
        session.ForceCompleteAsync();
    EXPECT_TRUE(WaitFor([&] { return session.IsComplete(); }));
}

INSTANTIATE_TEST_SUITE_P(Each, NetTCPSessionStuckClient,
                         testing::Values(ENDING::TIME_OUT, ENDING::DISCONNECT, ENDING::END_REQUEST));

TEST_F(NetTCPSessionExchange, SendAllDataForce_MoreThanTheSystemsBuffersHold_AllArrives)
{
    TestHostSession& session = MakeServed();
    session.ForceCompleteAsync();
    const std::string bytes(16 << 20, 'x');
    std::thread reader([this, &bytes] { EXPECT_EQ(ClientReceives(bytes.size()).size(), bytes.size()); });
    EXPECT_TRUE(SendTextForce(bytes));
    reader.join();
}

// --- the send buffer

TEST_F(NetTCPSessionExchange, SetBufMode_On_DoesNotTurnBufferingOn_KeptOnPurpose)
{
    TestHostSession& session = MakeScripted();
    EXPECT_FALSE(session.xIsBufMode());
    session.xSetBufMode(m_script, true);
    EXPECT_FALSE(session.xIsBufMode());
    EXPECT_TRUE(SendText("direct"));
    EXPECT_EQ(m_script->sent, "direct");
    session.m_bufferedMode = true;
    EXPECT_TRUE(session.xIsBufMode());
    session.xSetBufMode(m_script, false);
    EXPECT_TRUE(session.xIsBufMode());
}

TEST_F(NetTCPSessionExchange, BufferedMode_WithoutABuffer_SendsDirectly)
{
    TestHostSession& session = MakeScripted();
    session.m_bufferedMode = true;
    EXPECT_TRUE(SendText("direct"));
    EXPECT_EQ(m_script->sent, "direct");
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
}

TEST_F(NetTCPSessionExchange, SendBuffer_Unconnected_Holds8192BytesAndSendsItselfWholeWhenMoreCome)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    EXPECT_TRUE(SendText(""));
    EXPECT_TRUE(SendText(std::string(8191, 'a')));
    EXPECT_TRUE(SendText("b")); // full, which is not yet too much
    EXPECT_EQ(m_script->sent, "");
    EXPECT_TRUE(SendText("c"));
    EXPECT_EQ(m_script->sent, std::string(8191, 'a') + "b");
    EXPECT_TRUE(SendText(std::string(20000, 'd')));
    EXPECT_EQ(m_script->sent.size(), 8192U * 3);
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sent, std::string(8191, 'a') + "bc" + std::string(20000, 'd'));
    const std::size_t sends = m_script->sends;
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sends, sends);
}

TEST_F(NetTCPSessionExchange, SendBuffer_Connected_HasTheSizeOfTheSystemsSendBuffer)
{
    TestHostSession& session = MakeScripted();
    session.xSetBufMode(m_script, true);
    session.m_bufferedMode = true;
    const std::size_t capacity = std::max<std::size_t>(m_script->GetBufSendSize(), 1024);
    EXPECT_TRUE(SendText(std::string(capacity, 'a')));
    EXPECT_EQ(m_script->sends, 0U);
    EXPECT_TRUE(SendText("b"));
    EXPECT_EQ(m_script->sent.size(), capacity);
}

TEST_F(NetTCPSessionExchange, SetBufMode_Off_DiscardsWhatIsUnsent_KeptOnPurpose)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    EXPECT_TRUE(SendText("lost"));
    session.xSetBufMode(m_script, false);
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sent, "");
    EXPECT_TRUE(SendText("kept")); // the buffer is still there
    EXPECT_EQ(m_script->sent, "");
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sent, "kept");
}

TEST_F(NetTCPSessionExchange, SetBufMode_OnAgain_KeepsTheBytesUnlessTheSizeChanges)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    EXPECT_TRUE(SendText("kept"));
    UseBuffer();
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sent, "kept");
    ASSERT_TRUE(m_script->xSetSockBufSendSize(32768));
    ASSERT_NE(m_script->GetBufSendSize(), 8192U);
    EXPECT_TRUE(SendText("lost"));
    session.xSetBufMode(m_script, true);
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sent, "kept");
}

TEST_F(NetTCPSessionExchange, SendCommand_Buffered_CountsAtOnceAndGoesOutWithTheBuffer)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    EXPECT_TRUE(session.xSendCommand(m_script, "220"));
    EXPECT_TRUE(session.xSendCommandForce(m_script, "221"));
    EXPECT_EQ(m_script->sent, "");
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sent, "220\r\n221\r\n");
    EXPECT_EQ(FinalCount(C::COMMANDS_OUT), 2U);
}

TEST_F(NetTCPSessionExchange, SendCommand_BufferedInANewTimeUnit_CountsThere)
{
    MovedCalendar calendar(2000000000000);
    TestHostSession& session = MakeScripted();
    UseBuffer();
    calendar.Set(2000000001000);
    EXPECT_TRUE(session.xSendCommand(m_script, "220"));
    EXPECT_EQ(FinalCount(C::COMMANDS_OUT), 1U);
    ASSERT_EQ(Rows().size(), 2U);
    EXPECT_EQ(Rows()[0].GetCommandsOut(), 0U);
    EXPECT_EQ(Rows()[1].GetCommandsOut(), 1U);
}

TEST_F(NetTCPSessionExchange, SendBuffer_FullAndTheSendGivesUp_Fails)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    session.xSetTimeOutSecs(0);
    EXPECT_TRUE(SendText(std::string(8192, 'a')));
    EXPECT_FALSE(SendText("b"));
    EXPECT_EQ(m_script->sends, 0U);
    EXPECT_TRUE(SendTextForce("c"));
    EXPECT_EQ(m_script->sent, std::string(8192, 'a'));
    EXPECT_TRUE(session.xSendPurgeSendBufForce(m_script));
    EXPECT_EQ(m_script->sent, std::string(8192, 'a') + "c");
}

TEST_F(NetTCPSessionExchange, SendPurgeSendBuf_Fails_EmptiesTheBufferAllTheSame_KeptOnPurpose)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    EXPECT_TRUE(SendText("lost"));
    session.xSetTimeOutSecs(0);
    EXPECT_FALSE(session.xSendPurgeSendBuf(m_script));
    session.xSetTimeOutSecs(60);
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sends, 0U);
}

TEST_F(NetTCPSessionExchange, SendPurgeSendBuf_BufferingTurnedOff_TrueAndTheBytesWait)
{
    TestHostSession& session = MakeScripted();
    UseBuffer();
    EXPECT_TRUE(SendText("wait"));
    session.m_bufferedMode = false;
    EXPECT_TRUE(session.xSendPurgeSendBuf(m_script));
    EXPECT_EQ(m_script->sends, 0U);
}

// --- debug lines of the exchange

TEST_F(NetTCPSessionExchange, DebugLines_WhenAskedFor_TellWhatWasExchanged)
{
    UseDebugLines();
    TestHostSession& session = MakeScripted();
    session.xSetMaxCmdSize(4);
    const NETSTATE state = session.xGetMainNetState();
    m_script->incoming = {"abcdef\r\n"};
    PassAll();
    m_script->incoming = {"ghijk\r\n"};
    session.hooks.shouldWait = [](TestHostSession&) { return false; };
    ReceiveAll(m_buffer);
    session.hooks.shouldWait = nullptr;
    m_script->incoming = {std::string(200, 'x')};
    EXPECT_TRUE(DataPass());
    EXPECT_TRUE(SendText("out\r\n"));
    EXPECT_TRUE(SendText(""));
    EXPECT_EQ(
        Lines('D'),
        (TEXTS{Line(state, "Received Command (Oversized)", "abcd"), Line(state, "Received Command", "ef"),
               Line(state, "Received Command (Oversized)", "ghij"), Line(state, "Received Command", "k"),
               Line(state, "Received Data", std::string(76, 'x')), Line(state, "Received Data", std::string(76, 'x')),
               Line(state, "Received Data", std::string(48, 'x')), Line(state, "Sent Data", "out%0D%0A")}));
    EXPECT_TRUE(Lines('N').empty());
}

TEST_F(NetTCPSessionExchange, DebugLines_OfWhatCame_StandInTheLogBeforeTheHandlerSeesIt)
{
    UseDebugLines();
    TestHostSession& session = MakeScripted();
    session.xSetMaxCmdSize(4);
    std::vector<std::size_t> lines;
    const auto countLines = [&](TestHostSession&, const String&) { lines.push_back(Lines('D').size()); };
    session.hooks.command = countLines;
    session.hooks.oversized = countLines;
    session.hooks.data = [&](TestHostSession&, const std::string&, ULONG&) { lines.push_back(Lines('D').size()); };
    m_script->incoming = {"abcdef\r\n"};
    PassAll();
    m_script->incoming = {"data"};
    EXPECT_TRUE(DataPass());
    EXPECT_EQ(lines, (std::vector<std::size_t>{1, 2, 3}));
}

TEST_F(NetTCPSessionExchange, DebugLines_NotAskedForAtConstruction_AreNotMade)
{
    TestHostSession& session = MakeScripted();
    UseDebugLines(); // too late
    m_script->incoming = {"A\r\n"};
    PassAll();
    m_script->incoming = {"B"};
    EXPECT_TRUE(DataPass());
    EXPECT_TRUE(session.xSendCommand(m_script, "C"));
    EXPECT_TRUE(SendText("D"));
    EXPECT_TRUE(Lines('D').empty());
}

// --- Telnet

TEST_F(NetTCPSessionExchange, FilterTelnetSpecials_AnyText_LosesItsLeadingRunOnly)
{
    TestHostSession& session = Make(nullptr);
    const auto filtered = [&](const std::string& text) {
        String string(text);
        session.xFilterTelnetSpecials(string);
        return string.str();
    };
    EXPECT_EQ(filtered("\xFF\xF4\xFF\xF2"
                       "ABOR"),
              "ABOR");
    EXPECT_EQ(filtered("\xF2"
                       "ABOR"),
              "ABOR");
    EXPECT_EQ(filtered("AB\xFFOR"), "AB\xFFOR");
    EXPECT_EQ(filtered("\xFF"
                       "A\xFF\xF4"
                       "B"),
              "A\xFF\xF4"
              "B");
    EXPECT_EQ(filtered("\xFE\xFF"
                       "A"),
              "\xFE\xFF"
              "A");
    EXPECT_EQ(filtered("\xF3"), "\xF3");
    EXPECT_EQ(filtered(std::string("\xFF\0A", 3)), std::string("\0A", 2));
    EXPECT_EQ(filtered("\xFF\xF4\xF2"), "");
    EXPECT_EQ(filtered("ABOR"), "ABOR");
    EXPECT_EQ(filtered(""), "");
}

} // namespace kqlib::test
