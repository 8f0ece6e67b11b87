#include "tests/peers/FakeHTTPServer.h"
#include "tests/peers/Missing.h"
#include "tests/peers/RunProgram.h"
#include "tests/peers/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using namespace kqlib::test;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

PROGRAMRESULT Kq(const FakeHTTPServer& server, const std::string& command, const std::vector<std::string>& more = {})
{
    std::vector<std::string> all{
        "update", command, "127.0.0.1", "/v.txt", "--port", std::to_string(server.GetPort()), "--referer", "Shop 1"};
    all.insert(all.end(), more.begin(), more.end());
    return RunProgram(KQ_PROGRAM, all);
}

std::string VersionFile(const FakeHTTPServer& server)
{
    return FakeHTTPServer::sOk("12\r\nBetter \a\r\n127.0.0.1\r\n" + std::to_string(server.GetPort()) + "\r\n/x\r\n");
}

TEST(UpdateCommandTest, Check_NewerVersion_NamedAndRequestAsAsked)
{
    FakeHTTPServer server;
    server.Answer(VersionFile(server));
    ASSERT_TRUE(server.Start());
    const PROGRAMRESULT result = Kq(server, "check", {"--current-version", "11", "--detail", "d"});
    EXPECT_TRUE(result.success) << result.output;
    EXPECT_EQ(result.output, "version 12: Better %07\n");
    ASSERT_EQ(server.GetRequests().size(), 1U);
    EXPECT_THAT(server.GetRequests()[0], StartsWith("GET /v.txt HTTP/1.1\r\n"));
    EXPECT_THAT(server.GetRequests()[0], HasSubstr("\r\nReferer: Shop 1 (d)\r\n"));
}

TEST(UpdateCommandTest, Check_SameVersion_SaysSoAndFails)
{
    FakeHTTPServer server;
    server.Answer(VersionFile(server));
    ASSERT_TRUE(server.Start());
    const PROGRAMRESULT result = Kq(server, "check", {"--current-version", "12"});
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.output, "no update: version 12 is the newest\n");
}

TEST(UpdateCommandTest, Check_NoVersionFile_SaysSoAndFails)
{
    FakeHTTPServer server;
    server.Answer(FakeHTTPServer::sOk("nothing"));
    ASSERT_TRUE(server.Start());
    const PROGRAMRESULT result = Kq(server, "check");
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.output, "kq: the check failed: no connection, or no version file\n");
}

TEST(UpdateCommandTest, Download_IntoAPipe_PlainLinesAndTheFile)
{
    const TempFolder folder;
    FakeHTTPServer server;
    server.Answer(VersionFile(server)).Answer(FakeHTTPServer::sOk("installer"));
    ASSERT_TRUE(server.Start());
    const PROGRAMRESULT result = Kq(server, "download", {"--folder", folder.GetPath().string(), "--prefix", "setup-"});
    EXPECT_TRUE(result.success) << result.output;
    EXPECT_THAT(result.output, HasSubstr("\nreceived 9 of 9 bytes\ndownloaded "));
    EXPECT_THAT(result.output, Not(HasSubstr("\r[")));
    std::ifstream file(folder / "setup-12.exe", std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "installer");
}

TEST(UpdateCommandTest, Download_OnATerminal_DrawsABar)
{
    const TempFolder folder;
    FakeHTTPServer server;
    server.Answer(VersionFile(server)).Answer(FakeHTTPServer::sOk("installer"));
    ASSERT_TRUE(server.Start());
    const std::string command = std::string(KQ_PROGRAM) + " update download 127.0.0.1 /v.txt --port " +
                                std::to_string(server.GetPort()) + " --folder '" + folder.GetPath().string() + "'";
    const PROGRAMRESULT terminal = RunProgram("script", {"-qec", command, (folder / "typescript").string()});
    if (terminal.output.find("not found") != std::string::npos)
        KQ_MISSING("no program here that gives a terminal: " << terminal.output);
    EXPECT_TRUE(terminal.success) << terminal.output;
    EXPECT_THAT(terminal.output, HasSubstr("\r[" + std::string(40, '#') + "] 100 %  9 of 9 bytes"));
}

TEST(UpdateCommandTest, Download_BodyCut_FailsAndNothingStays)
{
    const TempFolder folder;
    FakeHTTPServer server;
    server.Answer(VersionFile(server)).Answer("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf");
    ASSERT_TRUE(server.Start());
    const PROGRAMRESULT result = Kq(server, "download", {"--folder", folder.GetPath().string()});
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, HasSubstr("kq: the download failed; nothing is left on the disk\n"));
    EXPECT_TRUE(std::filesystem::is_empty(folder.GetPath()));
}

TEST(UpdateCommandTest, Arguments_MissingOrOutOfRange_Refused)
{
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"update"},
                                               {"update", "check", "host"},
                                               {"update", "check", "host", "/p", "--port", "0"},
                                               {"update", "check", "host", "/p", "--port", "65536"},
                                               {"update", "check", "host", "/p", "--folder", "x"}})
        EXPECT_FALSE(RunProgram(KQ_PROGRAM, arguments).success);
}

} // namespace
