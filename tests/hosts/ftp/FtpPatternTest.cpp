// Patterns of names.
#include "hosts/ftp/FtpPattern.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

namespace kqlib {
namespace {

bool Matches(const String& pattern, const String& name)
{
    return FtpPattern(pattern).Matches(name);
}

TEST(FtpPattern, Matches_EachWildcard)
{
    const struct
    {
        const char* pattern;
        const char* name;
        bool isMatch;
    } cases[] = {
        {"", "", true},
        {"", "a", false},
        {"a", "", false},
        {"abc", "abc", true},
        {"abc", "abcd", false},
        {"abc", "ab", false},
        {"abc", "Abc", false},
        {"*", "", true},
        {"*", "abc", true},
        {"**", "abc", true},
        {"*.txt", "a.txt", true},
        {"*.txt", "a.txt.gz", false},
        {"*.txt*", "a.txt.gz", true},
        {"a*b*c", "axbxbxc", true},
        {"a*b*c", "axcxb", false},
        {"*ab", "aab", true},
        {"*aab", "aaab", true},
        {"?", "", false},
        {"?", "a", true},
        {"?", "ab", false},
        {"?", "\xC3\xBC", true},
        {"?", "\xE6\x97\xA5", true},
        {"?", "\xF0\x9F\x98\x80", true},
        {"?", "\xC3", true},
        {"?", "\xC3x", false},
        {"*?", "", false},
        {"*?", "abc", true},
        {"[abc]", "b", true},
        {"[abc]", "d", false},
        {"[a-c]x", "bx", true},
        {"[a-c]x", "dx", false},
        {"[!a-c]", "b", false},
        {"[^a-c]", "d", true},
        {"[!a-c]", "", false},
        {"[]x]", "]", true},
        {"[!]x]", "]", false},
        {"[a-]", "-", true},
        {"[a-]", "b", false},
        {"[-a]", "-", true},
        {"[c-a]", "b", false},
        {"[\\]]", "]", true},
        {"[a\\-c]", "b", false},
        {"[a\\-c]", "-", true},
        {"[\xC3\xA0-\xC3\xBF]", "\xC3\xBC", true},
        {"[\xC3\xA0-\xC3\xBF]", "\xC2\xBC", false},
        {"[*?]", "*", true},
        {"[*?]", "a", false},
        {"[", "[", true},
        {"[ab", "[ab", true},
        {"[ab", "a", false},
        {"[]", "[]", true},
        {"[!]", "[!]", true},
        {"]", "]", true},
        {"\\*", "*", true},
        {"\\*", "a", false},
        {"a\\?", "a?", true},
        {"\\", "\\", true},
        {"\\\\", "\\", true},
        {"a\\", "a\\", true},
    };
    for (const auto& each : cases)
        EXPECT_EQ(Matches(each.pattern, each.name), each.isMatch) << each.pattern << " : " << each.name;
}

TEST(FtpPattern, Matches_CaseIgnored_OfASCIIOnly)
{
    const FtpPattern pattern("*.[E-F]xe\xC3\xBC", FtpPattern::LETTERS::IGNORE_CASE);
    EXPECT_TRUE(pattern.Matches("A.eXE\xC3\xBC"));
    EXPECT_TRUE(pattern.Matches("a.FXE\xC3\xBC"));
    EXPECT_FALSE(pattern.Matches("a.EXE\xC3\x9C"));
}

TEST(FtpPattern, MatchesListed_FirstDot_MustBeWritten)
{
    EXPECT_FALSE(FtpPattern("*").MatchesListed(".x"));
    EXPECT_FALSE(FtpPattern("?x").MatchesListed(".x"));
    EXPECT_FALSE(FtpPattern("[.]x").MatchesListed(".x"));
    EXPECT_TRUE(FtpPattern(".*").MatchesListed(".x"));
    EXPECT_TRUE(FtpPattern("\\.*").MatchesListed(".x"));
    EXPECT_TRUE(FtpPattern("*").MatchesListed("a.x"));
}

TEST(FtpPattern, sHasWildcards_StarQuestionBracket)
{
    for (const char* text : {"*", "a?", "[x]", "x["})
        EXPECT_TRUE(FtpPattern::sHasWildcards(text)) << text;
    for (const char* text : {"", "a", "a]", "a\\b"})
        EXPECT_FALSE(FtpPattern::sHasWildcards(text)) << text;
}

/// The meaning of "*", "?" and letters, said as simply as possible.
bool ModelMatches(const std::string& pattern, const std::string& name)
{
    if (pattern.empty())
        return name.empty();
    if (pattern[0] == '*')
        return ModelMatches(pattern.substr(1), name) || (!name.empty() && ModelMatches(pattern, name.substr(1)));
    return !name.empty() && (pattern[0] == '?' || pattern[0] == name[0]) &&
           ModelMatches(pattern.substr(1), name.substr(1));
}

TEST(FtpPattern, Matches_RandomPatterns_AsTheModel)
{
    std::mt19937 random(4711); // NOLINT: the same cases each time
    const auto text = [&random](const char* letters, unsigned kinds, unsigned longest) {
        std::string out(random() % (longest + 1), ' ');
        for (char& letter : out)
            letter = letters[random() % kinds];
        return out;
    };
    int matches = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string pattern = text("ab*?", 4, 7);
        const std::string name = text("ab", 2, 8);
        const bool isMatch = ModelMatches(pattern, name);
        ASSERT_EQ(Matches(String(pattern), String(name)), isMatch) << pattern << " : " << name;
        matches += isMatch ? 1 : 0;
    }
    EXPECT_GT(matches, 1000);
}

/// A comparison that tried each star anew would not come to its end.
TEST(FtpPattern, Matches_ManyStars_Ends)
{
    std::string stars;
    for (int i = 0; i < 300; ++i)
        stars += "*a";
    EXPECT_FALSE(Matches(String(stars + "b"), String(std::string(255, 'a'))));
    EXPECT_FALSE(Matches(String(std::string(1000, '[') + "\\]"), String(std::string(255, '['))));
    EXPECT_FALSE(Matches(String("*" + std::string(100, '[') + "x"), String(std::string(255, '['))));
}

} // namespace
} // namespace kqlib
