#include "net/ports/NetPortBind.h"

#include "common/SettingsTransportSet.h"
#include "net/dns/NetDNS.h"

namespace kqlib {

namespace {

constexpr const char* KEY_PORT = "port";
constexpr const char* KEY_HOST = "host";

} // namespace

NetPortBind::NetPortBind(unsigned short port)
    : m_port(port)
{
}

NetPortBind::NetPortBind(unsigned short port, const String& host)
    : m_port(port)
    , m_host(host)
{
}

void NetPortBind::Reset()
{
    xReset();
}

void NetPortBind::xReset()
{
    m_port = 0;
    m_host.clear();
}

NetPortBind* NetPortBind::Spawn(bool copy) const
{
    return copy ? new NetPortBind(*this) : new NetPortBind();
}

bool NetPortBind::xWriteTo(SettingsTransportSet& set) const
{
    set.AddUSHORT(KEY_PORT, m_port);
    set.AddString(KEY_HOST, m_host);
    return true;
}

bool NetPortBind::xReadFrom(const SettingsTransportSet& set)
{
    set.GetUSHORT(KEY_PORT, m_port);
    set.GetString(KEY_HOST, m_host);
    return true;
}

void NetPortBind::xCheckErrors(Messages&) const {}

void NetPortBind::xCheckWarnings(Messages&) const {}

bool NetPortBind::IsSame(const SettingsTransferable& other) const
{
    const auto* bind = dynamic_cast<const NetPortBind*>(&other);
    return bind != nullptr && IsSame(*bind);
}

bool NetPortBind::IsSame(const NetPortBind& other) const
{
    return m_port == other.m_port && m_host == other.m_host;
}

bool NetPortBind::IsYours(NetDNSCache& cache, NetIP address, unsigned short port) const
{
    if (m_host.empty())
        return m_port == port;
    NetDNS resolver(NetIP::LOOKUP_ANY, cache);
    NetIP resolved;
    Messages ignored; // why it does not resolve makes no difference
    if (!resolver.ResolveHost(m_host, true, resolved, ignored))
        return m_port == port;
    return m_port == port && resolved == address;
}

} // namespace kqlib
