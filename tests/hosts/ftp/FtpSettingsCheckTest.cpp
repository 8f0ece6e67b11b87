// What a check of settings finds on this machine.
#include "hosts/ftp/FtpSettingsCheck.h"

#include "hosts/ftpcommon/FtpPaths.h"
#include "net/sockets/NetSocket.h"
#include "tests/peers/CountedAsking.h"
#include "tests/peers/TLSFiles.h"
#include "tests/peers/TempFolder.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

namespace kqlib::test {
namespace {

class FtpSettingsCheckTest : public testing::Test
{
protected:
    FtpSettingsCheckTest()
    {
        NetSocket::sStartSockets();
        std::filesystem::create_directory(m_folder / "home");
        m_settings.SetUsers({Account("ann", "home")});
    }
    ~FtpSettingsCheckTest() override { NetSocket::sEndSockets(); }

    FilePath Path(const char* name) const { return FromStdPath(m_folder / name); }
    FilePath Write(const char* name, const char* text) const
    {
        std::ofstream(m_folder / name, std::ios::binary) << text;
        return Path(name);
    }
    FtpUserSettings Account(const char* name, const char* home) const
    {
        FtpUserSettings user;
        user.SetName(name);
        user.SetHome(Path(home));
        user.SetIsAnonymous(true);
        return user;
    }
    /// All faults, with "|" between, the test's folder left out.
    std::string Faults() const
    {
        std::string text = FtpSettingsCheck::sFindFaults(m_settings).GetLine(static_cast<unsigned char>('|')).str();
        const std::string folder = FromStdPath(m_folder.GetPath()).GetText().str();
        for (std::size_t at = text.find(folder); at != std::string::npos; at = text.find(folder))
            text.replace(at, folder.size(), "T");
        std::replace(text.begin(), text.end(), '\\', '/');
        return text;
    }

    TempFolder m_folder;
    FtpSettings m_settings;
};

TEST_F(FtpSettingsCheckTest, NothingWrong_NoFaultAndNothingMade)
{
    m_settings.SetLogFolder(Path("logs/deep"));
    m_settings.SetTLSCertificate(TLSFiles::sGet().GetCert());
    m_settings.SetTLSKey(TLSFiles::sGet().GetKey());
    EXPECT_EQ(Faults(), "");
    EXPECT_FALSE(std::filesystem::exists(m_folder / "logs"));
    std::filesystem::create_directory(m_folder / "logs");
    EXPECT_EQ(Faults(), "");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder / "logs"));
}

TEST_F(FtpSettingsCheckTest, Homes_MissingOrAFile_NamedWithTheAccount)
{
    Write("file", "");
    m_settings.SetUsers({Account("ann", "home"), Account("bob", "missing"), Account("cid", "file")});
    EXPECT_EQ(Faults(), "users[1].home: T/missing: No such file or folder (account \"bob\")|"
                        "users[2].home: T/file: Not a folder (account \"cid\")");
}

TEST_F(FtpSettingsCheckTest, CertificateAndKey_EachThingThatCanBeWrong_Named)
{
    const FilePath certificate = TLSFiles::sGet().GetCert();
    const FilePath key = TLSFiles::sGet().GetKey();
    const TLSFiles other("other");
    const FilePath nonsense = Write("nonsense", "nonsense");
    const struct
    {
        FilePath certificate;
        FilePath key;
        const char* begin;
        const char* end;
    } cases[] = {
        {Path("missing"), key, "tls_certificate: ", " cannot be read"},
        {certificate, Path("missing"), "tls_key: ", " cannot be read"},
        {nonsense, key, "tls_certificate: ", " holds no certificate (PEM)"},
        {certificate, nonsense, "tls_key: ", " holds no key without a pass phrase (PEM)"},
        {certificate, other.GetKey(), "tls_key: ", ""},
    };
    for (const auto& each : cases) {
        m_settings.SetTLSCertificate(each.certificate);
        m_settings.SetTLSKey(each.key);
        const std::string faults = Faults();
        EXPECT_TRUE(faults.starts_with(each.begin)) << faults;
        EXPECT_TRUE(faults.ends_with(each.end)) << faults;
        EXPECT_EQ(faults.find('|'), std::string::npos) << faults;
    }
    EXPECT_NE(Faults().find(" does not belong to the certificate in "), std::string::npos) << "of the last case";
}

// A check once asked for a pass phrase on the terminal, and so did the start of a server.
TEST_F(FtpSettingsCheckTest, CertificateWithAPassPhrase_NamedWithoutAsking)
{
    const CountedAsking asking;
    m_settings.SetTLSCertificate(TLSFiles::sGet().MakeEncryptedCert());
    m_settings.SetTLSKey(TLSFiles::sGet().GetKey());
    EXPECT_TRUE(Faults().ends_with(" holds no certificate (PEM)")) << Faults();
    EXPECT_EQ(CountedAsking::sGetCount(), 0);
}

TEST_F(FtpSettingsCheckTest, Listen_AddressesThatAreNotOfThisMachine_Named)
{
    m_settings.SetListen("127.0.0.1:21, 203.0.113.7:21");
    m_settings.SetListenTLS("no-such-host.invalid:990, 991");
    const std::string faults = Faults();
    EXPECT_EQ(faults, "listen: 203.0.113.7 is no address of this machine|"
                      "listen_tls: no-such-host.invalid is no address and no known host");
}

TEST_F(FtpSettingsCheckTest, TransferLogWithoutALogFolder_Named)
{
    m_settings.SetTransferLog("json");
    EXPECT_EQ(Faults(), "transfer_log: needs a log_folder");
    m_settings.SetLogFolder(Path("logs"));
    EXPECT_EQ(Faults(), "");
}

TEST_F(FtpSettingsCheckTest, LogFolder_AFileOrBelowOne_Named)
{
    Write("file", "");
    m_settings.SetLogFolder(Path("file"));
    EXPECT_EQ(Faults(), "log_folder: T/file is not a folder");
    m_settings.SetLogFolder(Path("file/logs"));
    EXPECT_EQ(Faults(), "log_folder: T/file is not a folder");
}

} // namespace
} // namespace kqlib::test
