// The fixture of the service tests: a pool, a cache, an event log in memory and one service.
#pragma once

#include "tests/net/service/TestService.h"
#include "tests/peers/CapturedEventLog.h"

#include <gtest/gtest.h>

#include <random>

namespace kqlib::test {

class ServiceFixture : public testing::Test
{
protected:
    ServiceFixture() { MakeService(); }

    void SetUp() override { ASSERT_TRUE(NetSocket::sStartSockets()); }
    void TearDown() override
    {
        m_service.reset();
        NetSocket::sEndSockets();
    }

    /// A new service that logs into m_log, with nothing set yet.
    void MakeService()
    {
        m_service = std::make_unique<TestService>(m_pool, m_cache);
        m_service->SetLogModeShared(&m_log, true);
    }
    static NetPortBinds Binds(const std::string& line)
    {
        NetPortBinds binds;
        binds.AddByLine(String(line));
        return binds;
    }
    void Init(const std::string& binds, ULONG maxIncoming = 1000, ULONG maxOutgoing = 1000)
    {
        m_service->SetSettings(Binds(binds), maxIncoming, maxOutgoing);
        Messages messages;
        ASSERT_TRUE(m_service->Init(messages));
    }
    /// Opens every port; returns the first.
    USHORT Listen()
    {
        NetPortBinds failed;
        m_service->StartListen(failed);
        EXPECT_EQ(failed.GetLine(), String());
        const std::vector<USHORT> ports = GetPorts();
        return ports.empty() ? USHORT{0} : ports[0];
    }
    USHORT Start(const std::string& binds = "127.0.0.1:0")
    {
        Init(binds);
        return Listen();
    }
    std::vector<USHORT> GetPorts() const
    {
        Vector<NetServiceStatus::ACTIVEPORT> active;
        m_service->GetListeningPorts(active);
        std::vector<USHORT> ports;
        for (const auto& port : active)
            ports.push_back(port.port);
        return ports;
    }
    /// A port that was free a moment ago, below those that the system gives to outgoing connections.
    static USHORT FreePort()
    {
        static std::atomic<unsigned> next{std::random_device()()};
        for (;;) {
            const auto port = static_cast<USHORT>(20000 + next++ % 10000);
            NetTCP socket(NetIP::LOOKUP_ANY);
            if (socket.ListenSpecific(port, NetIP(String("127.0.0.1"))))
                return port;
        }
    }
    bool WaitForSessions(ULONG count) const
    {
        return WaitFor([this, count] { return m_service->GetSessionCount() == count; });
    }

    ThreadPool m_pool;
    NetDNSCache m_cache;
    CapturedEventLog m_log;
    std::unique_ptr<TestService> m_service;
};

} // namespace kqlib::test
