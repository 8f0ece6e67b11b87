// What NetServiceOptions takes, and what the service makes of it.
#include "net/service/NetServiceOptions.h"

#include "tests/net/service/ServiceFixture.h"

#include <list>

namespace kqlib::test {
namespace {

TEST(NetServiceOptionsTest, Construct_AsAServiceWithoutOptions)
{
    EXPECT_EQ(NetServiceOptions().GetBacklog(), 5U);
}

TEST(NetServiceOptionsTest, SetBacklog_WithinItsRange_IsTaken)
{
    NetServiceOptions options;
    for (const ULONG connections : {1UL, 128UL, 65535UL}) {
        EXPECT_TRUE(options.SetBacklog(connections));
        EXPECT_EQ(options.GetBacklog(), connections);
    }
}

TEST(NetServiceOptionsTest, SetBacklog_OutsideItsRange_IsRefusedAndChangesNothing)
{
    NetServiceOptions options;
    ASSERT_TRUE(options.SetBacklog(128));
    for (const ULONG connections : {0UL, 65536UL, 0xFFFFFFFFUL}) {
        EXPECT_FALSE(options.SetBacklog(connections));
        EXPECT_EQ(options.GetBacklog(), 128U);
    }
}

using NetServiceOptionsServiceTest = ServiceFixture;

TEST_F(NetServiceOptionsServiceTest, Backlog_OfManyClientsAtOnce_AllOfThemAreConnectedBeforeOneIsAccepted)
{
    NetServiceOptions options;
    ASSERT_TRUE(options.SetBacklog(64));
    m_service->SetOptions(options);
    Init("127.0.0.1:0", 0);
    const USHORT port = Listen();
    std::list<TestClient> clients;
    for (int index = 0; index < 40; ++index) {
        clients.emplace_back(port);
        ASSERT_TRUE(clients.back().IsConnected());
        ASSERT_TRUE(clients.back().SendLine("early"));
    }
    EXPECT_TRUE(m_service->GetIDs().empty());
    m_service->SetSettings(Binds("127.0.0.1:0"), 100, 0);
    for (TestClient& client : clients)
        EXPECT_EQ(client.ReadLine(), "OK early");
}

} // namespace
} // namespace kqlib::test
