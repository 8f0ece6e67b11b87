#include "platform/ResolverConfig.h"
#include "net/dns/NetDNS.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"
#include "tests/peers/posix/DescriptorShortage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

/// A folder of its own that stands for "/".
class ResolverConfigTest : public testing::Test
{
protected:
    ResolverConfigTest() { platform::SetServerSettingsRoot(m_root.GetPath().c_str()); }
    ~ResolverConfigTest() override { platform::SetServerSettingsRoot(nullptr); }

    void Write(const std::string& path, const std::string& text)
    {
        const fs::path file = m_root / path;
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }

    static std::vector<std::string> Texts()
    {
        std::vector<std::string> texts;
        EXPECT_TRUE(platform::AppendServerSettings(texts));
        return texts;
    }

    /// What a resolver finds; "none" in front when discovery says so.
    static std::vector<std::string> Discovered()
    {
        NetDNS dns(NetIP::LOOKUP_ANY);
        std::vector<std::string> servers;
        if (!dns.GetDNSServers())
            servers.push_back("none");
        for (ULONG i = 0; i < dns.GetDNSServerCount(); ++i)
            servers.push_back(dns.GetDNSServer(i).str());
        return servers;
    }

    const test::TempFolder m_root;
};

TEST_F(ResolverConfigTest, AppendServerSettings_NoFiles_TrueAndNothing)
{
    EXPECT_THAT(Texts(), IsEmpty());
    EXPECT_THAT(Discovered(), ElementsAre("none"));
}

TEST_F(ResolverConfigTest, AppendNameServiceServers_Always_Nothing)
{
    std::vector<std::string> addresses;
    platform::AppendNameServiceServers(addresses);
    EXPECT_THAT(addresses, IsEmpty());
}

TEST_F(ResolverConfigTest, ResolvConf_NameserverLines_InOrder)
{
    Write("etc/resolv.conf", "# nameserver 1.1.1.1\n; nameserver 1.1.1.2\nsearch example nameserver\n"
                             "nameserver 10.0.0.2\n  nameserver\t10.0.0.1 # comment\noptions ndots:1\n"
                             "nameserver\nnameserver 2001:db8::1\r\nNAMESERVER 1.1.1.3\nnameserver 10.0.0.3");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.2", "10.0.0.1", "2001:db8::1", "10.0.0.3"));
}

TEST_F(ResolverConfigTest, ResolvConf_ServerWithZone_LeftOut)
{
    Write("etc/resolv.conf", "nameserver fe80::1%eth0\nnameserver 10.0.0.1\n");
    EXPECT_THAT(Discovered(), ElementsAre("10.0.0.1"));
}

TEST_F(ResolverConfigTest, Discovery_ConfiguredAndSupplied_ConfiguredFirstEachOnce)
{
    Write("etc/resolv.conf", "nameserver 127.0.0.53\nnameserver 10.0.0.2\n");
    Write("run/systemd/resolve/resolv.conf", "nameserver 10.0.0.1\nnameserver 10.0.0.2\n");
    Write("run/systemd/netif/leases/2", "ADDRESS=10.0.0.9\nDNS=10.0.0.1 10.0.0.4\n");
    Write("var/lib/dhcp/dhclient.eth0.leases", "lease {\n  option domain-name-servers 10.0.0.5,10.0.0.4;\n}\n");
    EXPECT_THAT(Discovered(), ElementsAre("127.0.0.53", "10.0.0.2", "10.0.0.1", "10.0.0.4", "10.0.0.5"));
}

TEST_F(ResolverConfigTest, Leases_SeveralOfOneInterface_NewestCounts)
{
    Write("var/lib/dhcp/dhclient.leases",
          "lease {\n  interface \"eth0\";\n  option domain-name-servers 10.0.0.1;\n}\n"
          "lease {\n  interface \"eth1\";\n  option domain-name-servers 10.1.0.1, 10.1.0.2;\n}\n"
          "lease {\n  interface \"eth0\";\n  option routers 10.0.0.254;\n  option domain-name-servers 10.0.0.2;\n}\n");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.2", "10.1.0.1", "10.1.0.2"));
}

TEST_F(ResolverConfigTest, Leases_NewestWithoutServers_Nothing)
{
    Write("var/lib/dhcp/dhclient.leases", "lease {\n  interface \"eth0\";\n  option domain-name-servers 10.0.0.1;\n}\n"
                                          "lease {\n  interface \"eth0\";\n}\n");
    EXPECT_THAT(Texts(), IsEmpty());
}

