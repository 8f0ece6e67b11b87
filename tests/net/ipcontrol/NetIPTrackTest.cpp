#include "net/ipcontrol/NetIPTrack.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace kqlib;

TEST(NetIPTrack, AddTwiceRemoveThrice_NeverBelowNone)
{
    NetIPTrack track;
    const NetIP ip("10.0.0.1");
    EXPECT_EQ(track.GetCount(ip), 0U);
    track.Remove(ip);
    track.Add(ip);
    track.Add(ip);
    track.Remove(ip);
    EXPECT_EQ(track.GetCount(ip), 1U);
    track.Remove(ip);
    EXPECT_EQ(track.GetCount(ip), 0U);
    track.Remove(ip);
    EXPECT_EQ(track.GetCount(ip), 0U);
    track.Add(ip);
    EXPECT_EQ(track.GetCount(ip), 1U);
}

TEST(NetIPTrack, DescendingAddresses_CountsDoNotMix)
{
    NetIPTrack track;
    std::vector<NetIP> addresses;
    for (unsigned char i = 100; i > 0; --i) {
        const unsigned char bytes[] = {10, 0, 0, i};
        NetIP ip;
        ip.Set(NetIP::IP_4, bytes);
        addresses.push_back(ip);
        for (unsigned char times = 0; times < i; ++times)
            track.Add(ip);
    }
    for (const NetIP& ip : addresses)
        EXPECT_EQ(track.GetCount(ip), ip.GetBytes()[3]);
    EXPECT_EQ(track.GetCount(NetIP("10.0.0.101")), 0U);
    EXPECT_EQ(track.GetCount(NetIP("10.0.0.0")), 0U);
}

TEST(NetIPTrack, SameBytesOtherType_AnotherAddress)
{
    NetIPTrack track;
    track.Add(NetIP());
    EXPECT_EQ(track.GetCount(NetIP("::")), 0U);
    track.Add(NetIP("::"));
    track.Remove(NetIP());
    EXPECT_EQ(track.GetCount(NetIP("::")), 1U);
}

/// Whose lock a test can hold.
class LOCKEDTRACK : public NetIPTrack
{
public:
    using NetIPTrack::Guard;
};

TEST(NetIPTrack, Operations_WhileAnotherThreadHoldsTheLock_TakeNone_KeptOnPurpose)
{
    LOCKEDTRACK track;
    std::atomic<bool> isDone{false};
    std::thread thread;
    {
        const LOCKEDTRACK::Guard guard(track);
        thread = std::thread([&] {
            const NetIP ip("10.0.0.1");
            track.Add(ip);
            track.Add(ip);
            track.Remove(ip);
            EXPECT_EQ(track.GetCount(ip), 1U);
            isDone = true;
        });
        EXPECT_TRUE(WaitFor([&] { return isDone.load(); }));
    }
    thread.join();
}

/// The counts as a plain list, searched from its front.
class MODEL
{
public:
    void Add(const NetIP& ip)
    {
        const auto found = xFind(ip);
        if (found == m_entries.end())
            m_entries.emplace_back(ip, 1U);
        else
            ++found->second;
    }
    void Remove(const NetIP& ip)
    {
        const auto found = xFind(ip);
        if (found != m_entries.end() && --found->second == 0)
            m_entries.erase(found);
    }
    ULONG GetCount(const NetIP& ip)
    {
        const auto found = xFind(ip);
        return found == m_entries.end() ? 0 : found->second;
    }

private:
    std::vector<std::pair<NetIP, ULONG>>::iterator xFind(const NetIP& ip)
    {
        return std::find_if(m_entries.begin(), m_entries.end(), [&](const auto& entry) { return entry.first == ip; });
    }

    std::vector<std::pair<NetIP, ULONG>> m_entries;
};

TEST(NetIPTrack, RandomOperations_AsThePlainList)
{
    std::mt19937 random(20);
    std::vector<NetIP> pool;
    for (int i = 0; i < 60; ++i) {
        unsigned char bytes[16];
        std::generate(std::begin(bytes), std::end(bytes), [&] { return static_cast<unsigned char>(random() % 3); });
        NetIP ip;
        ip.Set(i % 3 == 0 ? NetIP::IP_6 : NetIP::IP_4, bytes);
        pool.push_back(ip);
    }
    NetIPTrack track;
    MODEL model;
    for (int i = 0; i < 1000000; ++i) {
        const NetIP& ip = pool[random() % pool.size()];
        if (random() % 2 == 0) {
            track.Add(ip);
            model.Add(ip);
        } else {
            track.Remove(ip);
            model.Remove(ip);
        }
        const NetIP& asked = pool[random() % pool.size()];
        ASSERT_EQ(track.GetCount(asked), model.GetCount(asked)) << i;
    }
}

} // namespace
