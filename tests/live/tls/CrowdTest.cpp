// Thousands of hostile connections in one process, what they leave behind, and the signal that must never be raised.
#include "tests/net/sockets/tls/TLSFixture.h"

#include "platform/Sockets.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kqlib::test {
namespace {

constexpr int CONNECTIONS = KQ_SANITIZED ? 1000 : 10000;
constexpr double MAX_GROWTH_MIB = 8;

std::size_t CountOpenFiles()
{
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

double ResidentMiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stod(line.substr(6)) / 1024.0;
    return 0;
}

class TLSCrowd : public TLSFixture
{
protected:
    TLSCrowd()
    {
        HalfTLSPeer peer(HalfTLSPeer::CLIENT);
        peer.Handshake();
        m_hello = peer.Give();
    }

    /// One connection of some hostile kind; expects the code that goes with it.
    void Attack(int number)
    {
        Connect();
        const std::size_t part = static_cast<std::size_t>(number / 7) % m_hello.size();
        switch (number % 7) {
        case 0:
            SendAndEnd("");
            break;
        case 1:
            SendAndEnd("USER anonymous\r\n");
            break;
        case 2:
            SendAndEnd(m_hello.substr(0, part));
            break;
        case 3:
            SendAndEnd(m_hello);
            break;
        case 4:
            SendAll(m_client, m_hello.substr(0, part));
            platform::AbortSocket(m_client.Detach());
            break;
        case 5:
            AttackAfterHandshake("noise instead of a record");
            return;
        default:
            AttackAfterHandshake("");
            return;
        }
        EXPECT_FALSE(m_server.SSLAccept(m_files.GetCert(), m_files.GetKey()));
        ExpectClosed(m_server, NetSocket::ERR_TLS);
    }

private:
    void SendAndEnd(const std::string& bytes)
    {
        SendAll(m_client, bytes);
        m_client.ShutdownAndClose();
    }
    void AttackAfterHandshake(const std::string& bytes)
    {
        HalfTLSPeer peer(HalfTLSPeer::CLIENT);
        SecureWith(peer);
        SendAndEnd(bytes);
        EXPECT_TRUE(ReceiveEnd(m_server));
        ExpectClosed(m_server, NetSocket::ERR_IO);
    }

    std::string m_hello;
};

TEST_F(TLSCrowd, ThousandsOfHostileConnections_LeaveNothingBehind)
{
    int number = 0;
    for (; number < CONNECTIONS / 10; ++number)
        Attack(number);
    const std::size_t files = CountOpenFiles();
    const double resident = ResidentMiB();
    for (; number < CONNECTIONS && !HasFailure(); ++number)
        Attack(number);
    EXPECT_EQ(CountOpenFiles(), files);
    if (!KQ_SANITIZED) { // a sanitizer keeps memory for its own purposes, and looks for leaks itself
        EXPECT_LT(ResidentMiB() - resident, MAX_GROWTH_MIB);
    }
}

std::atomic<int> g_signals{0};

TEST_F(TLSCrowd, BrokenConnections_NeverRaiseSIGPIPE)
{
    const auto previous = std::signal(SIGPIPE, [](int) { ++g_signals; });
    for (int turn = 0; turn < 20; ++turn) {
        Connect();
        Secure();
        platform::AbortSocket(m_client.Detach());
        while (m_server.IsConnected())
            SendAll(m_server, Pattern(100000));
        Connect();
        Secure();
        platform::AbortSocket(m_client.Detach());
        m_server.ShutdownAndClose(); // the farewell meets a reset
        Connect();
        platform::AbortSocket(m_client.Detach());
        EXPECT_FALSE(m_server.SSLConnect()); // writes first
        ExpectClosed(m_server, NetSocket::ERR_TLS);
    }
    std::signal(SIGPIPE, previous);
    EXPECT_EQ(g_signals, 0);
}

} // namespace
} // namespace kqlib::test
