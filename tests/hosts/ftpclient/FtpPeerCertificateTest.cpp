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

} // namespace
} // namespace kqlib::test
