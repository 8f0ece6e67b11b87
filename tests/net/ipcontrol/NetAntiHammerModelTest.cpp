// The anti-hammer against two plain lists that are walked whole on every call.
#include "net/dns/NetDNSCache.h"
#include "net/ipcontrol/NetAntiHammer.h"
#include "tests/net/ipcontrol/MovableClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;

struct ENTRY
{
    NetIP ip;
    std::uint32_t time;
    std::uint32_t count;

    friend bool operator==(const ENTRY&, const ENTRY&) = default;
};
using ENTRIES = std::vector<ENTRY>;

struct NUMBERS
{
    std::uint32_t maxAttempts = 5;
    std::uint32_t windowSecs = 300;
    std::uint32_t blockSecs = 1800;
    bool useExemptions = false;
    std::vector<NetIP> exempt; ///< empty: everybody
};

/// The two lists, as plain as they can be.
class MODEL
{
public:
    explicit MODEL(std::size_t cap)
        : m_cap(cap)
    {
    }

    void SetData(const NUMBERS& numbers) { m_numbers = numbers; }
    bool AddFailedAttempt(const NetIP& peer, std::uint32_t now)
    {
        xRemoveExpired(now);
        if (xFind(m_blocked, peer) != m_blocked.end())
            return true;
        const auto known = xFind(m_failed, peer);
        if (known != m_failed.end()) {
            const std::uint32_t failures = known->count + 1;
            if (failures < m_numbers.maxAttempts) {
                known->count = failures;
                known->time = now;
                return false;
            }
            m_failed.erase(known);
            m_blocked.push_back({peer, now, 0});
            return true;
        }
        if (m_failed.size() + m_blocked.size() >= m_cap)
            return false;
        if (m_numbers.maxAttempts == 1) {
            m_blocked.push_back({peer, now, 0});
            return true;
        }
        m_failed.push_back({peer, now, 1});
        return false;
    }
    bool IsBlocked(const NetIP& peer, std::uint32_t now)
    {
        xRemoveExpired(now);
        const auto held = xFind(m_blocked, peer);
        if (held == m_blocked.end())
            return false;
        const std::vector<NetIP>& exempt = m_numbers.exempt;
        if (!m_numbers.useExemptions ||
            (!exempt.empty() && std::find(exempt.begin(), exempt.end(), peer) == exempt.end()))
            return true;
        m_blocked.erase(held);
        return false;
    }
    void ResetIPs()
    {
        m_failed.clear();
        m_blocked.clear();
    }
    const ENTRIES& GetFailed() const { return m_failed; }
    const ENTRIES& GetBlocked() const { return m_blocked; }

private:
    static ENTRIES::iterator xFind(ENTRIES& list, const NetIP& ip)
    {
        return std::find_if(list.begin(), list.end(), [&](const ENTRY& entry) { return entry.ip == ip; });
    }
    static void xRemoveOlder(ENTRIES& list, std::uint32_t now, std::uint64_t lifeMs)
    {
        std::erase_if(list, [&](const ENTRY& entry) { return std::uint32_t(now - entry.time) > lifeMs; });
    }
    void xRemoveExpired(std::uint32_t now)
    {
        xRemoveOlder(m_failed, now, std::uint64_t{m_numbers.windowSecs} * 1000);
        xRemoveOlder(m_blocked, now, std::uint64_t{m_numbers.blockSecs} * 1000);
    }

    std::size_t m_cap;
    NUMBERS m_numbers;
    ENTRIES m_failed;
    ENTRIES m_blocked;
};

/// An anti-hammer with a cap that a test can reach with few addresses.
class SMALLHAMMER : public NetAntiHammer
{
public:
    SMALLHAMMER(NetDNSCache& cache, ULONG cap)
        : NetAntiHammer(cache, cap)
    {
    }
};

ENTRIES Sorted(ENTRIES entries)
{
    std::sort(entries.begin(), entries.end(), [](const ENTRY& left, const ENTRY& right) {
        return std::tie(left.ip, left.time) < std::tie(right.ip, right.time);
    });
    return entries;
}

ENTRIES Sorted(const Vector<NetAntiHammer::ENTRY>& entries)
{
    ENTRIES copies;
    for (const NetAntiHammer::ENTRY& entry : entries)
        copies.push_back({entry.ip, static_cast<std::uint32_t>(entry.time), static_cast<std::uint32_t>(entry.count)});
    return Sorted(copies);
}

/// Both sides, driven by one stream of chance.
class RUN
{
public:
    RUN(unsigned seed, unsigned addresses, ULONG cap)
        : m_random(seed)
        , m_clock(static_cast<std::uint32_t>(m_random()))
        , m_hammer(m_cache, cap)
        , m_model(cap)
    {
        for (unsigned i = 0; i < addresses; ++i)
            m_pool.push_back(xRandomAddress());
    }

