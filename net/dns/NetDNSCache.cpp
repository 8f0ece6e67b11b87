#include "net/dns/NetDNSCache.h"

#include "common/TimedEvent.h"

#include <memory>

namespace kqlib {

namespace {

constexpr std::uint32_t PURGE_INTERVAL_MS = 30000;
constexpr std::uint32_t LONGEST_LIFE_MS = 86400000; ///< 24 hours
constexpr ULONG MOST_ENTRIES = 10000;               ///< of the five lists together

constexpr unsigned char Fold(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
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

std::size_t NetDNSCache::NAME_HASH::operator()(std::string_view name) const
{
    // FNV-1a over the folded bytes, in the width of the machine.
    constexpr bool WIDE = sizeof(std::size_t) == 8;
    std::size_t hash = static_cast<std::size_t>(WIDE ? 0xCBF29CE484222325ULL : 0x811C9DC5ULL);
    constexpr auto PRIME = static_cast<std::size_t>(WIDE ? 0x100000001B3ULL : 0x01000193ULL);
    for (const char character : name)
        hash = (hash ^ Fold(character)) * PRIME;
    return hash;
}

bool NetDNSCache::NAME_EQUAL::operator()(std::string_view left, std::string_view right) const noexcept
{
    if (left.size() != right.size())
        return false;
    for (std::size_t i = 0; i < left.size(); ++i) {
        if (Fold(left[i]) != Fold(right[i]))
            return false;
    }
    return true;
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
    const auto found = index.find(name.view());
    return found == index.end() ? ALL_BITS_32 : found->second;
}

/// Deletes the entries of one list whose expiry is at or before now, and numbers the others anew.
template <class LOOKUP> void NetDNSCache::xPurge(std::uint32_t now, VectorPtr<LOOKUP>& lookups, NAME_INDEX& index)
{
    const ULONG before = lookups.GetCount();
    lookups.DeleteIf([now, &index](const LOOKUP& lookup) {
        if (now < lookup.expiry)
            return false;
        index.erase(lookup.name.view());
        return true;
    });
    if (lookups.GetCount() == before)
        return;
    for (ULONG i = 0; i < lookups.GetCount(); ++i)
        index[lookups.Get(i).name.view()] = static_cast<std::uint32_t>(i);
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
    const std::string_view key = lookup->name.view();
    const auto place = static_cast<std::uint32_t>(lookups.GetCount());
    lookups.Give(lookup.release());
    index.emplace(key, place);
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
