#include "platform/ResolverConfig.h"
#include "net/dns/NetDNS.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using testing::ElementsAre;
using testing::IsEmpty;

/// A registry key of its own below HKEY_CURRENT_USER that stands for the interfaces' key.
class ResolverConfigTest : public testing::Test
{
protected:
    ResolverConfigTest()
        : m_key("Software\\kq-resolver-" + std::to_string(std::random_device{}()))
    {
        platform::SetServerSettingsRoot(m_key.c_str());
    }
    ~ResolverConfigTest() override
    {
        platform::SetServerSettingsRoot(nullptr);
        Run("reg delete \"HKCU\\" + m_key + "\" /f");
    }

    static bool Run(const std::string& command) { return std::system((command + " >nul 2>&1").c_str()) == 0; }

    void Write(const std::string& interfaceName, const std::string& value, const std::string& text)
    {
        ASSERT_TRUE(Run("reg add \"HKCU\\" + m_key + "\\" + interfaceName + "\" /v " + value + " /t REG_SZ /d \"" +
                        text + "\" /f"));
    }

    const std::string m_key;
};

TEST_F(ResolverConfigTest, AppendServerSettings_KeyMissing_FalseAndNothing)
{
    std::vector<std::string> texts;
    EXPECT_FALSE(platform::AppendServerSettings(texts));
    EXPECT_THAT(texts, IsEmpty());
    NetDNS dns(NetIP::LOOKUP_ANY);
    EXPECT_FALSE(dns.GetDNSServers());
}

TEST_F(ResolverConfigTest, AppendServerSettings_TwoInterfaces_ConfiguredBeforeSuppliedOfEach)
{
    Write("a", "DhcpNameServer", "10.0.0.2");
    Write("a", "NameServer", "10.0.0.1");
    Write("b", "NameServer", "10.0.0.3,10.0.0.4");
    Write("b", "DhcpNameServer", "10.0.0.5 10.0.0.6");
    std::vector<std::string> texts;
    EXPECT_TRUE(platform::AppendServerSettings(texts));
    EXPECT_THAT(texts, ElementsAre("10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4", "10.0.0.5", "10.0.0.6"));
}

TEST_F(ResolverConfigTest, AppendServerSettings_EmptyValue_Ignored)
{
    Write("a", "NameServer", "");
    std::vector<std::string> texts;
    EXPECT_TRUE(platform::AppendServerSettings(texts));
    EXPECT_THAT(texts, IsEmpty());
}

TEST_F(ResolverConfigTest, Discovery_RepeatsAndSeparators_EachServerOnce)
{
    Write("a", "NameServer", "10.0.0.1,10.0.0.2 10.0.0.1");
    Write("b", "DhcpNameServer", "10.0.0.2;10.0.0.3");
    NetDNS dns(NetIP::LOOKUP_ANY);
    EXPECT_TRUE(dns.GetDNSServers());
    std::vector<std::string> servers;
    for (ULONG i = 0; i < dns.GetDNSServerCount(); ++i)
        servers.push_back(dns.GetDNSServer(i).str());
    EXPECT_THAT(servers, ElementsAre("10.0.0.1", "10.0.0.2", "10.0.0.3"));
}

} // namespace
