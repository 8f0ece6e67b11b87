// A service with a plain and a TLS port under the harsh plan: whatever fails, what is left is right.
#include "tests/faults/posix/FaultPlan.h"
#include "tests/faults/posix/FaultRun.h"

#include "common/DataLogQuery.h"
#include "common/DataLogResults.h"
#include "common/EventLogSettings.h"
#include "common/ThreadEvent.h"
#include "common/ThreadPool.h"
#include "net/dns/NetDNSCache.h"
#include "net/service/NetTCPServiceSSL.h"
#include "net/session/NetTCPSessionSSL.h"
#include "net/sockets/NetTCPSSL.h"
#include "net/status/NetServiceLiveStatus.h"
#include "tests/peers/TLSFiles.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace kqlib::test {
namespace {

using KIND = FaultPlan::KIND;

constexpr int CLIENTS = 12;
constexpr int DIALOGUES = 8; // of each client

class FaultService;

/// "ECHO <text>" is answered "OK <text>", "GET <n>" by n bytes, "STORE" records an upload; "BYE" is answered by the
/// session's number and ends the connection.
class FaultSession : public NetTCPSessionSSL
{
public:
    FaultSession(FaultService& service, NetTCPSSL* connection, const EventLogSessionID& id, bool secured);
    ~FaultSession() override { xDeconstrEndSession(); }

protected:
    void xHandleSession() override
    {
        const TLSFiles& files = TLSFiles::sGet();
        if (!m_secured || xAcceptSSL(xGetMainSocketSSL(), xGetMainNetState(), "", files.GetCert(), files.GetKey()))
            NetTCPSession::xHandleSession();
    }
    void xEventMonCmdRecv(const String& command) override
    {
        const std::string text = command.str();
        NetTCP* const socket = xGetMainSocket();
        if (text.rfind("GET ", 0) == 0) {
            const std::string bytes(std::strtoul(text.c_str() + 4, nullptr, 10), 'b');
            xSendAllData(socket, reinterpret_cast<const unsigned char*>(bytes.data()),
                         static_cast<ULONG>(bytes.size()));
            return;
        }
        if (text == "STORE")
            xRecordFileUploaded(xGetMainNetState(), true, FilePath("/stored"), "");
        xSendCommand(socket, text == "BYE" ? String::sToString(xGetSessionID().GetSession()) : "OK " + command);
        if (text == "BYE")
            xShutdownAndClose(socket);
    }

private:
    const bool m_secured;
};

class FaultService : public NetTCPServiceSSL
{
public:
    FaultService(ThreadPool& pool, NetDNSCache& cache)
        : NetTCPServiceSSL(pool, cache)
    {
    }
    ~FaultService() override { xEndThread(); }

    using NetTCPServiceSSL::xGetPool;
    using NetTCPServiceSSL::xGetResolver;

    std::atomic<USHORT> securedPort{0};
    std::atomic<ULONG> made{0}; ///< sessions that came to life

protected:
    NetTCPSession* xCreateSessionSSL(NetTCPSSL* const connection, EventLogSessionID id) override
    {
        auto* const session = new FaultSession(*this, connection, id, connection->GetLocalPort() == securedPort);
        ++made;
        return session;
    }
};

FaultSession::FaultSession(FaultService& service, NetTCPSSL* connection, const EventLogSessionID& id, bool secured)
    : NetTCPSessionSSL(service.xGetPool(), *service.xGetResolver().GetCache(), service.GetActivityLog(),
                       service.GetEventLog(), id, 60, connection)
    , m_secured(secured)
{
    xSetPeriodicMilliSecs(20);
    xConstrStartSession();
}

/// A client, on a thread of the test: its own calls come out late and short, but do not fail.
class FaultClient
{
public:
    /// What a dialogue that ended in order moved, as the client saw it.
    struct TOTAL
    {
        ULONG8 sent = 0;
        ULONG8 received = 0;
        ULONG8 commands = 0;
    };

