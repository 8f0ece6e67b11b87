// The fixture of the update tests: a pool, a download folder and an update client that can be waited for.
#pragma once

#include "common/ThreadPool.h"
#include "net/update/NetAppUpdate.h"
#include "tests/peers/FakeHTTPServer.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace kqlib::test {

constexpr ULONG CURRENT_VERSION = 200;
constexpr ULONG NEW_VERSION = 201;

/// The update client with its text functions open.
class OpenUpdate : public NetAppUpdate
{
public:
    using NetAppUpdate::NetAppUpdate;
    using NetAppUpdate::xBuildRequest;
    using NetAppUpdate::xParseURL;
};

class UpdateFixture : public testing::Test
{
protected:
    using STATE = NetAppUpdate::STATE;

    void SetUp() override
    {
        ASSERT_TRUE(NetSocket::sStartSockets());
        MakeUpdate(m_folder.GetFilePath());
    }
    void TearDown() override
    {
        m_update.reset();
        NetSocket::sEndSockets();
    }

    void MakeUpdate(const FilePath& folder)
    {
        m_update = std::make_unique<OpenUpdate>(m_pool, folder, CURRENT_VERSION, "Product 2.0", "setup");
    }

    /// The version file that names an installer at this server.
    static std::string VersionFile(const FakeHTTPServer& server, const std::string& version = "201")
    {
        return version + "\r\nMany new things\r\n127.0.0.1\r\n" + std::to_string(server.GetPort()) +
               "\r\n/files/setup.bin\r\n";
    }

    bool StartCheck(const FakeHTTPServer& server)
    {
        return m_update->CheckForUpdate("detail", "127.0.0.1", server.GetPort(), "/version.txt");
    }
    /// Waits until the thread has ended: the state that it left.
    STATE WaitForEnd()
    {
        EXPECT_TRUE(WaitFor([this] { return !m_update->IsBusy(); }, 20000)) << "the thread does not end";
        return m_update->GetStatus();
    }
    STATE Check(const FakeHTTPServer& server)
    {
        EXPECT_TRUE(StartCheck(server));
        return WaitForEnd();
    }
    STATE Download()
    {
        EXPECT_TRUE(m_update->DownloadUpdate());
        return WaitForEnd();
    }
    /// A check whose only answer is this, from a server of its own.
    STATE CheckAnswered(const std::string& answer, std::size_t pieceSize = 0)
    {
        FakeHTTPServer server;
        server.Answer(answer, pieceSize);
        EXPECT_TRUE(server.Start());
        return Check(server);
    }
    /// A check that finds an update, and a download answered with these bytes.
    STATE DownloadAnswered(const std::string& answer, std::size_t pieceSize = 0)
    {
        FakeHTTPServer server;
        server.Answer(FakeHTTPServer::sOk(VersionFile(server))).Answer(answer, pieceSize);
        EXPECT_TRUE(server.Start());
        EXPECT_EQ(Check(server), NetAppUpdate::ST_UPDATE_AVAILABLE);
        return Download();
    }

    std::filesystem::path InstallerPath() const { return m_folder / "setup201.exe"; }
    std::string InstallerBytes() const
    {
        std::ifstream file(InstallerPath(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    bool IsFolderEmpty() const { return std::filesystem::is_empty(m_folder.GetPath()); }
    /// Failed, nothing on disk, no path.
    void ExpectNothingDownloaded(STATE state) const
    {
        EXPECT_EQ(state, NetAppUpdate::ST_FAILED);
        EXPECT_EQ(m_update->GetStatus(), NetAppUpdate::ST_FAILED);
        EXPECT_TRUE(IsFolderEmpty());
        EXPECT_TRUE(m_update->GetDownloadedUpdatePath().empty());
    }

    TempFolder m_folder;
    ThreadPool m_pool;
    std::unique_ptr<OpenUpdate> m_update;
};

/// Bytes of every value, none of them like its neighbours.
inline std::string MakeBody(std::size_t size)
{
    std::string body(size, '\0');
    std::uint32_t state = 12345;
    for (char& byte : body) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return body;
}

} // namespace kqlib::test
