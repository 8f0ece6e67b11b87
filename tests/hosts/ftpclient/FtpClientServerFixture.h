// FtpClientServerFixture: a client and a kqftpd in one process.
#pragma once

#include "hosts/ftpclient/FtpClient.h"
#include "tests/hosts/ftp/FtpServerFixture.h"
#include "tests/peers/TLSFiles.h"

#include <memory>
#include <ostream>

namespace kqlib::test {

/// How a client connects and has its data connections made.
struct WAY
{
    FtpClientSettings::TLS tls;
    bool isActive;

    friend std::ostream& operator<<(std::ostream& stream, const WAY& way)
    {
        static constexpr const char* NAMES[] = {"Plain", "ExplicitTLS", "ImplicitTLS"};
        return stream << NAMES[static_cast<int>(way.tls)] << (way.isActive ? "Active" : "Passive");
    }
};

/// The server's homes are those of FtpServerFixture; local files are in Local().
class FtpClientServerFixture : public FtpServerFixture
{
protected:
    using OUTCOME = FtpClientResult::OUTCOME;
    using REQUEST = FtpClientRequest;
    using TLS = FtpClientSettings::TLS;

    FtpClientServerFixture()
    {
        std::filesystem::create_directory(Local());
        m_settings.SetTLSCertificate(TLSFiles::sGet().GetCert());
        m_settings.SetTLSKey(TLSFiles::sGet().GetKey());
    }

    /// Starts the server with a port for each kind, and a client for one of them.
    void StartBoth(const WAY& way = {TLS::NONE, false}, const char* user = "admin")
    {
        FtpTestSocket finder;
        const std::uint16_t tlsPort = finder.Listen();
        finder.Close();
        m_settings.SetListenTLS("127.0.0.1:" + String::sToString(tlsPort));
        String error;
        ASSERT_TRUE(m_server.Start(m_settings, error)) << error.c_str();
        Vector<NetServiceStatus::ACTIVEPORT> ports;
        m_server.GetService().GetListeningPorts(ports);
        ASSERT_EQ(ports.GetCount(), 2U);
        m_port = ports.Get(ports.Get(0).port == tlsPort ? 1 : 0).port;
        m_clientSettings.host = "127.0.0.1";
        m_clientSettings.port = way.tls == TLS::IMPLICIT ? tlsPort : m_port;
        m_clientSettings.user = user;
        m_clientSettings.password = "secret";
        m_clientSettings.tls = way.tls;
        m_clientSettings.isActive = way.isActive;
        if (way.tls != TLS::NONE)
            m_clientSettings.trusted = TLSFiles::sGet().GetCert().GetText();
        m_client = std::make_unique<FtpClient>(m_clientSettings);
    }

    std::filesystem::path Local() const { return m_folder / "local"; }
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
        request.localFolder = FromStdPath(Local());
        request.localName = name;
        return request;
    }
    FtpClientResult Run(const REQUEST& request) { return m_client->Run(request); }

    static void WriteFile(const std::filesystem::path& file, const std::string& bytes)
    {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
    }
    static void SetTime(const std::filesystem::path& file, int secondsAgo)
    {
        std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() -
                                                   std::chrono::seconds(secondsAgo));
    }
    /// Path, kind and content of everything in a folder, in order.
    static std::string Describe(const std::filesystem::path& folder)
    {
        std::map<std::string, std::string> all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            const FilePath name = FromStdPath(std::filesystem::relative(entry.path(), folder));
            all[name.GetText().str()] = entry.is_directory() ? "<folder>" : ReadFile(entry.path());
        }
        std::ostringstream text;
        for (const auto& [name, content] : all)
            text << name << "=" << content << "\n";
        return text.str();
    }

    FtpClientSettings m_clientSettings;
    std::unique_ptr<FtpClient> m_client;
};

} // namespace kqlib::test