    bool Connect(USHORT port, bool secured)
    {
        m_socket.SetBlockTime(2);
        return m_socket.Connect(NetIP(String("127.0.0.1")), port) && (!secured || m_socket.SSLConnect());
    }
    /// Sends a command and waits for count bytes (0: a line); what came.
    bool Ask(const std::string& command, std::size_t count, std::string& answer)
    {
        const std::string bytes = command + "\r\n";
        ++m_total.commands;
        for (std::size_t done = 0; done < bytes.size();) {
            unsigned long size = static_cast<unsigned long>(bytes.size() - done);
            if (!m_socket.Send(bytes.data() + done, size))
                return false;
            done += size;
            m_total.sent += size;
        }
        answer.clear();
        const auto isThere = [&] {
            return count != 0 ? answer.size() >= count : answer.find("\r\n") != std::string::npos;
        };
        bool lives = true;
        WaitFor(
            [&] {
                std::string piece(16384, '\0');
                unsigned long size = static_cast<unsigned long>(piece.size());
                lives = m_socket.Recv(piece.data(), size);
                answer.append(piece, 0, size);
                m_total.received += size;
                return !lives || isThere();
            },
            3000);
        return isThere();
    }
    /// One dialogue to its end. True: the session's number and the totals are known.
    bool Talk(int lines, std::string& number)
    {
        std::string answer;
        for (int line = 0; line < lines; ++line) {
            const std::string text(static_cast<std::size_t>(1 + line * 37 % 900), 'e');
            if (!Ask("ECHO " + text, 0, answer) || answer != "OK ECHO " + text + "\r\n")
                return false;
        }
        if (!Ask("GET 100000", 100000, answer) || answer != std::string(100000, 'b'))
            return false;
        if (!Ask("STORE", 0, answer) || !Ask("BYE", 0, number))
            return false;
        number.resize(number.size() - 2);
        return true;
    }
    const TOTAL& GetTotal() const { return m_total; }

private:
    NetTCPSSL m_socket{NetIP::LOOKUP_ANY};
    TOTAL m_total;
};

class FaultServiceTest : public testing::TestWithParam<int>
{
protected:
    static std::uint64_t Seed()
    {
        const char* const first = std::getenv("KQ_FAULT_SEED");
        return (first != nullptr ? std::strtoull(first, nullptr, 10) : 1) + static_cast<std::uint64_t>(GetParam());
    }

    void SetUp() override
    {
        ASSERT_TRUE(NetSocket::sStartSockets());
        NetTCPSSL::sStartSSL();
        TLSFiles::sGet();
        m_before = HOLDINGS::sCount();
        m_pool = std::make_unique<ThreadPool>();
        m_service = std::make_unique<FaultService>(*m_pool, m_cache);
        EventLogSettings log;
        log.SetEnabled(true);
        log.SetFolder(m_folder.GetFilePath());
        log.SetFileName("events.log");
        m_service->SetLogModeNormal(log, true);
        m_service->SetMonitoringEnabled(m_folder.GetFilePath(), "", "activity", "sessions");
        NetPortBinds binds;
        binds.AddByLine("127.0.0.1:0,127.0.0.1:0");
        m_service->SetSettings(binds, 1000, 0);
        Messages messages;
        ASSERT_TRUE(m_service->Init(messages));
        OpenPorts();
    }
    void TearDown() override
    {
        FaultPlan::sStop();
        m_service.reset();
        m_pool.reset();
        FaultPlan::sRestoreClocks();
        NetSocket::sEndSockets();
        EXPECT_TRUE(m_before.IsBackTo()) << "descriptors or threads are left";
    }

    void OpenPorts()
    {
        NetPortBinds failed;
        m_service->StartListen(failed);
        EXPECT_EQ(failed.GetLine(), String());
        Vector<NetServiceStatus::ACTIVEPORT> ports;
        m_service->GetListeningPorts(ports);
        ASSERT_EQ(ports.GetCount(), 2U);
        m_plainPort = ports.Get(0).port;
        m_securedPort = ports.Get(1).port;
        m_service->securedPort = m_securedPort.load();
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

    /// The records of the session log by the number of the session.
    std::map<ULONG, NetSessionStatus> Records()
    {
        DataLogResults results;
        Messages messages;
        EXPECT_TRUE(m_service->QueryOldSessions(DataLogQuery(), ThreadEvent(), results, messages));
        std::map<ULONG, NetSessionStatus> records;
        for (ULONG index = 0; index < results.GetCount(); ++index) {
            const auto& record = dynamic_cast<const NetSessionStatus&>(results.Get(index));
            EXPECT_TRUE(records.emplace(record.GetSessionID().GetSession(), record).second) << "recorded twice";
        }
        return records;
    }
    NetServiceStatus Status()
    {
        NetServiceStatus status;
        m_service->GetStatus(status);
        return status;
    }

    HOLDINGS m_before;
    TempFolder m_folder;
    NetDNSCache m_cache;
    std::unique_ptr<ThreadPool> m_pool;
    std::unique_ptr<FaultService> m_service;
    std::atomic<USHORT> m_plainPort{0};
    std::atomic<USHORT> m_securedPort{0};
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
