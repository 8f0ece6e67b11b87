#include "net/dns/NetDNSCache.h"
#include "common/TimedEvent.h"
#include "tests/peers/WaitFor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kqlib;
using testing::ElementsAre;
using testing::IsEmpty;

std::atomic<std::uint32_t> g_tick{0};

constexpr std::uint32_t DAY_MS = 86400000;

VectorPtr<String> Texts(const std::vector<std::string>& texts)
{
    VectorPtr<String> list;
    for (const std::string& text : texts)
        list.Give(new String(text));
    return list;
}

std::vector<std::string> Plain(const VectorPtr<String>& list)
{
    std::vector<std::string> texts;
    for (ULONG i = 0; i < list.GetCount(); ++i)
        texts.push_back(list.Get(i).str());
    return texts;
}

/// Runs on a clock that only the test moves.
class NetDNSCacheTest : public testing::Test
{
protected:
    NetDNSCacheTest()
    {
        g_tick = 1000000;
        TimedEvent::sSetSource([] { return g_tick.load(); });
    }
    ~NetDNSCacheTest() override { TimedEvent::sSetSource(nullptr); }

    void CacheA(const std::string& name, std::uint32_t expiry, const std::vector<std::string>& records = {"1.2.3.4"})
    {
        m_cache.CacheALookup(name, expiry, Texts(records));
    }
    bool HasA(const std::string& name)
    {
        VectorPtr<String> records;
        return m_cache.IsALookupCached(name, records);
    }
    std::vector<std::string> GetA(const std::string& name)
    {
        VectorPtr<String> records;
        m_cache.IsALookupCached(name, records);
        return Plain(records);
    }

    NetDNSCache m_cache;
};

TEST_F(NetDNSCacheTest, Read_EmptyCache_NoHitAndListUntouched)
{
    VectorPtr<String> records = Texts({"before"});
    EXPECT_FALSE(m_cache.IsALookupCached("a", records));
    EXPECT_FALSE(m_cache.IsPtrLookupCached("a", records));
    EXPECT_FALSE(m_cache.IsTxtLookupCached("a", records));
    EXPECT_FALSE(m_cache.IsSpfLookupCached("a", records));
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    EXPECT_FALSE(m_cache.IsMxLookupCached("a", exchangers));
    EXPECT_THAT(Plain(records), ElementsAre("before"));
}

TEST_F(NetDNSCacheTest, Read_Hit_AppendsCopiesInOrder)
{
    CacheA("host.example", g_tick + 60000, {"10.0.0.2", "10.0.0.1"});
    VectorPtr<String> records = Texts({"before"});
    EXPECT_TRUE(m_cache.IsALookupCached("host.example", records));
    EXPECT_THAT(Plain(records), ElementsAre("before", "10.0.0.2", "10.0.0.1"));
    records.Get(1) = String("changed");
    EXPECT_THAT(GetA("host.example"), ElementsAre("10.0.0.2", "10.0.0.1"));
}

TEST_F(NetDNSCacheTest, Read_OtherCase_Hit)
{
    CacheA("Mail.Example", g_tick + 60000);
    EXPECT_TRUE(HasA("mail.example"));
    EXPECT_TRUE(HasA("MAIL.EXAMPLE"));
    EXPECT_FALSE(HasA("mail.example."));
    EXPECT_FALSE(HasA("mail.exampl"));
}

TEST_F(NetDNSCacheTest, Read_NamesThatDifferInOtherThanLetters_NoHit)
{
    CacheA("a@b", g_tick + 60000);
    EXPECT_FALSE(HasA("a`b")); // 0x40 and 0x60 differ like the cases of a letter do
    CacheA("\xC4", g_tick + 60000);
    EXPECT_FALSE(HasA("\xE4"));
    EXPECT_TRUE(HasA("\xC4"));
    CacheA(std::string("x\0y", 3), g_tick + 60000);
    EXPECT_FALSE(HasA(std::string("x\0z", 3)));
}

