#include "net/status/NetServiceLiveStatus.h"

#include "common/SettingsTransportSet.h"

namespace kqlib {

namespace {

constexpr const char* KEY_IS_REVERSED = "isreversed";

} // namespace

void NetServiceLiveStatus::Reset()
{
    xReset();
}

void NetServiceLiveStatus::xReset()
{
    m_entries.Reset();
    m_isReversed = false;
}

NetServiceLiveStatus* NetServiceLiveStatus::Spawn(bool copy) const
{
    return copy ? new NetServiceLiveStatus(*this) : new NetServiceLiveStatus();
}

bool NetServiceLiveStatus::xWriteTo(SettingsTransportSet& set) const
{
    const bool written = m_entries.WriteTo(set);
    set.AddBool(KEY_IS_REVERSED, m_isReversed);
    return written;
}

bool NetServiceLiveStatus::xReadFrom(const SettingsTransportSet& set)
{
    const bool read = m_entries.ReadFrom(set);
    set.GetBool(KEY_IS_REVERSED, m_isReversed);
    return read;
}

void NetServiceLiveStatus::xCheckErrors(Messages&) const {}

void NetServiceLiveStatus::xCheckWarnings(Messages&) const {}

bool NetServiceLiveStatus::IsSame(const SettingsTransferable& other) const
{
    const auto* status = dynamic_cast<const NetServiceLiveStatus*>(&other);
    return status != nullptr && IsSame(*status);
}

bool NetServiceLiveStatus::IsSame(const NetServiceLiveStatus& other) const
{
    return m_entries.IsSame(other.m_entries) && m_isReversed == other.m_isReversed;
}

void NetServiceLiveStatus::GiveStatus(NetSessionLiveStatus* entry)
{
    if (entry == nullptr)
        return;
    ReverseContents(false);
    m_entries.Give(entry);
}

void NetServiceLiveStatus::ReverseContents(bool reversed)
{
    if (reversed == m_isReversed)
        return;
    m_entries.Reverse();
    m_isReversed = reversed;
}

} // namespace kqlib
