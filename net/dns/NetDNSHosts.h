// NetDNSHosts: the names of a hosts file. Inside the library only.
#pragma once

#include "common/String.h"
#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSAnswer.h"
#include "platform/Export.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kqlib {

/// What a hosts file says: lines of an address and its names, "#" begins a comment. Internal; exported for tests and
/// fuzz targets.
///
/// Lines that begin with no address (or one with a zone id) are left out, and so is what stands behind the first MiB.
///
/// Ownership: a plain value, read-only once made. Threads: sGet any thread. Errors: a file that cannot be read is
/// empty.
class KQNET_API NetDNSHosts
{
public:
    /// Reads the text of a file.
    explicit NetDNSHosts(std::string_view text);

    /// The names of the file at the path. The last one is kept and shared until its time or size has changed, but not
    /// while a change is less than two seconds old, nor when the file is there and could not be read. Never null.
    static std::shared_ptr<const NetDNSHosts> sGet(const String& path);

    /// Answers a question for a name that stands in the file: its addresses, or the names of an address asked for by
    /// its reverse name, in the order of the file. A name that stands there with addresses of the other family has "no
    /// records". False: the name, or the type, is none of the file's.
    [[nodiscard]] bool Find(const String& name, NetDNS::RRTYPE type, NetDNSAnswer& answer) const;

private:
    void xAddLine(std::string_view line);

    /// By names in small letters: addresses, and for reverse names the names.
    std::map<std::string, std::vector<String>> m_entries;
};

} // namespace kqlib
