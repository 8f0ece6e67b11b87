// Every request against kqftpd, in every way to connect.
#include "hosts/ftpclient/FtpNames.h"
#include "tests/hosts/ftpclient/FtpClientServerFixture.h"

namespace kqlib::test {
namespace {

using KIND = FtpRemoteEntry::KIND;

class FtpClientServer : public FtpClientServerFixture, public testing::WithParamInterface<WAY>
{
};

INSTANTIATE_TEST_SUITE_P(
    Ways, FtpClientServer,
    testing::Values(WAY{FtpClientSettings::TLS::NONE, false}, WAY{FtpClientSettings::TLS::NONE, true},
                    WAY{FtpClientSettings::TLS::EXPLICIT, false}, WAY{FtpClientSettings::TLS::EXPLICIT, true},
                    WAY{FtpClientSettings::TLS::IMPLICIT, false}, WAY{FtpClientSettings::TLS::IMPLICIT, true}),
    testing::PrintToStringParamName());

TEST_P(FtpClientServer, Transfers_FilesOfEverySize_ComeBackAsTheyWere)
{
    StartBoth(GetParam());
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{65536}, std::size_t{3000001}}) {
        const std::string bytes = Pattern(size);
        WriteFile(Local() / "up", bytes);
        const FtpClientResult up = Run(MakeTransfer(REQUEST::UPLOAD, "file", "up"));
        ASSERT_TRUE(up.IsDone()) << size << ": " << up.text.c_str();
        EXPECT_EQ(up.moved, size);
        EXPECT_EQ(ReadHomeFile("file"), bytes);
        const FtpClientResult down = Run(MakeTransfer(REQUEST::DOWNLOAD, "file", "down"));
        ASSERT_TRUE(down.IsDone()) << size << ": " << down.text.c_str();
        EXPECT_EQ(down.moved, size);
        EXPECT_EQ(ReadFile(Local() / "down"), bytes);
    }
    EXPECT_EQ(SessionCount(), 1U) << "all on one connection";
    NetTCPSessionControllableSSL::STATE state;
    m_client->GetSession().GetState(state);
    EXPECT_EQ(state.secured, GetParam().tls != TLS::NONE);
}

TEST_P(FtpClientServer, FoldersAndListings_MadeSeenAndRemoved)
{
    StartBoth(GetParam());
    ASSERT_TRUE(Run(Make(REQUEST::MAKE_FOLDER, "a b")).IsDone());
    std::ofstream(Home() / "a b" / u8"\u00FC 'quoted'", std::ios::binary) << "12345";
    const FtpClientResult list = Run(Make(REQUEST::LIST, "a b"));
    ASSERT_EQ(list.entries.size(), 1U) << list.text.c_str();
    EXPECT_EQ(list.entries[0].name, "\xC3\xBC 'quoted'");
    EXPECT_EQ(list.entries[0].kind, KIND::FILE);
    EXPECT_EQ(list.entries[0].size, 5U);
    EXPECT_TRUE(list.entries[0].modifiedMs);
    const FtpClientResult facts = Run(Make(REQUEST::FACTS, "/a b"));
    ASSERT_EQ(facts.entries.size(), 1U) << facts.text.c_str();
    EXPECT_EQ(facts.entries[0].kind, KIND::FOLDER);
    EXPECT_EQ(Run(Make(REQUEST::REMOVE_FOLDER, "a b")).outcome, OUTCOME::REFUSED) << "not empty";
    EXPECT_TRUE(Run(Make(REQUEST::REMOVE_FILE, "a b/\xC3\xBC 'quoted'")).IsDone());
    EXPECT_TRUE(Run(Make(REQUEST::REMOVE_FOLDER, "a b")).IsDone());
    EXPECT_FALSE(IsInHome("a b"));
}

using FtpClientServerPlain = FtpClientServerFixture;

TEST_F(FtpClientServerPlain, Upload_OverAFile_ReplacedWithTheTimeOfTheLocalOne)
{
    StartBoth();
    WriteHomeFile("f", "a longer old content");
    WriteFile(Local() / "f", "new");
    SetTime(Local() / "f", 100000);
    ASSERT_TRUE(Run(MakeTransfer(REQUEST::UPLOAD, "f", "f")).IsDone());
    EXPECT_EQ(ReadHomeFile("f"), "new");
    const auto difference =
        std::filesystem::last_write_time(Home() / "f") - std::filesystem::last_write_time(Local() / "f");
    EXPECT_LT(std::chrono::abs(difference), std::chrono::seconds(1));
    EXPECT_EQ(Describe(Home()), "f=new\n") << "no part is left";
}

