#include "tests/hosts/ftp/FtpServerFixture.h"
#include "tests/peers/RunProgram.h"

#include <gmock/gmock.h>

namespace kqlib::test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class LiveCommandTest : public FtpServerFixture
{
protected:
    PROGRAMRESULT Kq(const std::string& user, const std::vector<std::string>& more = {"--count", "1"}) const
    {
        std::vector<std::string> all{"live", "ftp://" + user + ":secret@127.0.0.1:" + std::to_string(m_port)};
        all.insert(all.end(), more.begin(), more.end());
        return RunProgram(KQ_PROGRAM, all);
    }
};

TEST_F(LiveCommandTest, Administrator_EverySessionAndTheTotals)
{
    Start();
    FtpTestClient reader = LogIn("reader");
    const PROGRAMRESULT result = Kq("admin");
    EXPECT_TRUE(result.success) << result.output;
    EXPECT_THAT(result.output, StartsWith("127.0.0.1:" + std::to_string(m_port) + ", since 2"));
    EXPECT_THAT(result.output, HasSubstr("\nconnections "));
    EXPECT_THAT(result.output, HasSubstr("\nNumber User    Client"));
    EXPECT_THAT(result.output, HasSubstr(" reader  127.0.0.1:"));
    EXPECT_THAT(result.output, HasSubstr(" admin   127.0.0.1:"));
    EXPECT_THAT(result.output, Not(HasSubstr("\x1B"))) << "this is no terminal";
}

TEST_F(LiveCommandTest, TwoPictures_RatesInTheSecond)
{
    Start();
    const PROGRAMRESULT result = Kq("admin", {"--count", "2", "--interval", "1s"});
    EXPECT_TRUE(result.success) << result.output;
    EXPECT_THAT(result.output, HasSubstr(" (-)"));
    EXPECT_THAT(result.output, HasSubstr("/s)"));
}

TEST_F(LiveCommandTest, NoAdministrator_SaysWhyAndFails)
{
    Start();
    const PROGRAMRESULT result = Kq("reader");
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, StartsWith("kq: SITE WHO: "));
}

TEST_F(LiveCommandTest, NobodyThere_SaysWhyAndFails)
{
    Start();
    m_server.Stop();
    const PROGRAMRESULT result = Kq("admin");
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, StartsWith("kq: SITE WHO: "));
}

TEST_F(LiveCommandTest, Password_FromAFile)
{
    Start();
    std::ofstream(m_folder / "password") << "secret\n";
    const std::string url = "ftp://admin@127.0.0.1:" + std::to_string(m_port);
    const PROGRAMRESULT result =
        RunProgram(KQ_PROGRAM, {"live", url, "--count", "1", "--password-file", (m_folder / "password").string()});
    EXPECT_TRUE(result.success) << result.output;
    EXPECT_FALSE(RunProgram(KQ_PROGRAM, {"live", url, "--count", "1", "--password-file", "nowhere"}).success);
}

TEST_F(LiveCommandTest, Width_LinesAreCut)
{
    Start();
    const PROGRAMRESULT result = Kq("admin", {"--count", "1", "--width", "20"});
    EXPECT_TRUE(result.success) << result.output;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 21U) << line; // some systems end lines with one character more
}

TEST_F(LiveCommandTest, WrongArguments_UsageAndFailure)
{
    Start();
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--interval", "0"},
                                                  {"--interval", "2h"},
                                                  {"--tls", "implicit"},
                                                  {"--width", "1"},
                                                  {"--count", "x"}})
        EXPECT_FALSE(Kq("admin", wrong).success) << wrong[1];
    EXPECT_FALSE(RunProgram(KQ_PROGRAM, {"live", "http://127.0.0.1/"}).success);
    EXPECT_FALSE(RunProgram(KQ_PROGRAM, {"live"}).success);
}

} // namespace
} // namespace kqlib::test
