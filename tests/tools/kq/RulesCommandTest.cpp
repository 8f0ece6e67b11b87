#include "tests/peers/RunProgram.h"
#include "tests/peers/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace kqlib::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class RulesCommandTest : public testing::Test
{
protected:
    std::string Write(const std::string& text)
    {
        const std::string path = (m_folder / "rules").string();
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    static PROGRAMRESULT Rules(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "rules");
        return RunProgram(KQ_PROGRAM, arguments);
    }
    PROGRAMRESULT Check(const std::string& text, std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"check", Write(text)});
        return Rules(arguments);
    }
    std::string Lint(const std::string& text) { return Rules({"lint", Write(text)}).output; }

    TempFolder m_folder;
};

TEST_F(RulesCommandTest, Check_RuleByRuleUpToTheOneThatDecides)
{
    const std::string rules = "# offices\n\n+ip=10.0.0.5\r\n  -ipmask=10.0.0.0/255.0.0.0\n+ip=1.1.1.1\n";
    const PROGRAMRESULT allowed = Check(rules, {"--peer", "10.0.0.5"});
    EXPECT_TRUE(allowed.success);
    EXPECT_EQ(allowed.output, "line 3: +ip=10.0.0.5: matches (peer 10.0.0.5)\nallowed, by line 3\n");
    const PROGRAMRESULT denied = Check(rules, {"--peer", "10.9.9.9"});
    EXPECT_FALSE(denied.success);
    EXPECT_EQ(denied.output, "line 3: +ip=10.0.0.5: no match (peer 10.9.9.9)\n"
                             "line 4: -ipmask=10.0.0.0/255.0.0.0: matches (peer 10.9.9.9 under the mask 255.0.0.0)\n"
                             "denied, by line 4\n");
    const PROGRAMRESULT neither = Check(rules, {"--peer", "::1"});
    EXPECT_TRUE(neither.success);
    EXPECT_THAT(neither.output, HasSubstr("\nallowed, for no rule matches\n"));
}

TEST_F(RulesCommandTest, Check_Local_ForIsLocal)
{
    EXPECT_FALSE(Check("-islocal\n", {"--peer", "10.0.0.5", "--local", "10.0.0.5"}).success);
    EXPECT_TRUE(Check("-islocal\n", {"--peer", "10.0.0.5", "--local", "10.0.0.6"}).success);
}

TEST_F(RulesCommandTest, Check_MailAddresses_MailRulesTakePart)
{
    const std::string rules = "-sender=*@spam.example\n-rcpt=root@*\n";
    const PROGRAMRESULT connection = Check(rules, {"--peer", "10.0.0.5"});
    EXPECT_TRUE(connection.success);
    EXPECT_THAT(connection.output, HasSubstr("passed over"));
    EXPECT_FALSE(Check(rules, {"--peer", "10.0.0.5", "--sender", "a@spam.example"}).success);
    const PROGRAMRESULT recipient = Check(rules, {"--peer", "10.0.0.5", "--rcpt", "a@lan", "root@lan"});
    EXPECT_FALSE(recipient.success);
    EXPECT_THAT(recipient.output, HasSubstr("denied, by line 2"));
    EXPECT_TRUE(Check(rules, {"--peer", "10.0.0.5", "--sender", "root@lan", "--rcpt", "a@lan"}).success);
}

TEST_F(RulesCommandTest, Check_TextThatIsNoRule_LeftOut)
{
    const PROGRAMRESULT result = Check("nonsense\n-ip=10.0.0.5\n", {"--peer", "10.0.0.5"});
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, HasSubstr("line 1: nonsense: left out, not a rule\nline 2"));
}

