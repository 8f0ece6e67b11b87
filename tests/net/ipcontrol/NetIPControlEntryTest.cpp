#include "net/ipcontrol/NetIPControlEntry.h"
#include "common/SettingsTransportSet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using Entry = NetIPControlEntry;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<int> Errors(const Entry& entry)
{
    Messages messages;
    const bool good = entry.CheckErrors(messages);
    EXPECT_EQ(good, messages.GetMessageCount() == 0);
    std::vector<int> codes;
    for (ULONG i = 0; i < messages.GetMessageCount(); ++i)
        codes.push_back(messages.Get(i));
    return codes;
}

Entry Parsed(const char* text)
{
    Entry entry;
    EXPECT_TRUE(entry.SetByString(text)) << text;
    return entry;
}

/// A rule that has nothing of the default state.
Entry OddEntry()
{
    Entry entry;
    entry.SetAllow(false);
    entry.SetType(Entry::ET_RCPT);
    entry.SetIP(NetIP("9.9.9.9"));
    entry.SetIPHigh(NetIP("2001:db8::1"));
    entry.SetHost("text");
    return entry;
}

void ExpectDefault(const Entry& entry)
{
    EXPECT_TRUE(entry.GetAllow());
    EXPECT_EQ(entry.GetType(), Entry::ET_IP);
    EXPECT_EQ(entry.GetIP(), NetIP());
    EXPECT_EQ(entry.GetIPHigh(), NetIP("255.255.255.255"));
    EXPECT_EQ(entry.GetHost(), "");
}

TEST(NetIPControlEntry, Types_Values_AreFixed)
{
    EXPECT_EQ(sizeof(Entry::ENTRYTYPE), 4U);
    EXPECT_EQ(Entry::ET_IP, 0U);
    EXPECT_EQ(Entry::ET_IPMASK, 1U);
    EXPECT_EQ(Entry::ET_IPRANGE, 2U);
    EXPECT_EQ(Entry::ET_HOST, 3U);
    EXPECT_EQ(Entry::ET_RHOST, 4U);
    EXPECT_EQ(Entry::ET_ISLOCAL, 5U);
    EXPECT_EQ(Entry::ET_SENDER, 6U);
    EXPECT_EQ(Entry::ET_RCPT, 7U);
}

TEST(NetIPControlEntry, ConstructionAndReset_Default)
{
    ExpectDefault(Entry());
    Entry entry = OddEntry();
    entry.Reset();
    ExpectDefault(entry);
}

TEST(NetIPControlEntry, CopyAndSpawn_AllFields)
{
    const Entry odd = OddEntry();
    Entry assigned;
    assigned = odd;
    EXPECT_TRUE(assigned == odd);
    const Entry& itself = assigned;
    assigned = itself;
    EXPECT_TRUE(assigned == odd);
    const std::unique_ptr<SettingsTransferable> copy(odd.Spawn(true));
    EXPECT_TRUE(copy->IsSame(odd));
    const std::unique_ptr<SettingsTransferable> fresh(odd.Spawn(false));
    EXPECT_TRUE(fresh->IsSame(Entry()));
}

TEST(NetIPControlEntry, Setters_OneField_OthersUntouched)
{
    Entry entry = OddEntry();
    entry.SetType(Entry::ET_IPRANGE);
    EXPECT_EQ(entry.GetIP(), NetIP("9.9.9.9"));
    EXPECT_EQ(entry.GetIPHigh(), NetIP("2001:db8::1"));
    EXPECT_EQ(entry.GetAddress(), "text");
    EXPECT_FALSE(entry.GetAllow());
    entry.SetIPLow(NetIP("1.1.1.1"));
    EXPECT_EQ(entry.GetIP(), NetIP("1.1.1.1"));
    EXPECT_EQ(entry.GetIPLow(), entry.GetIP());
    entry.SetSubnetMask(NetIP("255.0.0.0"));
    EXPECT_EQ(entry.GetIPHigh(), NetIP("255.0.0.0"));
    EXPECT_EQ(entry.GetSubnetMask(), entry.GetIPHigh());
    entry.SetAddress("other");
    EXPECT_EQ(entry.GetHost(), "other");
    EXPECT_EQ(entry.GetType(), Entry::ET_IPRANGE);
}

