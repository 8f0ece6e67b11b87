// Transfers that once went wrong under a plan of faults, with the same faults in their places.
#include "tests/faults/posix/FaultPlan.h"

#include "tests/net/sockets/tls/TLSFixture.h"
#include "tests/peers/MovedClocks.h"

#include <vector>

namespace kqlib::test {
namespace {

class FaultTransferTest : public TLSFixture
{
protected:
    /// Offers text over TLS, of which a record is begun that there is no memory to copy.
    void BeginWithoutMemory(const std::string& text)
    {
        Secure();
        m_server.SetBlockTime(0);
        FaultPlan::sScriptSends({100, 0});
        FaultPlan::sSetFailEverywhere(true);
        FaultPlan::sScriptMemory(0, 16384);
        unsigned long len = text.size();
        const bool connected = m_server.Send(text.data(), len);
        EXPECT_TRUE(FaultPlan::sEndMemoryScript()) << "a block was asked for";
        FaultPlan::sSetFailEverywhere(false);
        ASSERT_TRUE(connected);
        EXPECT_EQ(len, 0U);
    }

    /// A step that waits for room, of which there never is any, ends when 30 seconds of the clock have passed and not
    /// before.
    template <class STEP> static void ExpectEndsAfter30Seconds(const STEP& step)
    {
        MovedTick tick(0xFFFFC000U); // shortly before it wraps
        const std::size_t before = MovedTick::sGetAskedCount();
        FaultPlan::sScriptSends(std::vector<std::size_t>(10000000, 0));
        std::future<void> ended = std::async(std::launch::async, step);
        EXPECT_TRUE(WaitFor([&] { return MovedTick::sGetAskedCount() > before + 2; }));
        MovedTick::sAdvance(29999);
        EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        MovedTick::sAdvance(1);
        EXPECT_EQ(ended.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        FaultPlan::sScriptSends({});
        ended.get();
    }
};

// The rest of one record went out and the next was begun in the same call, which had nothing to tell: other bytes than
// those broke the connection then.
TEST_F(FaultTransferTest, Send_RecordFinishedAndTheNextBegunInOneCall_OtherBytesAfterThem)
{
    Secure();
    m_server.SetBlockTime(0);
    const std::string many = Pattern(131072);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (attempt == 0)
            FaultPlan::sScriptSends({100, 0, 1 << 20, 0});
        unsigned long len = many.size();
        ASSERT_TRUE(m_server.Send(many.data(), len));
        ASSERT_EQ(len, attempt == 0 ? 0U : 16384U);
    }
    ASSERT_TRUE(SendAll(m_server, "last words"));
    EXPECT_TRUE(Receive(m_client, 2 * 16384 + 10) == many.substr(0, 2 * 16384) + "last words");
}

TEST_F(FaultTransferTest, SSLEndSending_NoRoomForTheFarewell_GivenUpAfterExactly30Seconds)
{
    Secure();
    ExpectEndsAfter30Seconds([this] { EXPECT_FALSE(m_server.SSLEndSending()); });
    EXPECT_TRUE(m_server.IsSSLOn());
    EXPECT_TRUE(m_server.SSLEndSending()) << "there is room now";
}

TEST_F(FaultTransferTest, SSLEndSending_NoRoomForTheBegunRecord_GivenUpAfterExactly30Seconds)
{
    Secure();
    FaultPlan::sScriptSends({5, 0});
    unsigned long len = 4;
    ASSERT_TRUE(m_server.Send("last", len));
    ASSERT_EQ(len, 0U);
    ExpectEndsAfter30Seconds([this] { EXPECT_FALSE(m_server.SSLEndSending()); });
    EXPECT_TRUE(m_server.IsSSLOn());
    EXPECT_TRUE(m_server.SSLEndSending()) << "there is room now";
    EXPECT_EQ(Receive(m_client, std::string::npos), "last");
}

TEST_F(FaultTransferTest, ShutdownAndClose_NoRoomForTheFarewell_GivenUpAfterExactly30Seconds)
{
    Secure();
    ExpectEndsAfter30Seconds([this] { m_server.ShutdownAndClose(); });
    ExpectClosed(m_server, NetSocket::ERR_NONE);
}

// Without memory for the copy of a begun record nothing is lost: the same bytes go on.
TEST_F(FaultTransferTest, Send_NoMemoryForTheBegunRecord_SameBytesGoOn)
{
    const std::string text = Pattern(16384 + 100);
    ASSERT_NO_FATAL_FAILURE(BeginWithoutMemory(text));
    ASSERT_TRUE(SendAll(m_server, text));
    EXPECT_TRUE(Receive(m_client, text.size()) == text);
}

// TLS once took other bytes for those of the record: they counted as sent and never arrived.
TEST_F(FaultTransferTest, Send_NoMemoryForTheBegunRecordAndOtherBytes_ConnectionEnds)
{
    const std::string text = Pattern(16384 + 100);
    ASSERT_NO_FATAL_FAILURE(BeginWithoutMemory(text));
    const std::string other(text.size(), 'o');
    unsigned long len = other.size();
    EXPECT_FALSE(m_server.Send(other.data(), len));
    EXPECT_EQ(len, 0U);
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

} // namespace
} // namespace kqlib::test
