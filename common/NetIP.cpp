#include "common/NetIP.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <iterator>

namespace kqlib {

namespace {

constexpr std::size_t IP4_SIZE = 4;
constexpr std::size_t IP6_SIZE = 16;
constexpr std::size_t IP6_GROUPS = 8;

using Groups = std::array<std::uint16_t, IP6_GROUPS>;

/// "a.b.c.d": exactly four decimal parts of one to three digits, 0 to 255.
bool ParseIP4(std::string_view text, unsigned char* bytes)
{
    for (std::size_t part = 0; part < IP4_SIZE; ++part) {
        if (part > 0) {
            if (text.empty() || text.front() != '.')
                return false;
            text.remove_prefix(1);
        }
        const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
        if (digits == 0 || digits > 3)
            return false;
        unsigned value = 0;
        for (const char digit : text.substr(0, digits))
            value = value * 10 + static_cast<unsigned>(digit - '0');
        if (value > 255)
            return false;
        bytes[part] = static_cast<unsigned char>(value);
        text.remove_prefix(digits);
    }
    return text.empty();
}

bool ParseGroup(std::string_view text, std::uint16_t& group)
{
    if (text.empty() || text.size() > 4)
        return false;
    unsigned value = 0;
    for (const char character : text) {
        const char lower = static_cast<char>(character | 0x20);
        if (character >= '0' && character <= '9')
            value = value * 16 + static_cast<unsigned>(character - '0');
        else if (lower >= 'a' && lower <= 'f')
            value = value * 16 + static_cast<unsigned>(lower - 'a') + 10;
        else
            return false;
    }
    group = static_cast<std::uint16_t>(value);
    return true;
}

/// Groups between single colons; the last may be a dotted IPv4 address, which counts as two. Empty text has none.
bool ParseGroups(std::string_view text, bool dottedAllowed, Groups& groups, std::size_t& count)
{
    count = 0;
    while (!text.empty()) {
        const std::size_t colon = text.find(':');
        const std::string_view part = text.substr(0, colon);
        const bool last = colon == std::string_view::npos;
        unsigned char dotted[IP4_SIZE];
        if (last && dottedAllowed && count + 2 <= IP6_GROUPS && ParseIP4(part, dotted)) {
            groups[count++] = static_cast<std::uint16_t>(dotted[0] << 8 | dotted[1]);
            groups[count++] = static_cast<std::uint16_t>(dotted[2] << 8 | dotted[3]);
            return true;
        }
        if (count == IP6_GROUPS || !ParseGroup(part, groups[count++]))
            return false;
        if (last)
            return true;
        text.remove_prefix(colon + 1);
        if (text.empty())
            return false;
    }
    return true;
}

/// The text forms of RFC 4291 section 2.2.
bool ParseIP6(std::string_view text, unsigned char* bytes)
{
    Groups head{};
    Groups tail{};
    std::size_t headCount = 0;
    std::size_t tailCount = 0;
    const std::size_t gap = text.find("::");
    if (gap == std::string_view::npos) {
        if (!ParseGroups(text, true, head, headCount) || headCount != IP6_GROUPS)
            return false;
    } else if (!ParseGroups(text.substr(0, gap), false, head, headCount) ||
               !ParseGroups(text.substr(gap + 2), true, tail, tailCount) || headCount + tailCount >= IP6_GROUPS)
    {
        return false;
    }
    std::copy_n(tail.begin(), tailCount, head.end() - static_cast<std::ptrdiff_t>(tailCount));
    for (std::size_t index = 0; index < IP6_GROUPS; ++index) {
        bytes[index * 2] = static_cast<unsigned char>(head[index] >> 8);
        bytes[index * 2 + 1] = static_cast<unsigned char>(head[index] & 0xFF);
    }
    return true;
}

void AppendHex(String& text, std::uint16_t value)
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    bool begun = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
        const unsigned digit = value >> shift & 0x0F;
        begun = begun || digit != 0 || shift == 0;
        if (begun)
            text += DIGITS[digit];
    }
}

String DottedText(const unsigned char* bytes)
{
    char text[sizeof "255.255.255.255"];
    char* end = text;
    for (std::size_t index = 0; index < IP4_SIZE; ++index) {
        if (index != 0)
            *end++ = '.';
        end = std::to_chars(end, end + 3, bytes[index]).ptr;
    }
    *end = '\0';
    return text;
}

