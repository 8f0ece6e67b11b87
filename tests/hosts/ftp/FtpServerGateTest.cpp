// Who is let in: connection rules, blocks after failed log-ins, sessions per address.
#include "tests/hosts/ftp/FtpServerFixture.h"

#include <list>

namespace kqlib::test {
namespace {

class FtpServerGate : public FtpServerFixture
{
protected:
    static NetIPControl Rules(std::initializer_list<const char*> texts)
    {
        NetIPControl list;
        for (const char* text : texts) {
            NetIPControlEntry rule;
            EXPECT_TRUE(rule.SetByString(text)) << text;
            list.Add(rule);
        }
        return list;
    }

    /// Everything that the server says to a client of 127.0.0.lastByte that stays silent; "open" when it does not
    /// close.
    std::string WordsTo(unsigned char lastByte)
    {
        FtpTestSocket socket;
        if (!socket.Connect(m_port, lastByte))
            return "no connection";
        std::string words;
        EXPECT_TRUE(socket.Receive(words));
        return words.starts_with("220") ? "open" : words + socket.ReceiveAll();
    }

    void FailLogIn(int times)
    {
        for (int i = 0; i < times; ++i) {
            FtpTestClient client;
            ASSERT_TRUE(client.Connect(m_port));
            EXPECT_EQ(client.Code("USER admin"), 331);
            client.Ask("PASS wrong");
        }
    }

    std::size_t CountEvents(const std::string& event)
    {
        const std::string text = EventLogText();
        const std::string field = "\t" + event + "\t";
        std::size_t count = 0;
        for (std::size_t at = text.find(field); at != std::string::npos; at = text.find(field, at + 1))
            ++count;
        return count;
    }

    void Reload(const FtpSettings& settings)
    {
        String error;
        EXPECT_TRUE(m_server.Reload(settings, error)) << error.c_str();
    }

    const std::string BLOCKED = "421 Too many failed log-ins from your address, come back later\r\n";
    const std::string DENIED = "421 Your address is not served\r\n";
    /// Everything that a client hears from now on; empty when it is not closed in time.
    static std::string WordsToTheEnd(FtpTestClient& client)
    {
        const std::string reply = client.ReadReply();
        return client.GetSocket().WaitClosed() ? reply : "";
    }

