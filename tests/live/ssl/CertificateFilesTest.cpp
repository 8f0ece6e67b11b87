#include "common/TimePos.h"
#include "net/ssl/NetSSLCertControl.h"
#include "net/ssl/NetSSLCertCreate.h"
#include "tests/peers/Missing.h"
#include "tests/peers/RunProgram.h"
#include "tests/peers/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using testing::HasSubstr;

constexpr char SUBJECT[] = "C = DE, ST = State, L = City, emailAddress = someone@example.org, O = Organization, OU = "
                           "Unit, CN = ftp.example.org";

NetSSLCertCreate MakeCreate()
{
    NetSSLCertCreate create;
    create.SetCommonName("ftp.example.org");
    create.SetUnit("Unit");
    create.SetOrganization("Organization");
    create.SetEmail("someone@example.org");
    create.SetCity("City");
    create.SetState("State");
    create.SetCountry("DE");
    return create;
}

/// The openssl tool, and files that either side makes.
class CertificateFilesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (std::string(KQ_OPENSSL).empty())
            KQ_MISSING("the openssl tool is not installed");
    }
    std::string In(const std::string& name) const { return (m_folder / name).string(); }
    FilePath PathOf(const std::string& name) const { return FilePath(In(name).c_str()); }
    /// Its output; a failure of the tool fails the test.
    std::string Tool(const std::vector<std::string>& arguments) const
    {
        const PROGRAMRESULT result = RunProgram(KQ_OPENSSL, arguments);
        EXPECT_TRUE(result.success) << result.output;
        return result.output;
    }
    void Create(const NetSSLCertCreate& create) const
    {
        Messages messages;
        ASSERT_TRUE(NetSSLCertControl().CreateKeyCertificateAndSigningRequest(
            create, PathOf("made.crt"), PathOf("made.csr"), PathOf("made.key"), messages));
    }
    /// 0 or the code.
    int Import(const std::string& cert, const std::string& key) const
    {
        Messages messages;
        const bool imported = NetSSLCertControl().ImportKeyAndCertificate(
            PathOf(cert), PathOf(key), PathOf("imported.crt"), PathOf("imported.key"), messages);
        EXPECT_EQ(messages.GetMessageCount(), imported ? 0U : 1U);
        return imported ? 0 : messages.Get(0);
    }
    /// A self-signed pair of the tool's making; how: the kind of key, as "rsa:2048".
    void ToolMakesPair(const std::string& name, const std::vector<std::string>& how) const
    {
        std::vector<std::string> arguments{
            "req",  "-x509",           "-nodes",  "-days",           "2",      "-subj", "/CN=tool",
            "-out", In(name + ".crt"), "-keyout", In(name + ".key"), "-newkey"};
        arguments.insert(arguments.end(), how.begin(), how.end());
        Tool(arguments);
    }

    const TempFolder m_folder;
};

TEST_F(CertificateFilesTest, Made_Certificate_ReadBackByTheTool)
{
    ASSERT_NO_FATAL_FAILURE(Create(MakeCreate()));
    const std::string text = Tool({"x509", "-in", In("made.crt"), "-noout", "-text", "-serial"});
    EXPECT_THAT(text, HasSubstr("Version: 3 (0x2)"));
    EXPECT_THAT(text, HasSubstr("Serial Number: 0 (0x0)"));
    EXPECT_THAT(text, HasSubstr("serial=00"));
    EXPECT_THAT(text, HasSubstr("Signature Algorithm: sha1WithRSAEncryption"));
    EXPECT_THAT(text, HasSubstr(std::string("Subject: ") + SUBJECT));
    EXPECT_THAT(text, HasSubstr(std::string("Issuer: ") + SUBJECT));
    EXPECT_THAT(text, HasSubstr("Public-Key: (2048 bit)"));
    EXPECT_THAT(text, HasSubstr("Exponent: 65537"));
    EXPECT_THAT(text, testing::Not(HasSubstr("X509v3 extensions")));
}

TEST_F(CertificateFilesTest, Made_Certificate_VerifiesByItself)
{
    ASSERT_NO_FATAL_FAILURE(Create(MakeCreate()));
    EXPECT_THAT(Tool({"verify", "-check_ss_sig", "-CAfile", In("made.crt"), In("made.crt")}), HasSubstr(": OK"));
}

TEST_F(CertificateFilesTest, Made_Dates_EndAsAskedToTheSecond)
{
    NetSSLCertCreate create = MakeCreate();
    create.SetExpire(TimePos(TimePos::sNow().GetMilliSeconds() + SLONG8{100000} * 1000));
    ASSERT_NO_FATAL_FAILURE(Create(create));
    // The key took a while: the end of validity is what was asked for, not later.
    const ULONG8 left = TimePos::sNow().GetSecondsBetween(create.GetExpire());
    Tool({"x509", "-in", In("made.crt"), "-noout", "-checkend", std::to_string(left - 2)});
    EXPECT_FALSE(
        RunProgram(KQ_OPENSSL, {"x509", "-in", In("made.crt"), "-noout", "-checkend", std::to_string(left + 2)})
            .success);
}

TEST_F(CertificateFilesTest, Made_Request_VerifiesAndHasTheSubject)
{
    ASSERT_NO_FATAL_FAILURE(Create(MakeCreate()));
    const std::string text = Tool({"req", "-in", In("made.csr"), "-noout", "-verify", "-text"});
    EXPECT_THAT(text, HasSubstr("verify OK"));
    EXPECT_THAT(text, HasSubstr("Version: 1 (0x0)"));
    EXPECT_THAT(text, HasSubstr(std::string("Subject: ") + SUBJECT));
    EXPECT_THAT(text, HasSubstr("Signature Algorithm: sha1WithRSAEncryption"));
}

TEST_F(CertificateFilesTest, Made_Key_CheckedByTheTool)
{
    ASSERT_NO_FATAL_FAILURE(Create(MakeCreate()));
    EXPECT_THAT(Tool({"rsa", "-in", In("made.key"), "-noout", "-check"}), HasSubstr("RSA key ok"));
}

TEST_F(CertificateFilesTest, Import_PairsOfTheTool_WrittenAndReadBack)
{
    ToolMakesPair("rsa", {"rsa:2048"});
    ToolMakesPair("curve", {"ec", "-pkeyopt", "ec_paramgen_curve:P-256"});
    ToolMakesPair("edwards", {"ed25519"});
    for (const std::string name : {"rsa", "curve", "edwards"}) {
        EXPECT_EQ(Import(name + ".crt", name + ".key"), 0) << name;
        EXPECT_EQ(Tool({"x509", "-in", In("imported.crt"), "-noout", "-pubkey"}),
                  Tool({"pkey", "-in", In("imported.key"), "-pubout"}));
    }
    EXPECT_EQ(Import("rsa.crt", "curve.key"), 70);
    EXPECT_EQ(Import("rsa.crt", "edwards.key"), 70);
}

TEST_F(CertificateFilesTest, Import_EncryptedKeysOfTheTool_RefusedInBothForms)
{
    ToolMakesPair("rsa", {"rsa:2048"});
    Tool({"rsa", "-in", In("rsa.key"), "-traditional", "-aes256", "-passout", "pass:secret", "-out", In("old.key")});
    Tool({"pkcs8", "-topk8", "-in", In("rsa.key"), "-passout", "pass:secret", "-out", In("new.key")});
    EXPECT_EQ(Import("rsa.crt", "old.key"), 64);
    EXPECT_EQ(Import("rsa.crt", "new.key"), 63);
}

} // namespace