TEST_F(FtpClientServerPlain, Download_PartOfThisVersion_OnlyTheRestIsMoved)
{
    StartBoth();
    const std::string bytes = Pattern(1000000);
    WriteHomeFile("f", bytes);
    const FtpClientResult facts = Run(Make(REQUEST::FACTS, "f"));
    ASSERT_EQ(facts.entries.size(), 1U);
    WriteFile(Local() / FtpNames::sMakePartName(facts.entries[0]).str(), bytes.substr(0, 400000));
    const FtpClientResult result = Run(MakeTransfer(REQUEST::DOWNLOAD, "f", "f"));
    ASSERT_TRUE(result.IsDone()) << result.text.c_str();
    EXPECT_EQ(result.moved, 600000U);
    EXPECT_TRUE(ReadFile(Local() / "f") == bytes);
}

TEST_F(FtpClientServerPlain, Download_PartOfAnotherVersion_NotUsed)
{
    StartBoth();
    WriteHomeFile("f", "new content");
    SetTime(Home() / "f", 1000);
    const FtpClientResult facts = Run(Make(REQUEST::FACTS, "f"));
    WriteFile(Local() / FtpNames::sMakePartName(facts.entries.at(0)).str(), "old");
    SetTime(Home() / "f", 500);
    ASSERT_TRUE(Run(MakeTransfer(REQUEST::DOWNLOAD, "f", "f")).IsDone());
    EXPECT_EQ(ReadFile(Local() / "f"), "new content");
}

TEST_F(FtpClientServerPlain, Upload_WithoutTheRightToReplace_RefusedAndOldFileWhole)
{
    StartBoth({TLS::NONE, false}, "writer");
    WriteHomeFile("f", "old");
    WriteFile(Local() / "f", "new");
    EXPECT_EQ(Run(MakeTransfer(REQUEST::UPLOAD, "f", "f")).outcome, OUTCOME::REFUSED);
    EXPECT_EQ(ReadHomeFile("f"), "old");
}

TEST_F(FtpClientServerPlain, Reader_UploadAndRemovalRefused)
{
    StartBoth({TLS::NONE, false}, "reader");
    WriteHomeFile("f", "old");
    WriteFile(Local() / "f", "new");
    EXPECT_EQ(Run(MakeTransfer(REQUEST::UPLOAD, "g", "f")).outcome, OUTCOME::REFUSED);
    EXPECT_EQ(Run(Make(REQUEST::REMOVE_FILE, "f")).outcome, OUTCOME::REFUSED);
    EXPECT_TRUE(Run(MakeTransfer(REQUEST::DOWNLOAD, "f", "g")).IsDone());
    EXPECT_EQ(Describe(Home()), "f=old\n");
}

TEST_F(FtpClientServerPlain, Certificate_NotTrusted_NoTLSAndNoLogin)
{
    StartBoth({TLS::EXPLICIT, false});
    const TLSFiles other("localhost");
    m_clientSettings.trusted = other.GetCert().GetText();
    m_client = std::make_unique<FtpClient>(m_clientSettings);
    const FtpClientResult result = Run(REQUEST());
    EXPECT_EQ(result.outcome, OUTCOME::NO_TLS);
    EXPECT_NE(result.text.find("certificate"), String::npos);
    m_client.reset();
    ASSERT_TRUE(WaitNoSessions());
    EXPECT_FALSE(HasEvent("Login Success"));
}

TEST_F(FtpClientServerPlain, Certificate_NotChecked_TLSAllTheSame)
{
    StartBoth({TLS::IMPLICIT, false});
    m_clientSettings.trusted.clear();
    m_client = std::make_unique<FtpClient>(m_clientSettings);
    EXPECT_TRUE(Run(REQUEST()).IsDone());
}

TEST_F(FtpClientServerPlain, ServerStopsAndStartsAgain_RequestConnectsAnew)
{
    StartBoth();
    ASSERT_TRUE(Run(REQUEST()).IsDone());
    m_server.Stop();
    EXPECT_EQ(Run(Make(REQUEST::MAKE_FOLDER, "a")).outcome, OUTCOME::NO_CONNECTION);
    m_settings.SetListen("127.0.0.1:" + String::sToString(m_port));
    String error;
    ASSERT_TRUE(m_server.Start(m_settings, error)) << error.c_str();
    EXPECT_TRUE(Run(Make(REQUEST::MAKE_FOLDER, "a")).IsDone());
}

TEST_F(FtpClientServerPlain, EventLog_KeptInItsFolder_TellsWhatWasDone)
{
    m_clientSettings.logFolder = FromStdPath(m_folder / "clientlog");
    StartBoth();
    WriteHomeFile("f", "x");
    ASSERT_TRUE(Run(MakeTransfer(REQUEST::DOWNLOAD, "f", "f")).IsDone());
    EXPECT_EQ(Run(MakeTransfer(REQUEST::DOWNLOAD, "none", "g")).outcome, OUTCOME::REFUSED);
    m_client.reset();
    const std::string log = ReadFile(m_folder / "clientlog/kqftp.log");
    for (const char* event :
         {"Session Started", "Connect Success", "Login Success", "File Download Success", "Session Ended"})
        EXPECT_NE(log.find(std::string("\t") + event + "\t"), std::string::npos) << event << "\n" << log;
    EXPECT_EQ(log.find("secret"), std::string::npos);
}

} // namespace
} // namespace kqlib::test
