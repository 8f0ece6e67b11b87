#include "net/dns/NetDNSHosts.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"
#include "tests/peers/posix/DescriptorShortage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using testing::ElementsAre;
using testing::IsEmpty;

/// The texts of the records; the code alone when there are none; "unknown" when the file does not say.
std::vector<std::string> Find(const NetDNSHosts& hosts, const char* name, NetDNS::RRTYPE type)
{
    NetDNSAnswer answer;
    if (!hosts.Find(name, type, answer))
        return {"unknown"};
    if (answer.GetCode() != 0)
        return {std::to_string(answer.GetCode())};
    std::vector<std::string> texts;
    for (const NetDNSAnswer::RECORD& record : answer.GetRecords())
        texts.push_back(record.text.str());
    return texts;
}

TEST(NetDNSHosts, Find_UsualFile_AddressesAndNamesInItsOrder)
{
    const NetDNSHosts hosts("127.0.0.1\tlocalhost\n::1 localhost ip6-localhost\n"
                            "10.0.0.2 www.example www # two names\n10.0.0.1   WWW.Example\r\n");
    EXPECT_THAT(Find(hosts, "localhost", NetDNS::RR_A), ElementsAre("127.0.0.1"));
    EXPECT_THAT(Find(hosts, "LocalHost", NetDNS::RR_AAAA), ElementsAre("::1"));
    EXPECT_THAT(Find(hosts, "www.example", NetDNS::RR_A), ElementsAre("10.0.0.2", "10.0.0.1"));
    EXPECT_THAT(Find(hosts, "www", NetDNS::RR_A), ElementsAre("10.0.0.2"));
    EXPECT_THAT(Find(hosts, "2.0.0.10.in-addr.arpa", NetDNS::RR_PTR), ElementsAre("www.example", "www"));
    EXPECT_THAT(Find(hosts, "1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.IP6.arpa", NetDNS::RR_PTR),
                ElementsAre("localhost", "ip6-localhost"));
}

TEST(NetDNSHosts, Find_NameOfTheOtherFamily_NoRecordsAndOthersUnknown)
{
    const NetDNSHosts hosts("10.0.0.1 a\n");
    EXPECT_THAT(Find(hosts, "a", NetDNS::RR_AAAA), ElementsAre("51"));
    EXPECT_THAT(Find(hosts, "a", NetDNS::RR_TXT), ElementsAre("unknown"));
    EXPECT_THAT(Find(hosts, "a", NetDNS::RR_MX), ElementsAre("unknown"));
    EXPECT_THAT(Find(hosts, "b", NetDNS::RR_A), ElementsAre("unknown"));
    EXPECT_THAT(Find(hosts, "", NetDNS::RR_A), ElementsAre("unknown"));
}

TEST(NetDNSHosts, Read_OddLines_LeftOut)
{
    const NetDNSHosts hosts("# 10.0.0.1 comment\n\n10.0.0.1\nfe80::1%lo zone\nname 10.0.0.1\n10.0.0.256 wrong\n"
                            "10.0.0.1 #hidden\n10.0.0.1 10.0.0.2 good#bad\n\t10.0.0.3 indented");
    for (const char* name : {"comment", "zone", "name", "wrong", "hidden", "bad", "good#bad", "10.0.0.1", "10.0.0.2"})
        EXPECT_THAT(Find(hosts, name, NetDNS::RR_A), ElementsAre("unknown")) << name;
    EXPECT_THAT(Find(hosts, "good", NetDNS::RR_A), ElementsAre("10.0.0.1"));
    EXPECT_THAT(Find(hosts, "indented", NetDNS::RR_A), ElementsAre("10.0.0.3"));
}

TEST(NetDNSHosts, Read_BehindTheFirstMiB_LeftOut)
{
    std::string text = "10.0.0.1 first\n";
    while (text.size() < 1024 * 1024)
        text += "# a line of the file that says nothing\n";
    const NetDNSHosts hosts(text + "10.0.0.2 last\n");
    EXPECT_THAT(Find(hosts, "first", NetDNS::RR_A), ElementsAre("10.0.0.1"));
    EXPECT_THAT(Find(hosts, "last", NetDNS::RR_A), ElementsAre("unknown"));
}

TEST(NetDNSHosts, Get_FileChangesOrIsMissing_WhatItSaysNow)
{
    const test::TempFolder folder;
    const String path((folder / "hosts").string());
    EXPECT_THAT(Find(*NetDNSHosts::sGet(path), "a", NetDNS::RR_A), ElementsAre("unknown"));
    for (int i = 10; i < 40; ++i) {
        const std::string address = "10.0.0." + std::to_string(i);
        std::ofstream(folder / "hosts", std::ios::binary) << address << " a\n";
        EXPECT_THAT(Find(*NetDNSHosts::sGet(path), "a", NetDNS::RR_A), ElementsAre(address));
    }
    // Kept once it has been what it is for a while.
    EXPECT_TRUE(WaitFor([&path] { return NetDNSHosts::sGet(path) == NetDNSHosts::sGet(path); }));
    std::ofstream(folder / "hosts", std::ios::binary) << "10.0.0.99 a\n";
    EXPECT_THAT(Find(*NetDNSHosts::sGet(path), "a", NetDNS::RR_A), ElementsAre("10.0.0.99"));
    const String other((folder / "other").string());
    std::ofstream(folder / "other", std::ios::binary) << "10.0.0.1 a\n";
    EXPECT_THAT(Find(*NetDNSHosts::sGet(other), "a", NetDNS::RR_A), ElementsAre("10.0.0.1"));
    EXPECT_THAT(Find(*NetDNSHosts::sGet(path), "a", NetDNS::RR_A), ElementsAre("10.0.0.99"));
}

// A look-up at a moment without descriptors once made the file an empty one until it changed.
TEST(NetDNSHosts, Get_NoDescriptorAtThatMoment_NotKept)
{
    if (!test::DescriptorShortage::IsPossibleWithVirtualCalls())
        GTEST_SKIP() << "descriptors cannot be made short here, or the sanitizer itself wants them";
    const test::TempFolder folder;
    const String path((folder / "hosts").string());
    std::ofstream(folder / "hosts", std::ios::binary) << "10.0.0.1 a\n";
    std::filesystem::last_write_time(folder / "hosts",
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    std::shared_ptr<const NetDNSHosts> hosts;
    {
        [[maybe_unused]] const test::DescriptorShortage shortage;
        hosts = NetDNSHosts::sGet(path);
    }
    EXPECT_THAT(Find(*hosts, "a", NetDNS::RR_A), ElementsAre("unknown"));
    EXPECT_THAT(Find(*NetDNSHosts::sGet(path), "a", NetDNS::RR_A), ElementsAre("10.0.0.1"));
    EXPECT_EQ(NetDNSHosts::sGet(path), NetDNSHosts::sGet(path)) << "kept now";
}

} // namespace
