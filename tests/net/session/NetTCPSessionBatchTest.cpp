// Replies that are held back while further commands have arrived whole.
#include "net/session/NetTCPSession.h"

#include "net/session/ReplyBatch.h"
#include "tests/net/session/SessionFixture.h"

#include <functional>
#include <random>

namespace kqlib::test {
namespace {

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

class NetTCPSessionBatch : public SessionFixture
{
protected:
    /// A session over a scripted socket that receives pieces and then finds the connection closed. It answers each
    /// command with itself and "!".
    TestHostSession& MakeAnswering(std::deque<std::string> pieces, bool batch = true)
    {
        TestHostSession& session = MakeScripted();
        session.xSetBatchReplies(batch);
        m_script->incoming = std::move(pieces);
        m_script->hangUpAtEnd = true;
        session.hooks.command = [](TestHostSession& self, const String& command) { sAnswer(self, command); };
        return session;
    }
    static void sAnswer(TestHostSession& session, const String& command)
    {
        session.xSendCommand(session.xGetMainSocket(), command + "!");
    }
    /// Has the session read its commands by xRecvCommand instead of the monitor.
    void UseRecvCommand(const std::function<void(TestHostSession&, const String&)>& handler)
    {
        m_session->hooks.handle = [this, handler](TestHostSession& session) {
            NetTCP::RECVBUF buffer{static_cast<ULONG>(m_bytes.size()), m_bytes.data(), 0, 0, false};
            String command;
            bool oversized = false;
            while (
                session.xRecvCommand(session.xGetMainSocket(), session.xGetMainNetState(), buffer, command, oversized))
                handler(session, command);
        };
    }
    /// Runs a session that gets the commands A and B together, and calls action with the reply to A held back.
    void RunBetween(const std::function<void(TestHostSession&)>& action)
    {
        MakeAnswering({"A\r\nB\r\n"}).hooks.command = [this, action](TestHostSession& session, const String& command) {
            sAnswer(session, command);
            if (command == "A") {
                EXPECT_EQ(m_script->sent, "");
                action(session);
            }
        };
        Run();
    }

