#include "net/sockets/NetTCP.h"

#include "tests/net/sockets/TestTCP.h"
#include "tests/peers/ScriptedTCPPeer.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <random>
#include <vector>

using namespace kqlib;
using namespace kqlib::test;

namespace {

using Commands = std::vector<std::pair<std::string, bool>>; // each with whether it was too long

constexpr unsigned long NO_LIMIT = 1'000'000;

/// A NetTCP that receives given pieces, one per call at most; an empty piece is a call in which nothing came. After the
/// last piece the connection is gone.
class PiecesTCP : public NetTCP
{
public:
    explicit PiecesTCP(std::deque<std::string> pieces)
        : NetTCP(NetIP::LOOKUP_ANY)
        , m_pieces(std::move(pieces))
    {
    }

    using NetTCP::Recv;
    bool Recv(unsigned char* buf, unsigned long& len) override
    {
        if (m_pieces.empty()) {
            len = 0;
            return false;
        }
        std::string& piece = m_pieces.front();
        len = std::min<unsigned long>(len, piece.size());
        std::memcpy(buf, piece.data(), len);
        piece.erase(0, len);
        if (piece.empty())
            m_pieces.pop_front();
        return true;
    }

private:
    std::deque<std::string> m_pieces;
};

/// The command reception of one connection with its buffer and settings.
struct Reception
{
    Reception(NetTCP& from, unsigned long capacity, bool loneLFEnds, unsigned long maxLen)
        : socket(from)
        , loneLF(loneLFEnds)
        , limit(maxLen)
        , bytes(capacity)
    {
        rb = {capacity, bytes.data(), 77, 66, true};
        cmd = "left over";
        done = true;
        socket.RecvPrepForFirstCmd(rb, cmd, done);
    }
    /// One call. False: the connection is gone.
    bool Try() { return socket.RecvTryGetCmd(loneLF, limit, rb, cmd, tooLong, done); }
    /// Calls until the connection is gone; every command that came.
    Commands TakeAll()
    {
        Commands commands;
        while (Try()) {
            if (!done)
                continue;
            commands.emplace_back(cmd.str(), tooLong);
            tooLong = false;
            socket.RecvPrepForNextCmd(rb, cmd, done);
        }
        return commands;
    }

    NetTCP& socket;
    bool loneLF;
    unsigned long limit;
    std::vector<unsigned char> bytes;
    NetTCP::RECVBUF rb;
    String cmd;
    bool tooLong = false;
    bool done = false;
};

std::deque<std::string> ByteByByte(const std::string& stream)
{
    std::deque<std::string> pieces;
    for (const char byte : stream)
        pieces.emplace_back(1, byte);
    return pieces;
}

Commands CommandsOf(std::deque<std::string> pieces, bool loneLF, unsigned long maxLen, unsigned long capacity = 64)
{
    PiecesTCP socket(std::move(pieces));
    return Reception(socket, capacity, loneLF, maxLen).TakeAll();
}

/// The same commands whether the stream comes whole, byte by byte, or with pauses.
void ExpectCommands(const std::string& stream, bool loneLF, unsigned long maxLen, const Commands& expected)
{
    EXPECT_EQ(CommandsOf({stream}, loneLF, maxLen), expected);
    EXPECT_EQ(CommandsOf(ByteByByte(stream), loneLF, maxLen), expected);
    EXPECT_EQ(CommandsOf({stream}, loneLF, maxLen, 1), expected);
    std::deque<std::string> paused = ByteByByte(stream);
    for (std::size_t i = paused.size(); i-- > 0;)
        paused.insert(paused.begin() + static_cast<std::ptrdiff_t>(i), "");
    EXPECT_EQ(CommandsOf(paused, loneLF, maxLen), expected);
}

/// What the commands of a stream are, by looking at the whole of it: a command ends where its text, taken from its
/// first byte, is as long as the limit, or ends in CR LF or (when allowed) in LF, whichever is first.
Commands Model(const std::string& stream, bool loneLF, unsigned long maxLen)
{
    Commands commands;
    std::size_t start = 0;
    for (;;) {
        std::size_t end = std::string::npos; // of the line, with its LF
        for (std::size_t i = start; i < stream.size() && end == std::string::npos; i++) {
            if (stream[i] == '\n' && (loneLF || (i > start && stream[i - 1] == '\r')))
                end = i + 1;
        }
        // The limit is looked at after each byte that is no line end.
        const std::size_t atLimit = start + std::max<std::size_t>(maxLen, 1);
        const std::size_t lastText = end == std::string::npos ? stream.size() : end - 1;
        if (atLimit <= lastText) {
            commands.emplace_back(stream.substr(start, atLimit - start), true);
            start = atLimit;
            continue;
        }
        if (end == std::string::npos)
            return commands;
        std::string text = stream.substr(start, end - 1 - start);
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        commands.emplace_back(text, false);
        start = end;
    }
}

} // namespace

