// A service with a plain and a TLS port, and clients whose dialogues can be counted.
#pragma once

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
#include <string>

namespace kqlib::test {

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

inline FaultSession::FaultSession(FaultService& service, NetTCPSSL* connection, const EventLogSessionID& id,
                                  bool secured)
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

class FaultServiceFixture : public testing::Test
{
protected:
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
};

} // namespace kqlib::test
