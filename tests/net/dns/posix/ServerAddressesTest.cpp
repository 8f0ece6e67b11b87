// A server given by a host name that has several addresses.
#include "net/dns/NetDNS.h"
#include "tests/net/dns/Lookups.h"
#include "tests/peers/Port53.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <dlfcn.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* SERVER_NAME = "name-server.test";

std::vector<std::string> g_addresses; ///< of SERVER_NAME, in the order of the system's answer

/// One entry of the system's answer, with what it points to.
struct ENTRY
{
    addrinfo info = {};
    sockaddr_in address = {};
};

} // namespace

/// Stands in front of the system's own look-up for the library, which finds it first: the name above is known here.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** result)
{
    if (name == nullptr || std::strcmp(name, SERVER_NAME) != 0) {
        using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
        return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"))(name, service, hints, result);
    }
    *result = nullptr;
    for (auto address = g_addresses.rbegin(); address != g_addresses.rend(); ++address) {
        auto* const entry = new ENTRY;
        entry->address.sin_family = AF_INET;
        inet_pton(AF_INET, address->c_str(), &entry->address.sin_addr);
        entry->info.ai_family = AF_INET;
        entry->info.ai_addr = reinterpret_cast<sockaddr*>(&entry->address);
        entry->info.ai_addrlen = sizeof(entry->address);
        entry->info.ai_flags = -1; // the mark of ours
        entry->info.ai_next = *result;
        *result = &entry->info;
    }
    return *result == nullptr ? EAI_NONAME : 0;
}

extern "C" __attribute__((visibility("default"))) void freeaddrinfo(addrinfo* list)
{
    if (list != nullptr && list->ai_flags != -1) {
        reinterpret_cast<void (*)(addrinfo*)>(dlsym(RTLD_NEXT, "freeaddrinfo"))(list);
        return;
    }
    while (list != nullptr) {
        addrinfo* const next = list->ai_next;
        delete reinterpret_cast<ENTRY*>(list); // its first member
        list = next;
    }
}

namespace {

class ServerAddressesTest : public testing::Test
{
protected:
    void SetUp() override { KQ_NEED_PORT_53(); }

    bool LookUp(const std::vector<std::string>& addresses)
    {
        g_addresses = addresses;
        return m_dns.DoALookup("n", SERVER_NAME, m_msgs);
    }

    NetDNS m_dns{NetIP::LOOKUP_ANY};
    Messages m_msgs;
};

TEST_F(ServerAddressesTest, Lookup_FirstAddressDead_NextOneAskedAtOnce)
{
    FakeDNSServer alive(AnswerA);
    EXPECT_TRUE(LookUp({FakeDNSServer::sGetDeadAddress(), alive.GetAddress()}));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53));
    EXPECT_EQ(alive.GetQueryCount(), 1U);
}

TEST_F(ServerAddressesTest, Lookup_FirstAddressAnswersWithACode_NextOneAskedWithAttemptsOfItsOwn)
{
    FakeDNSServer unwilling(
        [](const DNSQuery& query, std::size_t) -> Replies { return {{DNSMessage(query).Code(5).Build()}}; });
    FakeDNSServer alive(AnswerA);
    EXPECT_TRUE(LookUp({unwilling.GetAddress(), alive.GetAddress()}));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(56));
    EXPECT_EQ(unwilling.GetQueryCount(), 1U);
    EXPECT_EQ(alive.GetQueryCount(), 1U);
}

TEST_F(ServerAddressesTest, Lookup_FirstAddressAnswers_OthersNotAsked)
{
    FakeDNSServer first(AnswerA);
    FakeDNSServer second(AnswerA);
    EXPECT_TRUE(LookUp({first.GetAddress(), second.GetAddress()}));
    EXPECT_THAT(Codes(m_msgs), IsEmpty());
    EXPECT_EQ(first.GetQueryCount(), 1U);
    EXPECT_EQ(second.GetQueryCount(), 0U);
}

TEST_F(ServerAddressesTest, Lookup_AddressThatCannotBeOpened_LaterOnesNotTried_KeptOnPurpose)
{
    FakeDNSServer alive(AnswerA);
    EXPECT_FALSE(LookUp({"255.255.255.255", alive.GetAddress()}));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53));
    EXPECT_EQ(alive.GetQueryCount(), 0U);
}

TEST_F(ServerAddressesTest, Lookup_AllAddressesUnwilling_EachAskedInOrderAndOneCodeFromEach)
{
    FakeDNSServer first(AnswerCode(3));
    FakeDNSServer second(AnswerCode(0));
    EXPECT_FALSE(LookUp({first.GetAddress(), second.GetAddress(), FakeDNSServer::sGetDeadAddress()}));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(54, 51, 53));
}

TEST_F(ServerAddressesTest, Lookup_50thAddressAlive_AskedAndThe51stNever)
{
    FakeDNSServer alive(AnswerA);
    std::vector<std::string> addresses(49, FakeDNSServer::sGetDeadAddress());
    addresses.push_back(alive.GetAddress());
    EXPECT_TRUE(LookUp(addresses));
    EXPECT_THAT(Codes(m_msgs), testing::SizeIs(49));
    addresses.insert(addresses.begin(), addresses.front());
    EXPECT_FALSE(LookUp(addresses));
    EXPECT_EQ(alive.GetQueryCount(), 1U);
}

TEST_F(ServerAddressesTest, Lookup_NameWithoutAddresses_53)
{
    EXPECT_FALSE(LookUp({}));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53));
}

} // namespace