TEST(NetIPControlEntry, IsSame_EachFieldCounts)
{
    const Entry odd = OddEntry();
    std::vector<Entry> others(5, odd);
    others[0].SetAllow(true);
    others[1].SetType(Entry::ET_SENDER);
    others[2].SetIP(NetIP("9.9.9.8"));
    others[3].SetIPHigh(NetIP("2001:db8::2"));
    others[4].SetHost("texT"); // by case
    for (const Entry& other : others)
        EXPECT_FALSE(odd == other) << other.GetDisplayText().c_str();
}

TEST(NetIPControlEntry, SetAllowAllAndDenyAll_MaskRuleWithoutBits)
{
    Entry entry = OddEntry();
    entry.SetDenyAll();
    EXPECT_FALSE(entry.GetAllow());
    EXPECT_EQ(entry.GetType(), Entry::ET_IPMASK);
    EXPECT_EQ(entry.GetAsString(), "-ipmask=0.0.0.0/0.0.0.0");
    EXPECT_EQ(entry.GetHost(), "");
    entry.SetAllowAll();
    EXPECT_TRUE(entry.GetAllow());
    EXPECT_EQ(entry.GetAsString(), "+ipmask=0.0.0.0/0.0.0.0");
}

TEST(NetIPControlEntry, SetByString_EveryForm_TextAndDisplayText)
{
    struct CASE
    {
        const char* text;
        Entry::ENTRYTYPE type;
        const char* display;
    };
    const CASE cases[] = {
        {"+ip=192.168.0.1", Entry::ET_IP, "+192.168.0.1"},
        {"-ip=2001:db8::1", Entry::ET_IP, "-2001:db8::1"},
        {"-ipmask=10.0.0.0/255.0.0.0", Entry::ET_IPMASK, "-10.0.0.0/255.0.0.0"},
        {"+ipmask=fe80::/ffc0::", Entry::ET_IPMASK, "+fe80::/ffc0::"},
        {"+iprange=10.0.0.1-10.0.0.99", Entry::ET_IPRANGE, "+10.0.0.1 -> 10.0.0.99"},
        {"-host=mailhost", Entry::ET_HOST, "-Host = mailhost"},
        {"+rhost=*.lan", Entry::ET_RHOST, "+Reverse Lookup = *.lan"},
        {"+islocal", Entry::ET_ISLOCAL, "+Local IP Addresses"},
        {"-islocal", Entry::ET_ISLOCAL, "-Local IP Addresses"},
        {"-sender=*@lan", Entry::ET_SENDER, "-Sender = *@lan"},
        {"+rcpt=postmaster@*", Entry::ET_RCPT, "+Recipient(s) = postmaster@*"},
        {"+host= a=b-c/d ", Entry::ET_HOST, "+Host =  a=b-c/d "}, // kept as it stands
    };
    for (const CASE& rule : cases) {
        const Entry entry = Parsed(rule.text);
        EXPECT_EQ(entry.GetType(), rule.type) << rule.text;
        EXPECT_EQ(entry.GetAllow(), rule.text[0] == '+');
        EXPECT_EQ(entry.GetAsString(), rule.text);
        EXPECT_EQ(entry.GetDisplayText(), rule.display);
        EXPECT_TRUE(Parsed(entry.GetAsString().c_str()) == entry);
    }
}

TEST(NetIPControlEntry, GetAsString_UnknownType_SignAlone)
{
    Entry entry;
    entry.SetType(static_cast<Entry::ENTRYTYPE>(8));
    EXPECT_EQ(entry.GetAsString(), "+");
    EXPECT_EQ(entry.GetDisplayText(), "+");
    entry.SetType(static_cast<Entry::ENTRYTYPE>(0xFFFFFFFFU));
    entry.SetAllow(false);
    EXPECT_EQ(entry.GetAsString(), "-");
    EXPECT_EQ(entry.GetDisplayText(), "-");
    EXPECT_THAT(Errors(entry), IsEmpty());
}