    const std::string FULL = "421 The server is full, come back later\r\n";
    const std::string CROWDED = "421 Too many connections from your address\r\n";
};

TEST_F(FtpServerGate, ConnectionRules_FirstMatchDecides_OneEventLineForTheRefused)
{
    m_settings.SetConnectionRules(Rules({"+ip=127.0.0.2", "-iprange=127.0.0.2-127.0.0.9"}));
    Start();
    EXPECT_EQ(WordsTo(1), "open");
    EXPECT_EQ(WordsTo(2), "open");
    EXPECT_EQ(WordsTo(3), DENIED);
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_EQ(CountEvents("Connection Refused"), 1U);
    EXPECT_NE(EventLogText().find("127.0.0.3:"), std::string::npos);
}

TEST_F(FtpServerGate, ConnectionRules_IsLocal_PeerIsTheServersOwnAddress)
{
    m_settings.SetConnectionRules(Rules({"+islocal", "-ipmask=0.0.0.0/0.0.0.0"}));
    Start();
    EXPECT_EQ(WordsTo(1), "open");
    EXPECT_EQ(WordsTo(2), DENIED);
}

TEST_F(FtpServerGate, FailedLogIns_AsManyAsSet_AddressBlockedOthersServed)
{
    m_settings.SetHammerAttempts(3);
    Start();
    FailLogIn(2);
    EXPECT_EQ(WordsTo(1), "open");
    FtpTestClient third;
    ASSERT_TRUE(third.Connect(m_port));
    EXPECT_EQ(third.Code("USER nobody"), 331);
    EXPECT_EQ(third.Code("PASS x"), 421); // the attempt that blocks ends its session
    EXPECT_TRUE(third.GetSocket().WaitClosed());
    EXPECT_EQ(WordsTo(1), BLOCKED);
    EXPECT_EQ(WordsTo(2), "open");
    EXPECT_EQ(CountEvents("Connection Refused"), 1U);
}

TEST_F(FtpServerGate, LogIn_AddressBlockedMeanwhile_RefusedWithTheRightPassword)
{
    m_settings.SetHammerAttempts(2);
    Start();
    FtpTestClient waiting;
    ASSERT_TRUE(waiting.Connect(m_port));
    EXPECT_EQ(waiting.Code("USER admin"), 331);
    FtpTestClient inside = LogIn();
    FailLogIn(2);
    EXPECT_EQ(waiting.Code("PASS secret"), 421);
    EXPECT_TRUE(waiting.GetSocket().WaitClosed());
    EXPECT_EQ(inside.Code("PWD"), 257); // who is in stays in
}

TEST_F(FtpServerGate, LogIn_Success_DoesNotCount)
{
    m_settings.SetHammerAttempts(2);
    Start();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(LogIn().Code("QUIT"), 221);
    EXPECT_EQ(WordsTo(1), "open");
}

TEST_F(FtpServerGate, HammerExemptions_AddressNamed_NeverRefused)
{
    m_settings.SetHammerAttempts(1);
    m_settings.SetHammerExemptions(Rules({"+ip=127.0.0.1", "-ipmask=0.0.0.0/0.0.0.0"}));
    Start();
    FailLogIn(3);
    EXPECT_EQ(WordsTo(1), "open");
}

TEST_F(FtpServerGate, HammerExemptions_ForOthers_BlockHolds)
{
    m_settings.SetHammerAttempts(1);
    m_settings.SetHammerExemptions(Rules({"+ip=127.0.0.9", "-ipmask=0.0.0.0/0.0.0.0"}));
    Start();
    FailLogIn(1);
    EXPECT_EQ(WordsTo(1), BLOCKED);
}

TEST_F(FtpServerGate, HammerBlockSecs_Over_ServedAgain)
{
    m_settings.SetHammerAttempts(1);
    m_settings.SetHammerBlockSecs(3);
    Start();
    FailLogIn(1);
    EXPECT_EQ(WordsTo(1), BLOCKED);
    EXPECT_TRUE(WaitFor([this] { return WordsTo(1) == "open"; }, 20000));
}

TEST_F(FtpServerGate, HammerAttempts_0_NeverBlocks)
{
    m_settings.SetHammerAttempts(0);
    Start();
    FailLogIn(6);
    EXPECT_EQ(WordsTo(1), "open");
}

TEST_F(FtpServerGate, MaxSessionsPerAddress_Reached_RefusedUntilOneLeaves)
{
    m_settings.SetMaxSessionsPerAddress(2);
    Start();
    FtpTestClient first = LogIn();
    FtpTestClient second = LogIn();
    EXPECT_EQ(WordsTo(1), CROWDED);
    EXPECT_EQ(WordsTo(1), CROWDED); // who was refused does not count
    EXPECT_EQ(WordsTo(2), "open");
    EXPECT_EQ(first.Code("QUIT"), 221);
    EXPECT_TRUE(WaitFor([this] { return WordsTo(1) == "open"; }));
    EXPECT_EQ(second.Code("PWD"), 257);
}

TEST_F(FtpServerGate, MaxSessionsPerAddress_NotSet_TwentyOfOneAddress)
{
    Start();
    std::list<FtpTestClient> clients(20);
    for (FtpTestClient& client : clients)
        ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(WordsTo(1), CROWDED);
    EXPECT_EQ(WordsTo(2), "open");
}

TEST_F(FtpServerGate, MaxSessions_AllLoggedIn_NextIsToldSo)
{
    m_settings.SetMaxSessions(2);
    m_settings.SetReservedSessions(0);
    Start();
    FtpTestClient first = LogIn("reader");
    FtpTestClient second = LogIn();
    EXPECT_EQ(WordsTo(1), FULL);
    EXPECT_EQ(WordsTo(2), FULL);
    EXPECT_EQ(CountEvents("Connection Refused"), 2U);
    EXPECT_EQ(first.Code("QUIT"), 221);
    EXPECT_TRUE(WaitFor([this] { return WordsTo(1) == "open"; }));
    EXPECT_EQ(second.Code("NOOP"), 200);
}

TEST_F(FtpServerGate, MaxSessions_SilentClientsHaveThemAll_TheOldestGivesItsPlaceUp)
{
    m_settings.SetMaxSessions(3);
    m_settings.SetReservedSessions(0);
    Start();
    FtpTestClient inside = LogIn("reader");
    FtpTestClient silent[2];
    ASSERT_TRUE(silent[0].Connect(m_port));
    ASSERT_TRUE(silent[1].Connect(m_port));
    EXPECT_EQ(silent[0].Code("USER admin"), 331) << "that is no log-in yet";
    FtpTestClient newcomer;
    ASSERT_TRUE(newcomer.LogIn(m_port, "writer", "secret"));
    EXPECT_EQ(WordsToTheEnd(silent[0]), "421 The server is full, and you have not logged in\n");
    FtpTestClient another;
    ASSERT_TRUE(another.LogIn(m_port, "writer", "secret"));
    EXPECT_EQ(WordsToTheEnd(silent[1]), "421 The server is full, and you have not logged in\n");
    EXPECT_EQ(WordsTo(1), FULL);
    EXPECT_EQ(inside.Code("NOOP"), 200);
    EXPECT_EQ(newcomer.Code("NOOP"), 200);
    // Who goes back to the log-in is a stranger again.
    EXPECT_EQ(inside.Code("USER reader"), 331);
    EXPECT_EQ(WordsTo(1), "open");
    EXPECT_EQ(WordsToTheEnd(inside), "421 The server is full, and you have not logged in\n");
}

TEST_F(FtpServerGate, ReservedSessions_Full_AdministratorsOnly)
{
    m_settings.SetMaxSessions(1);
    m_settings.SetReservedSessions(1);
    Start();
    FtpTestClient inside = LogIn("reader");
    FtpTestClient admin;
    {
        FtpTestClient guest;
        ASSERT_TRUE(guest.Connect(m_port));
        EXPECT_EQ(guest.Code("USER admin"), 331);
        EXPECT_EQ(guest.Code("PASS wrong"), 530);
        EXPECT_EQ(guest.Code("USER writer"), 331);
        EXPECT_EQ(guest.Ask("PASS secret"), "421 The server is full, come back later\n");
        EXPECT_TRUE(guest.GetSocket().WaitClosed());
    }
    ASSERT_TRUE(WaitFor([&] { return admin.LogIn(m_port, "admin", "secret"); }));
    EXPECT_EQ(WordsTo(1), FULL);
    EXPECT_EQ(admin.Code("NOOP"), 200);
    EXPECT_EQ(inside.Code("NOOP"), 200);
}

TEST_F(FtpServerGate, ReservedSessions_PlaceFreeMeanwhile_GuestGetsIt)
{
    m_settings.SetMaxSessions(1);
    m_settings.SetReservedSessions(1);
    Start();
    FtpTestClient inside = LogIn("reader");
    FtpTestClient guest;
    ASSERT_TRUE(guest.Connect(m_port));
    EXPECT_EQ(guest.Code("USER writer"), 331);
    EXPECT_EQ(inside.Code("QUIT"), 221);
    ASSERT_TRUE(WaitFor([this] { return SessionCount() == 1; }));
    EXPECT_EQ(guest.Code("PASS secret"), 230);
    EXPECT_EQ(LogIn().Code("NOOP"), 200) << "the place that is kept is free again";
}

TEST_F(FtpServerGate, ReservedAddresses_Full_AnyAccountFromThere)
{
    m_settings.SetMaxSessions(1);
    m_settings.SetReservedSessions(2);
    m_settings.SetReservedAddresses(Rules({"+ip=127.0.0.9", "-ipmask=0.0.0.0/0.0.0.0"}));
    Start();
    FtpTestClient inside = LogIn("reader");
    FtpTestClient favoured;
    EXPECT_TRUE(favoured.LogIn(m_port, "writer", "secret", 9));
    FtpTestClient other;
    EXPECT_FALSE(other.LogIn(m_port, "writer", "secret"));
    EXPECT_EQ(favoured.Code("NOOP"), 200);
}

// Strangers who came later once pushed those out for whom the places are kept.
TEST_F(FtpServerGate, ReservedAddresses_NotLoggedInYet_StrangersGiveTheirPlacesUpFirst)
{
    m_settings.SetMaxSessions(1);
    m_settings.SetReservedSessions(2);
    m_settings.SetReservedAddresses(Rules({"+ip=127.0.0.9", "-ipmask=0.0.0.0/0.0.0.0"}));
    Start();
    FtpTestClient inside = LogIn("reader");
    FtpTestClient favoured;
    ASSERT_TRUE(favoured.Connect(m_port, 9));
    FtpTestClient stranger;
    ASSERT_TRUE(stranger.Connect(m_port));
    FtpTestClient newcomer;
    ASSERT_TRUE(newcomer.Connect(m_port));
    EXPECT_EQ(WordsToTheEnd(stranger), "421 The server is full, and you have not logged in\n");
    EXPECT_EQ(favoured.Code("USER writer"), 331);
    EXPECT_EQ(favoured.Code("PASS secret"), 230);
}

TEST_F(FtpServerGate, LogInSecs_Passed_421WhateverTheClientSays)
{
    m_settings.SetLogInSecs(1);
    Start();
    FtpTestClient inside = LogIn();
    FtpTestClient silent;
    ASSERT_TRUE(silent.Connect(m_port));
    EXPECT_EQ(WordsToTheEnd(silent), "421 Not logged in in time\n");
    FtpTestClient busy;
    ASSERT_TRUE(busy.Connect(m_port));
    EXPECT_TRUE(WaitFor([&] { return busy.Code("NOOP") == 421; }));
    FtpTestSocket dribbling;
    ASSERT_TRUE(dribbling.Connect(m_port));
    EXPECT_TRUE(WaitFor([&] { return !dribbling.Send("N") || dribbling.WaitClosed(10); }));
    EXPECT_EQ(inside.Code("NOOP"), 200) << "who is in has the idle time";
    EXPECT_EQ(inside.Code("USER admin"), 331);
    EXPECT_EQ(WordsToTheEnd(inside), "421 Not logged in in time\n") << "and is a stranger again now";
}

TEST_F(FtpServerGate, Reload_NewRules_ForNewSessionsOnly)
{
    Start();
    FtpTestClient inside = LogIn();
    FtpSettings changed = m_settings;
    changed.SetConnectionRules(Rules({"-ip=127.0.0.1"}));
    changed.SetMaxSessionsPerAddress(1);
    Reload(changed);
    EXPECT_EQ(WordsTo(1), DENIED);
    EXPECT_EQ(WordsTo(2), "open");
    EXPECT_EQ(inside.Code("MKD still"), 257);
    std::string listing;
    EXPECT_EQ(inside.Download("NLST", listing), 226);
    changed.SetConnectionRules(NetIPControl());
    Reload(changed);
    EXPECT_EQ(WordsTo(1), CROWDED); // the session from before counts
}

TEST_F(FtpServerGate, Reload_HammerNumbers_BlocksJudgedByThem)
{
    m_settings.SetHammerAttempts(1);
    Start();
    FailLogIn(1);
    EXPECT_EQ(WordsTo(1), BLOCKED);
    Reload(m_settings);
    EXPECT_EQ(WordsTo(1), BLOCKED); // a reload alone forgives nothing
    FtpSettings changed = m_settings;
    changed.SetHammerBlockSecs(0);
    Reload(changed);
    EXPECT_TRUE(WaitFor([this] { return WordsTo(1) == "open"; }));
    Reload(m_settings);
    FailLogIn(1);
    changed.SetHammerAttempts(0);
    Reload(changed);
    EXPECT_EQ(WordsTo(1), "open");
    Reload(m_settings);
    EXPECT_EQ(WordsTo(1), "open"); // turning it off forgot everything
}

TEST_F(FtpServerGate, ManyClients_AllLeaveAtOnce_CountsComeBackToNone)
{
    m_settings.SetMaxSessionsPerAddress(20);
    Start();
    for (int round = 0; round < 3; ++round) {
        std::list<FtpTestSocket> sockets(60);
        std::size_t served = 0;
        for (FtpTestSocket& socket : sockets) {
            std::string words;
            ASSERT_TRUE(socket.Connect(m_port));
            EXPECT_TRUE(socket.Receive(words));
            served += words.starts_with("220") ? 1U : 0U;
        }
        EXPECT_EQ(served, 20U);
        sockets.clear();
        EXPECT_TRUE(WaitNoSessions());
    }
}

TEST_F(FtpServerGate, SessionsPerUser_AsManyAsSet_421)
{
    m_settings.SetMaxSessionsPerUser(2);
    Start();
    FtpTestClient first = LogIn("reader");
    FtpTestClient second = LogIn("reader");
    const auto logInAgain = [this] {
        FtpTestClient client;
        EXPECT_TRUE(client.Connect(m_port));
        EXPECT_EQ(client.Code("USER reader"), 331);
        return client.Ask("PASS secret");
    };
    EXPECT_EQ(logInAgain(), "421 Too many sessions of this account\n");
    EXPECT_EQ(CountEvents("Connection Refused"), 1U);
    FtpTestClient other = LogIn("writer"); // of another account
    EXPECT_EQ(first.Code("USER reader"), 331) << "who begins anew is logged out";
    FtpTestClient third = LogIn("reader");
    EXPECT_EQ(first.Ask("PASS secret"), "421 Too many sessions of this account\n");
    EXPECT_TRUE(first.GetSocket().WaitClosed());
    second.Close();
    EXPECT_TRUE(WaitFor([&] { return logInAgain().starts_with("230"); }));
}

TEST_F(FtpServerGate, SessionsPerUser_TheAccountsOwnNumber_CountsFirst)
{
    FtpUserSettings reader = User("reader", "read");
    FtpUserSettings admin = User("admin", "read,admin");
    reader.SetMaxSessions(2);
    m_settings.SetUsers({reader, admin});
    m_settings.SetMaxSessionsPerUser(1);
    Start();
    FtpTestClient first = LogIn("reader");
    FtpTestClient second = LogIn("reader");
    FtpTestClient boss = LogIn("admin");
    FtpTestClient client;
    EXPECT_FALSE(client.LogIn(m_port, "reader", "secret"));
    EXPECT_FALSE(client.LogIn(m_port, "admin", "secret")) << "also of an administrator";
    // A wrong password tells nothing about the account.
    EXPECT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.Code("USER reader"), 331);
    EXPECT_EQ(client.Code("PASS wrong"), 530);
    m_settings.SetMaxSessionsPerUser(0);
    Reload(m_settings);
    EXPECT_TRUE(client.LogIn(m_port, "admin", "secret"));
}

} // namespace
} // namespace kqlib::test
