#include "common/CountryList.h"

#include "tests/peers/DataTable.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace kqlib {
namespace {

TEST(CountryListTest, SLookupCode_EveryPairOfLetters_AsTheStandardLists)
{
    std::map<std::string, ULONG> wanted;
    for (const auto& row : test::ReadDataTable("countries.txt"))
        wanted[row.at(0)] = std::stoul(row.at(1));
    ASSERT_EQ(wanted.size(), 249U);
    for (char first = 'A'; first <= 'Z'; first++)
        for (char second = 'A'; second <= 'Z'; second++) {
            const std::string code{first, second};
            const auto found = wanted.find(code);
            ULONG number = 12345;
            ASSERT_EQ(CountryList::sLookupCode(code, number), found != wanted.end()) << code;
            EXPECT_EQ(number, found != wanted.end() ? found->second : 12345U) << code;
        }
}

TEST(CountryListTest, SLookupCode_AnyCase_Found)
{
    for (const char* code : {"de", "De", "dE"}) {
        ULONG number = 0;
        EXPECT_TRUE(CountryList::sLookupCode(code, number));
        EXPECT_EQ(number, 276U);
    }
}

TEST(CountryListTest, SLookupCode_NotTwoLetters_FalseAndUnchanged)
{
    ULONG number = 7;
    for (const char* code : {"", "D", "DEU", "DE ", " DE", "276", "D?", "**"})
        EXPECT_FALSE(CountryList::sLookupCode(code, number)) << code;
    EXPECT_FALSE(CountryList::sLookupCode(String("DE\0", 3), number));
    EXPECT_EQ(number, 7U);
}

} // namespace
} // namespace kqlib