TEST_F(NetDNSCacheTest, Read_NamesWithTheSameHash_EachFindsItsOwn)
{
    // Pairs whose 32-bit FNV-1a values are equal.
    const std::vector<std::vector<std::string>> pairs = {
        {"costarring", "liquid"}, {"declinate", "macallums"}, {"altarage", "zinke"}};
    HasA("n");
    for (const auto& pair : pairs) {
        CacheA(pair[0], g_tick + 100, {"first"});
        EXPECT_FALSE(HasA(pair[1]));
        CacheA(pair[1], g_tick + 900000, {"second"});
        EXPECT_THAT(GetA(pair[0]), ElementsAre("first"));
        EXPECT_THAT(GetA(pair[1]), ElementsAre("second"));
    }
    g_tick += 30001;
    for (const auto& pair : pairs) {
        EXPECT_FALSE(HasA(pair[0]));
        EXPECT_THAT(GetA(pair[1]), ElementsAre("second"));
    }
}

TEST_F(NetDNSCacheTest, Read_EntryWithoutRecords_Hit_KeptOnPurpose)
{
    CacheA("empty", g_tick + 60000, {});
    EXPECT_TRUE(HasA("empty"));
    EXPECT_THAT(GetA("empty"), IsEmpty());
}

TEST_F(NetDNSCacheTest, Cache_OneNameInEveryType_TypesAreApart)
{
    const std::uint32_t expiry = g_tick + 60000;
    m_cache.CachePtrLookup("n", expiry, Texts({"ptr"}));
    m_cache.CacheTxtLookup("n", expiry, Texts({"txt"}));
    m_cache.CacheSpfLookup("n", expiry, Texts({"spf"}));
    EXPECT_FALSE(HasA("n"));
    VectorPtr<NetDNS::MX_RECORD> given;
    given.Give(new NetDNS::MX_RECORD{20, "second"});
    given.Give(new NetDNS::MX_RECORD{10, "first"});
    m_cache.CacheMxLookup("n", expiry, given);
    CacheA("n", expiry, {"a"});

    VectorPtr<String> records;
    EXPECT_TRUE(m_cache.IsALookupCached("n", records) && m_cache.IsPtrLookupCached("n", records) &&
                m_cache.IsTxtLookupCached("n", records) && m_cache.IsSpfLookupCached("n", records));
    EXPECT_THAT(Plain(records), ElementsAre("a", "ptr", "txt", "spf"));
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    ASSERT_TRUE(m_cache.IsMxLookupCached("N", exchangers));
    ASSERT_EQ(exchangers.GetCount(), 2U);
    EXPECT_EQ(exchangers.Get(0).priority, 20U);
    EXPECT_EQ(exchangers.Get(0).name, "second");
    EXPECT_EQ(exchangers.Get(1).name, "first");
}

TEST_F(NetDNSCacheTest, Cache_NameTwice_FirstAnswerStaysUntilPurged_KeptOnPurpose)
{
    CacheA("n", g_tick + 10000, {"first"});
    CacheA("N", g_tick + 900000, {"second"});
    EXPECT_THAT(GetA("n"), ElementsAre("first"));
    g_tick += 31000; // past the expiry, and a purge is due
    CacheA("n", g_tick + 900000, {"third"});
    EXPECT_THAT(GetA("n"), ElementsAre("third"));
}

TEST_F(NetDNSCacheTest, Read_ExpiredWithin30SecondsOfThePurge_StillAHit_KeptOnPurpose)
{
    EXPECT_FALSE(HasA("n")); // purges: the next one is due in 30 s
    CacheA("n", g_tick + 10);
    g_tick += 30000;
    EXPECT_TRUE(HasA("n"));
    g_tick += 1;
    EXPECT_FALSE(HasA("n"));
}

TEST_F(NetDNSCacheTest, Purge_ExpiryAtNow_Removed)
{
    HasA("n");
    const std::uint32_t expiry = g_tick + 30001;
    CacheA("at", expiry);
    CacheA("after", expiry + 1);
    g_tick = expiry;
    EXPECT_FALSE(HasA("at"));
    EXPECT_TRUE(HasA("after"));
}

TEST_F(NetDNSCacheTest, Purge_FromTheMiddle_OthersStayFound)
{
    HasA("n");
    for (int i = 0; i < 100; ++i)
        CacheA("name" + std::to_string(i), g_tick + (i % 3 == 0 ? 100U : 900000U), {std::to_string(i)});
    g_tick += 30001;
    for (int i = 0; i < 100; ++i) {
        if (i % 3 == 0) {
            EXPECT_FALSE(HasA("name" + std::to_string(i)));
        } else {
            EXPECT_THAT(GetA("NAME" + std::to_string(i)), ElementsAre(std::to_string(i)));
        }
    }
}

