#include "net/dns/NetDNSWriter.h"

#include <algorithm>

namespace kqlib {

void NetDNSWriter::Write8(std::uint8_t value)
{
    m_bytes.push_back(value);
}

void NetDNSWriter::Write16(std::uint16_t value)
{
    Write8(static_cast<std::uint8_t>(value >> 8));
    Write8(static_cast<std::uint8_t>(value & 0xFF));
}

void NetDNSWriter::WriteText(const String& text)
{
    m_bytes.insert(m_bytes.end(), text.begin(), text.end());
}

bool NetDNSWriter::WriteName(const String& domain, String::size_type longestLabel)
{
    for (String::size_type start = 0; start <= domain.size();) {
        const String::size_type end = std::min(domain.find('.', start), domain.size());
        const String label = domain.substr(start, end - start);
        if (label.empty() || label.size() > longestLabel)
            return false;
        Write8(static_cast<std::uint8_t>(label.size()));
        WriteText(label);
        start = end + 1;
    }
    Write8(0);
    return true;
}

} // namespace kqlib