TEST_F(RulesCommandTest, Check_JsonSettings_ListUnderItsKey)
{
    const std::string settings = R"({"users": [], "connection_rules": ["+islocal", "-ip=10.0.0.5"],
                                     "hammer_exemptions": ["+ip=10.0.0.5"]})";
    const PROGRAMRESULT denied = Check(settings, {"--peer", "10.0.0.5"});
    EXPECT_FALSE(denied.success);
    EXPECT_THAT(denied.output, HasSubstr("denied, by connection_rules[1]"));
    EXPECT_TRUE(Check(settings, {"--peer", "10.0.0.5", "--key", "hammer_exemptions"}).success);
    EXPECT_THAT(Check(settings, {"--peer", "10.0.0.5", "--key", "users"}).output, HasSubstr("no rule matches"));
    EXPECT_FALSE(Check("[\"-ip=10.0.0.5\"]", {"--peer", "10.0.0.5"}).success);
}

TEST_F(RulesCommandTest, Check_SettingsFileOfTheLibrary_WholeOrSubSet)
{
    const std::string list =
        R"({"data": [["", "String", "+ip=10.0.0.6"], ["", "String", "-ip=10.0.0.5"]], "sets": []})";
    const PROGRAMRESULT whole = Check(list, {"--peer", "10.0.0.5"});
    EXPECT_FALSE(whole.success);
    EXPECT_THAT(whole.output, HasSubstr("denied, by item [1]"));
    const std::string nested = R"({"data": [], "sets": [["rules", )" + list + "]]}";
    EXPECT_FALSE(Check(nested, {"--peer", "10.0.0.5", "--key", "rules"}).success);
    EXPECT_TRUE(Check(nested, {"--peer", "10.0.0.6", "--key", "rules"}).success);
}

TEST_F(RulesCommandTest, UnusableFilesAndArguments_Said)
{
    EXPECT_THAT(Rules({"lint", (m_folder / "none").string()}).output, HasSubstr("cannot be read"));
    EXPECT_THAT(Rules({"lint", m_folder.GetPath().string()}).output, HasSubstr("cannot be read"));
    EXPECT_THAT(Rules({"lint", Write("{")}).output, HasSubstr("not valid JSON"));
    EXPECT_THAT(Rules({"lint", Write("{}")}).output, HasSubstr("has no list of rules"));
    EXPECT_THAT(Check("+islocal", {"--peer", "host"}).output, HasSubstr("--peer: not an address"));
    EXPECT_THAT(Check("+islocal", {"--peer", "::1", "--local", "x"}).output, HasSubstr("--local: not an address"));
    EXPECT_THAT(Check("+islocal", {}).output, HasSubstr("--help"));
    EXPECT_FALSE(Rules({}).success);
}

TEST_F(RulesCommandTest, Lint_GoodList_NothingToSay)
{
    const PROGRAMRESULT result =
        Rules({"lint", Write("+islocal\n+ipmask=10.0.0.0/255.0.0.0\n+host=mail.example\n-ipmask=0.0.0.0/0.0.0.0\n")});
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.output, "-- 4 rule(s), 0 error(s), 0 warning(s)\n");
    EXPECT_THAT(Lint("-ip=10.0.0.5\n-host=bad.example\n"), HasSubstr("0 error(s), 0 warning(s)"));
}

TEST_F(RulesCommandTest, Lint_Errors_CodesInWords)
{
    const PROGRAMRESULT result =
        Rules({"lint", Write("what\n-iprange=10.0.0.9-10.0.0.1\n-sender=ann@lan\n-rcpt=a@b\n")});
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output,
                AllOf(HasSubstr("line 1: error: not a rule: what\n"), HasSubstr("line 2: error: 84, the range begins"),
                      HasSubstr("line 2: warning: a range upside down matches nobody"),
                      HasSubstr("line 3: error: 87, the sender is a complete"),
                      HasSubstr("line 4: error: 88, the recipient is a complete"), HasSubstr("4 error(s)")));
}

TEST_F(RulesCommandTest, Lint_NoFinalDeny_Warned)
{
    EXPECT_THAT(Lint("+ip=10.0.0.5\n"), HasSubstr("warning: no final rule: "));
    EXPECT_THAT(Lint("+ip=10.0.0.5\n-ip=10.0.0.6\n"), HasSubstr("warning: no final rule: "));
    EXPECT_THAT(Lint("# nothing\n"), HasSubstr("warning: no rules: "));
    EXPECT_THAT(Lint("+ip=10.0.0.5\n-ipmask=9.9.9.9/::\n"), Not(HasSubstr("final")));
}

