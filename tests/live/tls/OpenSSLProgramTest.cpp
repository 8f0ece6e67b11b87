// Tests of NetTCPSSL with the openssl program, s_client and s_server, as the opposite end.
#include "tests/net/sockets/tls/TLSFixture.h"
#include "tests/peers/Missing.h"
#include "tests/peers/RunProgram.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/posix/ChildProcess.h"

#include <fstream>
#include <iterator>
#include <memory>

namespace kqlib::test {
namespace {

#define KQ_NEED_OPENSSL()                                                                                              \
    if (std::string(KQ_OPENSSL).empty())                                                                               \
    KQ_MISSING("the openssl program is not installed")

/// One case for each version of TLS; the parameter is the program's option.
class OpenSSLProgram : public TLSFixture, public testing::WithParamInterface<const char*>
{
protected:
    /// Starts s_server on a port of its own; returns the port, 0 on failure.
    USHORT StartServer(const std::string& mode)
    {
        const auto output = m_folder / "s_server";
        m_process = std::make_unique<ChildProcess>(
            std::vector<std::string>{KQ_OPENSSL, "s_server", "-accept", "127.0.0.1:0", "-cert",
                                     m_files.GetCert().c_str(), "-key", m_files.GetKey().c_str(), GetParam(), mode},
            output);
        std::string text;
        const std::string mark = "ACCEPT 127.0.0.1:";
        const bool listening = WaitFor([&] {
            std::ifstream file(output);
            text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
            const std::size_t at = text.find(mark);
            return at != std::string::npos && text.find('\n', at) != std::string::npos;
        });
        EXPECT_TRUE(listening) << text;
        return listening ? static_cast<USHORT>(std::stoul(text.substr(text.find(mark) + mark.size()))) : USHORT{0};
    }
    /// Connects to s_server and turns TLS on.
    void ConnectToServer(const std::string& mode)
    {
        const USHORT port = StartServer(mode);
        ASSERT_NE(port, 0);
        ASSERT_TRUE(m_client.Connect(LOOPBACK(), port));
        ASSERT_TRUE(m_client.SSLConnect()) << m_client.GetLastError();
    }
    /// What s_client, started by a shell with that text as its input, puts out.
    std::future<std::string> StartClient(const std::string& input)
    {
        const std::string command = "printf '" + input + "' | timeout 60 " + KQ_OPENSSL +
                                    " s_client -quiet -connect 127.0.0.1:" + std::to_string(m_listener.GetLocalPort()) +
                                    " " + GetParam() + " 2>/dev/null";
        return std::async(std::launch::async, [command] { return RunProgram("/bin/sh", {"-c", command}).output; });
    }
    void AcceptClient()
    {
        const std::unique_ptr<NetTCP> accepted(m_listener.Accept());
        ASSERT_NE(accepted, nullptr);
        m_server.Upgrade(*accepted);
        ASSERT_TRUE(m_server.SSLAccept(m_files.GetCert(), m_files.GetKey())) << m_server.GetLastError();
    }

    TempFolder m_folder;
    std::unique_ptr<ChildProcess> m_process;
};

INSTANTIATE_TEST_SUITE_P(Versions, OpenSSLProgram, testing::Values("-tls1_2", "-tls1_3"),
                         [](const auto& version) { return std::string(version.param).substr(1); });

TEST_P(OpenSSLProgram, SClient_TalksAndSeesTheFarewell)
{
    KQ_NEED_OPENSSL();
    std::future<std::string> output = StartClient("give me\\n");
    AcceptClient();
    EXPECT_EQ(Receive(m_server, 8), "give me\n");
    std::string reply;
    while (reply.size() < 3000000)
        reply += "line " + std::to_string(reply.size()) + "\n";
    EXPECT_TRUE(SendAll(m_server, reply));
    m_server.ShutdownAndClose();
    EXPECT_TRUE(output.get() == reply);
}

TEST_P(OpenSSLProgram, SServer_EchoesReversedLines)
{
    KQ_NEED_OPENSSL();
    ConnectToServer("-rev");
    for (int turn = 0; turn < 10; ++turn) {
        EXPECT_TRUE(SendAll(m_client, "0123 abc\n"));
        EXPECT_EQ(Receive(m_client, 9), "cba 3210\n");
    }
}

TEST_P(OpenSSLProgram, SServer_SendsAPageAndEnds_48)
{
    KQ_NEED_OPENSSL();
    ConnectToServer("-www");
    EXPECT_TRUE(SendAll(m_client, "GET / HTTP/1.0\r\n\r\n"));
    const std::string page = Receive(m_client, std::string::npos);
    EXPECT_EQ(page.find("HTTP/1.0 200"), 0U) << page;
    EXPECT_NE(page.find("</HTML>"), std::string::npos) << page;
    ExpectClosed(m_client, NetSocket::ERR_IO);
}

TEST_P(OpenSSLProgram, SServer_StoppedInTheMiddle_48)
{
    KQ_NEED_OPENSSL();
    ConnectToServer("-rev");
    m_process->Stop();
    EXPECT_TRUE(ReceiveEnd(m_client));
    ExpectClosed(m_client, NetSocket::ERR_IO);
}

} // namespace
} // namespace kqlib::test
