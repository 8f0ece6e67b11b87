#include "common/EmailAddress.h"

#include "common/NetIP.h"

#include <algorithm>

namespace kqlib {

namespace {

constexpr std::string_view FORBIDDEN = "*?<>,;";

bool IsForbidden(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte <= ' ' || byte == 127 || FORBIDDEN.find(character) != std::string_view::npos;
}

bool IsAlphanumeric(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z');
}

bool IsLabel(std::string_view label)
{
    return !label.empty() && label.front() != '-' && label.back() != '-' &&
           std::all_of(label.begin(), label.end(),
                       [](char character) { return IsAlphanumeric(character) || character == '-'; });
}

bool IsDomainName(std::string_view domain)
{
    for (;;) {
        const std::size_t dot = domain.find('.');
        if (!IsLabel(domain.substr(0, dot)))
            return false;
        if (dot == std::string_view::npos)
            return true;
        domain.remove_prefix(dot + 1);
    }
}

bool IsBracketedAddress(std::string_view domain)
{
    NetIP ip;
    return domain.size() > 2 && domain.front() == '[' && domain.back() == ']' &&
           ip.Set(String(domain.substr(1, domain.size() - 2)));
}

} // namespace

bool EmailAddress::IsAddressValid() const
{
    const std::string_view text = m_address.view();
    const std::size_t at = text.find('@');
    if (at == 0 || at == std::string_view::npos || text.find('@', at + 1) != std::string_view::npos)
        return false;
    const std::string_view local = text.substr(0, at);
    const std::string_view domain = text.substr(at + 1);
    return std::none_of(local.begin(), local.end(), IsForbidden) &&
           (IsDomainName(domain) || IsBracketedAddress(domain));
}

} // namespace kqlib
