#include "net/dns/NetDNSCache.h"

#include "common/TimedEvent.h"
#include "net/dns/NetDNSAnswer.h"

#include <tsl/robin_set.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <random>
#include <utility>

namespace kqlib {

namespace {

constexpr std::uint32_t PURGE_INTERVAL_MS = 30000;
constexpr std::uint32_t LONGEST_LIFE_MS = 86400000;      ///< 24 hours
constexpr std::size_t MOST_ENTRIES = 10000;              ///< of the five lists together
constexpr std::size_t MOST_BYTES = 64UL * 1024UL * 1024; ///< of the five lists together; some 6.7 KB for each entry

/// The part of its cells that a table may use. More than the package's own half: fewer cells stay in the processor's
/// caches more easily.
constexpr float FULLEST = 0.75F;

constexpr unsigned char Fold(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

/// FNV-1a over the folded bytes: names that String::MatchesI takes as equal have the same hash. Each cache starts at a
/// number of its own, so that nobody can think out names that all fall into one place.
class NAME_HASH
{
public:
    using is_transparent = void;

    std::size_t operator()(const String& name) const
    {
        std::uint32_t hash = m_start;
        for (const char character : name)
            hash = (hash ^ Fold(character)) * 0x01000193U;
        return hash;
    }
    template <class LOOKUP> std::size_t operator()(const std::unique_ptr<LOOKUP>& lookup) const
    {
        return (*this)(lookup->name);
    }

private:
    std::uint32_t m_start = std::random_device{}();
};

struct SAME_NAME
{
    using is_transparent = void;

    template <class LOOKUP>
    bool operator()(const std::unique_ptr<LOOKUP>& left, const std::unique_ptr<LOOKUP>& right) const
    {
        return left->name.MatchesI(right->name);
    }
    template <class LOOKUP> bool operator()(const String& left, const std::unique_ptr<LOOKUP>& right) const
    {
        return left.MatchesI(right->name);
    }
    template <class LOOKUP> bool operator()(const std::unique_ptr<LOOKUP>& left, const String& right) const
    {
        return left->name.MatchesI(right);
    }
};

/// The entries of one type, one for each name. The cells hold hashes and pointers, so that a search reads few cache
/// lines.
template <class LOOKUP>
class LIST : public tsl::robin_set<std::unique_ptr<LOOKUP>, NAME_HASH, SAME_NAME,
                                   std::allocator<std::unique_ptr<LOOKUP>>, true>
{
public:
    LIST() { this->max_load_factor(FULLEST); }
};

/// Takes out the entries that the predicate is true for.
template <class LOOKUP, class UNWANTED> void EraseIf(LIST<LOOKUP>& list, UNWANTED isUnwanted)
{
    for (auto entry = list.begin(); entry != list.end();)
        entry = isUnwanted(**entry) ? list.erase(entry) : std::next(entry);
}

const String& TextOf(const String& record)
{
    return record;
}

const String& TextOf(const NetDNS::MX_RECORD& record)
{
    return record.name;
}

/// About what an entry takes of memory.
template <class RECORD> std::size_t BytesOf(const String& name, const VectorPtr<RECORD>& records)
{
    std::size_t bytes = sizeof(NetDNSCache::A_LOOKUP) + name.size();
    for (ULONG i = 0; i < records.GetCount(); ++i)
        bytes += sizeof(RECORD*) + sizeof(RECORD) + TextOf(records.Get(i)).size();
    return bytes;
}

template <class RECORD> void AppendCopies(const VectorPtr<RECORD>& from, VectorPtr<RECORD>& to)
{
    for (ULONG i = 0; i < from.GetCount(); ++i)
        to.Give(new RECORD(from.Get(i)));
}

/// An answer that a resolver with options has checked.
struct CHECKED_LOOKUP
{
    String name;
    std::uint32_t since = 0; ///< tick
    std::uint32_t lifeMs = 0;
    std::shared_ptr<const NetDNSAnswer> answer;

    /// By its age, which only wraps after 49.7 days without any question.
    bool IsOver(std::uint32_t now) const { return static_cast<std::uint32_t>(now - since) >= lifeMs; }
    std::size_t GetBytes() const { return sizeof(*this) + name.size() + answer->GetBytes(); }
};

/// The answers of resolvers with options, of every type. The lock is held by the caller.
class CHECKED_TABLES
{
public:
    /// Null: there is none, or its life is over.
    std::shared_ptr<const NetDNSAnswer> Read(const String& name, NetDNS::RRTYPE type, std::uint32_t now) const
    {
        const auto list = m_lists.find(type);
        if (list == m_lists.end())
            return nullptr;
        const auto found = list->second.find(name);
        return found == list->second.end() || (*found)->IsOver(now) ? nullptr : (*found)->answer;
    }

    /// Adds or replaces an answer, unless the tables are full of living ones.
    void Store(CHECKED_LOOKUP lookup, NetDNS::RRTYPE type, std::uint32_t now)
    {
        LIST<CHECKED_LOOKUP>& list = m_lists[type];
        const auto found = list.find(lookup.name);
        if (found != list.end()) {
            xForget(**found);
            list.erase(found);
        }
        if (xIsFull(lookup) || static_cast<std::uint32_t>(now - m_lastPurge) > PURGE_INTERVAL_MS)
            xPurge(now);
        if (xIsFull(lookup))
            return;
        const std::size_t bytes = lookup.GetBytes();
        list.insert(std::make_unique<CHECKED_LOOKUP>(std::move(lookup))); // counted only when there was memory for it
        ++m_count;
        m_bytes += bytes;
    }

private:
    bool xIsFull(const CHECKED_LOOKUP& lookup) const
    {
        return m_count >= MOST_ENTRIES || m_bytes + lookup.GetBytes() > MOST_BYTES;
    }

    void xForget(const CHECKED_LOOKUP& lookup)
    {
        --m_count;
        m_bytes -= lookup.GetBytes();
    }

    void xPurge(std::uint32_t now)
    {
        m_lastPurge = now;
        for (auto list = m_lists.begin(); list != m_lists.end(); ++list) {
            EraseIf(list->second, [this, now](const CHECKED_LOOKUP& lookup) {
                if (!lookup.IsOver(now))
                    return false;
                xForget(lookup);
                return true;
            });
        }
    }

    std::map<NetDNS::RRTYPE, LIST<CHECKED_LOOKUP>> m_lists;
    std::size_t m_count = 0; ///< of all lists
    std::size_t m_bytes = 0; ///< of all entries
    std::uint32_t m_lastPurge = 0;
};

} // namespace

/// All that the cache holds. Each operation wants to see that the lock is held.
struct NetDNSCache::TABLES
{
    LIST<A_LOOKUP> a;
    LIST<A_LOOKUP> ptr;
    LIST<MX_LOOKUP> mx;
    LIST<A_LOOKUP> txt;
    LIST<A_LOOKUP> spf;
    std::size_t bytes = 0; ///< of all entries, by BytesOf
    std::uint32_t lastTick = 0;
    std::uint32_t lastPurge = 0; ///< shared by all five lists, kept on purpose
    CHECKED_TABLES checked;      ///< touched by nothing of the above

