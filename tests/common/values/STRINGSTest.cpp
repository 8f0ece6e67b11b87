#include "common/STRINGS.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kqlib {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(STRINGSTest, AddByLine_DefaultSeparators_CommaAndSemicolon)
{
    STRINGS items;
    items.AddByLine(" a , b;c ;\td\r\n");
    EXPECT_THAT(items, ElementsAre("a", "b", "c", "d"));
}

TEST(STRINGSTest, AddByLine_EmptyItems_DroppedByDefault)
{
    STRINGS items;
    items.AddByLine(",,a, ,;b,");
    EXPECT_THAT(items, ElementsAre("a", "b"));
}

TEST(STRINGSTest, AddByLine_Twice_AppendsBehind)
{
    STRINGS items;
    items.AddByLine("a");
    items.AddByLine("b,c");
    EXPECT_THAT(items, ElementsAre("a", "b", "c"));
}

// The list grew while the line was still read.
TEST(STRINGSTest, AddByLine_LineIsAnItemOfTheList_SplitWhole)
{
    const String text = "one of them, another one that is long, a third one that is long, a fourth; a fifth one";
    STRINGS items = {text, ",;"};
    items.shrink_to_fit();
    items.AddByLine(items[0]);
    EXPECT_THAT(items, ElementsAre(text, ",;", "one of them", "another one that is long", "a third one that is long",
                                   "a fourth", "a fifth one"));
    items.shrink_to_fit();
    items.AddByLine(items[0], items[1]);
    EXPECT_EQ(items.size(), 12U);
    EXPECT_EQ(items.back(), "a fifth one");
}

TEST(STRINGSTest, AddByLine_SeparatorCharacter_OthersAreText)
{
    STRINGS items;
    items.AddByLine("a,b|c;d", '|');
    EXPECT_THAT(items, ElementsAre("a,b", "c;d"));
    items.clear();
    items.AddByLine("a\xE4"
                    "b",
                    static_cast<unsigned char>(0xE4));
    EXPECT_THAT(items, ElementsAre("a", "b"));
}

TEST(STRINGSTest, AddByLine_SeparatorText_AnyOfItsCharactersSeparates)
{
    STRINGS items;
    items.AddByLine("a|b/c,d", String("|/"));
    EXPECT_THAT(items, ElementsAre("a", "b", "c,d"));
}

TEST(STRINGSTest, AddByLine_NoSeparators_WholeLineIsOneItem)
{
    STRINGS items;
    items.AddByLine(" a,b ", String());
    EXPECT_THAT(items, ElementsAre("a,b"));
}

TEST(STRINGSTest, AddByLine_KeepEmpty_EveryGapIsAnItem)
{
    STRINGS items;
    items.AddByLine(",a,,b,", false, true);
    EXPECT_THAT(items, ElementsAre("", "a", "", "b", ""));
}

TEST(STRINGSTest, AddByLine_WithoutTrim_BlanksAreKeptAndNotEmpty)
{
    STRINGS items;
    items.AddByLine(" a , ,,b", true, false);
    EXPECT_THAT(items, ElementsAre(" a ", " ", "b"));
}

TEST(STRINGSTest, AddByLine_TrimWithKeepEmpty_BlankItemBecomesEmpty)
{
    STRINGS items;
    items.AddByLine("a| |b", '|', false, true);
    EXPECT_THAT(items, ElementsAre("a", "", "b"));
    items.clear();
    items.AddByLine("a. :b", String(".:"), false, false);
    EXPECT_THAT(items, ElementsAre("a", " ", "b"));
}

TEST(STRINGSTest, AddByLine_EmptyLine_AddsNothingWhateverTheFlags)
{
    STRINGS items;
    items.AddByLine("");
    items.AddByLine("", false, false);
    items.AddByLine("", ',', false, true);
    items.AddByLine("", String("x"), false, false);
    EXPECT_THAT(items, IsEmpty());
}

TEST(STRINGSTest, GetLine_Joins_WithoutBlanks)
{
    const STRINGS items{"a", "", "b c"};
    EXPECT_EQ(items.GetLine(), "a,,b c");
    EXPECT_EQ(items.GetLine('|'), "a||b c");
    String line("old");
    items.GetLine(line);
    EXPECT_EQ(line, "a,,b c");
    items.GetLine(line, ';');
    EXPECT_EQ(line, "a;;b c");
}

TEST(STRINGSTest, GetLine_NoItems_EmptyText)
{
    String line("old");
    STRINGS().GetLine(line);
    EXPECT_TRUE(line.empty());
    EXPECT_TRUE(STRINGS().GetLine(';').empty());
}

TEST(STRINGSTest, GetLine_IntoAnItemOfItsOwn_WholeLine)
{
    STRINGS items{"a", "b"};
    items.GetLine(items[0]);
    EXPECT_EQ(items[0], "a,b");
}

TEST(STRINGSTest, GetLine_ThenAddByLine_SameItems)
{
    const STRINGS items{"one", "two", "three"};
    STRINGS read;
    read.AddByLine(items.GetLine());
    EXPECT_EQ(read, items);
}

} // namespace
} // namespace kqlib