TEST_F(ResolverConfigTest, Leases_HalfWrittenOne_Ignored)
{
    Write("var/lib/dhcp/dhclient.leases", "lease {\n  interface \"eth0\";\n  option domain-name-servers 10.0.0.1;\n}\n"
                                          "lease {\n  interface \"eth0\n  option domain-name-servers 10.0.0.9");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.1"));
}

TEST_F(ResolverConfigTest, KeyFiles_SeveralFolders_InOrderOfTheFileNames)
{
    Write("var/lib/NetworkManager/internal-b-eth1.lease", "DNS=10.0.0.2\n");
    Write("var/lib/NetworkManager/internal-a-eth0.lease", "ADDRESS=1.2.3.4\nDNS=10.0.0.1\nNTP=10.0.0.9\n");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.1", "10.0.0.2"));
}

TEST_F(ResolverConfigTest, Discovery_NamesInAnyCase_OnceCaseInsensitively)
{
    Write("etc/resolv.conf", "nameserver Dns.Example\nnameserver dns.example\nnameserver 2001:DB8::1\n"
                             "nameserver 2001:db8::1\n");
    EXPECT_THAT(Discovered(), ElementsAre("Dns.Example", "2001:DB8::1"));
}

TEST_F(ResolverConfigTest, Discovery_ValueWithSeveralSeparators_EachServerOnce)
{
    // A single word of the file holds a whole list here: the separators are the resolver's affair.
    Write("etc/resolv.conf", "nameserver 10.0.0.1,10.0.0.2;;10.0.0.1,\n");
    EXPECT_THAT(Discovered(), ElementsAre("10.0.0.1", "10.0.0.2"));
}

TEST_F(ResolverConfigTest, Discovery_CalledAgain_StartsAnew)
{
    Write("etc/resolv.conf", "nameserver 10.0.0.1\n");
    NetDNS dns(NetIP::LOOKUP_ANY);
    EXPECT_TRUE(dns.GetDNSServers());
    Write("etc/resolv.conf", "nameserver 10.0.0.2\n");
    EXPECT_TRUE(dns.GetDNSServers());
    ASSERT_EQ(dns.GetDNSServerCount(), 1U);
    EXPECT_EQ(dns.GetDNSServer(0), "10.0.0.2");
}

TEST_F(ResolverConfigTest, Folders_FilesThatAreNoLeases_NotRead)
{
    // The network manager keeps its keys beside its leases.
    Write("var/lib/NetworkManager/secret_key", "DNS=10.9.9.1\n");
    Write("var/lib/NetworkManager/timestamps", "DNS=10.9.9.2\n");
    Write("var/lib/NetworkManager/internal.lease.key", "DNS=10.9.9.3\n");
    Write("var/lib/dhcp/dhclient.conf", "lease {\n  option domain-name-servers 10.9.9.4;\n}\n");
    Write("run/systemd/netif/leases/state", "DNS=10.9.9.5\n");
    Write("run/systemd/netif/leases/3", "DNS=10.0.0.3\n");
    Write("var/lib/NetworkManager/dhclient-eth0.lease", "lease {\n  option domain-name-servers 10.0.0.4;\n}\n");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.3", "10.0.0.4"));
}

TEST_F(ResolverConfigTest, ResolvConf_LinesOfUpTo4096Bytes_ReadAndLongerOnesLeftOut)
{
    const std::string first = "nameserver 10.0.0.1";
    const std::string second = "nameserver 10.0.0.2";
    Write("etc/resolv.conf", first + std::string(4096 - first.size(), ' ') + "\n" + second +
                                 std::string(4097 - second.size(), ' ') + "\nnameserver 10.0.0.3\n");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.1", "10.0.0.3"));
}

TEST_F(ResolverConfigTest, ResolvConf_WithoutEndBehindTheFirstMiB_ReadThatFar)
{
    std::string text = "nameserver 10.0.0.1\n";
    while (text.size() < 1024 * 1024)
        text += "# a line of the file that says nothing\n";
    Write("etc/resolv.conf", text + "nameserver 10.0.0.2\n");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.1"));
}

TEST_F(ResolverConfigTest, Discovery_ZeroByteWithinAValue_EndsIt)
{
    const std::string zero(1, '\0');
    Write("etc/resolv.conf", "nameserver 10.0.0.1" + zero + "9\nnameserver 10.0.0.2," + zero + "10.0.0.3\n");
    Write("run/systemd/netif/leases/2", "DNS=10.0.0.4 " + zero + " 10.0.0.5\n");
    EXPECT_THAT(Discovered(), ElementsAre("10.0.0.1", "10.0.0.2", "10.0.0.4"));
}

