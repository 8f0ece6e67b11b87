#include "tests/peers/RunProgram.h"
#include "tests/peers/TLSFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using testing::HasSubstr;
using testing::Not;

using ARGUMENTS = std::vector<std::string>;

PROGRAMRESULT Kq(const ARGUMENTS& arguments)
{
    ARGUMENTS all{"cert"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return RunProgram(KQ_PROGRAM, all);
}

class CertCommandTest : public testing::Test
{
protected:
    std::string In(const std::string& name) const { return (m_folder / name).string(); }
    bool Exists(const std::string& name) const { return std::filesystem::exists(m_folder / name); }
    std::string Write(const std::string& name, const std::string& content) const
    {
        std::ofstream(m_folder / name, std::ios::binary) << content;
        return In(name);
    }
    /// Options of settings without a fault, and what is given besides.
    ARGUMENTS With(const std::string& command, const ARGUMENTS& more = {}) const
    {
        ARGUMENTS all{
            command,          "--name",    "site",    "--common-name",       "ftp.example.org", "--unit", "Unit",
            "--organization", "Org",       "--email", "someone@example.org", "--city",          "City",   "--state",
            "State",          "--country", "DE"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    std::string Cert() const { return m_pair.GetCert().c_str(); }
    std::string Key() const { return m_pair.GetKey().c_str(); }

    const TempFolder m_folder;
    const TLSFiles& m_pair = TLSFiles::sGet();
};

TEST_F(CertCommandTest, Create_Options_ThreeFilesNamedAndShown)
{
    const PROGRAMRESULT result = Kq(With("create", {"--out", In("")}));
    EXPECT_TRUE(result.success) << result.output;
    for (const char* line : {"wrote private key: ", "wrote signing request: ", "wrote certificate: ", "site.crt\n",
                             "site.csr\n", "site.key\n", "C = DE, ST = State, L = City, emailAddress = ", "2048 bits"})
        EXPECT_THAT(result.output, HasSubstr(line));
    EXPECT_TRUE(Kq({"check", In("site.crt"), In("site.key")}).success);
    EXPECT_THAT(Kq({"show", In("site.csr")}).output, HasSubstr("sha1WithRSAEncryption, is right"));
}

TEST_F(CertCommandTest, Create_FileInTheWay_RefusedUnlessForced)
{
    for (const char* name : {"site.key", "site.crt", "site.csr"}) {
        Write(name, "mine");
        const PROGRAMRESULT result = Kq(With("create", {"--out", In(""), "--bits", "1024"}));
        EXPECT_FALSE(result.success);
        EXPECT_THAT(result.output, HasSubstr(std::string(name) + " exists; --force overwrites it"));
        EXPECT_EQ(std::filesystem::file_size(m_folder / name), 4U);
        std::filesystem::remove(m_folder / name);
    }
    Write("site.key", "mine");
    EXPECT_TRUE(Kq(With("create", {"--out", In(""), "--bits", "1024", "--force"})).success);
    EXPECT_NE(std::filesystem::file_size(m_folder / "site.key"), 4U);
}

TEST_F(CertCommandTest, Create_NoSettings_EveryFailingFieldInWordsAndNoFile)
{
    const PROGRAMRESULT result = Kq({"create", "--out", In("")});
    EXPECT_FALSE(result.success);
    for (const char* text :
         {"message 71: name: ", "message 72: common name: ", "message 75: e-mail: ", "message 74: organization: ",
          "message 73: unit: ", "message 76: city: ", "message 77: state: ", "message 78: country: "})
        EXPECT_THAT(result.output, HasSubstr(text));
    EXPECT_THAT(result.output, Not(HasSubstr("seed")));
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.GetPath()));
}

TEST_F(CertCommandTest, Create_FieldTooLong_62InWords)
{
    const std::string file = Write("settings.json", R"({"days": 5})");
    ARGUMENTS arguments = With("create", {"--settings", file, "--out", In(""), "--bits", "1024"});
    *(std::find(arguments.begin(), arguments.end(), "--unit") + 1) = std::string(65, 'u');
    const PROGRAMRESULT result = Kq(arguments);
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, HasSubstr("message 62: the signing request"));
    EXPECT_FALSE(Exists("site.crt"));
}

TEST_F(CertCommandTest, Create_FolderMissing_60InWords)
{
    const PROGRAMRESULT result = Kq(With("create", {"--out", In("none")}));
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, HasSubstr("message 60: the private key"));
}

constexpr char PLAIN_SETTINGS[] = R"({"name": "site", "commonname": "ftp.example.org", "unit": "Unit",
    "organization": "Org", "email": "someone@example.org", "city": "City", "state": "State", "country": "US",
    "days": 30, "bits": 1024})";

TEST_F(CertCommandTest, Create_SettingsFileWithOptionsOverIt_BothTaken)
{
    const std::string file = Write("settings.json", PLAIN_SETTINGS);
    const PROGRAMRESULT result = Kq({"create", "--settings", file, "--country", "FR", "--out", In("")});
    EXPECT_TRUE(result.success) << result.output;
    EXPECT_THAT(result.output, HasSubstr("Subject:     C = FR, ST = State"));
    EXPECT_THAT(result.output, HasSubstr("1024 bits"));
}

TEST_F(CertCommandTest, Check_Settings_FineOrInWords)
{
    const std::string file = Write("settings.json", PLAIN_SETTINGS);
    const PROGRAMRESULT fine = Kq({"check", "--settings", file});
    EXPECT_TRUE(fine.success) << fine.output;
    EXPECT_THAT(fine.output, HasSubstr("the settings are fine"));
    const PROGRAMRESULT wrong = Kq({"check", "--settings", file, "--country", "XX"});
    EXPECT_FALSE(wrong.success);
    EXPECT_EQ(wrong.output, "message 78: country: must be a two-letter country code, as DE or US\n");
}