TEST_F(NetDNSCacheTest, Purge_OfOneType_PutsOffTheOthers_KeptOnPurpose)
{
    HasA("n");
    CacheA("n", g_tick + 100);
    m_cache.CacheTxtLookup("n", g_tick + 100, Texts({"t"}));
    g_tick += 30001;
    EXPECT_FALSE(HasA("n")); // purges the A list alone
    VectorPtr<String> records;
    EXPECT_TRUE(m_cache.IsTxtLookupCached("n", records));
    g_tick += 30000;
    EXPECT_TRUE(m_cache.IsTxtLookupCached("n", records));
    g_tick += 1;
    EXPECT_FALSE(m_cache.IsTxtLookupCached("n", records));
}

TEST_F(NetDNSCacheTest, Purge_FirstSearchAfterLongUptime_PurgesAtOnce)
{
    g_tick = 30000;
    CacheA("n", 30000); // stored before any purge: 30000 is not later than 0 + 30000
    g_tick = 30001;
    EXPECT_FALSE(HasA("n"));
}

TEST_F(NetDNSCacheTest, Cache_Expiry48HoursAhead_Lives24Hours)
{
    const std::uint32_t start = g_tick;
    CacheA("n", start + 2 * DAY_MS);
    g_tick = start + DAY_MS - 1;
    EXPECT_TRUE(HasA("n"));
    g_tick = start + DAY_MS - 1 + 30001;
    EXPECT_FALSE(HasA("n"));
}

TEST_F(NetDNSCacheTest, Cache_ExpiryInThePast_Lives24Hours_KeptOnPurpose)
{
    const std::uint32_t start = g_tick;
    CacheA("past", start - 1);
    CacheA("now", start);
    g_tick = start + 30001;
    EXPECT_TRUE(HasA("past"));
    EXPECT_FALSE(HasA("now"));
    g_tick = start + DAY_MS;
    EXPECT_FALSE(HasA("past"));
}

TEST_F(NetDNSCacheTest, Cache_ExpiryWiderThan32Bits_LowBitsCount)
{
    const std::uint32_t start = g_tick;
    const unsigned long long wide = (1ULL << 32) + start + 40000;
    m_cache.CacheALookup("n", static_cast<ULONG>(wide), Texts({"r"}));
    g_tick = start + 39999;
    EXPECT_TRUE(HasA("n"));
    g_tick = start + 39999 + 30001;
    EXPECT_FALSE(HasA("n"));
}

TEST_F(NetDNSCacheTest, Cache_NearTheEndOfTheTick_LatestExpiryWrapsAndEntryIsGoneAtTheNextPurge_KeptOnPurpose)
{
    // now + 24 h wraps to a small number, so that every expiry is "later" and becomes that number: expired at once.
    g_tick = 0xFFFFFFFFU - 50000;
    EXPECT_FALSE(HasA("n"));
    CacheA("n", g_tick + 40000);
    EXPECT_TRUE(HasA("n"));
    g_tick += 30001;
    EXPECT_FALSE(HasA("n"));
}

TEST_F(NetDNSCacheTest, Purge_AfterTheTickWrapped_WaitsUntilTheTickIsPastTheOldPurge_KeptOnPurpose)
{
    g_tick = 0xFFFFFFFFU - 40000;
    EXPECT_FALSE(HasA("n")); // a purge at a tick whose sum with 30 s does not wrap
    g_tick = 5;              // wrapped: plain numbers say that no purge is due
    CacheA("n", 100);
    g_tick = 1000000000;
    EXPECT_TRUE(HasA("n"));
    g_tick = 0xFFFFFFFFU - 40000 + 30001; // only now is it due again
    EXPECT_FALSE(HasA("n"));
}

TEST_F(NetDNSCacheTest, Purge_Within30SecondsOfTheWrap_PurgesAtEverySearch_KeptOnPurpose)
{
    g_tick = 0xFFFFFFFFU - 20000;
    EXPECT_FALSE(HasA("n")); // purge time + 30 s wraps to 9999: every later tick is past that
    m_cache.CacheTxtLookup("t", g_tick + 1, Texts({"t"}));
    VectorPtr<String> records;
    EXPECT_FALSE(m_cache.IsTxtLookupCached("t", records)); // stored with a wrapped expiry, purged at once
}