TEST(SplitServers, EachSeparatorAndRunsOfThem_ServersBetweenThem)
{
    std::vector<std::string> servers{"before"};
    platform::SplitServers(" 10.0.0.1,10.0.0.2;;10.0.0.3\t10.0.0.1 ,", servers);
    EXPECT_THAT(servers, ElementsAre("before", "10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.1"));
    platform::SplitServers("", servers);
    platform::SplitServers(" ,;\t", servers);
    platform::SplitServers(std::string_view("\0 10.0.0.4", 10), servers);
    EXPECT_EQ(servers.size(), 5U);
    platform::SplitServers("x", servers);
    EXPECT_EQ(servers.back(), "x");
}

/// Asks until what was found is kept. True: the last question read no file.
bool WaitUntilKept()
{
    return WaitFor([] {
        std::vector<std::string> servers;
        platform::AppendServerSettings(servers);
        const std::uint32_t before = platform::GetServerSettingsReads();
        platform::AppendServerSettings(servers);
        return platform::GetServerSettingsReads() == before;
    });
}

TEST_F(ResolverConfigTest, AppendServerSettings_NothingChanged_KeptAndReadAnewAfterEachKindOfChange)
{
    Write("etc/resolv.conf", "nameserver 10.0.0.1\n");
    Write("var/lib/dhcp/dhclient.eth0.leases", "lease {\n  option domain-name-servers 10.0.0.2;\n}\n");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.1", "10.0.0.2"));
    ASSERT_TRUE(WaitUntilKept());
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.1", "10.0.0.2"));
    EXPECT_THAT(Discovered(), ElementsAre("10.0.0.1", "10.0.0.2"));

    Write("etc/resolv.conf", "nameserver 10.0.0.3\n"); // of the same size
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.3", "10.0.0.2"));
    ASSERT_TRUE(WaitUntilKept());
    Write("var/lib/dhcp/dhclient.eth1.leases", "lease {\n  option domain-name-servers 10.0.0.4;\n}\n");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.3", "10.0.0.2", "10.0.0.4"));
    ASSERT_TRUE(WaitUntilKept());
    Write("run/systemd/resolve/resolv.conf", "nameserver 10.0.0.5\n"); // was missing
    fs::remove(m_root / "etc/resolv.conf");
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.5", "10.0.0.2", "10.0.0.4"));
}

TEST_F(ResolverConfigTest, AppendServerSettings_ChangedJustNow_NotKept)
{
    // Again when the machine paused for two seconds between the two questions.
    EXPECT_TRUE(WaitFor([this] {
        Write("etc/resolv.conf", "nameserver 10.0.0.1\n");
        const std::uint32_t before = platform::GetServerSettingsReads();
        Texts();
        Texts();
        return platform::GetServerSettingsReads() == before + 2;
    }));
}

TEST_F(ResolverConfigTest, AppendServerSettings_ChangedTwiceAtOnce_EachChangeSeen)
{
    for (int i = 10; i < 60; ++i) {
        const std::string server = "10.0.0." + std::to_string(i);
        Write("etc/resolv.conf", "nameserver " + server + "\n");
        EXPECT_THAT(Texts(), ElementsAre(server));
    }
}

// A question at a moment without descriptors once left the process without name servers until a file changed.
TEST_F(ResolverConfigTest, AppendServerSettings_NoDescriptorAtThatMoment_NotKept)
{
    if (!test::DescriptorShortage::IsPossibleWithVirtualCalls())
        GTEST_SKIP() << "the sanitizer itself wants descriptors here";
    Write("etc/resolv.conf", "nameserver 10.0.0.1\n");
    Write("var/lib/dhcp/dhclient.eth0.leases", "lease {\n  option domain-name-servers 10.0.0.2;\n}\n");
    ASSERT_TRUE(WaitUntilKept());
    platform::SetServerSettingsRoot(m_root.GetPath().c_str()); // forgets it
    std::vector<std::string> texts;
    {
        const test::DescriptorShortage shortage;
        ASSERT_TRUE(shortage.IsApplied());
        platform::AppendServerSettings(texts);
    }
    EXPECT_THAT(texts, IsEmpty());
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.1", "10.0.0.2"));
}

TEST_F(ResolverConfigTest, Discovery_FoldersInPlaceOfFiles_Nothing)
{
    fs::create_directories(m_root / "etc/resolv.conf");
    fs::create_directories(m_root / "var/lib/dhcp/folder");
    EXPECT_THAT(Discovered(), ElementsAre("none"));
}

} // namespace
