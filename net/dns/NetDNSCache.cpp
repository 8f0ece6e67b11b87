#include "net/dns/NetDNSCache.h"

#include "common/TimedEvent.h"

#include <algorithm>
#include <memory>

namespace kqlib {

namespace {

constexpr std::uint32_t PURGE_INTERVAL_MS = 30000;
constexpr std::uint32_t LONGEST_LIFE_MS = 86400000; ///< 24 hours
constexpr ULONG MOST_ENTRIES = 10000;               ///< of the five lists together
constexpr std::size_t FEWEST_CELLS = 16;

constexpr unsigned char Fold(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

/// FNV-1a over the folded bytes: names that String::MatchesI takes as equal have the same hash.
std::uint32_t HashOf(const String& name)
{
    std::uint32_t hash = 0x811C9DC5U;
    for (const char character : name)
        hash = (hash ^ Fold(character)) * 0x01000193U;
    return hash;
}

template <class RECORD> void AppendCopies(const VectorPtr<RECORD>& from, VectorPtr<RECORD>& to)
{
    for (ULONG i = 0; i < from.GetCount(); ++i)
        to.Give(new RECORD(from.Get(i)));
}

template <class LOOKUP, class RECORD>
bool CopyOut(ULONG found, const VectorPtr<LOOKUP>& lookups, VectorPtr<RECORD>& records)
{
    if (found == ALL_BITS_32)
        return false;
    AppendCopies(lookups.Get(found).records, records);
    return true;
}

} // namespace

template <class IS_NAMED> ULONG NetDNSCache::NAME_INDEX::Find(std::uint32_t hash, IS_NAMED isNamed) const
{
    if (m_cells.empty())
        return ALL_BITS_32;
    for (std::size_t at = hash & (m_cells.size() - 1); m_cells[at].number != 0; at = (at + 1) & (m_cells.size() - 1)) {
        if (m_cells[at].hash == hash && isNamed(m_cells[at].number - 1))
            return m_cells[at].number - 1;
    }
    return ALL_BITS_32;
}

void NetDNSCache::NAME_INDEX::Add(std::uint32_t hash, std::uint32_t place)
{
    if (++m_used * 4 > m_cells.size() * 3) {
        std::vector<CELL> before(std::max(FEWEST_CELLS, m_cells.size() * 2));
        before.swap(m_cells);
        for (const CELL& cell : before) {
            if (cell.number != 0)
                xPut(cell);
        }
    }
    xPut(CELL{hash, place + 1});
}

void NetDNSCache::NAME_INDEX::Clear()
{
    m_cells.clear();
    m_used = 0;
}

void NetDNSCache::NAME_INDEX::xPut(CELL cell)
{
    std::size_t at = cell.hash & (m_cells.size() - 1);
    while (m_cells[at].number != 0)
        at = (at + 1) & (m_cells.size() - 1);
    m_cells[at] = cell;
}

NetDNSCache::NetDNSCache() = default;

NetDNSCache::~NetDNSCache() = default;

void NetDNSCache::CacheALookup(const String& name, ULONG expiry, const VectorPtr<String>& records)
{
    const Guard guard(*this);
    xStore(name, expiry, records, m_aLookups, m_aIndex);
}

void NetDNSCache::CachePtrLookup(const String& name, ULONG expiry, const VectorPtr<String>& records)
{
    const Guard guard(*this);
    xStore(name, expiry, records, m_ptrLookups, m_ptrIndex);
}

void NetDNSCache::CacheMxLookup(const String& name, ULONG expiry, const VectorPtr<NetDNS::MX_RECORD>& records)
{
    const Guard guard(*this);
    xStore(name, expiry, records, m_mxLookups, m_mxIndex);
}

void NetDNSCache::CacheTxtLookup(const String& name, ULONG expiry, const VectorPtr<String>& records)
{
    const Guard guard(*this);
    xStore(name, expiry, records, m_txtLookups, m_txtIndex);
}

void NetDNSCache::CacheSpfLookup(const String& name, ULONG expiry, const VectorPtr<String>& records)
{
    const Guard guard(*this);
    xStore(name, expiry, records, m_spfLookups, m_spfIndex);
}

bool NetDNSCache::IsALookupCached(const String& name, VectorPtr<String>& records)
{
    const Guard guard(*this);
    return CopyOut(xIsALookupCached(name), m_aLookups, records);
}

bool NetDNSCache::IsPtrLookupCached(const String& name, VectorPtr<String>& records)
{
    const Guard guard(*this);
    return CopyOut(xIsPtrLookupCached(name), m_ptrLookups, records);
}

bool NetDNSCache::IsMxLookupCached(const String& name, VectorPtr<NetDNS::MX_RECORD>& records)
{
    const Guard guard(*this);
    return CopyOut(xIsMxLookupCached(name), m_mxLookups, records);
}

bool NetDNSCache::IsTxtLookupCached(const String& name, VectorPtr<String>& records)
{
    const Guard guard(*this);
    return CopyOut(xIsTxtLookupCached(name), m_txtLookups, records);
}

bool NetDNSCache::IsSpfLookupCached(const String& name, VectorPtr<String>& records)
{
    const Guard guard(*this);
    return CopyOut(xIsSpfLookupCached(name), m_spfLookups, records);
}

ULONG NetDNSCache::xIsALookupCached(const String& name)
{
    return xFind(name, m_aLookups, m_aIndex);
}

ULONG NetDNSCache::xIsPtrLookupCached(const String& name)
{
    return xFind(name, m_ptrLookups, m_ptrIndex);
}

ULONG NetDNSCache::xIsMxLookupCached(const String& name)
{
    return xFind(name, m_mxLookups, m_mxIndex);
}

ULONG NetDNSCache::xIsTxtLookupCached(const String& name)
{
    return xFind(name, m_txtLookups, m_txtIndex);
}

ULONG NetDNSCache::xIsSpfLookupCached(const String& name)
{
    return xFind(name, m_spfLookups, m_spfIndex);
}

/// The place of the first entry with the name, or 0xFFFFFFFF. Purges the list first when 30 s have gone by. A list
/// never holds a name twice, so the index answers what a walk from the front would.
template <class LOOKUP> ULONG NetDNSCache::xFind(const String& name, VectorPtr<LOOKUP>& lookups, NAME_INDEX& index)
{
    const std::uint32_t now = xStampNow();
    // The sum may wrap: plain 32-bit numbers are compared, kept on purpose.
    if (now > static_cast<std::uint32_t>(m_lastPurge + PURGE_INTERVAL_MS)) {
        m_lastPurge = now;
        xPurge(now, lookups, index);
    }
    return index.Find(HashOf(name), [&](std::uint32_t place) { return lookups.Get(place).name.MatchesI(name); });
}

/// Deletes the entries of one list whose expiry is at or before now, and numbers the others anew.
template <class LOOKUP> void NetDNSCache::xPurge(std::uint32_t now, VectorPtr<LOOKUP>& lookups, NAME_INDEX& index)
{
    const ULONG before = lookups.GetCount();
    lookups.DeleteIf([now](const LOOKUP& lookup) { return now >= lookup.expiry; });
    if (lookups.GetCount() == before)
        return;
    index.Clear();
    for (ULONG i = 0; i < lookups.GetCount(); ++i)
        index.Add(HashOf(lookups.Get(i).name), static_cast<std::uint32_t>(i));
}

/// Appends an entry, unless the list has the name already or the cache is full.
template <class LOOKUP, class RECORD>
void NetDNSCache::xStore(const String& name, ULONG expiry, const VectorPtr<RECORD>& records, VectorPtr<LOOKUP>& lookups,
                         NAME_INDEX& index)
{
    if (xFind(name, lookups, index) != ALL_BITS_32)
        return;
    if (xGetTotalCacheSize() >= MOST_ENTRIES)
        return;
    auto lookup = std::make_unique<LOOKUP>();
    lookup->name = name;
    lookup->expiry = xValidateExpiry(static_cast<std::uint32_t>(expiry));
    AppendCopies(records, lookup->records);
    lookups.Give(lookup.release());
    index.Add(HashOf(name), static_cast<std::uint32_t>(lookups.GetCount() - 1));
}

/// The expiry, or 24 hours ahead when it lies before now or beyond that. The sum may wrap, kept on purpose.
std::uint32_t NetDNSCache::xValidateExpiry(std::uint32_t expiry)
{
    const std::uint32_t now = xStampNow();
    const auto latest = static_cast<std::uint32_t>(now + LONGEST_LIFE_MS);
    return expiry > latest || expiry < now ? latest : expiry;
}

ULONG NetDNSCache::xGetTotalCacheSize() const
{
    return m_aLookups.GetCount() + m_ptrLookups.GetCount() + m_mxLookups.GetCount() + m_txtLookups.GetCount() +
           m_spfLookups.GetCount();
}

std::uint32_t NetDNSCache::xStampNow()
{
    m_lastTick = static_cast<std::uint32_t>(TimedEvent::sGetNow());
    return m_lastTick;
}

} // namespace kqlib
