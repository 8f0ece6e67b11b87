// A service with a plain and a TLS port under the harsh plan: whatever fails, what is left is right.
#include "tests/faults/FaultServiceFixture.h"

#include <mutex>
#include <thread>
#include <vector>

namespace kqlib::test {
namespace {

using KIND = FaultPlan::KIND;

constexpr int CLIENTS = 12;
constexpr int DIALOGUES = 8; // of each client

class FaultServiceTest : public FaultServiceFixture, public testing::WithParamInterface<int>
{
protected:
    static std::uint64_t Seed()
    {
        const char* const first = std::getenv("KQ_FAULT_SEED");
        return (first != nullptr ? std::strtoull(first, nullptr, 10) : 1) + static_cast<std::uint64_t>(GetParam());
    }

    /// Clients come and go under the plan, and control messages with them.
    void Storm()
    {
        std::vector<std::thread> threads;
        for (int index = 0; index < CLIENTS; ++index)
            threads.emplace_back([this, index] { RunClient(index); });
        std::atomic<bool> done{false};
        std::thread control([this, &done] {
            for (unsigned round = 0; !done; ++round) {
                m_service->SendControlMsgStopTransferAll("stop");
                m_service->SendControlMsgDisconnect(
                    EventLogSessionID(round % 50, m_service->GenSessionID().GetThread()), "kicked");
                NetServiceLiveStatus live;
                m_service->GetLiveSessions(live);
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        });
        for (std::thread& thread : threads)
            thread.join();
        done = true;
        control.join();
    }
    void RunClient(int index)
    {
        for (int round = 0; round < DIALOGUES; ++round) {
            FaultClient client;
            const bool secured = index % 2 != 0;
            if (!client.Connect(secured ? m_securedPort : m_plainPort, secured) || (index + round) % 5 == 0)
                continue; // also one that hangs up at once
            std::string number;
            if (client.Talk(10, number)) {
                const std::lock_guard lock(m_mutex);
                m_inOrder[std::strtoul(number.c_str(), nullptr, 10)] = client.GetTotal();
            }
        }
    }

    std::mutex m_mutex; // guards the next
    std::map<ULONG, FaultClient::TOTAL> m_inOrder;
};

TEST_P(FaultServiceTest, Storm_AfterIt_EverythingServedCountedAndRecorded)
{
    SCOPED_TRACE("KQ_FAULT_SEED=" + std::to_string(Seed()));
    FaultPlan::sStart(KIND::HARSH, Seed());
    Storm();
    const std::string report = FaultPlan::sGetReport();
    SCOPED_TRACE(report);
    const bool portsStand = FaultPlan::sGetCount(FAULT::ACCEPT_FAILS) == 0;
    FaultPlan::sStop();

    // 1. The ports serve at once; one that was told to be unusable, when it is opened again.
    if (!portsStand)
        OpenPorts();
    for (const bool secured : {false, true}) {
        FaultClient client;
        std::string number;
        ASSERT_TRUE(client.Connect(secured ? m_securedPort : m_plainPort, secured));
        ASSERT_TRUE(client.Talk(10, number));
        m_inOrder[std::strtoul(number.c_str(), nullptr, 10)] = client.GetTotal();
    }
    // 2. Every session ends.
    m_service->StopListen();
    m_service->CloseSessions();
    EXPECT_EQ(Status().GetCurrentConnectionsIn(), 0U);
    // 3. Each is recorded once; one may be lost only where there was no memory for it.
    const std::map<ULONG, NetSessionStatus> records = Records();
    const std::uint32_t noMemory = FaultPlan::sGetCount(FAULT::NO_MEMORY);
    EXPECT_LE(records.size(), m_service->made);
    EXPECT_GE(records.size() + noMemory, m_service->made);
    // 4. The service's sums are those of the sessions.
    NetServiceStatus sum;
    for (const auto& record : records)
        sum.AddDataFrom(record.second);
    if (records.size() == m_service->made) {
        EXPECT_EQ(sum.GetConnectionsIn(), Status().GetConnectionsIn());
        EXPECT_EQ(sum.GetDataOutBytes(), Status().GetDataOutBytes());
        EXPECT_EQ(sum.GetDataInBytes(), Status().GetDataInBytes());
        EXPECT_EQ(sum.GetFilesCreated(), Status().GetFilesCreated());
    }
    // 5. What moved in dialogues that ended in order is what both ends saw.
    for (const auto& [number, total] : m_inOrder) {
        const auto record = records.find(number);
        if (record == records.end())
            continue; // lost as said above
        EXPECT_EQ(record->second.GetDataInBytes(), total.sent) << number;
        EXPECT_EQ(record->second.GetDataOutBytes(), total.received) << number;
        EXPECT_EQ(record->second.GetCommandsIn(), total.commands) << number;
        EXPECT_EQ(record->second.GetFilesCreated(), 1U) << number;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, FaultServiceTest, testing::Range(0, 2));

} // namespace
} // namespace kqlib::test
