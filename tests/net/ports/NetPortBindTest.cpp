// Port bindings: one binding and the list with its text line.
#include "common/SettingsTransportSet.h"
#include "net/ports/NetPortBinds.h"
#include "tests/peers/KnownName.h"

#include <gtest/gtest.h>

#include <memory>

namespace kqlib::test {
namespace {

NetIP IP(const char* text)
{
    return NetIP(String(text));
}

/// A list read from a line with the default separators.
NetPortBinds FromLine(const char* line)
{
    NetPortBinds binds;
    binds.AddByLine(line);
    return binds;
}

// ------------------------------------------------------------------------------------------------- one binding

TEST(NetPortBindTest, Construct_EachForm_PortAndHost)
{
    EXPECT_EQ(NetPortBind().GetPort(), 0);
    EXPECT_TRUE(NetPortBind().GetHost().empty());
    EXPECT_TRUE(NetPortBind().IsPortRandom());
    EXPECT_EQ(NetPortBind(65535).GetPort(), 65535);
    EXPECT_FALSE(NetPortBind(1).IsPortRandom());
    const NetPortBind both(21, "host");
    EXPECT_EQ(both.GetPort(), 21);
    EXPECT_EQ(both.GetHost(), String("host"));
    NetPortBind assigned(both);
    EXPECT_TRUE(assigned == both);
    assigned.SetPort(22);
    EXPECT_FALSE(assigned == both);
    assigned = both;
    assigned.SetHost("Host");
    EXPECT_FALSE(assigned == both) << "hosts are compared as texts";
}

TEST(NetPortBindTest, IsSame_LocalhostAnd127001_DifferOnPurpose)
{
    EXPECT_FALSE(NetPortBind(21, "localhost") == NetPortBind(21, "127.0.0.1"));
    EXPECT_FALSE(NetPortBind(21).IsSame(static_cast<const SettingsTransferable&>(NetPortBinds())));
    EXPECT_TRUE(NetPortBind(21).IsSame(static_cast<const SettingsTransferable&>(NetPortBind(21))));
}

TEST(NetPortBindTest, ResetAndSpawn_Filled_DefaultOrCopy)
{
    NetPortBind bind(21, "host");
    const std::unique_ptr<NetPortBind> copy(bind.Spawn(true));
    const std::unique_ptr<NetPortBind> empty(bind.Spawn(false));
    EXPECT_TRUE(*copy == bind);
    EXPECT_TRUE(*empty == NetPortBind());
    bind.Reset();
    EXPECT_TRUE(bind == NetPortBind());
}

TEST(NetPortBindTest, Settings_Keys_PortAndHost)
{
    SettingsTransportSet set;
    ASSERT_TRUE(NetPortBind(990, "10.0.0.1").WriteTo(set));
    USHORT port = 0;
    String host;
    ASSERT_TRUE(set.GetUSHORT("port", port));
    ASSERT_TRUE(set.GetString("host", host));
    EXPECT_EQ(port, 990);
    EXPECT_EQ(host, String("10.0.0.1"));
    EXPECT_EQ(set.GetDataCount(), 2U);
    NetPortBind read;
    ASSERT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == NetPortBind(990, "10.0.0.1"));
}

TEST(NetPortBindTest, CheckErrors_Anything_NeverFaulty)
{
    Messages messages;
    EXPECT_TRUE(NetPortBind(0, "no such host !!").CheckErrors(messages));
    EXPECT_TRUE(NetPortBind(0, "no such host !!").CheckWarnings(messages));
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

TEST(NetPortBindTest, IsYours_NoHost_PortDecides)
{
    NetDNSCache cache;
    EXPECT_TRUE(NetPortBind(21).IsYours(cache, IP("10.0.0.1"), 21));
    EXPECT_FALSE(NetPortBind(21).IsYours(cache, IP("10.0.0.1"), 22));
}

TEST(NetPortBindTest, IsYours_AddressHost_BothMustMatch)
{
    NetDNSCache cache;
    const NetPortBind bind(21, "10.0.0.1");
    EXPECT_TRUE(bind.IsYours(cache, IP("10.0.0.1"), 21));
    EXPECT_FALSE(bind.IsYours(cache, IP("10.0.0.2"), 21));
    EXPECT_FALSE(bind.IsYours(cache, IP("10.0.0.1"), 22));
}

TEST(NetPortBindTest, IsYours_NameInTwoCaches_ResolvedAnewOnEveryCall)
{
    NetDNSCache first;
    NetDNSCache second;
    MakeNameKnown(first, "server.example", "10.0.0.1");
    MakeNameKnown(second, "server.example", "10.0.0.2");
    const NetPortBind bind(21, "server.example");
    EXPECT_TRUE(bind.IsYours(first, IP("10.0.0.1"), 21));
    EXPECT_FALSE(bind.IsYours(second, IP("10.0.0.1"), 21));
    EXPECT_TRUE(bind.IsYours(second, IP("10.0.0.2"), 21));
    EXPECT_FALSE(bind.IsYours(second, IP("10.0.0.2"), 22));
}

TEST(NetPortBindTest, IsYours_HostCannotBeResolved_PortDecidesOnPurpose)
{
    NetDNSCache cache;
    const NetPortBind bind(21, "not..a..name"); // refused before any server is asked
    EXPECT_TRUE(bind.IsYours(cache, IP("10.0.0.1"), 21));
    EXPECT_FALSE(bind.IsYours(cache, IP("10.0.0.1"), 22));
}

// ----------------------------------------------------------------------------------------------------- the list

TEST(NetPortBindsTest, EmptyList_LineAndQuestions_EmptyAndFalse)
{
    NetDNSCache cache;
    const NetPortBinds binds;
    EXPECT_TRUE(binds.GetLine().empty());
    EXPECT_TRUE(binds.GetLine(static_cast<unsigned char>('|')).empty());
    EXPECT_FALSE(binds.IsAnyPortRandom());
    EXPECT_FALSE(binds.IsYours(cache, IP("10.0.0.1"), 21));
}

TEST(NetPortBindsTest, Construct_FromOneBinding_ListOfIt)
{
    const NetPortBinds binds(NetPortBind(21, "h"));
    ASSERT_EQ(binds.GetCount(), 1U);
    EXPECT_TRUE(binds.Get(0) == NetPortBind(21, "h"));
}

struct ITEM_CASE
{
    const char* item;
    unsigned short port;
    const char* host;
};

class NetPortBindsItemTest : public testing::TestWithParam<ITEM_CASE>
{
};

TEST_P(NetPortBindsItemTest, AddByLine_OneItem_PortAndHost)
{
    const NetPortBinds binds = FromLine(GetParam().item);
    ASSERT_EQ(binds.GetCount(), 1U) << GetParam().item;
    EXPECT_EQ(binds.Get(0).GetPort(), GetParam().port) << GetParam().item;
    EXPECT_EQ(binds.Get(0).GetHost(), String(GetParam().host)) << GetParam().item;
}

INSTANTIATE_TEST_SUITE_P(Items, NetPortBindsItemTest,
                         testing::Values(ITEM_CASE{"21", 21, ""}, ITEM_CASE{":21", 21, ""},
                                         ITEM_CASE{"10.0.0.1:0", 0, "10.0.0.1"}, ITEM_CASE{"host:", 0, "host"},
                                         ITEM_CASE{":", 0, ""}, ITEM_CASE{"a:b:21", 0, "a"}, ITEM_CASE{"::1:21", 0, ""},
                                         ITEM_CASE{"65535", 65535, ""}, ITEM_CASE{"65536", 0, ""},
                                         ITEM_CASE{"70000", 0, ""}, ITEM_CASE{"-1", 0, ""}, ITEM_CASE{"21abc", 21, ""},
                                         ITEM_CASE{"abc", 0, ""}, ITEM_CASE{"h: 21", 21, "h"}));

TEST(NetPortBindsTest, GetLine_SeveralBindings_HostColonPort)
{
    NetPortBinds binds;
    binds.Add(NetPortBind(21));
    binds.Add(NetPortBind(21, "192.168.0.5"));
    binds.Add(NetPortBind(0));
    EXPECT_EQ(binds.GetLine(), String("21,192.168.0.5:21,0"));
    EXPECT_EQ(binds.GetLine(static_cast<unsigned char>('|')), String("21|192.168.0.5:21|0"));
    String line("before");
    binds.GetLine(line);
    EXPECT_EQ(line, String("21,192.168.0.5:21,0"));
    binds.GetLine(line, ' ');
    EXPECT_EQ(line, String("21 192.168.0.5:21 0"));
}

TEST(NetPortBindsTest, AddByLine_EachForm_SplitsAsToldAndAppends)
{
    NetPortBinds binds;
    binds.AddByLine("1, 2;3,,");
    binds.AddByLine("4|5", static_cast<unsigned char>('|'));
    binds.AddByLine("6/7+8", String("/+"));
    EXPECT_EQ(binds.GetLine(), String("1,2,3,4,5,6,7,8"));
    binds.AddByLine("9,,10", false, true);
    EXPECT_EQ(binds.GetLine(), String("1,2,3,4,5,6,7,8,9,0,10")) << "an empty item that is kept is a random port";
    binds.Reset();
    binds.AddByLine("1||2", static_cast<unsigned char>('|'), false, false);
    binds.AddByLine("3/+4", String("/+"), true, true);
    EXPECT_EQ(binds.GetLine(), String("1,0,2,3,4"));
}

TEST(NetPortBindsTest, AddByLine_EmptyLine_AddsNothing)
{
    EXPECT_EQ(FromLine("").GetCount(), 0U);
    EXPECT_EQ(FromLine(" , ;").GetCount(), 0U);
}

TEST(NetPortBindsTest, AddByLine_Duplicates_AllKeptOnPurpose)
{
    EXPECT_EQ(FromLine("21,21,x,x").GetLine(), String("21,21,0,0"));
}

TEST(NetPortBindsTest, LineForm_WrittenAndRead_Same)
{
    const NetPortBinds binds = FromLine("21,10.0.0.1:990,host.example:0,0");
    NetPortBinds read;
    read.AddByLine(binds.GetLine());
    EXPECT_TRUE(read == binds);
    NetPortBinds other;
    other.AddByLine(binds.GetLine(static_cast<unsigned char>('\t')), static_cast<unsigned char>('\t'));
    EXPECT_TRUE(other == binds);
}

TEST(NetPortBindsTest, IsAnyPortRandom_OneOfMany_True)
{
    EXPECT_TRUE(FromLine("21,0,22").IsAnyPortRandom());
    EXPECT_FALSE(FromLine("21,22").IsAnyPortRandom());
}

TEST(NetPortBindsTest, IsYours_AnyOfTheList_True)
{
    NetDNSCache cache;
    const NetPortBinds binds = FromLine("10.0.0.1:21,990");
    EXPECT_TRUE(binds.IsYours(cache, IP("10.0.0.1"), 21));
    EXPECT_TRUE(binds.IsYours(cache, IP("10.0.0.9"), 990));
    EXPECT_FALSE(binds.IsYours(cache, IP("10.0.0.9"), 21));
}

TEST(NetPortBindsTest, Settings_WrittenAndRead_OneUnnamedSetPerBinding)
{
    const NetPortBinds binds = FromLine("21,10.0.0.1:990");
    SettingsTransportSet set;
    ASSERT_TRUE(binds.WriteTo(set));
    EXPECT_EQ(set.GetDataCount(), 0U);
    ASSERT_EQ(set.GetSetCount(), 2U);
    EXPECT_TRUE(set.GetSetKey(1).empty());
    NetPortBinds read;
    ASSERT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == binds);
}

TEST(NetPortBindsTest, ReadFrom_ListNotEmpty_AppendsOnPurpose)
{
    SettingsTransportSet set;
    ASSERT_TRUE(FromLine("22").WriteTo(set));
    NetPortBinds binds = FromLine("21");
    ASSERT_TRUE(binds.ReadFrom(set));
    EXPECT_EQ(binds.GetLine(), String("21,22"));
}

TEST(NetPortBindsTest, ReadFrom_SetWithoutHost_InheritsThePreviousHostOnPurpose)
{
    SettingsTransportSet set;
    ASSERT_TRUE(FromLine("10.0.0.1:21").WriteTo(set));
    set.AddSet(SettingsTransportSet::UNNAMED)->AddUSHORT("port", 22);
    NetPortBinds binds;
    ASSERT_TRUE(binds.ReadFrom(set));
    EXPECT_EQ(binds.GetLine(), String("10.0.0.1:21,10.0.0.1:22"));
}

TEST(NetPortBindsTest, SpawnIsSameReset_List_AsExpected)
{
    NetPortBinds binds = FromLine("21,22");
    const std::unique_ptr<SettingsTransferable> copy(binds.Spawn(true));
    const std::unique_ptr<SettingsTransferable> empty(binds.Spawn(false));
    ASSERT_NE(dynamic_cast<NetPortBinds*>(copy.get()), nullptr);
    EXPECT_TRUE(copy->IsSame(binds));
    EXPECT_TRUE(empty->IsSame(NetPortBinds()));
    EXPECT_FALSE(binds == FromLine("22,21"));
    EXPECT_FALSE(binds == FromLine("21"));
    binds.Reset();
    EXPECT_TRUE(binds == NetPortBinds());
}

} // namespace
} // namespace kqlib::test
