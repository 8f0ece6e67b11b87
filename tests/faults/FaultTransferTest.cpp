// Transfers that once went wrong under a plan of faults, with the same faults in their places.
#include "tests/faults/posix/FaultPlan.h"

#include "tests/net/sockets/tls/TLSFixture.h"

namespace kqlib::test {
namespace {

using FaultTransferTest = TLSFixture;

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

} // namespace
} // namespace kqlib::test
