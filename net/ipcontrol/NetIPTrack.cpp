#include "net/ipcontrol/NetIPTrack.h"

namespace kqlib {

NetIPTrack::~NetIPTrack() = default;

void NetIPTrack::Add(NetIP ip)
{
    const ULONG index = xLowerBound(ip);
    if (xIsAt(index, ip))
        ++m_entries.Get(index).count;
    else
        m_entries.GiveAt(index, new ENTRY{ip, 1});
}

void NetIPTrack::Remove(NetIP ip)
{
    const ULONG index = xLowerBound(ip);
    if (xIsAt(index, ip) && --m_entries.Get(index).count == 0)
        m_entries.Delete(index);
}

ULONG NetIPTrack::GetCount(NetIP ip) const
{
    const ULONG index = xLowerBound(ip);
    return xIsAt(index, ip) ? m_entries.Get(index).count : 0;
}

ULONG NetIPTrack::xLowerBound(const NetIP& ip) const
{
    ULONG low = 0;
    ULONG high = m_entries.GetCount();
    while (low < high) {
        const ULONG middle = low + (high - low) / 2;
        if (m_entries.Get(middle).ip < ip)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

bool NetIPTrack::xIsAt(ULONG index, const NetIP& ip) const
{
    return index < m_entries.GetCount() && m_entries.Get(index).ip == ip;
}

} // namespace kqlib