TEST(NetIPControlEntry, SetByString_Keywords_AnyCase)
{
    EXPECT_EQ(Parsed("+ISLOCAL").GetType(), Entry::ET_ISLOCAL);
    EXPECT_EQ(Parsed("+IsLocal").GetAsString(), "+islocal");
    EXPECT_EQ(Parsed("-IPMASK=10.0.0.0/255.0.0.0").GetAsString(), "-ipmask=10.0.0.0/255.0.0.0");
    EXPECT_EQ(Parsed("+RHost=*.LAN").GetAsString(), "+rhost=*.LAN");
    EXPECT_EQ(Parsed("+iP=1.2.3.4").GetAsString(), "+ip=1.2.3.4");
    EXPECT_EQ(Parsed("+IPRANGE=1.2.3.4-1.2.3.5").GetType(), Entry::ET_IPRANGE);
    EXPECT_EQ(Parsed("+Sender=x").GetType(), Entry::ET_SENDER);
    EXPECT_EQ(Parsed("+RCPT=x").GetType(), Entry::ET_RCPT);
    EXPECT_EQ(Parsed("+HOST=x").GetType(), Entry::ET_HOST);
}

TEST(NetIPControlEntry, SetByString_NoRule_DefaultStateButForTheSign)
{
    const char* const texts[] = {"",
                                 "+",
                                 "-",
                                 "+ip",
                                 "-ip",
                                 "+=1.2.3.4",
                                 "+ipx",
                                 "+ip=",
                                 "-host=",
                                 "+islocal=1",
                                 "+islocals",
                                 "+ islocal",
                                 "+islocal ",
                                 "+ ip=1.2.3.4",
                                 "+ip =1.2.3",
                                 "+ip=1.2.3",
                                 "+ip=1.2.3.4 ",
                                 "+ip= 1.2.3.4",
                                 "-ip=1.2.3.256",
                                 "-ip=host",
                                 "-ipmask=10.0.0.0",
                                 "-ipmask=/",
                                 "+iprange=1.2.3.4",
                                 "+iprange=-1.2.3.4",
                                 "+what=1.2.3.4",
                                 "+ips=1.2.3.4",
                                 "----",
                                 "+==="};
    for (const char* text : texts) {
        Entry entry = OddEntry();
        EXPECT_FALSE(entry.SetByString(text)) << text;
        EXPECT_EQ(entry.GetAllow(), String(text).size() < 4 || text[0] != '-') << text;
        entry.SetAllow(true);
        ExpectDefault(entry);
    }
}

TEST(NetIPControlEntry, SetByString_NoSign_DefaultState)
{
    for (const char* text : {"ip=1.2.3.4", " +ip=1.2.3.4", "*ip=1.2.3.4", "islocal"}) {
        Entry entry = OddEntry();
        EXPECT_FALSE(entry.SetByString(text)) << text;
        ExpectDefault(entry);
    }
}

TEST(NetIPControlEntry, SetByString_SecondAddressBad_FirstStays)
{
    struct CASE
    {
        const char* text;
        const char* first;
    };
    for (const CASE& half : {CASE{"-ipmask=10.0.0.0/8", "10.0.0.0"}, CASE{"-ipmask=10.0.0.0/", "10.0.0.0"},
                             CASE{"-ipmask=10.0.0.0/255.0.0.0/1", "10.0.0.0"}, CASE{"-iprange=::1-", "::1"},
                             CASE{"-iprange=10.0.0.1-10.0.0.2-10.0.0.3", "10.0.0.1"}})
    {
        Entry entry = OddEntry();
        EXPECT_FALSE(entry.SetByString(half.text));
        EXPECT_FALSE(entry.GetAllow());
        EXPECT_EQ(entry.GetType(), Entry::ET_IP) << half.text;
        EXPECT_EQ(entry.GetIP(), NetIP(half.first)) << half.text;
        EXPECT_EQ(entry.GetIPHigh(), NetIP("255.255.255.255"));
    }
}

TEST(NetIPControlEntry, SetByString_RuleOverAnother_NothingOfTheOtherLeft)
{
    for (const char* text : {"+ip=1.2.3.4", "-ipmask=10.0.0.0/255.0.0.0", "+iprange=1.2.3.4-1.2.3.5", "-host=mailhost",
                             "+rhost=*.lan", "-islocal", "+sender=*@lan", "-rcpt=*"})
    {
        Entry entry = OddEntry();
        EXPECT_TRUE(entry.SetByString(text));
        EXPECT_TRUE(entry == Parsed(text)) << text;
    }
}

/// A rule that adds a default of its own.
class OWNENTRY : public Entry
{
public:
    void Reset() override
    {
        Entry::Reset();
        SetHost("own");
    }
};

