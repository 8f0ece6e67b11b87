// The fixture of the session tests: pool, cache, logs, loopback connections, and clocks that a test can move.
#pragma once

#include "common/DataLogQuery.h"
#include "common/DataLogResults.h"
#include "common/DataLogTime.h"
#include "common/Messages.h"
#include "common/ThreadEvent.h"
#include "common/ThreadPool.h"
#include "net/dns/NetDNSCache.h"
#include "net/status/NetSessionLiveStatus.h"
#include "tests/net/session/ScriptedSocket.h"
#include "tests/net/session/TestHostSession.h"
#include "tests/peers/CapturedEventLog.h"
#include "tests/peers/MovedClocks.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace kqlib::test {

using TEXTS = std::vector<std::string>;
using NETSTATE = NetTCPSession::NETSTATE;
using CTRLMSG = NetTCPSession::CTRLMSG;

class SessionFixture : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(NetSocket::sStartSockets());
        m_dataLog.SetSettings(true, 3600, m_folder.GetFilePath(), "", "activity");
        Pair(m_served, m_client);
    }
    void TearDown() override
    {
        m_session.reset();
        m_served.reset();
        m_client.reset();
        NetSocket::sEndSockets();
    }

    /// Two ends of a loopback connection; the client's receives wait up to 20 ms.
    static void Pair(std::unique_ptr<NetTCP>& served, std::unique_ptr<NetTCP>& client)
    {
        NetTCP listener(NetIP::LOOKUP_ANY);
        ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
        client = std::make_unique<NetTCP>(NetIP::LOOKUP_ANY);
        ASSERT_TRUE(client->Connect(LOOPBACK(), listener.GetLocalPort()));
        client->SetBlockTime(20);
        listener.SetBlockTime(5000);
        served.reset(listener.Accept());
        ASSERT_NE(served, nullptr);
    }
    static NetIP LOOPBACK() { return NetIP(String("127.0.0.1")); }

    /// A session over socket (null: its own unconnected one), not started.
    TestHostSession& Make(std::unique_ptr<NetTCP> socket, ULONG timeOutSecs = 60)
    {
        m_session.reset();
        m_session =
            std::make_unique<TestHostSession>(m_pool, m_cache, m_dataLog, m_log, ID, timeOutSecs, socket.release());
        return *m_session;
    }
    TestHostSession& MakeServed() { return Make(std::move(m_served)); }
    /// A session over a scripted socket; the script is in m_script.
    TestHostSession& MakeScripted()
    {
        auto socket = std::make_unique<ScriptedSocket>(std::move(m_served));
        m_script = socket.get();
        return Make(std::move(socket));
    }
    void UseDebugLines()
    {
        EventLogSettings settings;
        settings.SetUsePrintDebug(true);
        m_log.SetSettings(settings);
    }
    void Run()
    {
        ASSERT_TRUE(m_session->xConstrStartSession());
        ASSERT_TRUE(WaitFor([this] { return m_session->IsComplete(); }, 20000));
    }

    static void SendAll(NetTCP& socket, const std::string& bytes)
    {
        for (unsigned long done = 0; done < bytes.size();) {
            unsigned long length = bytes.size() - done;
            ASSERT_TRUE(socket.Send(bytes.data() + done, length));
            done += length;
        }
    }
    void ClientSends(const std::string& bytes) { SendAll(*m_client, bytes); }
    /// What the client receives until it has count bytes or the connection ends, at most the time of
    /// WaitFor.
    std::string ClientReceives(std::size_t count)
    {
        std::string received;
        std::vector<char> buffer(65536);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitForMs);
        while (received.size() < count && std::chrono::steady_clock::now() < deadline) {
            unsigned long length = buffer.size();
            const bool connected = m_client->Recv(buffer.data(), length);
            received.append(buffer.data(), length);
            if (!connected)
                break;
        }
        return received;
    }
    /// Whether the client finds the connection ended within the time of WaitFor.
    bool ClientSeesEnd()
    {
        ClientReceives(std::string::npos);
        return !m_client->IsConnected();
    }

    /// "remote:port local:port event|detail|comment" as the log gets it for the given ends.
    static std::string Line(const NETSTATE& state, const std::string& event, const std::string& detail = "",
                            const std::string& comment = "")
    {
        return state.remoteIP.GetText().str() + ":" + std::to_string(state.remotePort) + " " +
               state.localIP.GetText().str() + ":" + std::to_string(state.localPort) + " " + event + "|" + detail +
               "|" + comment;
    }
    /// The lines of one kind ('N' or 'D') that log has received, in that form. All have the session's id.
    static TEXTS Lines(const CapturedEventLog& log, char kind = 'N')
    {
        TEXTS lines;
        for (const auto& event : log.GetEvents()) {
            EXPECT_TRUE(event.id == ID);
            if (event.kind == kind)
                lines.push_back(Line({event.local, event.localPort, event.remote, event.remotePort}, event.event.str(),
                                     event.detail.str(), event.comment.str()));
        }
        return lines;
    }
    TEXTS Lines(char kind = 'N') const { return Lines(m_log, kind); }

    NetSessionStatus Status() const
    {
        NetSessionLiveStatus live;
        m_session->GetStatus(live);
        return live.GetStatus();
    }
    /// The rows of the activity log.
    std::vector<NetSessionActivity> Rows()
    {
        DataLogResults results;
        Messages messages;
        EXPECT_TRUE(m_dataLog.Query(DataLogQuery(), ThreadEvent(), NetSessionActivity(), results, messages));
        std::vector<NetSessionActivity> rows;
        for (ULONG i = 0; i < results.GetCount(); ++i)
            rows.push_back(dynamic_cast<const NetSessionActivity&>(results.Get(i)));
        return rows;
    }
    /// That work, with so many pauses of 2 ms in it, takes its time. A pause is never too short, so half is asked for.
    template <class WORK> static void ExpectPauses(int count, const WORK& work)
    {
        const auto start = std::chrono::steady_clock::now();
        work();
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(count)) << "no pauses";
    }

    /// A counter summed over all rows.
    ULONG8 Stored(NetCounterBlock::COUNTER counter)
    {
        ULONG8 sum = 0;
        for (const NetSessionActivity& row : Rows())
            sum += row.GetCounter(counter);
        return sum;
    }
    /// Runs the thread with nothing to do, so that every record is final, and tells a counter of the session.
    ULONG8 FinalCount(NetCounterBlock::COUNTER counter)
    {
        m_session->hooks.handle = [](TestHostSession&) {};
        Run();
        EXPECT_EQ(Stored(counter), Status().GetCounter(counter));
        return Status().GetCounter(counter);
    }

    static inline const EventLogSessionID ID{7, 9};
    TempFolder m_folder;
    ThreadPool m_pool;
    NetDNSCache m_cache;
    DataLogTime m_dataLog;
    CapturedEventLog m_log;
    std::unique_ptr<NetTCP> m_served; ///< the session's end of a connection, until a session has it
    std::unique_ptr<NetTCP> m_client;
    std::unique_ptr<TestHostSession> m_session;
    ScriptedSocket* m_script = nullptr;
};

} // namespace kqlib::test
