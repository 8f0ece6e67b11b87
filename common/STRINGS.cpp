#include "common/STRINGS.h"

#include <iterator>

namespace kqlib {

namespace {

const char* const DEFAULT_SEPARATORS = ",;";
constexpr char DEFAULT_JOINER = ',';
constexpr std::string_view TRIMMED = " \t\r\n";

std::string_view Trim(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(TRIMMED);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(TRIMMED) - first + 1);
}

} // namespace

void STRINGS::AddByLine(const String& line, const String& separators, bool skipEmpty, bool trim)
{
    if (line.empty())
        return;
    // The line, and the separators, may be items of this list: they are read to the end before it grows.
    STRINGS items;
    const std::string_view text = line.view();
    for (std::size_t start = 0; start != std::string_view::npos;) {
        const std::size_t end = text.find_first_of(separators.view(), start);
        std::string_view item = text.substr(start, end - start);
        if (trim)
            item = Trim(item);
        if (!skipEmpty || !item.empty())
            items.push_back(String(item));
        start = end == std::string_view::npos ? end : end + 1;
    }
    insert(end(), std::make_move_iterator(items.begin()), std::make_move_iterator(items.end()));
}

void STRINGS::AddByLine(const String& line, unsigned char separator, bool skipEmpty, bool trim)
{
    const char character = static_cast<char>(separator);
    AddByLine(line, String(std::string_view(&character, 1)), skipEmpty, trim);
}

void STRINGS::AddByLine(const String& line, bool skipEmpty, bool trim)
{
    AddByLine(line, DEFAULT_SEPARATORS, skipEmpty, trim);
}

void STRINGS::AddByLine(const String& line)
{
    AddByLine(line, DEFAULT_SEPARATORS, true, true);
}

void STRINGS::AddByLine(const String& line, unsigned char separator)
{
    AddByLine(line, separator, true, true);
}

void STRINGS::AddByLine(const String& line, const String& separators)
{
    AddByLine(line, separators, true, true);
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