TEST_F(NetDNSCacheTest, Cache_10000Entries_FurtherOnesDropped)
{
    for (int i = 0; i < 2000; ++i) {
        const std::string name = "name" + std::to_string(i);
        const std::uint32_t expiry = g_tick + DAY_MS;
        CacheA(name, expiry);
        m_cache.CachePtrLookup(name, expiry, Texts({"p"}));
        m_cache.CacheTxtLookup(name, expiry, Texts({"t"}));
        m_cache.CacheSpfLookup(name, expiry, Texts({"s"}));
        if (i == 1999) {
            CacheA("the 10000th", expiry);
            CacheA("the 10001st", expiry);
        }
        m_cache.CacheMxLookup(name, expiry, VectorPtr<NetDNS::MX_RECORD>());
    }
    EXPECT_TRUE(HasA("the 10000th"));
    EXPECT_FALSE(HasA("the 10001st"));
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    EXPECT_TRUE(m_cache.IsMxLookupCached("name1998", exchangers));
    EXPECT_FALSE(m_cache.IsMxLookupCached("name1999", exchangers));
    EXPECT_TRUE(HasA("name0"));
}

TEST_F(NetDNSCacheTest, Cache_FullThenPurged_HasRoomAgain)
{
    HasA("n");
    for (int i = 0; i < 10001; ++i)
        CacheA("name" + std::to_string(i), g_tick + 100);
    EXPECT_TRUE(HasA("name9999"));
    EXPECT_FALSE(HasA("name10000"));
    g_tick += 30001;
    CacheA("new", g_tick + 60000);
    EXPECT_TRUE(HasA("new"));
    EXPECT_FALSE(HasA("name9999"));
}

/// A text of so many bytes, under a name of its own.
void CacheLongText(NetDNSCache& cache, int number, std::size_t size)
{
    cache.CacheTxtLookup("text" + std::to_string(number), g_tick + 60000, Texts({std::string(size, 't')}));
}

bool HasText(NetDNSCache& cache, int number)
{
    VectorPtr<String> records;
    return cache.IsTxtLookupCached("text" + std::to_string(number), records);
}

TEST_F(NetDNSCacheTest, Cache_MoreThan64MiB_FurtherOnesDroppedInEveryType)
{
    HasA("n");
    constexpr std::size_t MIB = 1024 * 1024;
    for (int i = 0; i < 63; ++i)
        CacheLongText(m_cache, i, MIB);
    EXPECT_TRUE(HasText(m_cache, 62));
    CacheLongText(m_cache, 63, MIB); // the 64th: what surrounds the texts is counted too
    EXPECT_FALSE(HasText(m_cache, 63));
    CacheLongText(m_cache, 64, MIB / 2);
    EXPECT_TRUE(HasText(m_cache, 64));
    CacheA("a", g_tick + 60000, {std::string(MIB / 2, 'a')});
    EXPECT_FALSE(HasA("a"));
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    exchangers.Give(new NetDNS::MX_RECORD{1, String(MIB / 2, 'm')});
    m_cache.CacheMxLookup("m", g_tick + 60000, exchangers);
    EXPECT_FALSE(m_cache.IsMxLookupCached("m", exchangers));
    CacheA("small", g_tick + 60000);
    EXPECT_TRUE(HasA("small"));
}

TEST_F(NetDNSCacheTest, Cache_64MiBThenPurged_HasRoomAgain)
{
    HasA("n");
    constexpr std::size_t MIB = 1024 * 1024;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 64; ++i)
            CacheLongText(m_cache, i, MIB);
        EXPECT_TRUE(HasText(m_cache, 62));
        EXPECT_FALSE(HasText(m_cache, 63));
        g_tick += 60001; // expired, and a purge is due
    }
}

TEST_F(NetDNSCacheTest, Cache_10000AnswersOfAWholeDatagramEach_AllKept)
{
    // What honest servers fill a cache with at most: four exchangers or texts of 250 bytes in each answer.
    const std::string text(250, 't');
    for (int i = 0; i < 10000; ++i)
        m_cache.CacheTxtLookup("text" + std::to_string(i), g_tick + 60000, Texts({text, text, text, text}));
    for (const int number : {0, 5000, 9999})
        EXPECT_TRUE(HasText(m_cache, number));
}