TEST_F(CertCommandTest, Check_SettingsOfTheLibrarysOwnForm_Taken)
{
    const std::string file = Write("saved.json", R"({"data":[["city","String","City"]],"sets":[]})");
    const PROGRAMRESULT result = Kq({"check", "--settings", file});
    EXPECT_THAT(result.output, HasSubstr("message 77: state: "));
    EXPECT_THAT(result.output, Not(HasSubstr("city: ")));
}

TEST_F(CertCommandTest, Check_SettingsFileDamaged_SaysWhatIsWrong)
{
    const std::pair<const char*, const char*> files[] = {{"", "no JSON object"},
                                                         {"[]", "no JSON object"},
                                                         {R"({"nmae": "x"})", "\"nmae\" is unknown"},
                                                         {R"({"name": 1})", "\"name\" is not a text"},
                                                         {R"({"days": -1})", "no whole number"},
                                                         {R"({"days": 24856})", "no whole number"},
                                                         {R"({"bits": "2048"})", "no whole number"}};
    for (const auto& [content, error] : files) {
        const PROGRAMRESULT result = Kq(With("check", {"--settings", Write("bad.json", content)}));
        EXPECT_FALSE(result.success) << content;
        EXPECT_THAT(result.output, HasSubstr(error));
    }
    const PROGRAMRESULT missing = Kq(With("check", {"--settings", In("none.json")}));
    EXPECT_FALSE(missing.success);
}

TEST_F(CertCommandTest, Check_Pairs_FineOrCodeInWords)
{
    const PROGRAMRESULT fine = Kq({"check", Cert(), Key()});
    EXPECT_TRUE(fine.success) << fine.output;
    EXPECT_THAT(fine.output, HasSubstr("belong together"));
    FilePath curveCert;
    FilePath curveKey;
    m_pair.MakeCurvePair(curveCert, curveKey);
    EXPECT_THAT(Kq({"check", Cert(), curveKey.c_str()}).output, HasSubstr("message 70: the private key does not"));
    EXPECT_THAT(Kq({"check", In("none.crt"), Key()}).output, HasSubstr("message 65: "));
    EXPECT_THAT(Kq({"check", Cert(), In("none.key")}).output, HasSubstr("message 63: "));
    const FilePath encrypted = m_pair.MakeEncryptedKey(TLSFiles::FORM::TRADITIONAL);
    const PROGRAMRESULT refused = Kq({"check", Cert(), encrypted.c_str()});
    EXPECT_FALSE(refused.success);
    EXPECT_THAT(refused.output, HasSubstr("message 64: the private key is encrypted"));
}

TEST_F(CertCommandTest, Import_MatchingPair_WrittenUnderTheName)
{
    const PROGRAMRESULT result = Kq({"import", Cert(), Key(), "--name", "mine", "--out", In("")});
    EXPECT_TRUE(result.success) << result.output;
    EXPECT_TRUE(Kq({"check", In("mine.crt"), In("mine.key")}).success);
    EXPECT_FALSE(Kq({"import", Cert(), Key(), "--name", "mine", "--out", In("")}).success);
    EXPECT_TRUE(Kq({"import", Cert(), Key(), "--name", "mine", "--out", In(""), "--force"}).success);
}

TEST_F(CertCommandTest, Import_Pkcs8Encrypted_63AndNothingWritten)
{
    const FilePath encrypted = m_pair.MakeEncryptedKey(TLSFiles::FORM::PKCS8);
    const PROGRAMRESULT result = Kq({"import", Cert(), encrypted.c_str(), "--name", "mine", "--out", In("")});
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, HasSubstr("message 63: "));
    EXPECT_FALSE(Exists("mine.crt"));
    EXPECT_FALSE(Exists("mine.key"));
}

TEST_F(CertCommandTest, Show_Certificate_AllFacts)
{
    const PROGRAMRESULT result = Kq({"show", Cert()});
    EXPECT_TRUE(result.success);
    for (const char* text : {"Kind:        certificate\n", "Subject:     C = DE", "Issuer:      C = DE", "Valid from:",
                             "Valid until:", "Version:     3\n", "Serial:      0\n", "Key:         RSA, 2048 bits\n",
                             "Signature:   sha1WithRSAEncryption\n", "SHA-1:", "SHA-256:"})
        EXPECT_THAT(result.output, HasSubstr(text));
}

TEST_F(CertCommandTest, Show_NoCertificate_Failure)
{
    for (const std::string& file : {In("none"), Key(), Write("text", "words")}) {
        const PROGRAMRESULT result = Kq({"show", file});
        EXPECT_FALSE(result.success);
        EXPECT_THAT(result.output, HasSubstr("no certificate or signing request can be read"));
    }
}

TEST_F(CertCommandTest, WrongArguments_UsageAndFailure)
{
    for (const ARGUMENTS& arguments : {ARGUMENTS{},
                                       {"show"},
                                       {"check", Cert()},
                                       {"import", Cert(), Key()},
                                       With("create", {"--bits", "511"}),
                                       With("create", {"--days", "0"})})
    {
        const PROGRAMRESULT result = Kq(arguments);
        EXPECT_FALSE(result.success);
        EXPECT_THAT(result.output, HasSubstr("--help"));
    }
}

} // namespace