    /// Adds an entry, unless the list has the name already or the cache is full.
    template <class LOOKUP, class RECORD>
    void Store(const Guard& guard, LIST<LOOKUP>& list, const String& name, ULONG expiry,
               const VectorPtr<RECORD>& records)
    {
        if (Find(guard, list, name) != list.end())
            return;
        const std::size_t size = BytesOf(name, records);
        if (a.size() + ptr.size() + mx.size() + txt.size() + spf.size() >= MOST_ENTRIES || bytes + size > MOST_BYTES)
            return;
        auto lookup = std::make_unique<LOOKUP>();
        lookup->name = name;
        lookup->expiry = ValidateExpiry(static_cast<std::uint32_t>(expiry));
        AppendCopies(records, lookup->records);
        list.insert(std::move(lookup));
        bytes += size;
    }

    /// Appends copies of the records of the entry with the name. False: there is none.
    template <class LOOKUP, class RECORD>
    bool Read(const Guard& guard, LIST<LOOKUP>& list, const String& name, VectorPtr<RECORD>& records)
    {
        const auto found = Find(guard, list, name);
        if (found == list.end())
            return false;
        AppendCopies((*found)->records, records);
        return true;
    }

private:
    /// The entry with the name, or the end. Purges the list first when 30 s have gone by; what is found then is not
    /// held against its expiry again, kept on purpose.
    template <class LOOKUP> typename LIST<LOOKUP>::iterator Find(const Guard&, LIST<LOOKUP>& list, const String& name)
    {
        const std::uint32_t now = StampNow();
        // The sum may wrap: plain 32-bit numbers are compared, kept on purpose.
        if (now > static_cast<std::uint32_t>(lastPurge + PURGE_INTERVAL_MS)) {
            lastPurge = now;
            Purge(now, list);
        }
        return list.find(name);
    }

