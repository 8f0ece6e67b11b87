// FtpPattern: names with wildcards.
#include "hosts/ftp/FtpPattern.h"

#include <algorithm>
#include <cstddef>

namespace kqlib {

namespace {

/// The bytes of the first character, at most those of the text; 1 for a byte that begins none.
std::size_t GetLength(std::string_view text)
{
    const auto byte = [&text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const std::size_t length = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : byte(0) >= 0xC0 ? 2 : 1;
    if (length > text.size())
        return 1;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0U) != 0x80)
            return 1;
    return length;
}

/// Takes the first character away and gives it.
std::string_view TakeCharacter(std::string_view& text)
{
    const std::string_view first = text.substr(0, GetLength(text));
    text.remove_prefix(first.size());
    return first;
}

/// The same, but a backslash goes, and what follows it is given.
std::string TakeLiteral(std::string_view& text)
{
    if (text.size() > 1 && text[0] == '\\')
        text.remove_prefix(1);
    return std::string(TakeCharacter(text));
}

std::string ToLower(const String& text)
{
    std::string lower = text.str();
    for (char& character : lower)
        if (character >= 'A' && character <= 'Z')
            character = static_cast<char>(character - 'A' + 'a');
    return lower;
}

} // namespace

FtpPattern::FtpPattern(const String& pattern, LETTERS letters)
    : m_letters(letters)
    , m_beginsWithDot(pattern.StartsWith(".") || pattern.StartsWith("\\."))
{
    xCompile(letters == LETTERS::EXACT ? pattern.str() : ToLower(pattern));
}

void FtpPattern::xCompile(TEXT pattern)
{
    while (!pattern.empty()) {
        STEP step;
        const char first = pattern[0];
        if (first == '*' || first == '?') {
            step.isAnyText = first == '*';
            step.isAnyCharacter = first == '?';
            pattern.remove_prefix(1);
        } else if (first != '[' || !xsTakeSet(pattern, step)) {
            const std::string literal = TakeLiteral(pattern);
            step.ranges.emplace_back(literal, literal);
        }
        m_steps.push_back(std::move(step));
    }
}

/// False: there is no whole set, pattern and step stay as they are. A "]" in the first place belongs to the set.
bool FtpPattern::xsTakeSet(TEXT& pattern, STEP& step)
{
    TEXT rest = pattern.substr(1);
    STEP set;
    set.isOutside = !rest.empty() && (rest[0] == '!' || rest[0] == '^');
    if (set.isOutside)
        rest.remove_prefix(1);
    while (!rest.empty() && (rest[0] != ']' || set.ranges.empty())) {
        RANGE range;
        range.first = range.second = TakeLiteral(rest);
        if (rest.size() > 1 && rest[0] == '-' && rest[1] != ']') {
            rest.remove_prefix(1);
            range.second = TakeLiteral(rest);
        }
        set.ranges.push_back(range);
    }
    if (rest.empty())
        return false;
    pattern = rest.substr(1);
    step = std::move(set);
    return true;
}

/// The order of the bytes of UTF-8 is that of the characters.
bool FtpPattern::xsFits(const STEP& step, TEXT character)
{
    const bool isIn = std::any_of(step.ranges.begin(), step.ranges.end(), [character](const RANGE& range) {
        return range.first <= character && character <= range.second;
    });
    return step.isAnyCharacter || isIn != step.isOutside;
}

/// What does not fit is tried again behind the last "*", with one character more for that. Earlier ones need no other
/// try: the last one can take whatever they could.
bool FtpPattern::Matches(const String& name) const
{
    const std::string text = m_letters == LETTERS::EXACT ? name.str() : ToLower(name);
    TEXT rest = text;
    TEXT retry;                 // where the steps behind the last "*" were tried last
    std::size_t behindStar = 0; // 0: there was none yet
    for (std::size_t at = 0; !rest.empty() || at < m_steps.size();) {
        if (at < m_steps.size() && m_steps[at].isAnyText) {
            behindStar = ++at;
            retry = rest;
            continue;
        }
        if (at < m_steps.size() && !rest.empty() && xsFits(m_steps[at], TakeCharacter(rest))) {
            ++at;
            continue;
        }
        if (behindStar == 0 || retry.empty())
            return false;
        TakeCharacter(retry);
        rest = retry;
        at = behindStar;
    }
    return true;
}

bool FtpPattern::MatchesListed(const String& name) const
{
    return (m_beginsWithDot || !name.StartsWith(".")) && Matches(name);
}

bool FtpPattern::sHasWildcards(const String& text)
{
    return text.str().find_first_of("*?[") != std::string::npos;
}

} // namespace kqlib
