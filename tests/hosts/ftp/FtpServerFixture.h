// FtpServerFixture: a kqftpd in the test's own process, with a home folder and a few accounts.
#pragma once

#include "hosts/ftp/FtpPassword.h"
#include "hosts/ftp/FtpServer.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "net/status/NetServiceLiveStatus.h"
#include "tests/hosts/ftp/FtpTestClient.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>

namespace kqlib::test {

/// The accounts, all with the password "secret": admin (every right), reader (read), writer (read, write), dropper
/// (write), and anonymous (read).
class FtpServerFixture : public testing::Test
{
protected:
    FtpServerFixture()
    {
        std::filesystem::create_directory(Home());
        m_settings.SetListen("127.0.0.1:0");
        m_settings.SetLogFolder(FromStdPath(m_folder / "logs"));
        m_settings.SetUsers({User("admin", "read,write,delete,admin"), User("reader", "read"),
                             User("writer", "read,write"), User("dropper", "write"), Anonymous()});
    }

    void Start()
    {
        String error;
        ASSERT_TRUE(m_server.Start(m_settings, error)) << error.c_str();
        Vector<NetServiceStatus::ACTIVEPORT> ports;
        m_server.GetService().GetListeningPorts(ports);
        ASSERT_EQ(ports.GetCount(), 1U);
        m_port = ports.Get(0).port;
    }

    FtpUserSettings User(const char* name, const char* rights) const
    {
        static const String hash = FtpPassword::sHash("secret");
        FtpUserSettings user;
        user.SetName(name);
        user.SetPassword(hash);
        user.SetHome(FromStdPath(Home()));
        user.SetRights(rights);
        return user;
    }

    FtpUserSettings Anonymous() const
    {
        FtpUserSettings user = User("anonymous", "read");
        user.SetPassword(String());
        user.SetIsAnonymous(true);
        return user;
    }

    std::filesystem::path Home() const { return m_folder / "home"; }

    /// Logs in on a new connection.
    FtpTestClient LogIn(const char* user = "admin")
    {
        FtpTestClient client;
        EXPECT_TRUE(client.LogIn(m_port, user, "secret"));
        return client;
    }

    void WriteHomeFile(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(Home() / name, std::ios::binary) << bytes;
    }

    static std::string ReadFile(const std::filesystem::path& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    std::string ReadHomeFile(const std::string& name) const { return ReadFile(Home() / name); }
    bool IsInHome(const std::string& name) const
    {
        return std::filesystem::exists(
            std::filesystem::symlink_status(Home() / std::filesystem::path(std::u8string(name.begin(), name.end()))));
    }

    /// Size bytes that repeat nowhere soon.
    static std::string Pattern(std::size_t size)
    {
        std::string bytes(size, '\0');
        std::uint32_t state = 12345;
        for (char& byte : bytes) {
            state = state * 1664525U + 1013904223U;
            byte = static_cast<char>(state >> 24);
        }
        return bytes;
    }

    ULONG SessionCount()
    {
        NetServiceLiveStatus live;
        m_server.GetService().GetLiveSessions(live);
        return live.GetCount();
    }
    /// Waits longer than WaitFor does: a session may have much to do before it notices that it is to end.
    bool WaitNoSessions()
    {
        return WaitFor([this] { return SessionCount() == 0; }, 60000);
    }

    /// The event log, complete.
    std::string EventLogText()
    {
        m_server.GetService().GetEventLog().PrintPurge();
        return ReadFile(m_folder / "logs/kqftpd.log");
    }
    bool HasEvent(const std::string& event) { return EventLogText().find("\t" + event + "\t") != std::string::npos; }

    TempFolder m_folder;
    FtpSettings m_settings;
    FtpServer m_server;
    std::uint16_t m_port = 0;
};

} // namespace kqlib::test
