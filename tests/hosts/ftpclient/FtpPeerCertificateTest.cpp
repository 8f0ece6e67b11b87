// Tests of whether a certificate is trusted.
#include "hosts/ftpclient/FtpPeerCertificate.h"

#include "hosts/ftpclient/FtpClientSettings.h"
#include "tests/peers/TLSFiles.h"

#include <gtest/gtest.h>

namespace kqlib::test {
namespace {

class FtpPeerCertificateTest : public testing::Test
{
protected:
    bool IsTrusted(const String& chain, const FilePath& trusted, const char* host)
    {
        m_error.clear();
        return FtpPeerCertificate::sIsTrusted(chain, trusted.GetText(), host, m_error);
    }

    const TLSFiles& m_files = TLSFiles::sGet();
    const String m_chain = m_files.ReadFile(m_files.GetCert());
    String m_error;
};

TEST_F(FtpPeerCertificateTest, OwnCertificateInTheFile_TrustedForAnyHost)
{
    EXPECT_TRUE(IsTrusted(m_chain, m_files.GetCert(), "127.0.0.1")) << m_error.c_str();
    const String others = m_files.ReadFile(TLSFiles("elsewhere").GetCert());
    EXPECT_TRUE(IsTrusted(m_chain, m_files.MakeFile("two.crt", (others + m_chain).str()), "anything"));
}

TEST_F(FtpPeerCertificateTest, AnotherCertificate_RefusedWithReason)
{
    const TLSFiles other("localhost"); // of the same name
    EXPECT_FALSE(IsTrusted(m_chain, other.GetCert(), "localhost"));
    EXPECT_FALSE(m_error.empty());
    EXPECT_FALSE(IsTrusted(m_chain, FilePath(FtpClientSettings::SYSTEM_CERTIFICATES), "localhost"));
    EXPECT_FALSE(m_error.empty());
}

TEST_F(FtpPeerCertificateTest, NothingToReadOrNothingShown_Refused)
{
    EXPECT_FALSE(IsTrusted(m_chain, FilePath("/nowhere/at/all"), "localhost"));
    EXPECT_FALSE(m_error.empty());
    EXPECT_FALSE(IsTrusted("", m_files.GetCert(), "localhost"));
    EXPECT_FALSE(IsTrusted("no certificate", m_files.GetCert(), "localhost"));
    EXPECT_FALSE(IsTrusted(m_chain.substr(0, m_chain.size() / 2), m_files.GetCert(), "localhost"));
    EXPECT_FALSE(IsTrusted(m_chain, m_files.MakeFile("empty.crt", ""), "localhost"));
}

/// Certificates as an authority gives them: authority.crt signs intermediate.crt, which signs the others. They are for
/// server.test, *.wild.test and 127.0.0.1, and but for expired.crt for a hundred years.
class FtpPeerCertificateChainTest : public FtpPeerCertificateTest
{
protected:
    FilePath Path(const char* name) const { return FilePath(String(std::string(KQ_TEST_DATA "/chain/") + name)); }
    /// Whether a server that shows its certificate and the intermediate one is trusted by the authority.
    bool IsShown(const char* certificate, const char* host)
    {
        const String shown = m_files.ReadFile(Path(certificate)) + m_files.ReadFile(Path("intermediate.crt"));
        return IsTrusted(shown, Path("authority.crt"), host);
    }
};

TEST_F(FtpPeerCertificateChainTest, HostOfTheCertificate_Trusted)
{
    for (const char* host : {"server.test", "SERVER.test", "a.wild.test", "127.0.0.1"})
        EXPECT_TRUE(IsShown("server.crt", host)) << host << ": " << m_error.c_str();
}

TEST_F(FtpPeerCertificateChainTest, AnotherHost_RefusedWithReason)
{
    for (const char* host : {"other.test", "server.test.evil.test", "wild.test", "a.b.wild.test", "127.0.0.2", ""}) {
        EXPECT_FALSE(IsShown("server.crt", host)) << host;
        EXPECT_FALSE(m_error.empty()) << host;
    }
}

TEST_F(FtpPeerCertificateChainTest, Expired_RefusedWithReason)
{
    EXPECT_FALSE(IsShown("expired.crt", "server.test"));
    EXPECT_EQ(m_error, "certificate has expired");
}

TEST_F(FtpPeerCertificateChainTest, NotForServers_Refused)
{
    EXPECT_FALSE(IsShown("client_only.crt", "server.test"));
}

TEST_F(FtpPeerCertificateChainTest, IntermediateNotShown_RefusedUnlessTrustedItself)
{
    const String alone = m_files.ReadFile(Path("server.crt"));
    EXPECT_FALSE(IsTrusted(alone, Path("authority.crt"), "server.test"));
    EXPECT_TRUE(IsTrusted(alone, Path("intermediate.crt"), "server.test")) << m_error.c_str();
}

} // namespace
} // namespace kqlib::test