// --- splitting

TEST(NetTCPCommandTest, RecvTryGetCmd_CRThenLFInTwoReceives_OneCommand)
{
    PiecesTCP socket({"USER a\r", "\n"});
    Reception reception(socket, 64, false, NO_LIMIT);
    ASSERT_TRUE(reception.Try());
    EXPECT_FALSE(reception.done);
    ASSERT_TRUE(reception.Try());
    EXPECT_TRUE(reception.done);
    EXPECT_EQ(reception.cmd, "USER a");
    EXPECT_FALSE(reception.tooLong);
}

TEST(NetTCPCommandTest, RecvTryGetCmd_LoneLFDoesNotEnd_PartOfTheCommand)
{
    ExpectCommands("A\nB\r\n", false, NO_LIMIT, {{"A\nB", false}});
    ExpectCommands("\n\r\n", false, NO_LIMIT, {{"\n", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_LoneLFEnds_TwoCommands)
{
    ExpectCommands("A\nB\r\n", true, NO_LIMIT, {{"A", false}, {"B", false}});
    ExpectCommands("\n\r\n", true, NO_LIMIT, {{"", false}, {"", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_EmptyLine_EmptyCommand)
{
    ExpectCommands("\r\n", false, NO_LIMIT, {{"", false}});
    ExpectCommands("\r\n\r\nX\r\n", false, NO_LIMIT, {{"", false}, {"", false}, {"X", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_SeveralCRsBeforeTheLF_OneIsRemovedKeptOnPurpose)
{
    ExpectCommands("A\r\r\n", false, NO_LIMIT, {{"A\r", false}});
    ExpectCommands("\r\r\r\n", false, NO_LIMIT, {{"\r\r", false}});
    ExpectCommands("A\rB\r\n", false, NO_LIMIT, {{"A\rB", false}});
    ExpectCommands("A\r\r\n", true, NO_LIMIT, {{"A\r", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_AnyByteValue_TakenAsItIs)
{
    std::string text;
    for (int value = 0; value < 256; value++) {
        if (value != '\n')
            text += static_cast<char>(value);
    }
    ExpectCommands(text + "\r\n", true, NO_LIMIT, {{text, false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_NoEndYet_NotDoneAndGoesOn)
{
    PiecesTCP socket({"NO", "", "OP", "", "\r\n"});
    Reception reception(socket, 64, false, NO_LIMIT);
    for (int i = 0; i < 4; i++) {
        ASSERT_TRUE(reception.Try());
        EXPECT_FALSE(reception.done);
    }
    EXPECT_EQ(reception.cmd, "NOOP");
    ASSERT_TRUE(reception.Try());
    EXPECT_TRUE(reception.done);
    EXPECT_EQ(reception.cmd, "NOOP");
}

TEST(NetTCPCommandTest, RecvTryGetCmd_SecondCommandBuffered_ServedWithoutReceiving)
{
    PiecesTCP socket({"ONE\r\nTWO\r\nTHR"});
    Reception reception(socket, 64, false, NO_LIMIT);
    ASSERT_TRUE(reception.Try());
    EXPECT_EQ(reception.cmd, "ONE");
    EXPECT_EQ(reception.rb.position, 5U);
    EXPECT_EQ(reception.rb.length, 13U);
    socket.RecvPrepForNextCmd(reception.rb, reception.cmd, reception.done);
    EXPECT_EQ(reception.rb.position, 5U);
    EXPECT_EQ(reception.rb.length, 13U);
    EXPECT_FALSE(reception.done);
    ASSERT_TRUE(reception.Try()); // a receive would fail
    EXPECT_EQ(reception.cmd, "TWO");
}

// --- the limit

TEST(NetTCPCommandTest, RecvTryGetCmd_TwoBelowTheLimit_LongestWholeCommandKeptOnPurpose)
{
    ExpectCommands("12345678\r\n", false, 10, {{"12345678", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_OneBelowTheLimit_TooLongAtTheCRKeptOnPurpose)
{
    // The LF that stays begins the next command, or is an empty one.
    ExpectCommands("123456789\r\nX\r\n", false, 10, {{"123456789\r", true}, {"\nX", false}});
    ExpectCommands("123456789\r\nX\r\n", true, 10, {{"123456789\r", true}, {"", false}, {"X", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_LongLine_RestStaysForTheNextCommands)
{
    ExpectCommands("12345678901234\r\n", false, 10, {{"1234567890", true}, {"1234", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_LFAtTheLimitThatEnds_NotTooLong)
{
    ExpectCommands("123456789\n", true, 10, {{"123456789", false}});
    ExpectCommands("123456789\n1\r\n", false, 10, {{"123456789\n", true}, {"1", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_LimitOneOrZero_EveryByteTooLong)
{
    for (const unsigned long limit : {0UL, 1UL})
        ExpectCommands("AB\r\n", true, limit, {{"A", true}, {"B", true}, {"\r", true}, {"", false}});
}

TEST(NetTCPCommandTest, RecvTryGetCmd_TooLong_NeverClearedByTheCall)
{
    PiecesTCP socket({"A\r\n"});
    Reception reception(socket, 64, false, NO_LIMIT);
    reception.tooLong = true;
    ASSERT_TRUE(reception.Try());
    EXPECT_TRUE(reception.done);
    EXPECT_TRUE(reception.tooLong);
}

TEST(NetTCPCommandTest, RecvTryGetCmd_CommandEmptiedAfterACR_LFStillEnds)
{
    PiecesTCP socket({"A\r", "\n"});
    Reception reception(socket, 64, false, NO_LIMIT);
    ASSERT_TRUE(reception.Try());
    reception.cmd.clear(); // nothing is left to remove the CR from
    ASSERT_TRUE(reception.Try());
    EXPECT_TRUE(reception.done);
    EXPECT_EQ(reception.cmd, "");
}

// --- the end of the connection

TEST(NetTCPCommandTest, RecvTryGetCmd_ConnectionGone_FalseAndBufferEmpty)
{
    PiecesTCP socket({"HALF"});
    Reception reception(socket, 64, false, NO_LIMIT);
    ASSERT_TRUE(reception.Try());
    reception.done = true;
    EXPECT_FALSE(reception.Try());
    EXPECT_FALSE(reception.done);
    EXPECT_EQ(reception.rb.length, 0U);
    EXPECT_EQ(reception.rb.position, 0U);
    EXPECT_EQ(reception.cmd, "HALF");
    EXPECT_FALSE(reception.Try());
    EXPECT_EQ(reception.cmd, "HALF");
}

TEST(NetTCPCommandTest, RecvTryGetCmd_OverrideFailsAndLeavesALength_BufferEmpty)
{
    /// A NetTCP whose connection is gone, and which leaves the room in its buffer as the length.
    class CarelessTCP : public NetTCP
    {
    public:
        CarelessTCP()
            : NetTCP(NetIP::LOOKUP_ANY)
        {
        }
        using NetTCP::Recv;
        bool Recv(unsigned char*, unsigned long&) override { return false; }
    };
    CarelessTCP socket;
    Reception reception(socket, 64, false, NO_LIMIT);
    EXPECT_FALSE(reception.Try());
    EXPECT_EQ(reception.rb.length, 0U);
    EXPECT_EQ(reception.rb.position, 0U);
    EXPECT_FALSE(reception.Try()) << "no byte of the buffer is taken for received";
    EXPECT_EQ(reception.cmd, "");
}

TEST(NetTCPCommandTest, RecvTryGetCmd_NotConnected_False)
{
    NetTCP socket(NetIP::LOOKUP_ANY);
    Reception reception(socket, 64, false, NO_LIMIT);
    EXPECT_FALSE(reception.Try());
    EXPECT_EQ(socket.GetLastError(), 47);
    EXPECT_EQ(reception.rb.length, 0U);
}

// --- preparing and purging

TEST(NetTCPCommandTest, RecvPrepForFirstCmd_EverythingEmptied)
{
    NetTCP socket(NetIP::LOOKUP_ANY);
    unsigned char bytes[4];
    NetTCP::RECVBUF rb = {sizeof(bytes), bytes, 3, 2, true};
    String cmd("old");
    bool done = true;
    socket.RecvPrepForFirstCmd(rb, cmd, done);
    EXPECT_EQ(rb.capacity, sizeof(bytes));
    EXPECT_EQ(rb.buffer, bytes);
    EXPECT_EQ(rb.length, 0U);
    EXPECT_EQ(rb.position, 0U);
    EXPECT_FALSE(rb.lastWasCR);
    EXPECT_TRUE(cmd.empty());
    EXPECT_FALSE(done);
}

TEST(NetTCPCommandTest, RecvPurgeRemaining_SmallRoom_InParts)
{
    NetTCP socket(NetIP::LOOKUP_ANY);
    unsigned char bytes[] = "..0123456789";
    NetTCP::RECVBUF rb = {sizeof(bytes), bytes, 12, 2, false};
    const struct
    {
        const char* text;
        bool more;
    } parts[] = {{"0123", true}, {"4567", true}, {"89", false}};
    for (const auto& part : parts) {
        unsigned char out[4] = {};
        unsigned long len = sizeof(out);
        bool more = !part.more;
        EXPECT_TRUE(socket.RecvPurgeRemaining(rb, out, len, more));
        EXPECT_EQ(std::string(out, out + len), part.text);
        EXPECT_EQ(more, part.more);
    }
    EXPECT_EQ(rb.length, 0U);
    EXPECT_EQ(rb.position, 0U);
}

TEST(NetTCPCommandTest, RecvPurgeRemaining_ExactRoom_AllAtOnce)
{
    NetTCP socket(NetIP::LOOKUP_ANY);
    unsigned char bytes[] = "0123";
    NetTCP::RECVBUF rb = {4, bytes, 4, 0, false};
    unsigned char out[4];
    unsigned long len = sizeof(out);
    bool more = true;
    EXPECT_TRUE(socket.RecvPurgeRemaining(rb, out, len, more));
    EXPECT_EQ(len, 4U);
    EXPECT_FALSE(more);
    EXPECT_EQ(rb.length, 0U);
}

TEST(NetTCPCommandTest, RecvPurgeRemaining_NothingBufferedOrNoRoom_Nothing)
{
    NetTCP socket(NetIP::LOOKUP_ANY);
    unsigned char bytes[] = "0123";
    unsigned char out[4];
    bool more = true;
    NetTCP::RECVBUF consumed = {4, bytes, 4, 4, false};
    unsigned long len = sizeof(out);
    EXPECT_TRUE(socket.RecvPurgeRemaining(consumed, out, len, more));
    EXPECT_EQ(len, 0U);
    EXPECT_FALSE(more);
    EXPECT_EQ(consumed.position, 4U);

    NetTCP::RECVBUF full = {4, bytes, 4, 1, false};
    more = true;
    len = 0;
    EXPECT_TRUE(socket.RecvPurgeRemaining(full, out, len, more));
    EXPECT_EQ(len, 0U);
    EXPECT_FALSE(more);
    EXPECT_EQ(full.position, 1U);
    EXPECT_EQ(full.length, 4U);
}

// --- against the model

TEST(NetTCPCommandTest, RecvTryGetCmd_RandomStreamsAndSplits_AsTheModel)
{
    std::mt19937 random(20240229);
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const char alphabet[] = {'a', 'B', '\r', '\n', '\r', '\n', '\0', static_cast<char>(0xFF)};
    for (int round = 0; round < 20000; round++) {
        std::string stream;
        for (unsigned size = below(40); size > 0; size--)
            stream += alphabet[below(sizeof(alphabet))];
        std::deque<std::string> pieces;
        for (std::size_t at = 0; at < stream.size();) {
            pieces.push_back(stream.substr(at, below(6)));
            at += pieces.back().size();
        }
        const bool loneLF = below(2) == 0;
        const unsigned long maxLen = below(3) == 0 ? NO_LIMIT : below(12);
        const unsigned long capacity = 1 + below(16);
        ASSERT_EQ(CommandsOf(pieces, loneLF, maxLen, capacity), Model(stream, loneLF, maxLen))
            << "round " << round << ": " << testing::PrintToString(stream) << " lone LF " << loneLF << " limit "
            << maxLen << " capacity " << capacity;
    }
}

// --- over real connections

namespace {

using NetTCPCommandConnectionTest = NetSocketFixture;

/// The commands that come over a real connection to a peer.
Commands CommandsFrom(ScriptedTCPPeer& peer, TestTCP& socket, unsigned long blockTimeMs)
{
    EXPECT_TRUE(peer.StartServer());
    EXPECT_TRUE(socket.Connect(NetIP("127.0.0.1"), peer.GetPort()));
    socket.SetBlockTime(blockTimeMs);
    return Reception(socket, 4096, false, NO_LIMIT).TakeAll();
}

} // namespace

TEST_F(NetTCPCommandConnectionTest, RecvTryGetCmd_StreamByteByByte_EveryCommand)
{
    for (const unsigned long blockTimeMs : {0UL, 2UL, 100UL}) {
        ScriptedTCPPeer peer;
        peer.SendPieces("USER a\r\nPASS b\r\n\r\nX\nY\r\nunfinished", 1).HangUp();
        const Commands expected = {{"USER a", false}, {"PASS b", false}, {"", false}, {"X\nY", false}};
        EXPECT_EQ(CommandsFrom(peer, client, blockTimeMs), expected);
        EXPECT_EQ(client.GetLastError(), 48);
        EXPECT_FALSE(client.IsConnected());
        EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
    }
}

TEST_F(NetTCPCommandConnectionTest, RecvTryGetCmd_PeerStallsInTheCommand_NotDoneUntilItGoesOn)
{
    ScriptedTCPPeer peer;
    peer.Send("QU").Stall().Send("IT\r\n").ReceiveToEnd();
    ASSERT_TRUE(peer.StartServer());
    ASSERT_TRUE(client.Connect(NetIP("127.0.0.1"), peer.GetPort()));
    client.SetBlockTime(2);
    Reception reception(client, 64, false, NO_LIMIT);
    ASSERT_TRUE(WaitFor([&] { return !reception.Try() || reception.cmd == "QU"; }));
    for (int i = 0; i < 10; i++) {
        ASSERT_TRUE(reception.Try());
        ASSERT_FALSE(reception.done);
    }
    peer.Continue();
    ASSERT_TRUE(WaitFor([&] { return !reception.Try() || reception.done; }));
    EXPECT_EQ(reception.cmd, "QUIT");
    ASSERT_TRUE(SendAll(client, "221 bye\r\n"));
    client.ShutdownAndClose();
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
    EXPECT_EQ(peer.GetReceived(), "221 bye\r\n");
}

TEST_F(NetTCPCommandConnectionTest, RecvPurgeRemaining_RawDataAfterACommand_NothingLost)
{
    ScriptedTCPPeer peer;
    peer.Send("DATA\r\nraw bytes").Stall().Send(", and more").HangUp();
    ASSERT_TRUE(peer.StartServer());
    ASSERT_TRUE(client.Connect(NetIP("127.0.0.1"), peer.GetPort()));
    client.SetBlockTime(20);
    Reception reception(client, 64, false, NO_LIMIT);
    ASSERT_TRUE(WaitFor([&] { return !reception.Try() || reception.done; }));
    ASSERT_EQ(reception.cmd, "DATA");
    peer.Continue();
    std::string raw;
    bool more = true;
    while (more) {
        unsigned char out[4];
        unsigned long len = sizeof(out);
        ASSERT_TRUE(client.RecvPurgeRemaining(reception.rb, out, len, more));
        raw.append(out, out + len);
    }
    raw += Receive(client, 1000);
    EXPECT_EQ(raw, "raw bytes, and more");
}

TEST_F(NetTCPCommandConnectionTest, RecvTryGetCmd_PeerResets_FalseWithError48)
{
    ScriptedTCPPeer peer;
    peer.Send("HALF").ReceiveBytes(1).Reset();
    ASSERT_TRUE(peer.StartServer());
    ASSERT_TRUE(client.Connect(NetIP("127.0.0.1"), peer.GetPort()));
    client.SetBlockTime(20);
    Reception reception(client, 64, false, NO_LIMIT);
    ASSERT_TRUE(WaitFor([&] { return !reception.Try() || reception.cmd == "HALF"; }));
    ASSERT_TRUE(SendAll(client, "x"));
    EXPECT_TRUE(WaitFor([&] { return !reception.Try(); }));
    EXPECT_EQ(client.GetLastError(), 48);
    EXPECT_FALSE(reception.done);
}