/// The first longest run of at least two zero groups; count 0 when there is none.
void FindGap(const Groups& groups, std::size_t& start, std::size_t& count)
{
    start = count = 0;
    for (std::size_t index = 0; index < IP6_GROUPS; ++index) {
        std::size_t length = 0;
        while (index + length < IP6_GROUPS && groups[index + length] == 0)
            ++length;
        if (length >= 2 && length > count) {
            start = index;
            count = length;
        }
    }
}

/// RFC 5952, with the dotted form for addresses that map IPv4 ones (its section 5).
String IP6Text(const unsigned char* bytes)
{
    static constexpr unsigned char MAPPED[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::memcmp(bytes, MAPPED, sizeof MAPPED) == 0)
        return "::ffff:" + DottedText(bytes + sizeof MAPPED);
    Groups groups;
    for (std::size_t index = 0; index < IP6_GROUPS; ++index)
        groups[index] = static_cast<std::uint16_t>(bytes[index * 2] << 8 | bytes[index * 2 + 1]);
    std::size_t gap = 0;
    std::size_t gapCount = 0;
    FindGap(groups, gap, gapCount);
    String text;
    for (std::size_t index = 0; index < IP6_GROUPS;) {
        if (gapCount != 0 && index == gap) {
            text += "::";
            index += gapCount;
            continue;
        }
        if (!text.empty() && text[text.size() - 1] != ':')
            text += ':';
        AppendHex(text, groups[index++]);
    }
    return text;
}

} // namespace

constinit const NetIP NetIP::ANY_IP4{};

NetIP::NetIP(const String& text)
{
    Set(text);
}

bool NetIP::Set(const String& text)
{
    unsigned char bytes[IP6_SIZE];
    if (ParseIP4(text.view(), bytes))
        return Set(IP_4, bytes);
    return ParseIP6(text.view(), bytes) && Set(IP_6, bytes);
}

bool NetIP::Set(IPTYPE type, const unsigned char* bytes)
{
    if (bytes == nullptr || (type != IP_4 && type != IP_6))
        return false;
    unsigned char copied[IP6_SIZE] = {};
    std::memcpy(copied, bytes, type == IP_4 ? IP4_SIZE : IP6_SIZE);
    m_type = type;
    std::memcpy(m_bytes, copied, sizeof m_bytes);
    return true;
}

void NetIP::Reset() noexcept
{
    *this = NetIP();
}

String NetIP::GetText() const
{
    return IsIP4() ? DottedText(m_bytes) : IP6Text(m_bytes);
}

String NetIP::GetTextReverseByteOrder() const
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    if (IsIP4()) {
        const unsigned char reversed[IP4_SIZE] = {m_bytes[3], m_bytes[2], m_bytes[1], m_bytes[0]};
        return DottedText(reversed);
    }
    String text;
    for (std::size_t index = IP6_SIZE; index-- > 0;) {
        if (!text.empty())
            text += '.';
        text += DIGITS[m_bytes[index] & 0x0F];
        text += '.';
        text += DIGITS[m_bytes[index] >> 4];
    }
    return text;
}

bool NetIP::IsSame(const NetIP& other, const NetIP& mask) const noexcept
{
    static constexpr unsigned char NO_BITS[IP6_SIZE] = {};
    if (std::memcmp(mask.m_bytes, NO_BITS, IP6_SIZE) == 0)
        return true;
    if (m_type != other.m_type || m_type != mask.m_type)
        return false;
    for (std::size_t index = 0; index < IP6_SIZE; ++index)
        if (((m_bytes[index] ^ other.m_bytes[index]) & mask.m_bytes[index]) != 0)
            return false;
    return true;
}

NetIP NetIP::sGetAnyIP(IPTYPE type)
{
    NetIP any;
    if (type == IP_6)
        any.m_type = IP_6;
    return any;
}

bool operator==(const NetIP& left, const NetIP& right) noexcept
{
    return left.m_type == right.m_type && std::memcmp(left.m_bytes, right.m_bytes, sizeof left.m_bytes) == 0;
}

bool operator<(const NetIP& left, const NetIP& right) noexcept
{
    if (left.m_type != right.m_type)
        return left.m_type < right.m_type;
    return std::memcmp(left.m_bytes, right.m_bytes, sizeof left.m_bytes) < 0;
}

} // namespace kqlib
