#include "common/STRINGS.h"

namespace kqlib {

namespace {

constexpr std::string_view DEFAULT_SEPARATORS = ",;";
constexpr char DEFAULT_JOINER = ',';
constexpr std::string_view TRIMMED = " \t\r\n";

std::string_view Trim(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(TRIMMED);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(TRIMMED) - first + 1);
}

void Split(STRINGS& items, std::string_view line, std::string_view separators, bool skipEmpty, bool trim)
{
    if (line.empty())
        return;
    for (;;) {
        const std::size_t end = line.find_first_of(separators);
        std::string_view item = line.substr(0, end);
        if (trim)
            item = Trim(item);
        if (!skipEmpty || !item.empty())
            items.push_back(String(item));
        if (end == std::string_view::npos)
            return;
        line.remove_prefix(end + 1);
    }
}

} // namespace

void STRINGS::AddByLine(const String& line)
{
    Split(*this, line.view(), DEFAULT_SEPARATORS, true, true);
}

void STRINGS::AddByLine(const String& line, unsigned char separator)
{
    AddByLine(line, separator, true, true);
}

void STRINGS::AddByLine(const String& line, const String& separators)
{
    Split(*this, line.view(), separators.view(), true, true);
}

void STRINGS::AddByLine(const String& line, bool skipEmpty, bool trim)
{
    Split(*this, line.view(), DEFAULT_SEPARATORS, skipEmpty, trim);
}

void STRINGS::AddByLine(const String& line, unsigned char separator, bool skipEmpty, bool trim)
{
    const char character = static_cast<char>(separator);
    Split(*this, line.view(), std::string_view(&character, 1), skipEmpty, trim);
}

void STRINGS::AddByLine(const String& line, const String& separators, bool skipEmpty, bool trim)
{
    Split(*this, line.view(), separators.view(), skipEmpty, trim);
}

void STRINGS::GetLine(String& out) const
{
    GetLine(out, static_cast<unsigned char>(DEFAULT_JOINER));
}

void STRINGS::GetLine(String& out, unsigned char separator) const
{
    String line;
    for (size_type index = 0; index < size(); ++index) {
        if (index != 0)
            line += static_cast<char>(separator);
        line += (*this)[index];
    }
    out = line;
}

String STRINGS::GetLine() const
{
    String line;
    GetLine(line);
    return line;
}

String STRINGS::GetLine(unsigned char separator) const
{
    String line;
    GetLine(line, separator);
    return line;
}

} // namespace kqlib