    /// Deletes the entries of one list whose expiry is at or before now.
    template <class LOOKUP> void Purge(std::uint32_t now, LIST<LOOKUP>& list)
    {
        EraseIf(list, [this, now](const LOOKUP& lookup) {
            if (now < lookup.expiry)
                return false;
            bytes -= BytesOf(lookup.name, lookup.records);
            return true;
        });
    }

    /// The expiry, or 24 hours ahead when it lies before now or beyond that. The sum may wrap, kept on purpose.
    std::uint32_t ValidateExpiry(std::uint32_t expiry)
    {
        const std::uint32_t now = StampNow();
        const auto latest = static_cast<std::uint32_t>(now + LONGEST_LIFE_MS);
        return expiry > latest || expiry < now ? latest : expiry;
    }

    std::uint32_t StampNow()
    {
        lastTick = static_cast<std::uint32_t>(TimedEvent::sGetNow());
        return lastTick;
    }
};

NetDNSCache::NetDNSCache()
    : m_tables(std::make_unique<TABLES>())
{
}

NetDNSCache::~NetDNSCache() = default;

std::shared_ptr<const NetDNSAnswer> NetDNSCache::xReadChecked(const String& name, NetDNS::RRTYPE type)
{
    const Guard guard(*this);
    return m_tables->checked.Read(name, type, static_cast<std::uint32_t>(TimedEvent::sGetNow()));
}

void NetDNSCache::xStoreChecked(const String& name, NetDNS::RRTYPE type, std::uint32_t expiry,
                                std::shared_ptr<const NetDNSAnswer> answer)
{
    const Guard guard(*this);
    const auto now = static_cast<std::uint32_t>(TimedEvent::sGetNow());
    const auto lifeMs = static_cast<std::uint32_t>(expiry - now);
    if (lifeMs <= INT32_MAX) // otherwise it has passed meanwhile
        m_tables->checked.Store({name, now, lifeMs, std::move(answer)}, type, now);
}

void NetDNSCache::CacheALookup(const String& name, ULONG expiry, const VectorPtr<String>& records)
{
    m_tables->Store(Guard(*this), m_tables->a, name, expiry, records);
}

void NetDNSCache::CachePtrLookup(const String& name, ULONG expiry, const VectorPtr<String>& records)
{
    m_tables->Store(Guard(*this), m_tables->ptr, name, expiry, records);
}

void NetDNSCache::CacheMxLookup(const String& name, ULONG expiry, const VectorPtr<NetDNS::MX_RECORD>& records)
{
    m_tables->Store(Guard(*this), m_tables->mx, name, expiry, records);
}

void NetDNSCache::CacheTxtLookup(const String& name, ULONG expiry, const VectorPtr<String>& records)
{
    m_tables->Store(Guard(*this), m_tables->txt, name, expiry, records);
}

void NetDNSCache::CacheSpfLookup(const String& name, ULONG expiry, const VectorPtr<String>& records)
{
    m_tables->Store(Guard(*this), m_tables->spf, name, expiry, records);
}

bool NetDNSCache::IsALookupCached(const String& name, VectorPtr<String>& records)
{
    return m_tables->Read(Guard(*this), m_tables->a, name, records);
}

bool NetDNSCache::IsPtrLookupCached(const String& name, VectorPtr<String>& records)
{
    return m_tables->Read(Guard(*this), m_tables->ptr, name, records);
}

bool NetDNSCache::IsMxLookupCached(const String& name, VectorPtr<NetDNS::MX_RECORD>& records)
{
    return m_tables->Read(Guard(*this), m_tables->mx, name, records);
}

bool NetDNSCache::IsTxtLookupCached(const String& name, VectorPtr<String>& records)
{
    return m_tables->Read(Guard(*this), m_tables->txt, name, records);
}

bool NetDNSCache::IsSpfLookupCached(const String& name, VectorPtr<String>& records)
{
    return m_tables->Read(Guard(*this), m_tables->spf, name, records);
}

} // namespace kqlib
