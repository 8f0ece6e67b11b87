// FtpClientFixture: a client, and scripted servers for it.
#pragma once

#include "hosts/ftpclient/FtpClient.h"
#include "tests/peers/ScriptedTCPPeer.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace kqlib::test {

/// Scripts are dialogues of a server: Expect adds a command that must come and its answer. The data connection of a
/// passive transfer is a peer of its own.
class FtpClientFixture : public testing::Test
{
protected:
    using OUTCOME = FtpClientResult::OUTCOME;
    using REQUEST = FtpClientRequest;

    FtpClientFixture()
    {
        NetSocket::sStartSockets(); // for the peers
        m_settings.host = "127.0.0.1";
        m_settings.user = "ann";
        m_settings.password = "secret";
        m_settings.timeOutSecs = 10;
        m_settings.retries = 0;
    }
    ~FtpClientFixture() override
    {
        m_client.reset();
        NetSocket::sEndSockets();
    }

    static void Expect(ScriptedTCPPeer& peer, const std::string& command, const std::string& answer)
    {
        peer.ReceiveUntil(command + "\r\n").Send(answer + "\r\n");
    }
    /// From the greeting to TYPE I; the server knows the features of the text.
    static void ExpectLogin(ScriptedTCPPeer& peer, const std::string& features = "")
    {
        peer.Send("220 ready\r\n");
        Expect(peer, "USER ann", "331 password");
        Expect(peer, "PASS secret", "230 welcome");
        Expect(peer, "FEAT", features.empty() ? "211 none" : "211-these\r\n" + features + "211 end");
        Expect(peer, "OPTS UTF8 ON", "200 fine");
        Expect(peer, "PWD", "257 \"/home\" is it");
        Expect(peer, "TYPE I", "200 fine");
    }
    /// The preparation of a passive transfer on the data peer's port.
    static void ExpectPassive(ScriptedTCPPeer& peer, const ScriptedTCPPeer& data)
    {
        Expect(peer, "EPSV", "229 here (|||" + std::to_string(data.GetPort()) + "|)");
    }
    /// A whole transfer to the client, or of a listing.
    static void ExpectSending(ScriptedTCPPeer& peer, ScriptedTCPPeer& data, const std::string& command,
                              const std::string& bytes, const std::string& end = "226 done")
    {
        data.Send(bytes);
        ASSERT_TRUE(data.StartServer());
        ExpectPassive(peer, data);
        Expect(peer, command, "150 here it comes\r\n" + end);
    }

    void Start(ScriptedTCPPeer& peer)
    {
        ASSERT_TRUE(peer.StartServer());
        StartClient(peer.GetPort());
    }
    void StartClient(std::uint16_t port)
    {
        m_settings.port = port;
        m_client = std::make_unique<FtpClient>(m_settings);
    }

    static REQUEST Make(REQUEST::CODE code, const String& path)
    {
        REQUEST request;
        request.code = code;
        request.remotePath = path;
        return request;
    }
    REQUEST MakeTransfer(REQUEST::CODE code, const String& path, const String& name) const
    {
        REQUEST request = Make(code, path);
        request.localFolder = m_folder.GetFilePath();
        request.localName = name;
        return request;
    }
    FtpClientResult Connect() { return m_client->Run(REQUEST()); }

    void WriteFile(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(m_folder / name, std::ios::binary) << bytes;
    }
    static std::string ReadAll(const std::filesystem::path& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    std::string ReadFile(const std::string& name) const { return ReadAll(m_folder / name); }
    std::size_t CountFiles() const
    {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(m_folder.GetPath()))
            ++count;
        return count;
    }

    TempFolder m_folder;
    FtpClientSettings m_settings;
    std::unique_ptr<FtpClient> m_client;
};

/// Says which outcome it was when a test fails.
inline void PrintTo(FtpClientResult::OUTCOME outcome, std::ostream* stream)
{
    static constexpr const char* NAMES[] = {"DONE", "CANCELLED", "NO_CONNECTION", "NO_LOGIN", "NO_TLS",
                                            "LOST", "REFUSED",   "CONFUSED",      "LOCAL",    "DIFFERENT"};
    *stream << NAMES[static_cast<std::size_t>(outcome)];
}

} // namespace kqlib::test
