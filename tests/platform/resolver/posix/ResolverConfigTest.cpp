#include "platform/ResolverConfig.h"
#include "net/dns/NetDNS.h"
#include "tests/peers/TempFolder.h"

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
    EXPECT_THAT(Texts(), ElementsAre("10.0.0.2", "10.1.0.1 10.1.0.2"));
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

TEST_F(ResolverConfigTest, Discovery_FoldersInPlaceOfFiles_Nothing)
{
    fs::create_directories(m_root / "etc/resolv.conf");
    fs::create_directories(m_root / "var/lib/dhcp/folder");
    EXPECT_THAT(Discovered(), ElementsAre("none"));
}

} // namespace
