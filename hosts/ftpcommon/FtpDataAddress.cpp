// FtpDataAddress: addresses of data connections in commands and replies.
#include "hosts/ftpcommon/FtpDataAddress.h"

#include "common/STRINGS.h"
#include "hosts/ftpcommon/FtpText.h"

namespace kqlib {

namespace {

constexpr ULONG MAX_PORT = 65535;
constexpr std::size_t MAX_DIGITS = 5;

} // namespace

bool FtpDataAddress::ParseNumbers(const String& text)
{
    constexpr std::size_t COUNT = 6;
    STRINGS numbers;
    numbers.AddByLine(text, static_cast<unsigned char>(','), false, true);
    if (numbers.size() != COUNT)
        return false;
    unsigned char bytes[COUNT] = {};
    for (std::size_t i = 0; i < COUNT; ++i) {
        if (!IsDecimal(numbers[i], MAX_DIGITS) || numbers[i].ToULONG() > 255)
            return false;
        bytes[i] = static_cast<unsigned char>(numbers[i].ToULONG());
    }
    port = static_cast<USHORT>(bytes[4] * 256 + bytes[5]);
    return address.Set(NetIP::IP_4, bytes);
}

String FtpDataAddress::FormatNumbers() const
{
    String numbers = address.GetText();
    for (String::size_type i = 0; i < numbers.size(); ++i)
        numbers[i] = numbers[i] == '.' ? ',' : numbers[i];
    return numbers + "," + String::sToString(port / 256) + "," + String::sToString(port % 256);
}

bool FtpDataAddress::sSplitExtended(const String& text, EXTENDED& out)
{
    constexpr std::size_t COUNT = 5; // nothing, family, address, port, nothing
    if (text.empty() || text[0] < 33 || text[0] > 126)
        return false;
    STRINGS fields;
    fields.AddByLine(text, static_cast<unsigned char>(text[0]), false, false);
    if (fields.size() != COUNT || !fields[0].empty() || !fields[4].empty())
        return false;
    out = {fields[1], fields[2], fields[3]};
    return true;
}

String FtpDataAddress::FormatExtended() const
{
    return "|1|" + address.GetText() + "|" + String::sToString(port) + "|";
}

bool FtpDataAddress::ParsePort(const String& text)
{
    if (!IsDecimal(text, MAX_DIGITS) || text.ToULONG() > MAX_PORT)
        return false;
    port = text.ToUSHORT();
    return true;
}

} // namespace kqlib
