#include "net/status/NetServiceStatus.h"

#include "common/STRINGS.h"
#include "common/SettingsTransportSet.h"
#include "net/ports/NetPortBinds.h"
#include "net/status/NetSessionStatus.h"

#include <algorithm>
#include <iterator>

namespace kqlib {

namespace {

constexpr const char* KEY_CREATE = "create";
constexpr const char* KEY_PORTS = "ports";
constexpr const char* KEY_DATA = "data";

bool AreSamePorts(const Vector<NetServiceStatus::ACTIVEPORT>& left, const Vector<NetServiceStatus::ACTIVEPORT>& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](const auto& one, const auto& other) { return one.ip == other.ip && one.port == other.port; });
}

} // namespace

NetServiceStatus::NetServiceStatus()
{
    xReset();
}

void NetServiceStatus::Reset()
{
    xReset();
}

void NetServiceStatus::xReset()
{
    m_createTime.Reset();
    m_activePorts.Reset();
    std::fill(std::begin(m_counters), std::end(m_counters), 0);
}

NetServiceStatus* NetServiceStatus::Spawn(bool copy) const
{
    return copy ? new NetServiceStatus(*this) : new NetServiceStatus();
}

bool NetServiceStatus::xWriteTo(SettingsTransportSet& set) const
{
    NetPortBinds ports;
    for (const ACTIVEPORT& active : m_activePorts)
        ports.Add(NetPortBind(active.port, active.ip.GetText()));
    STRINGS counters;
    for (const ULONG8 counter : m_counters)
        counters.push_back(String::sToString(counter));

    set.AddTimePos(KEY_CREATE, m_createTime);
    set.AddString(KEY_PORTS, ports.GetLine());
    set.AddString(KEY_DATA, counters.GetLine());
    return true;
}

bool NetServiceStatus::xReadFrom(const SettingsTransportSet& set)
{
    set.GetTimePos(KEY_CREATE, m_createTime);
    xReadPorts(set);
    xReadCounters(set);
    return true;
}

void NetServiceStatus::xReadPorts(const SettingsTransportSet& set)
{
    String line;
    if (!set.GetString(KEY_PORTS, line))
        return;
    NetPortBinds ports;
    ports.AddByLine(line);
    for (const NetPortBind& bind : ports)
        m_activePorts.Add(ACTIVEPORT{NetIP(bind.GetHost()), bind.GetPort()});
}

void NetServiceStatus::xReadCounters(const SettingsTransportSet& set)
{
    String line;
    if (!set.GetString(KEY_DATA, line))
        return;
    STRINGS items;
    items.AddByLine(line);
    if (items.size() != std::size(m_counters))
        return;
    std::transform(items.begin(), items.end(), std::begin(m_counters),
                   [](const String& item) { return item.ToULONG8(); });
}

void NetServiceStatus::xCheckErrors(Messages&) const {}

void NetServiceStatus::xCheckWarnings(Messages&) const {}

bool NetServiceStatus::IsSame(const SettingsTransferable& other) const
{
    const auto* status = dynamic_cast<const NetServiceStatus*>(&other);
    return status != nullptr && IsSame(*status);
}

bool NetServiceStatus::IsSame(const NetServiceStatus& other) const
{
    return m_createTime == other.m_createTime && AreSamePorts(m_activePorts, other.m_activePorts) &&
           std::equal(std::begin(m_counters), std::end(m_counters), std::begin(other.m_counters));
}

void NetServiceStatus::AddDataFrom(const NetServiceStatus& other)
{
    // The count is taken first, and each port copied: a record may be added to itself.
    const ULONG portCount = other.m_activePorts.GetCount();
    for (ULONG index = 0; index < portCount; ++index)
        m_activePorts.Add(ACTIVEPORT(other.m_activePorts.Get(index)));
    for (std::size_t index = 0; index < std::size(m_counters); ++index)
        m_counters[index] += other.m_counters[index];
}

void NetServiceStatus::AddDataFrom(const NetSessionStatus& session)
{
    for (std::uint32_t index = 0; index < NetCounterBlock::COUNTER_COUNT; ++index)
        m_counters[index] += session.GetCounter(static_cast<NetCounterBlock::COUNTER>(index));
}

} // namespace kqlib
