// Names that a cache knows from the start, so that no name server is asked.
#pragma once

#include "common/TimedEvent.h"
#include "common/VectorPtr.h"
#include "net/dns/NetDNSCache.h"

namespace kqlib::test {

/// Makes a name known with one IPv4 address, for ten minutes, to all who share the cache.
inline void MakeNameKnown(NetDNSCache& cache, const String& name, const String& address)
{
    VectorPtr<String> addresses;
    addresses.Give(new String(address));
    cache.CacheALookup(name, (TimedEvent::sGetNow() + 600000) & ALL_BITS_32, addresses);
}

} // namespace kqlib::test
