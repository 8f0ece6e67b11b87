#include "net/status/NetSessionLiveStatus.h"

#include "common/SettingsTransportSet.h"

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetSessionLiveStatus::ACTION_RESET;

namespace {

constexpr const char* KEY_ACTION = "action";
constexpr const char* KEY_DETAIL = "detail";

} // namespace

void NetSessionLiveStatus::Reset()
{
    xReset();
}

void NetSessionLiveStatus::xReset()
{
    m_status.Reset();
    m_action = ACTION_RESET;
    m_detail.clear();
}

NetSessionLiveStatus* NetSessionLiveStatus::Spawn(bool copy) const
{
    return copy ? new NetSessionLiveStatus(*this) : new NetSessionLiveStatus();
}

bool NetSessionLiveStatus::xWriteTo(SettingsTransportSet& set) const
{
    const bool written = m_status.WriteTo(set);
    set.AddULONG(KEY_ACTION, m_action);
    set.AddString(KEY_DETAIL, m_detail);
    return written;
}

bool NetSessionLiveStatus::xReadFrom(const SettingsTransportSet& set)
{
    const bool read = m_status.ReadFrom(set);
    ULONG action = m_action;
    set.GetULONG(KEY_ACTION, action);
    SetAction(action);
    set.GetString(KEY_DETAIL, m_detail);
    return read;
}

void NetSessionLiveStatus::xCheckErrors(Messages&) const {}

void NetSessionLiveStatus::xCheckWarnings(Messages&) const {}

bool NetSessionLiveStatus::IsSame(const SettingsTransferable& other) const
{
    const auto* status = dynamic_cast<const NetSessionLiveStatus*>(&other);
    return status != nullptr && IsSame(*status);
}

bool NetSessionLiveStatus::IsSame(const NetSessionLiveStatus& other) const
{
    return m_status.IsSame(other.m_status) && m_action == other.m_action && m_detail == other.m_detail;
}

} // namespace kqlib