/// The cache as plain lists that are walked from the front: what the real one must answer like.
class LINEARCACHE
{
public:
    void Store(std::size_t type, const std::string& name, std::uint32_t expiry, int record)
    {
        if (xFind(type, name))
            return;
        std::size_t total = 0;
        for (const auto& list : m_lists)
            total += list.size();
        if (total >= 10000) {
            m_wasFull = true;
            return;
        }
        const std::uint32_t now = g_tick;
        const std::uint32_t latest = now + DAY_MS;
        m_lists[type].push_back({name, expiry > latest || expiry < now ? latest : expiry, record});
    }

    std::optional<int> Read(std::size_t type, const std::string& name)
    {
        const ENTRY* entry = xFind(type, name);
        return entry ? std::optional<int>(entry->record) : std::nullopt;
    }

    /// Whether an answer was ever dropped because the cache was full.
    bool WasFull() const { return m_wasFull; }

private:
    struct ENTRY
    {
        std::string name;
        std::uint32_t expiry;
        int record;
    };

    static bool xSame(const std::string& left, const std::string& right)
    {
        // The names begin with a number: most differ there already.
        if (left.size() != right.size() || left[0] != right[0] || left[1] != right[1])
            return false;
        return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) {
            return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
        });
    }

    const ENTRY* xFind(std::size_t type, const std::string& name)
    {
        const std::uint32_t now = g_tick;
        const std::uint32_t due = m_lastPurge + 30000U;
        if (now > due) {
            m_lastPurge = now;
            std::erase_if(m_lists[type], [now](const ENTRY& entry) { return now >= entry.expiry; });
        }
        for (const ENTRY& entry : m_lists[type]) {
            if (xSame(entry.name, name))
                return &entry;
        }
        return nullptr;
    }

    std::vector<ENTRY> m_lists[5];
    std::uint32_t m_lastPurge = 0;
    bool m_wasFull = false;
};

void StoreReal(NetDNSCache& cache, std::size_t type, const std::string& name, std::uint32_t expiry, int record)
{
    const String text = String::sToString(record);
    if (type == 2) {
        VectorPtr<NetDNS::MX_RECORD> records;
        records.Give(new NetDNS::MX_RECORD{1, text});
        cache.CacheMxLookup(name, expiry, records);
        return;
    }
    void (NetDNSCache::*const store[])(const String&, ULONG, const VectorPtr<String>&) = {
        &NetDNSCache::CacheALookup, &NetDNSCache::CachePtrLookup, nullptr, &NetDNSCache::CacheTxtLookup,
        &NetDNSCache::CacheSpfLookup};
    VectorPtr<String> records;
    records.Give(new String(text));
    const auto storeOne = store[type];
    (cache.*storeOne)(name, expiry, records);
}

std::optional<int> ReadReal(NetDNSCache& cache, std::size_t type, const std::string& name)
{
    if (type == 2) {
        VectorPtr<NetDNS::MX_RECORD> records;
        if (!cache.IsMxLookupCached(name, records))
            return std::nullopt;
        return std::stoi(records.Get(0).name.str());
    }
    bool (NetDNSCache::*const read[])(const String&, VectorPtr<String>&) = {
        &NetDNSCache::IsALookupCached, &NetDNSCache::IsPtrLookupCached, nullptr, &NetDNSCache::IsTxtLookupCached,
        &NetDNSCache::IsSpfLookupCached};
    const auto readOne = read[type];
    VectorPtr<String> records;
    if (!(cache.*readOne)(name, records))
        return std::nullopt;
    return std::stoi(records.Get(0).str());
}

/// Random operations of both caches over `names` different names, answers compared one by one. step: how far the clock
/// moves at most between two operations. True when the caches were full at some time.
bool CompareWithLinear(unsigned seed, int operations, int names, std::uint32_t start, std::uint32_t step)
{
    std::mt19937 random(seed);
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    NetDNSCache real;
    LINEARCACHE linear;
    g_tick = start;
    for (int i = 0; i < operations; ++i) {
        g_tick += below(4) == 0 ? below(step) : 0;
        const std::size_t type = below(5);
        std::string name = std::to_string(below(static_cast<std::uint32_t>(names))) + ".Host.Example";
        if (below(2) == 0)
            std::transform(name.begin(), name.end(), name.begin(),
                           [](char c) { return static_cast<char>(std::toupper(c)); });
        if (below(3) == 0) {
            const std::uint32_t expiry = g_tick + below(5) * 20000 + below(10) * (DAY_MS / 4) - below(1000);
            StoreReal(real, type, name, expiry, i);
            linear.Store(type, name, expiry, i);
        } else {
            const std::optional<int> answer = ReadReal(real, type, name);
            EXPECT_EQ(answer, linear.Read(type, name)) << "operation " << i << " seed " << seed;
            if (testing::Test::HasFailure())
                break;
        }
    }
    return linear.WasFull();
}

