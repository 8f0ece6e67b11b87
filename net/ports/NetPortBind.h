// NetPortBind: one TCP port that a service listens on.
#pragma once

#include "common/NetIP.h"
#include "common/SettingsTransferable.h"
#include "common/String.h"

#include <cstdint>

namespace kqlib {

class NetDNSCache;

/// A TCP port and, if wanted, the one host name or address to listen on. Settings keys "port" and "host".
///
/// Ownership: a plain value. Threads: one at a time. Errors: none; a binding is never faulty by itself.
class KQNET_API NetPortBind : public SettingsTransferable
{
public:
    /// A random port on every local address.
    NetPortBind() = default;
    /// Port in host order, 0 = random; on every local address.
    explicit NetPortBind(unsigned short port);
    /// host: name or dotted address, empty = every local address.
    NetPortBind(unsigned short port, const String& host);
    NetPortBind(const NetPortBind&) = default;
    NetPortBind& operator=(const NetPortBind&) = default;

    /// Port 0, host empty.
    void Reset() override;
    [[nodiscard]] NetPortBind* Spawn(bool copy) const override;

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;
    void xCheckErrors(Messages& messages) const override;
    void xCheckWarnings(Messages& messages) const override;

public:
    bool IsSame(const SettingsTransferable& other) const override;
    /// Equal ports and equal host texts; nothing is resolved, so "localhost" and "127.0.0.1" differ.
    ///@{
    bool IsSame(const NetPortBind& other) const;
    friend bool operator==(const NetPortBind& left, const NetPortBind& right) { return left.IsSame(right); }
    ///@}

    /// In host order, 0 = random.
    ///@{
    unsigned short GetPort() const { return m_port; }
    void SetPort(unsigned short port) { m_port = port; }
    ///@}
    /// Host name or dotted address, empty = every local address. Any text is taken.
    ///@{
    const String& GetHost() const { return m_host; }
    void SetHost(const String& host) { m_host = host; }
    ///@}
    /// True when the system chooses the port (port 0).
    bool IsPortRandom() const { return m_port == 0; }

    /// Whether a connection with this local address and port came in by this binding. The host is resolved anew on
    /// every call, through cache, which may block for the resolver's time-out. A host that does not resolve never
    /// excludes a connection, the port alone decides; kept on purpose.
    bool IsYours(NetDNSCache& cache, NetIP address, unsigned short port) const;

protected:
    /// What Reset does, without a virtual call.
    void xReset();

private:
    std::uint16_t m_port = 0;
    String m_host;
};

} // namespace kqlib
