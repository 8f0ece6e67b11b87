#include "net/dns/NetDNSReader.h"

namespace kqlib {

namespace {

constexpr unsigned MOST_LABELS = 200;
constexpr unsigned POINTER_MARK = 0xC0; ///< both top bits of the first byte
constexpr unsigned LONGEST_LABEL = 63;
constexpr String::size_type LONGEST_STRICT_NAME = 253; ///< as a text; 255 bytes on the wire

} // namespace

NetDNSReader::NetDNSReader(const BYTE* message, ULONG length)
    : m_message(message)
    , m_length(length)
{
}

bool NetDNSReader::Seek(ULONG position)
{
    if (position > m_length)
        return false;
    m_position = position;
    return true;
}

bool NetDNSReader::Skip(ULONG count)
{
    if (count > GetRemaining())
        return false;
    m_position += count;
    return true;
}

bool NetDNSReader::Peek8(std::uint8_t& value) const
{
    if (GetRemaining() < 1)
        return false;
    value = m_message[m_position];
    return true;
}

bool NetDNSReader::Peek16(std::uint16_t& value) const
{
    if (GetRemaining() < 2)
        return false;
    value = static_cast<std::uint16_t>((m_message[m_position] << 8) | m_message[m_position + 1]);
    return true;
}

bool NetDNSReader::Read8(std::uint8_t& value)
{
    return Peek8(value) && Skip(1);
}

bool NetDNSReader::Read16(std::uint16_t& value)
{
    return Peek16(value) && Skip(2);
}

bool NetDNSReader::Read32(std::uint32_t& value)
{
    std::uint16_t high = 0;
    std::uint16_t low = 0;
    if (GetRemaining() < 4 || !Read16(high) || !Read16(low))
        return false;
    value = (static_cast<std::uint32_t>(high) << 16) | low;
    return true;
}

bool NetDNSReader::ReadText(ULONG count, String& text)
{
    if (count > GetRemaining())
        return false;
    text += String(m_message + m_position, count);
    m_position += count;
    return true;
}

bool NetDNSReader::ReadName(String& name)
{
    return xQNameToDomain(name, 0);
}

bool NetDNSReader::ReadStrictName(String& name)
{
    name.clear();
    ULONG behind = 0; // the first pointer; 0 before there is one
    ULONG earliest = m_position;
    for (std::uint8_t first = 0; Read8(first);) {
        if (first == 0)
            return behind == 0 || Seek(behind);
        if ((first & POINTER_MARK) == POINTER_MARK) {
            std::uint8_t low = 0;
            if (!Read8(low))
                return false;
            const ULONG offset = (first & ~POINTER_MARK) << 8 | low;
            if (behind == 0)
                behind = m_position;
            if (offset >= earliest || !Seek(offset))
                return false;
            earliest = offset;
            continue;
        }
        String label;
        if (first > LONGEST_LABEL || !ReadText(first, label) || label.find('.') != String::npos ||
            label.find('\0') != String::npos)
            return false;
        if (!name.empty())
            name += '.';
        name += label;
        if (name.size() > LONGEST_STRICT_NAME)
            return false;
    }
    return false;
}

/// depth: how many pointers were followed to get here; they count like labels.
bool NetDNSReader::xQNameToDomain(String& name, unsigned depth)
{
    for (unsigned labels = depth + 1; labels <= MOST_LABELS; ++labels) {
        std::uint16_t two = 0;
        if (!Peek16(two))
            return false;
        const unsigned length = two >> 8;
        if ((length & POINTER_MARK) == POINTER_MARK) {
            NetDNSReader target(m_message, m_length);
            const ULONG offset = two & 0x3FFFU;
            if (offset >= m_length || !target.Seek(offset) || !Skip(2))
                return false;
            return target.xQNameToDomain(name, depth + 1);
        }
        // Any other first byte is a length, 64 to 191 included, and 0 at the very start of a name too: the byte behind
        // it is then looked at like the one behind a label. Kept on purpose.
        std::uint8_t next = 0;
        if (!Skip(1) || !ReadText(length, name) || name.size() > LONGEST_NAME || !Peek8(next))
            return false;
        if (next == 0)
            return Skip(1);
        name += '.';
    }
    return false;
}

} // namespace kqlib