    std::vector<unsigned char> m_bytes = std::vector<unsigned char>(4096);
};

// --- what is held back, and for how long

TEST_F(NetTCPSessionBatch, Monitor_CommandsInOneReceive_OneSendForAllReplies)
{
    MakeAnswering({"A\r\nB\r\nC\r\n", "D\r\nE\r\n"});
    Run();
    EXPECT_EQ(m_script->sent, "A!\r\nB!\r\nC!\r\nD!\r\nE!\r\n");
    EXPECT_EQ(m_script->sends, 2U);
    EXPECT_EQ(Stored(NetCounterBlock::COMMANDS_OUT), 5U);
    EXPECT_EQ(Stored(NetCounterBlock::DATA_OUT_BYTES), 20U);
}

TEST_F(NetTCPSessionBatch, NotAskedFor_EachReplyGoesOutByItself)
{
    MakeAnswering({"A\r\nB\r\nC\r\n"}, false);
    Run();
    EXPECT_EQ(m_script->sent, "A!\r\nB!\r\nC!\r\n");
    EXPECT_EQ(m_script->sends, 3U);
}

TEST_F(NetTCPSessionBatch, RecvCommand_CommandsInOneReceive_OneSendForAllReplies)
{
    MakeAnswering({"A\r\nB\r\nC\r\n", "D\r\nE\r\n"});
    UseRecvCommand(sAnswer);
    Run();
    EXPECT_EQ(m_script->sent, "A!\r\nB!\r\nC!\r\nD!\r\nE!\r\n");
    EXPECT_EQ(m_script->sends, 2U);
}

TEST_F(NetTCPSessionBatch, PartOfACommandBehind_NoReplyWaitsForIt)
{
    for (const bool monitor : {true, false}) {
        Pair(m_served, m_client);
        TestHostSession& session = MakeAnswering({"A\r\nB\r\nC\r", "\n"});
        std::string sentAtB;
        const auto handler = [&](TestHostSession& self, const String& command) {
            sAnswer(self, command);
            if (command == "B")
                sentAtB = m_script->sent;
        };
        session.hooks.command = handler;
        if (!monitor)
            UseRecvCommand(handler);
        Run();
        EXPECT_EQ(sentAtB, "A!\r\nB!\r\n");
        EXPECT_EQ(m_script->sent, "A!\r\nB!\r\nC!\r\n");
        EXPECT_EQ(m_script->sends, 2U);
    }
}

TEST_F(NetTCPSessionBatch, LastCommandHasNoReply_TheOthersGoOutWithoutIt)
{
    TestHostSession& session = MakeAnswering({"A\r\nB\r\nquiet\r\n"});
    std::vector<std::string> sentBeforeReads;
    session.hooks.preRead = [&](TestHostSession&, bool, ULONG&) { sentBeforeReads.push_back(m_script->sent); };
    session.hooks.command = [](TestHostSession& self, const String& command) {
        if (!(command == "quiet"))
            sAnswer(self, command);
    };
    Run();
    ASSERT_GE(sentBeforeReads.size(), 2U);
    EXPECT_EQ(sentBeforeReads[1], "A!\r\nB!\r\n");
    EXPECT_EQ(m_script->sends, 1U);
}

TEST_F(NetTCPSessionBatch, OversizedCommandBehind_CountsAsWhole)
{
    TestHostSession& session = MakeAnswering({"A\r\n" + std::string(1024, 'x')});
    session.hooks.oversized = [](TestHostSession& self, const String&) { sAnswer(self, "too long"); };
    Run();
    EXPECT_EQ(m_script->sent, "A!\r\ntoo long!\r\n");
    EXPECT_EQ(m_script->sends, 1U);
}

TEST_F(NetTCPSessionBatch, HandlerTakesAwayTheEndOfTheNextCommand_RepliesGoOutAllTheSame)
{
    TestHostSession& session = MakeAnswering({"A\nB\n", "\r\n"});
    session.xSetCmdEndIncludesLF(true);
    std::vector<std::string> sentBeforeReads;
    session.hooks.preRead = [&](TestHostSession&, bool, ULONG&) { sentBeforeReads.push_back(m_script->sent); };
    session.hooks.command = [](TestHostSession& self, const String& command) {
        sAnswer(self, command);
        self.xSetCmdEndIncludesLF(false);
    };
    Run();
    ASSERT_GE(sentBeforeReads.size(), 2U);
    EXPECT_EQ(sentBeforeReads[1], "A!\r\n");
    EXPECT_EQ(m_script->sent, "A!\r\nB\n!\r\n");
}

// Whatever comes in whatever pieces: the same replies, and never more sends than receives.
TEST_F(NetTCPSessionBatch, AnyBytesInAnyPieces_SameBytesAsWithoutInAtMostASendForAReceive)
{
    std::mt19937 random(815);
    for (int round = 0; round < 40; ++round) {
        std::deque<std::string> pieces;
        while (pieces.size() < 12) {
            static constexpr char LETTERS[] = {'a', 'b', '\r', '\n'};
            std::string piece;
            for (auto size = 1 + random() % 12; size > 0; --size)
                piece += random() % 3 == 0 ? std::string("\r\n") : std::string(1, LETTERS[random() % 4]);
            pieces.push_back(piece);
        }
        const bool monitor = round % 2 == 0;
        std::string sent[2];
        for (const bool batch : {false, true}) {
            Pair(m_served, m_client);
            MakeAnswering(pieces, batch).xSetCmdEndIncludesLF(round % 4 < 2);
            if (!monitor)
                UseRecvCommand(sAnswer);
            Run();
            sent[batch ? 1 : 0] = m_script->sent;
            if (batch) {
                EXPECT_LE(m_script->sends, m_script->receives);
            }
        }
        ASSERT_EQ(sent[0], sent[1]) << "round " << round;
    }
}

TEST_F(NetTCPSessionBatch, RealClient_ManyCommandsAndAPartOfOne_HasItsRepliesBeforeItSendsTheRest)
{
    TestHostSession& session = MakeServed();
    session.xSetBatchReplies(true);
    session.hooks.command = [](TestHostSession& self, const String& command) { sAnswer(self, command); };
    ASSERT_TRUE(session.xConstrStartSession());
    std::string commands;
    std::string replies;
    for (int index = 0; index < 64; ++index) {
        commands += std::to_string(index) + "\r\n";
        replies += std::to_string(index) + "!\r\n";
    }
    for (int round = 0; round < 20; ++round) {
        ClientSends(commands + "par");
        EXPECT_EQ(ClientReceives(replies.size()), replies);
        ClientSends("t\r\n");
        EXPECT_EQ(ClientReceives(7), "part!\r\n");
    }
    session.ForceComplete();
}

TEST_F(NetTCPSessionBatch, CommandsOfAnotherSocket_RepliesOverTheMainOneGoOutAtOnce)
{
    TestHostSession& session = MakeAnswering({});
    std::unique_ptr<NetTCP> served;
    std::unique_ptr<NetTCP> client;
    Pair(served, client);
    SendAll(*client, "A\r\nB\r\n");
    client.reset();
    session.hooks.handle = [&](TestHostSession& self) { self.xMonitorNet(served.get()); };
    Run();
    EXPECT_EQ(m_script->sent, "A!\r\nB!\r\n");
    EXPECT_EQ(m_script->sends, 2U);
}

// --- what sends it before

TEST_F(NetTCPSessionBatch, OperationThatWaitsOrEnds_SendsWhatIsHeldFirst)
{
    std::unique_ptr<NetTCP> other;
    std::unique_ptr<NetTCP> otherEnd;
    Pair(other, otherEnd);
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    using SESSION = TestHostSession;
    const std::vector<std::pair<const char*, std::function<void(SESSION&)>>> operations = {
        {"xSendHeldReplies", [](SESSION& session) { EXPECT_TRUE(session.xSendHeldReplies()); }},
        {"xSetBatchReplies", [](SESSION& session) { session.xSetBatchReplies(false); }},
        {"xRecvData",
         [&](SESSION& session) {
             unsigned char byte = 0;
             ULONG length = 1;
             EXPECT_TRUE(session.xRecvData(other.get(), SESSION::xsGetNetState(other.get()), &byte, length));
         }},
        {"xAccept", [&](SESSION& session) { EXPECT_EQ(session.xAccept(&listener), nullptr); }},
        {"xSelfAccept", [&](SESSION& session) { EXPECT_FALSE(session.xSelfAccept(&listener)); }},
        {"xConnect",
         [&](SESSION& session) {
             NetTCP outgoing(NetIP::LOOKUP_ANY);
             EXPECT_TRUE(session.xConnect(&outgoing, "127.0.0.1", listener.GetLocalPort()));
         }},
        {"xSendAllData over another socket",
         [&](SESSION& session) { EXPECT_TRUE(session.xSendAllData(other.get(), Bytes("data"), 4)); }},
    };
    for (const auto& [name, operation] : operations) {
        SCOPED_TRACE(name);
        Pair(m_served, m_client);
        RunBetween([&](SESSION& session) {
            operation(session);
            EXPECT_EQ(m_script->sent, "A!\r\n");
            session.xSendCommand(m_script, "more");
            EXPECT_EQ(m_script->sent, "A!\r\nmore\r\n") << "nothing waits any more";
        });
        EXPECT_EQ(m_script->sent, "A!\r\nmore\r\nB!\r\n");
    }
}

TEST_F(NetTCPSessionBatch, ForcedSend_GoesOutBehindWhatIsHeld)
{
    RunBetween([this](TestHostSession& session) {
        EXPECT_TRUE(session.xSendCommandForce(m_script, "last words"));
        EXPECT_EQ(m_script->sent, "A!\r\nlast words\r\n");
        EXPECT_EQ(m_script->sends, 1U);
    });
}

TEST_F(NetTCPSessionBatch, Closing_InEachWay_SendsWhatIsHeldFirst)
{
    using SESSION = TestHostSession;
    const std::vector<std::function<void(SESSION&)>> ways = {
        [](SESSION& session) { session.xClose(session.xGetMainSocket()); },
        [](SESSION& session) { session.xShutdownAndClose(session.xGetMainSocket()); },
        [](SESSION& session) { session.xPerformDisconnectMsg(); },
    };
    for (const auto& close : ways) {
        Pair(m_served, m_client);
        RunBetween([&](SESSION& session) {
            close(session);
            EXPECT_FALSE(m_script->IsConnected());
        });
        EXPECT_EQ(m_script->sent, "A!\r\n");
    }
}

TEST_F(NetTCPSessionBatch, HandlerEndsWithARepliesHeld_TheThreadSendsItBeforeItCloses)
{
    MakeAnswering({"A\r\nB\r\n"}).hooks.handle = [this](TestHostSession& session) {
        NetTCP::RECVBUF buffer{static_cast<ULONG>(m_bytes.size()), m_bytes.data(), 0, 0, false};
        String command;
        bool oversized = false;
        ASSERT_TRUE(session.xRecvCommand(m_script, session.xGetMainNetState(), buffer, command, oversized));
        sAnswer(session, command);
        EXPECT_EQ(m_script->sent, "");
    };
    Run();
    EXPECT_EQ(m_script->sent, "A!\r\n");
}

// --- ends of the waiting

TEST_F(NetTCPSessionBatch, EndOfTheWaiting_WhatWasHeldBeforeStillGoesOutAndNothingMore)
{
    using SESSION = TestHostSession;
    const std::vector<std::function<void(SESSION&)>> ends = {
        [](SESSION& session) { session.ForceCompleteAsync(); },
        [](SESSION& session) { session.xSetTimeOutSecs(0); },
        [](SESSION& session) {
            session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "bye");
            CTRLMSG message;
            EXPECT_FALSE(session.xProcessMsgsAndTakeNext(message));
        },
    };
    for (const auto& end : ends) {
        Pair(m_served, m_client);
        RunBetween([&](SESSION& session) {
            session.xSetResetTimeOutOnSend(false);
            session.xSetResetTimeOutOnRecv(false);
            end(session);
            EXPECT_FALSE(session.xSendCommand(m_script, "too late"));
        });
        EXPECT_EQ(m_script->sent, "A!\r\n");
    }
}

TEST_F(NetTCPSessionBatch, EndRequestWhilePeerTakesNothing_GivesUpTheRest)
{
    RunBetween([this](TestHostSession& session) {
        m_script->sendSizes = {2, 0};
        session.ForceCompleteAsync();
        EXPECT_FALSE(session.xSendHeldReplies());
        EXPECT_EQ(m_script->sent, "A!");
        EXPECT_TRUE(session.xSendHeldReplies()) << "what was given up is gone";
    });
    EXPECT_EQ(m_script->sent, "A!");
}

TEST_F(NetTCPSessionBatch, DisconnectWhilePeerTakesNothing_IsPerformedAtOnce)
{
    RunBetween([this](TestHostSession& session) {
        session.SendControlMsg(NetTCPSession::MSG_DISCONNECT, "bye");
        CTRLMSG message;
        EXPECT_FALSE(session.xProcessMsgsAndTakeNext(message));
        m_script->sendSizes.assign(10, 0);
        session.xPerformDisconnectMsg();
        EXPECT_EQ(m_script->sends, 1U);
        EXPECT_FALSE(m_script->IsConnected());
    });
    EXPECT_EQ(m_script->sent, "");
}

TEST_F(NetTCPSessionBatch, WaitingRefused_EndsTheSendOfWhatIsHeld)
{
    RunBetween([this](TestHostSession& session) {
        session.hooks.shouldWait = [](TestHostSession&) { return false; };
        m_script->sendSizes = {2};
        EXPECT_FALSE(session.xSendHeldReplies());
        session.hooks.shouldWait = nullptr;
    });
    EXPECT_EQ(m_script->sent, "A!B!\r\n");
}

TEST_F(NetTCPSessionBatch, SendFails_OneLineAndTheNextReceiveTells)
{
    MakeAnswering({"A\r\nB\r\nC\r\n"});
    m_script->failAfterSends = 0;
    Run();
    EXPECT_EQ(m_session->GetNotes(), (TEXTS{"start", "handle", "command:A", "command:B", "command:C", "mainNetClosed",
                                            "closing", "closed", "end"}));
    EXPECT_EQ(m_script->sends, 1U);
    EXPECT_EQ(Stored(NetCounterBlock::COMMANDS_OUT), 2U) << "the third was not held back";
}

TEST_F(NetTCPSessionBatch, SocketClosedByTheHostAndConnectedAgain_TheNewConnectionGetsNoOldReply)
{
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    RunBetween([&](TestHostSession& session) {
        m_script->Close();
        EXPECT_TRUE(session.xConnect(m_script, "127.0.0.1", listener.GetLocalPort()));
    });
    EXPECT_EQ(m_script->sent, "B!\r\n");
}

// --- how much

TEST_F(NetTCPSessionBatch, MoreThanItHolds_GoesOutInOrderMeanwhile)
{
    TestHostSession& session = MakeAnswering({"A\r\nB\r\n"});
    session.hooks.command = [this](TestHostSession& self, const String& command) {
        if (!(command == "A"))
            return sAnswer(self, command);
        const std::string most(ReplyBatch::CAPACITY, 'm');
        EXPECT_TRUE(self.xSendAllData(m_script, Bytes(most), ReplyBatch::CAPACITY));
        EXPECT_EQ(m_script->sends, 0U) << "so much is held";
        EXPECT_TRUE(self.xSendAllData(m_script, Bytes("+"), 1));
        EXPECT_EQ(m_script->sent, most + "+");
        const std::string tooMuch(3 * ReplyBatch::CAPACITY, 't');
        EXPECT_TRUE(self.xSendAllData(m_script, Bytes(tooMuch), static_cast<ULONG>(tooMuch.size())));
        EXPECT_EQ(m_script->sent, most + "+" + tooMuch);
    };
    Run();
    EXPECT_EQ(m_script->sent.substr(4 * ReplyBatch::CAPACITY + 1), "B!\r\n");
}

TEST_F(NetTCPSessionBatch, SendBufferInUseToo_TheRepliesStayInOrderInOneSend)
{
    TestHostSession& session = MakeAnswering({"A\r\nB\r\nC\r\n"});
    session.xSetBufMode(nullptr, true);
    session.m_bufferedMode = true;
    Run();
    EXPECT_EQ(m_script->sent, "A!\r\nB!\r\nC!\r\n");
    EXPECT_EQ(m_script->sends, 1U);
}

} // namespace
} // namespace kqlib::test
