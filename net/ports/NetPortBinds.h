// NetPortBinds: the list of ports that a service listens on.
#pragma once

#include "common/STRINGS.h"
#include "common/VectorTransferable.h"
#include "net/ports/NetPortBind.h"

namespace kqlib {

/// A list of port bindings with a form of one text line for users: items "port" or "host:port".
///
/// Reading a line or settings appends to what is there. Nothing is rejected and no duplicate removed: text that is no
/// port number reads as port 0, a random port; kept on purpose. An IPv6 address does not survive the line form, for the
/// first ":" of an item ends the host.
///
/// Ownership: a plain value. Threads: one at a time. Errors: none.
class KQNET_API NetPortBinds : public VectorTransferable<NetPortBind>
{
public:
    /// No bindings: a service with them listens nowhere.
    NetPortBinds() = default;
    /// A list of that one binding.
    explicit NetPortBinds(const NetPortBind& bind);
    NetPortBinds(const NetPortBinds&) = default;
    NetPortBinds& operator=(const NetPortBinds&) = default;

    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override;

    /// Split the line as the STRINGS operations of the same arguments do, and append one binding per item.
    ///@{
    void AddByLine(const String& line);
    void AddByLine(const String& line, unsigned char separator);
    void AddByLine(const String& line, const String& separators);
    void AddByLine(const String& line, bool skipEmpty, bool trim);
    void AddByLine(const String& line, unsigned char separator, bool skipEmpty, bool trim);
    void AddByLine(const String& line, const String& separators, bool skipEmpty, bool trim);
    ///@}

    /// Join one item per binding as the STRINGS operations of the same arguments do.
    ///@{
    void GetLine(String& out) const;
    void GetLine(String& out, unsigned char separator) const;
    String GetLine() const;
    String GetLine(unsigned char separator) const;
    ///@}

    /// True when at least one binding has port 0.
    bool IsAnyPortRandom() const;
    /// True when some binding IsYours, asked in order; may block for each host that is resolved.
    bool IsYours(NetDNSCache& cache, NetIP address, unsigned short port) const;

protected:
    /// Appends one item per binding.
    void xBuild(STRINGS& items) const;
    /// Appends one binding per item.
    void xRead(const STRINGS& items);
};

} // namespace kqlib
