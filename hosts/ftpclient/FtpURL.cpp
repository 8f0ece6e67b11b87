// FtpURL: where to and as whom, in one text.
#include "hosts/ftpclient/FtpURL.h"

#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpcommon/FtpText.h"

#include <charconv>

namespace kqlib {

namespace {

constexpr USHORT PLAIN_PORT = 21;
constexpr USHORT TLS_PORT = 990;

/// Turns "%41" into "A". False: a percent sign without two hexadecimal digits, or a byte that no command can carry.
bool Decode(const String& text, String& out)
{
    out.clear();
    for (String::size_type i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        unsigned value = 0;
        const char* const first = text.data() + i + 1;
        if (i + 2 >= text.size() || std::from_chars(first, first + 2, value, 16).ptr != first + 2)
            return false;
        out += static_cast<char>(value);
        i += 2;
    }
    return FtpNames::sCanBeSent(out);
}

} // namespace

bool FtpURL::Parse(const String& text, String& error)
{
    *this = FtpURL();
    isImplicit = text.StartsWithI("ftps://");
    if (!isImplicit && !text.StartsWithI("ftp://")) {
        error = "the URL must begin with ftp:// or ftps://";
        return false;
    }
    const String rest = text.substr(isImplicit ? 7 : 6);
    const String::size_type slash = rest.find('/');
    const String authority = slash == String::npos ? rest : rest.substr(0, slash);
    const String::size_type at = authority.rfind('@');
    if (at != String::npos && !xParseUser(authority.substr(0, at), error))
        return false;
    if (!xParseHost(at == String::npos ? authority : authority.substr(at + 1), error))
        return false;
    if (slash != String::npos && !Decode(rest.substr(slash + 1), path)) {
        error = "the path of the URL is not well-formed";
        return false;
    }
    return true;
}

bool FtpURL::xParseUser(const String& text, String& error)
{
    const String::size_type colon = text.find(':');
    hasPassword = colon != String::npos;
    if (Decode(hasPassword ? text.substr(0, colon) : text, user) &&
        (!hasPassword || Decode(text.substr(colon + 1), password)) && !user.empty())
        return true;
    error = "the user of the URL is not well-formed";
    return false;
}

bool FtpURL::xParseHost(const String& text, String& error)
{
    constexpr std::size_t MAX_DIGITS = 5;
    constexpr ULONG MAX_PORT = 65535;
    const String::size_type bracket = text.find(']');
    const bool isBracketed = text.StartsWith("[") && bracket != String::npos;
    const String::size_type colon = text.find(':', isBracketed ? bracket : 0);
    const String place = colon == String::npos ? text : text.substr(0, colon);
    host = isBracketed ? text.substr(1, bracket - 1) : place;
    const String digits = colon == String::npos ? String() : text.substr(colon + 1);
    const bool hasPort = colon != String::npos;
    if (host.empty() || HasControlCharacter(host) || (isBracketed && place.size() != bracket + 1) ||
        (hasPort && (!IsDecimal(digits, MAX_DIGITS) || digits.ToULONG() > MAX_PORT || digits.ToULONG() == 0)))
    {
        error = "the host of the URL is not well-formed";
        return false;
    }
    port = hasPort ? digits.ToUSHORT() : isImplicit ? TLS_PORT : PLAIN_PORT;
    return true;
}

} // namespace kqlib
