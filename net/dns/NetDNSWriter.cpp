#include "net/dns/NetDNSWriter.h"

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

} // namespace kqlib
