#include "net/dns/NetDNSOptions.h"

#include "platform/ResolverConfig.h"

namespace kqlib {

namespace {

constexpr ULONG SHORTEST_TIME_MS = 10;
constexpr ULONG LONGEST_WAIT_MS = 60000;
constexpr ULONG LONGEST_LOOKUP_MS = 600000;
constexpr ULONG MOST_ROUNDS = 10;
constexpr ULONG LONGEST_LIFE_S = 604800;    ///< a week, well below half the range of the tick
constexpr ULONG LONGEST_NEGATIVE_S = 10800; ///< three hours (RFC 2308 section 5)

/// Sets a value that lies within its range.
bool SetWithin(ULONG value, ULONG least, ULONG most, std::uint32_t& out)
{
    if (value < least || value > most)
        return false;
    out = static_cast<std::uint32_t>(value);
    return true;
}

} // namespace

NetDNSOptions::NetDNSOptions()
    : m_hostsFile(sGetSystemHostsFile())
{
}

String NetDNSOptions::sGetSystemHostsFile()
{
    return platform::GetHostsFile();
}

bool NetDNSOptions::SetAnswerWaitMs(ULONG ms)
{
    return SetWithin(ms, SHORTEST_TIME_MS, LONGEST_WAIT_MS, m_answerWaitMs);
}

bool NetDNSOptions::SetLookupLimitMs(ULONG ms)
{
    return SetWithin(ms, SHORTEST_TIME_MS, LONGEST_LOOKUP_MS, m_lookupLimitMs);
}

bool NetDNSOptions::SetRounds(ULONG rounds)
{
    return SetWithin(rounds, 1, MOST_ROUNDS, m_rounds);
}

bool NetDNSOptions::SetLifeBounds(ULONG shortestSec, ULONG longestSec)
{
    return longestSec <= LONGEST_LIFE_S && SetWithin(shortestSec, 0, longestSec, m_shortestLifeSec) &&
           SetWithin(longestSec, 0, LONGEST_LIFE_S, m_longestLifeSec);
}

bool NetDNSOptions::SetLongestNegativeLife(ULONG sec)
{
    return SetWithin(sec, 0, LONGEST_NEGATIVE_S, m_longestNegativeSec);
}

} // namespace kqlib
