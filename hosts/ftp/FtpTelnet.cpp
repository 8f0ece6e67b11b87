// FtpTelnet: what Telnet puts between the characters of a command.
#include "hosts/ftp/FtpTelnet.h"

#include <string>

namespace kqlib {

namespace {

// RFC 854, "TELNET COMMAND STRUCTURE".
constexpr char IAC = '\xFF';
constexpr unsigned char SE = 240;
constexpr unsigned char SB = 250;
constexpr unsigned char WILL = 251;
constexpr unsigned char DONT = 254;

/// The bytes that the Telnet command at position of the text takes, which is an IAC; 0: it is none.
std::string::size_type LengthOfCommand(const std::string& text, std::string::size_type position)
{
    if (position + 1 == text.size())
        return 0;
    const auto code = static_cast<unsigned char>(text[position + 1]);
    if (code >= WILL && code <= DONT)
        return 3; // with the option
    if (code == SB) {
        const std::string::size_type end = text.find({IAC, static_cast<char>(SE)}, position);
        return end == std::string::npos ? std::string::npos : end + 2 - position;
    }
    return code >= SE && code < SB ? 2 : 0;
}

} // namespace

String FtpTelnet::sStrip(const String& line)
{
    const std::string& text = line.str();
    std::string::size_type next = text.find(IAC);
    if (next == std::string::npos)
        return line;
    std::string plain;
    std::string::size_type position = 0;
    for (; next != std::string::npos; next = text.find(IAC, position)) {
        plain.append(text, position, next - position);
        const std::string::size_type length = LengthOfCommand(text, next);
        if (length == 0)
            plain += IAC;
        const bool isDoubled = next + 1 < text.size() && text[next + 1] == IAC;
        const std::string::size_type taken = length != 0 ? length : isDoubled ? 2 : 1;
        position = taken > text.size() - next ? text.size() : next + taken;
    }
    plain.append(text, position, std::string::npos);
    return String(plain);
}

} // namespace kqlib
