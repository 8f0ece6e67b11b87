#include "common/String.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace kqlib {
namespace {

TEST(StringTest, Construct_FromEveryForm_SameText)
{
    const unsigned char bytes[] = {'a', 'b', 'c'};
    EXPECT_EQ(String("abc"), "abc");
    EXPECT_EQ(String("abcdef", 3), "abc");
    EXPECT_EQ(String(bytes, 3), "abc");
    EXPECT_EQ(String(std::string("abc")), "abc");
    EXPECT_EQ(String(std::string_view("abc")), "abc");
    EXPECT_EQ(String(3, 'x'), "xxx");
}

TEST(StringTest, Construct_NullText_Empty)
{
    const char* const none = nullptr;
    EXPECT_TRUE(String(none).empty());
    EXPECT_TRUE(String(none, 0).empty());
}

TEST(StringTest, Construct_ZeroBytes_AreKept)
{
    const String text("a\0b", 3);
    EXPECT_EQ(text.size(), 3U);
    EXPECT_EQ(text[1], '\0');
    EXPECT_NE(text, "a");
}

TEST(StringTest, Append_CharacterTextAndBytes_InOrder)
{
    String text("a");
    text += 'b';
    text += "cd";
    text += String("e");
    text += static_cast<const char*>(nullptr);
    text.append("fgh", 2);
    EXPECT_EQ(text, "abcdefg");
    text += text;
    EXPECT_EQ(text, "abcdefgabcdefg");
}

TEST(StringTest, EraseInsertSubstr_AsTheStandardString)
{
    String text("0123456789");
    EXPECT_EQ(text.erase(2, 3), "0156789");
    EXPECT_EQ(text.insert(2, String("xyz")), "01xyz56789");
    EXPECT_EQ(text.insert(0, 2, '-'), "--01xyz56789");
    EXPECT_EQ(text.substr(4, 3), "xyz");
    EXPECT_EQ(text.substr(7), "56789");
    EXPECT_EQ(text.erase(4), "--01");
    EXPECT_TRUE(text.erase().empty());
}

TEST(StringTest, EraseInsertSubstr_PastTheEnd_OutOfRange)
{
    String text("abc");
    EXPECT_THROW(static_cast<void>(text.substr(4)), std::out_of_range);
    EXPECT_THROW(text.erase(4), std::out_of_range);
    EXPECT_THROW(text.insert(4, String("x")), std::out_of_range);
    EXPECT_EQ(text.substr(3), "");
}

TEST(StringTest, Compare_BytesAbove127_OrderedAsUnsigned)
{
    EXPECT_TRUE(String("a") < String("\xE4"));
    EXPECT_TRUE(String("a") < String("ab"));
    EXPECT_TRUE(String("B") < String("a"));
    EXPECT_TRUE(String() < String("a"));
}

TEST(StringTest, Plus_Texts_Joined)
{
    EXPECT_EQ(String("a") + String("b") + "c" + 'd', "abcd");
    EXPECT_EQ("x" + String("y"), "xy");
}

TEST(StringTest, Find_FromPosition_FirstAtOrAfter)
{
    const String text("abcabc");
    EXPECT_EQ(text.Find("bc"), 1U);
    EXPECT_EQ(text.Find("bc", 1), 1U);
    EXPECT_EQ(text.Find("bc", 2), 4U);
    EXPECT_EQ(text.Find("bc", 5), String::npos);
    EXPECT_EQ(text.Find("BC"), String::npos);
    EXPECT_EQ(text.Find("bc", 100), String::npos);
}

TEST(StringTest, FindI_AnyCase_Position)
{
    const String text("Content-LENGTH: 5");
    EXPECT_EQ(text.FindI("content-length"), 0U);
    EXPECT_EQ(text.FindI("LENGTH: "), 8U);
    EXPECT_EQ(text.FindI("t", 1), 3U);
    EXPECT_EQ(text.FindI("t", 4), 6U);
    EXPECT_EQ(text.FindI("none"), String::npos);
    EXPECT_EQ(text.FindI("5", 17), String::npos);
    EXPECT_EQ(text.FindI("5", 18), String::npos);
}

TEST(StringTest, FindI_EmptyText_FoundWhereTheSearchStarts)
{
    const String text("abc");
    for (const String::size_type from : {0U, 1U, 3U, 4U})
        EXPECT_EQ(text.FindI("", from), text.Find("", from));
    EXPECT_EQ(text.FindI("", 3), 3U);
    EXPECT_EQ(text.FindI("", 4), String::npos);
}

TEST(StringTest, FindI_LettersOutsideAscii_AreNotFolded)
{
    EXPECT_EQ(String("\xC4").FindI("\xE4"), String::npos);
    EXPECT_EQ(String("\xE4").FindI("\xE4"), 0U);
    // The characters beside the letters differ by the same bit.
    EXPECT_EQ(String("@[`{").FindI("`"), 2U);
    EXPECT_EQ(String("@[").FindI("{"), String::npos);
}

TEST(StringTest, FindFirstCharI_AnyOfTheSet_FirstPosition)
{
    EXPECT_EQ(String("hello World").FindFirstCharI("wO"), 4U);
    EXPECT_EQ(String("hello").FindFirstCharI("xyz"), String::npos);
    EXPECT_EQ(String("hello").FindFirstCharI(""), String::npos);
    EXPECT_EQ(String().FindFirstCharI("a"), String::npos);
}

TEST(StringTest, StartsAndEndsWith_LongerThanTheText_False)
{
    EXPECT_TRUE(String("abc").StartsWith("ab"));
    EXPECT_FALSE(String("abc").StartsWith("AB"));
    EXPECT_TRUE(String("abc").StartsWithI("AB"));
    EXPECT_FALSE(String("abc").StartsWithI("abcd"));
    EXPECT_TRUE(String("abc").EndsWith("bc"));
    EXPECT_FALSE(String("abc").EndsWith("BC"));
    EXPECT_FALSE(String("abc").EndsWith("xabc"));
    EXPECT_TRUE(String("abc").StartsWith("") && String("abc").EndsWith("") && String().StartsWithI(""));
}

TEST(StringTest, MatchesI_WholeTextsOnly)
{
    EXPECT_TRUE(String("AbC").MatchesI("aBc"));
    EXPECT_FALSE(String("AbC").MatchesI("aBcd"));
    EXPECT_FALSE(String("a*c").MatchesI("abc"));
    EXPECT_TRUE(String().MatchesI(""));
}

struct WILDCARD_CASE
{
    const char* object;
    const char* argument;
    bool matches;
};

TEST(StringTest, ApproxMatchesI_PatternOnEitherSide)
{
    const WILDCARD_CASE cases[] = {
        {"*.example.com", "www.EXAMPLE.com", true},
        {"www.EXAMPLE.com", "*.example.com", true},
        {"*.example.com", "example.com", false},
        {"user?@*", "user1@example.com", true},
        {"user?@*", "user@example.com", false},
        {"*", "", true},
        {"", "*", true},
        {"?", "", false},
        {"", "?", false},
        {"**", "", true},
        {"a*b*c", "aXXbYYc", true},
        {"a*b*c", "aXXcYYb", false},
        {"*a", "aaaa", true},
        {"a?", "ab", true},
        {"a?", "a", false},
        {"abc", "ABC", true},
        {"abc", "abcd", false},
        {"", "", true},
        {"a*", "b", false},
    };
    for (const WILDCARD_CASE& one : cases)
        EXPECT_EQ(String(one.object).ApproxMatchesI(one.argument), one.matches)
            << one.object << " against " << one.argument;
}

TEST(StringTest, ApproxMatchesI_WildcardsOnBothSides_ObjectIsThePatternKeptOnPurpose)
{
    EXPECT_TRUE(String("a*").ApproxMatchesI("a?c"));
    EXPECT_FALSE(String("a?c").ApproxMatchesI("a*"));
    EXPECT_TRUE(String("a?").ApproxMatchesI("a*"));
    EXPECT_FALSE(String("b*").ApproxMatchesI("*"));
    EXPECT_TRUE(String("*").ApproxMatchesI("b*"));
}

// The plain definition of the match, for short texts.
bool MatchesByDefinition(const std::string& pattern, const std::string& text)
{
    if (pattern.empty())
        return text.empty();
    if (pattern[0] == '*')
        return MatchesByDefinition(pattern.substr(1), text) ||
               (!text.empty() && MatchesByDefinition(pattern, text.substr(1)));
    return !text.empty() && (pattern[0] == '?' || pattern[0] == text[0]) &&
           MatchesByDefinition(pattern.substr(1), text.substr(1));
}

std::vector<std::string> AllTexts(const std::string& characters, std::size_t maxLength)
{
    std::vector<std::string> texts{""};
    for (std::size_t index = 0; index < texts.size(); index++) {
        const std::string begin = texts[index];
        if (begin.size() == maxLength)
            continue;
        for (const char character : characters)
            texts.push_back(begin + character);
    }
    return texts;
}

TEST(StringTest, ApproxMatchesI_EveryShortPatternAndText_AsTheDefinitionSays)
{
    const auto texts = AllTexts("ab", 5);
    for (const std::string& pattern : AllTexts("ab*?", 5)) {
        const bool wild = pattern.find_first_of("*?") != std::string::npos;
        for (const std::string& text : texts) {
            const bool wanted = wild ? MatchesByDefinition(pattern, text) : pattern == text;
            ASSERT_EQ(String(pattern).ApproxMatchesI(text), wanted) << pattern << " against " << text;
            ASSERT_EQ(String(text).ApproxMatchesI(pattern), wanted) << text << " against " << pattern;
        }
    }
}

TEST(StringTest, ApproxMatchesI_ManyStarsAgainstALongText_EndsSoon)
{
    // A match that tried every split would not end within the age of the world.
    String pattern;
    for (int i = 0; i < 500; i++)
        pattern += "*a";
    const String text(20000, 'a');
    EXPECT_TRUE(pattern.ApproxMatchesI(text));
    EXPECT_FALSE((pattern + "b").ApproxMatchesI(text));
    EXPECT_FALSE(text.ApproxMatchesI(pattern + "b"));
    EXPECT_TRUE((pattern + "*b").ApproxMatchesI(text + "b"));
}

struct NUMBER_CASE
{
    const char* text;
    ULONG8 asUSHORT;
    ULONG8 asULONG;
    ULONG8 asULONG8;
};

TEST(StringTest, ToNumber_BordersAndOddTexts_ValueOrZero)
{
    const NUMBER_CASE cases[] = {
        {"", 0, 0, 0},
        {"0", 0, 0, 0},
        {"21", 21, 21, 21},
        {"21abc", 21, 21, 21},
        {"21 22", 21, 21, 21},
        {" \t 21", 21, 21, 21},
        {"\n21", 0, 0, 0},
        {"b:21", 0, 0, 0},
        {"+21", 0, 0, 0},
        {"-21", 0, 0, 0},
        {"- 21", 0, 0, 0},
        {"0x21", 0, 0, 0},
        {"1.9", 1, 1, 1},
        {"   ", 0, 0, 0},
        {"00000000000000000000000000000042", 42, 42, 42},
        {"65535", 65535, 65535, 65535},
        {"65536", 0, 65536, 65536},
        {"70000", 0, 70000, 70000},
        {"655350", 0, 655350, 655350},
        {"131071", 0, 131071, 131071},
        {"4294967295", 0, 4294967295U, 4294967295U},
        {"4294967296", 0, 0, 4294967296U},
        {"4294967297", 0, 0, 4294967297U},
        {"8589934592", 0, 0, 8589934592U},
        {"42949672950", 0, 0, 42949672950U},
        {"9223372036854775808", 0, 0, 9223372036854775808U},
        {"18446744073709551615", 0, 0, 18446744073709551615U},
        {"18446744073709551616", 0, 0, 0},
        {"18446744073709551620", 0, 0, 0},
        {"184467440737095516150", 0, 0, 0},
        {"99999999999999999999999999999999999999", 0, 0, 0},
    };
    for (const NUMBER_CASE& one : cases) {
        const String text(one.text);
        EXPECT_EQ(text.ToUSHORT(), one.asUSHORT) << one.text;
        EXPECT_EQ(text.ToULONG(), one.asULONG) << one.text;
        EXPECT_EQ(text.ToULONG8(), one.asULONG8) << one.text;
    }
}

TEST(StringTest, ToNumber_ZeroByteOrByteAbove127_EndsTheNumber)
{
    EXPECT_EQ(String("12\0"
                     "34",
                     5)
                  .ToULONG(),
              12U);
    EXPECT_EQ(String("12\xB2"
                     "3")
                  .ToULONG(),
              12U);
}

TEST(StringTest, SToString_BordersOfEachType_Decimal)
{
    EXPECT_EQ(String::sToString(static_cast<unsigned char>(65)), "65");
    EXPECT_EQ(String::sToString(static_cast<unsigned char>(255)), "255");
    EXPECT_EQ(String::sToString(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(String::sToString(4294967295U), "4294967295");
    EXPECT_EQ(String::sToString(4294967295UL), "4294967295");
    EXPECT_EQ(String::sToString(18446744073709551615ULL), "18446744073709551615");
    EXPECT_EQ(String::sToString(std::numeric_limits<int>::min()), "-2147483648");
    EXPECT_EQ(String::sToString(std::numeric_limits<int>::max()), "2147483647");
    EXPECT_EQ(String::sToString(std::uint32_t{0}), "0");
}

TEST(StringTest, SToHex_EveryByte_UpperCaseDigits)
{
    for (int byte = 0; byte < 256; byte++) {
        char wanted[3];
        std::snprintf(wanted, sizeof(wanted), "%02X", static_cast<unsigned>(byte));
        char high = 0;
        char low = 0;
        String::sToHex(static_cast<char>(byte), high, low);
        EXPECT_EQ(high, wanted[0]);
        EXPECT_EQ(low, wanted[1]);
        EXPECT_EQ(String::sIs8bitChar(static_cast<char>(byte)), byte >= 128);
    }
}

struct FIELD
{
    std::array<char, 8> bytes;
    std::string Fill(const String& text, ULONG size)
    {
        bytes.fill('#');
        String::sCpystr(bytes.data(), text, size);
        return {bytes.begin(), bytes.end()};
    }
};

TEST(StringTest, SCpystr_ShorterThanTheField_TerminatedAndRestUntouched)
{
    FIELD field{};
    EXPECT_EQ(field.Fill("abc", 8), std::string("abc\0####", 8));
    EXPECT_EQ(field.Fill("", 8), std::string("\0#######", 8));
}

TEST(StringTest, SCpystr_AsLongAsTheFieldOrLonger_CutAndTerminated)
{
    FIELD field{};
    EXPECT_EQ(field.Fill("abcdefg", 8), std::string("abcdefg\0", 8));
    EXPECT_EQ(field.Fill("abcdefgh", 8), std::string("abcdefg\0", 8));
    EXPECT_EQ(field.Fill("abcdefgh", 4), std::string("abc\0####", 8));
    EXPECT_EQ(field.Fill("abc", 1), std::string("\0#######", 8));
}

TEST(StringTest, SCpystr_NoRoom_NothingTouched)
{
    FIELD field{};
    EXPECT_EQ(field.Fill("abc", 0), "########");
}

TEST(StringTest, SCpystr_ZeroByteInText_EndsTheCopy)
{
    FIELD field{};
    EXPECT_EQ(field.Fill(String("a\0bc", 4), 8), std::string("a\0######", 8));
}

TEST(StringTest, SCompareTextCharArrays_EqualTexts_True)
{
    EXPECT_TRUE(String::sCompareTextCharArrays("abc", std::string("abc").c_str()));
    EXPECT_FALSE(String::sCompareTextCharArrays("abc", "abC"));
    EXPECT_FALSE(String::sCompareTextCharArrays("abc", "ab"));
    EXPECT_TRUE(String::sCompareTextCharArrays("", ""));
}

} // namespace
} // namespace kqlib