TEST_F(NetDNSCacheTest, RandomOperations_FewNames_AnswersLikeALinearSearch)
{
    for (unsigned seed = 1; seed <= 4; ++seed)
        CompareWithLinear(seed, 300000, 20, 100000, 2000);
}

TEST_F(NetDNSCacheTest, RandomOperations_ClockRunsThroughTheWrap_AnswersLikeALinearSearch)
{
    for (unsigned seed = 10; seed <= 13; ++seed)
        CompareWithLinear(seed, 150000, 30, 0xFFFFFFFFU - 40000000U * (seed - 9), 3000);
    // The whole range of the tick several times over.
    for (unsigned seed = 20; seed <= 23; ++seed)
        CompareWithLinear(seed, 150000, 30, 0, 400000);
}

TEST_F(NetDNSCacheTest, RandomOperations_ManyNamesUpToTheLimit_AnswersLikeALinearSearch)
{
    EXPECT_TRUE(CompareWithLinear(30, 80000, 20000, 100000, 20));
}

/// A cache whose lock a test can hold.
class LOCKABLE_CACHE : public NetDNSCache
{
public:
    void Lock() { xLock(); }
    void Unlock() { xUnlock(); }
};

TEST(NetDNSCacheThreads, EachOperation_LockHeldByAnother_WaitsForIt)
{
    using Operation = void (*)(NetDNSCache&);
    const Operation operations[] = {
        [](NetDNSCache& cache) { cache.CacheALookup("n", 0, Texts({})); },
        [](NetDNSCache& cache) { cache.CachePtrLookup("n", 0, Texts({})); },
        [](NetDNSCache& cache) { cache.CacheMxLookup("n", 0, {}); },
        [](NetDNSCache& cache) { cache.CacheTxtLookup("n", 0, Texts({})); },
        [](NetDNSCache& cache) { cache.CacheSpfLookup("n", 0, Texts({})); },
        [](NetDNSCache& cache) {
            VectorPtr<String> out;
            cache.IsALookupCached("n", out);
        },
        [](NetDNSCache& cache) {
            VectorPtr<String> out;
            cache.IsPtrLookupCached("n", out);
        },
        [](NetDNSCache& cache) {
            VectorPtr<NetDNS::MX_RECORD> out;
            cache.IsMxLookupCached("n", out);
        },
        [](NetDNSCache& cache) {
            VectorPtr<String> out;
            cache.IsTxtLookupCached("n", out);
        },
        [](NetDNSCache& cache) {
            VectorPtr<String> out;
            cache.IsSpfLookupCached("n", out);
        },
    };
    LOCKABLE_CACHE cache;
    for (const Operation operation : operations) {
        std::atomic<bool> begun{false};
        std::atomic<bool> done{false};
        cache.Lock();
        std::thread thread([&] {
            begun = true;
            operation(cache);
            done = true;
        });
        EXPECT_TRUE(WaitFor([&] { return begun.load(); }));
        EXPECT_FALSE(WaitFor([&] { return done.load(); }, 30)) << &operation - operations;
        cache.Unlock();
        thread.join();
    }
}

TEST(NetDNSCacheThreads, OneCacheUnder16Threads_EveryHitIsWhole)
{
    NetDNSCache cache;
    std::atomic<int> broken{0};
    std::atomic<int> hits{0};
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < 16; ++thread) {
        threads.emplace_back([&cache, &broken, &hits, thread] {
            std::mt19937 random(thread);
            for (int i = 0; i < 2000; ++i) {
                const std::string name = "name" + std::to_string(random() % 500);
                VectorPtr<String> records;
                if (cache.IsALookupCached(name, records)) {
                    ++hits;
                    broken += Plain(records) != std::vector<std::string>{name, name + "!"};
                } else {
                    cache.CacheALookup(name, TimedEvent::sGetNow() + 60000, Texts({name, name + "!"}));
                }
                VectorPtr<NetDNS::MX_RECORD> exchangers;
                if (!cache.IsMxLookupCached(name, exchangers))
                    cache.CacheMxLookup(name, TimedEvent::sGetNow() + 60000, exchangers);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(broken, 0);
    EXPECT_GT(hits, 0);
}

} // namespace