TEST(NetIPControlEntry, SetByString_DerivedClass_ItsResetIsCalled)
{
    for (const char* text : {"+ip=1.2.3.4", "garbage", ""}) {
        OWNENTRY entry;
        entry.SetByString(text);
        EXPECT_EQ(entry.GetHost(), "own") << text;
    }
}

TEST(NetIPControlEntry, SetByString_ZeroByteAndHighBytes_PartOfTheText)
{
    Entry entry;
    EXPECT_TRUE(entry.SetByString(String("+host=a\0\xFF", 9)));
    EXPECT_EQ(entry.GetHost(), String("a\0\xFF", 3));
    EXPECT_FALSE(entry.SetByString(String("+ip=1.2.3.4\0", 12)));
}

TEST(NetIPControlEntry, Settings_DisplayTextWrittenTextFormRead_KeptOnPurpose)
{
    SettingsTransportSet set;
    const Entry written = Parsed("-ip=1.2.3.4");
    EXPECT_TRUE(written.WriteTo(set));
    String text;
    ASSERT_TRUE(set.GetString("entry", text));
    EXPECT_EQ(text, "-1.2.3.4");
    Entry read = OddEntry();
    EXPECT_TRUE(read.ReadFrom(set)); // a text that is no rule is no failure
    EXPECT_FALSE(read.GetAllow());
    read.SetAllow(true);
    ExpectDefault(read);
}

TEST(NetIPControlEntry, ReadFrom_TextForm_Rule_NoKey_Unchanged)
{
    SettingsTransportSet set;
    Entry entry = OddEntry();
    EXPECT_TRUE(entry.ReadFrom(set));
    EXPECT_TRUE(entry == OddEntry());
    set.AddString("entry", "-ipmask=10.0.0.0/255.0.0.0");
    EXPECT_TRUE(entry.ReadFrom(set));
    EXPECT_EQ(entry.GetAsString(), "-ipmask=10.0.0.0/255.0.0.0");
}

TEST(NetIPControlEntry, CheckErrors_RangeUpsideDown_84)
{
    EXPECT_THAT(Errors(Parsed("+iprange=10.0.0.9-10.0.0.1")), ElementsAre(84));
    EXPECT_THAT(Errors(Parsed("+iprange=::1-10.0.0.1")), ElementsAre(84));
    EXPECT_THAT(Errors(Parsed("+iprange=10.0.0.1-10.0.0.1")), IsEmpty());
    Entry mask = Parsed("+iprange=10.0.0.9-10.0.0.1");
    mask.SetType(Entry::ET_IPMASK);
    EXPECT_THAT(Errors(mask), IsEmpty());
}

TEST(NetIPControlEntry, CheckErrors_EmptyHostTexts_85And86)
{
    Entry entry = Parsed("+host=mailhost");
    EXPECT_THAT(Errors(entry), IsEmpty());
    entry.SetHost("");
    EXPECT_THAT(Errors(entry), ElementsAre(85));
    entry.SetType(Entry::ET_RHOST);
    EXPECT_THAT(Errors(entry), ElementsAre(86));
    for (const Entry::ENTRYTYPE type : {Entry::ET_IP, Entry::ET_IPMASK, Entry::ET_ISLOCAL, Entry::ET_SENDER}) {
        entry.SetType(type);
        EXPECT_THAT(Errors(entry), IsEmpty()) << type;
    }
}

TEST(NetIPControlEntry, CheckErrors_CompleteMailAddress_87And88_KeptOnPurpose)
{
    EXPECT_THAT(Errors(Parsed("-sender=ann@example.com")), ElementsAre(87));
    EXPECT_THAT(Errors(Parsed("-rcpt=ann@example.com")), ElementsAre(88));
    for (const char* pattern : {"*@lan", "ann@*", "a?n@lan", "@", "no address", "ann@-lan"}) {
        EXPECT_THAT(Errors(Parsed((std::string("-sender=") + pattern).c_str())), IsEmpty()) << pattern;
        EXPECT_THAT(Errors(Parsed((std::string("-rcpt=") + pattern).c_str())), IsEmpty()) << pattern;
    }
}

TEST(NetIPControlEntry, CheckWarnings_WorstRule_AddsNothing)
{
    Messages messages;
    EXPECT_TRUE(Parsed("+iprange=10.0.0.9-10.0.0.1").CheckWarnings(messages));
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

} // namespace