    /// False when an answer or what is held differs; the difference has been reported.
    bool Step()
    {
        xMoveClock();
        const NetIP& peer = m_pool[xBelow(m_pool.size())];
        switch (xBelow(2000)) {
        case 0:
            m_hammer.ResetIPs();
            m_model.ResetIPs();
            return xCompareLists();
        case 1:
        case 2:
        case 3:
        case 4:
            xSetData();
            return true;
        default:
            break;
        }
        const bool isCheck = xBelow(3) == 0;
        const bool answer = isCheck ? m_hammer.IsBlocked(peer, NetIP()) : m_hammer.AddFailedAttempt(peer, NetIP());
        const bool expected =
            isCheck ? m_model.IsBlocked(peer, m_clock.Get()) : m_model.AddFailedAttempt(peer, m_clock.Get());
        EXPECT_EQ(answer, expected) << (isCheck ? "IsBlocked" : "AddFailedAttempt");
        return answer == expected && (xBelow(20) != 0 || xCompareLists());
    }

private:
    std::size_t xBelow(std::size_t bound) { return m_random() % bound; }

    NetIP xRandomAddress()
    {
        unsigned char bytes[16];
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(xBelow(256));
        NetIP ip;
        ip.Set(xBelow(4) == 0 ? NetIP::IP_6 : NetIP::IP_4, bytes);
        return ip;
    }

    /// Mostly hardly at all; now and then past a window, a block, many days, or nearly a whole turn of the tick.
    void xMoveClock()
    {
        const std::size_t chance = xBelow(1000);
        if (chance < 500)
            m_clock.AdvanceMs(xBelow(50));
        else if (chance < 700)
            m_clock.AdvanceMs(xBelow(20000));
        else if (chance < 710)
            m_clock.AdvanceMs(1000 * (m_numbers.windowSecs + 0ULL) + xBelow(3) - 1);
        else if (chance < 720)
            m_clock.AdvanceMs(1000 * (m_numbers.blockSecs + 0ULL) + xBelow(3) - 1);
        else if (chance < 722)
            m_clock.AdvanceMs(m_random());
        else if (chance < 723)
            m_clock.AdvanceMs(0xFFFFFFFFU - xBelow(100000));
    }

    void xSetData()
    {
        constexpr std::uint32_t ATTEMPTS[] = {0, 1, 2, 3, 5, 5, 5, 40, 0xFFFFFFFFU};
        constexpr std::uint32_t SECS[] = {0, 1, 5, 60, 300, 300, 1800, 100000, 4294967, 4294968, 0xFFFFFFFFU};
        m_numbers.maxAttempts = ATTEMPTS[xBelow(std::size(ATTEMPTS))];
        m_numbers.windowSecs = SECS[xBelow(std::size(SECS))];
        m_numbers.blockSecs = SECS[xBelow(std::size(SECS))];
        m_numbers.useExemptions = xBelow(3) == 0;
        m_numbers.exempt.clear();
        NetIPControl rules;
        for (std::size_t i = xBelow(4); i > 0; --i) {
            NetIPControlEntry rule;
            rule.SetIP(m_pool[xBelow(m_pool.size())]);
            m_numbers.exempt.push_back(rule.GetIP());
            rules.Add(rule);
        }
        NetIPControlEntry denyAll;
        denyAll.SetDenyAll();
        if (rules.GetCount() > 0)
            rules.Add(denyAll);
        m_model.SetData(m_numbers);
        m_hammer.SetData(m_numbers.maxAttempts, m_numbers.windowSecs, m_numbers.blockSecs, m_numbers.useExemptions,
                         rules);
    }

    bool xCompareLists()
    {
        Vector<NetAntiHammer::ENTRY> failed;
        Vector<NetAntiHammer::ENTRY> blocked;
        m_hammer.GetEntries(failed, blocked);
        const bool same =
            Sorted(failed) == Sorted(m_model.GetFailed()) && Sorted(blocked) == Sorted(m_model.GetBlocked());
        EXPECT_TRUE(same) << "failed " << failed.GetCount() << " and " << m_model.GetFailed().size() << ", blocked "
                          << blocked.GetCount() << " and " << m_model.GetBlocked().size();
        return same;
    }

    std::mt19937 m_random;
    MovableClock m_clock;
    NetDNSCache m_cache;
    SMALLHAMMER m_hammer;
    MODEL m_model;
    NUMBERS m_numbers;
    std::vector<NetIP> m_pool;
};

struct SCENARIO
{
    unsigned addresses;
    unsigned cap;
    unsigned steps;
};

class NetAntiHammerModel : public testing::TestWithParam<SCENARIO>
{
};

TEST_P(NetAntiHammerModel, RandomOperations_AnswersOfThePlainLists)
{
    const SCENARIO& scenario = GetParam();
    constexpr unsigned RUNS = 10;
    for (unsigned seed = 0; seed < RUNS; ++seed) {
        RUN run(seed, scenario.addresses, scenario.cap);
        for (unsigned step = 0; step < scenario.steps / RUNS; ++step)
            ASSERT_TRUE(run.Step()) << "seed " << seed << ", step " << step;
    }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, NetAntiHammerModel,
                         testing::Values(SCENARIO{4, 1000, 1000000}, SCENARIO{20, 10, 1000000},
                                         SCENARIO{60, 50, 600000}, SCENARIO{400, 300, 300000},
                                         SCENARIO{3000, 2500, 40000}));

} // namespace
