#include "net/ipcontrol/NetAntiHammerTable.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>

namespace kqlib {

namespace {

/// How full the hash set gets before it doubles: what keeps an entry at the cap below 96 bytes.
constexpr float MAX_LOAD = 0.9F;
/// Memory that a table without entries keeps, in places of its hash set.
constexpr std::size_t KEPT_PLACES = 1024;

std::uint64_t RandomSeed()
{
    std::random_device device;
    return (std::uint64_t{device()} << 32) | device();
}

/// The finishing steps of a 64-bit mixing function: every input bit reaches every output bit.
std::uint64_t Mix(std::uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

} // namespace

std::size_t NetAntiHammerTable::HASH::operator()(const NetIP& ip) const noexcept
{
    std::uint64_t words[2]; // an address holds 16 bytes whatever its type is
    std::memcpy(words, ip.GetBytes(), sizeof words);
    return static_cast<std::size_t>(Mix(Mix(words[0] ^ seed) + words[1] + ip.GetType()));
}

NetAntiHammerTable::NetAntiHammerTable(std::uint32_t capacity)
    : m_capacity(capacity)
    , m_places(xsMakePlaces(RandomSeed()))
{
}

NetAntiHammerTable::PLACES NetAntiHammerTable::xsMakePlaces(std::uint64_t seed)
{
    PLACES places(0, HASH{seed});
    places.max_load_factor(MAX_LOAD);
    return places;
}

void NetAntiHammerTable::Advance(std::uint32_t now, std::uint64_t failedLife, std::uint64_t blockedLife)
{
    // 1. Entries whose age begins anew on the way from the last call to this one.
    const std::uint32_t passed = now - m_now;
    m_now = now;
    xPassWrap(m_failed, passed);
    xPassWrap(m_blocked, passed);
    // 2. What has run out.
    xEraseOlder(m_failed, failedLife);
    xEraseOlder(m_blocked, blockedLife);
    if (m_places.empty() && m_places.bucket_count() > KEPT_PLACES)
        Clear();
}

void NetAntiHammerTable::Clear()
{
    m_failed.clear();
    m_blocked.clear();
    m_places = xsMakePlaces(m_places.hash_function().seed);
}

/// Ages are 32-bit differences: an entry that nobody asked about for 49.7 days becomes young again. Such entries are
/// the oldest of their queue, and are the youngest afterwards in the order that they had; so they go to its end.
void NetAntiHammerTable::xPassWrap(QUEUE& queue, std::uint64_t passed) const
{
    const auto isAsOldAsBefore = [&](const ENTRY& entry) { return std::uint32_t(m_now - entry.time) >= passed; };
    queue.splice(queue.end(), queue, queue.begin(), std::find_if(queue.begin(), queue.end(), isAsOldAsBefore));
}

void NetAntiHammerTable::xEraseOlder(QUEUE& queue, std::uint64_t life)
{
    while (!queue.empty() && std::uint32_t(m_now - queue.front().time) > life)
        Remove(queue.begin());
}

std::optional<NetAntiHammerTable::PLACE> NetAntiHammerTable::Find(const NetIP& ip) const
{
    const auto found = m_places.find(ip);
    if (found == m_places.end())
        return std::nullopt;
    return *found;
}

void NetAntiHammerTable::Add(const NetIP& ip, std::uint32_t count)
{
    // Both steps that may find no memory come before the queue changes.
    QUEUE added(1, ENTRY{ip, m_now, count});
    m_places.insert(added.begin());
    QUEUE& queue = xQueueOf(count);
    queue.splice(queue.end(), added);
}

void NetAntiHammerTable::Renew(PLACE place, std::uint32_t count)
{
    QUEUE& from = xQueueOf(place->count);
    place->time = m_now;
    place->count = count;
    QUEUE& to = xQueueOf(count);
    to.splice(to.end(), from, place);
}

void NetAntiHammerTable::Remove(PLACE place)
{
    m_places.erase(place->ip);
    xQueueOf(place->count).erase(place);
}

} // namespace kqlib