TEST_F(RulesCommandTest, Lint_AllowByReverseName_Warned)
{
    EXPECT_THAT(Lint("+rhost=*.lan\n-ipmask=0.0.0.0/0.0.0.0\n"), HasSubstr("line 1: warning: trusts reverse names"));
    EXPECT_THAT(Lint("-rhost=*.lan\n"), HasSubstr("0 warning(s)"));
}

TEST_F(RulesCommandTest, Lint_RuleNeverReached_Warned)
{
    const char* const pairs[] = {
        "-ipmask=0.0.0.0/0.0.0.0\n+host=x\n",
        "-ipmask=0.0.0.0/0.0.0.0\n+ipmask=::/::\n",
        "-ipmask=10.0.0.0/255.0.0.0\n+ip=10.1.2.3\n",
        "-ipmask=10.0.0.0/255.0.0.0\n+iprange=10.0.0.0-10.255.255.255\n",
        "-iprange=10.0.0.0-10.0.1.255\n+ipmask=10.0.1.77/255.255.255.0\n",
        "-iprange=0.0.0.0-255.255.255.255\n+ip=10.0.0.1\n",
        "-ipmask=2001:db8::/ffff:ffff::\n+ip=2001:db8::7\n",
        "-ip=10.0.0.1\n+iprange=10.0.0.1-10.0.0.1\n",
        "-islocal\n+islocal\n",
        "-rhost=*\n+rhost=*.lan\n",
        "-sender=*\n+sender=*@lan\n",
        "-host=A.example\n+host=a.example\n",
        "-ipmask=10.0.0.5/255.0.255.0\n+ipmask=10.0.0.5/255.0.255.0\n",
    };
    for (const char* pair : pairs)
        EXPECT_THAT(Lint(pair), HasSubstr("line 2: warning: can never be reached: line 1, -")) << pair;
}

TEST_F(RulesCommandTest, Lint_RuleThatIsReached_NotWarned)
{
    const char* const pairs[] = {
        "-ip=10.1.2.3\n-ipmask=10.0.0.0/255.0.0.0\n",
        "-ipmask=10.0.0.0/255.0.0.0\n-iprange=10.0.0.0-11.0.0.0\n",
        "-ipmask=10.0.0.0/255.0.255.0\n-ip=10.9.0.1\n", // a mask with gaps is compared with itself only
        "-iprange=10.0.0.9-10.0.0.1\n-ip=10.0.0.5\n",
        "-iprange=0.0.0.0-255.255.255.255\n-ipmask=0.0.0.0/0.0.0.0\n", // IPv6 is left
        "-islocal\n-ip=10.0.0.1\n",
        "-host=*\n-host=a.example\n",
        "-rhost=*.lan\n-rhost=*\n",
        "-sender=*\n-rcpt=*\n",
    };
    for (const char* pair : pairs)
        EXPECT_THAT(Lint(pair), Not(HasSubstr("never be reached"))) << pair;
}

TEST_F(RulesCommandTest, Lint_RulesThatMatchNobody_Warned)
{
    EXPECT_THAT(Lint("-host=10.0.0.5\n"), HasSubstr("an address is no host name"));
    EXPECT_THAT(Lint("-ipmask=10.0.0.0/ff00::\n"), HasSubstr("of different kinds"));
    EXPECT_THAT(Lint("-ipmask=10.0.0.0/255.0.255.0\n"), HasSubstr("the mask has gaps"));
}

TEST_F(RulesCommandTest, Output_ControlCharacters_ShownAsHex)
{
    EXPECT_THAT(Lint("-host=a\x1B[2J\n\x1B[2J\n"), AllOf(HasSubstr("not a rule: %1B[2J"), Not(HasSubstr("\x1B"))));
    EXPECT_THAT(Check("-host=10.0.0.1\x1B\n", {"--peer", "::1"}).output, Not(HasSubstr("\x1B")));
}

} // namespace
