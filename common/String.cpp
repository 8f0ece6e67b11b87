#include "common/String.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace kqlib {

namespace {

/// Folds the letters A to Z only.
constexpr unsigned char Fold(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

bool EqualsI(std::string_view left, std::string_view right)
{
    // Most texts that are equal are so to the letter, which is found out many bytes at a time.
    return left == right || std::equal(left.begin(), left.end(), right.begin(), right.end(),
                                       [](char first, char second) { return Fold(first) == Fold(second); });
}

bool HasWildcard(std::string_view text)
{
    return text.find_first_of("*?") != std::string_view::npos;
}

/// Wildcard match that goes back to the last "*" only, so its time is bounded by the product of the lengths.
bool MatchesPattern(std::string_view pattern, std::string_view text)
{
    std::size_t inPattern = 0;
    std::size_t inText = 0;
    std::size_t star = std::string_view::npos; // the last "*" met, and where its run in the text ends so far
    std::size_t runEnd = 0;
    while (inText < text.size()) {
        if (inPattern < pattern.size() && pattern[inPattern] == '*') {
            star = inPattern++;
            runEnd = inText;
        } else if (inPattern < pattern.size() &&
                   (pattern[inPattern] == '?' || Fold(pattern[inPattern]) == Fold(text[inText]))) {
            ++inPattern;
            ++inText;
        } else if (star != std::string_view::npos) {
            inPattern = star + 1;
            inText = ++runEnd;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', inPattern) == std::string_view::npos;
}

/// Digits after leading blanks and TABs; 0 when there is none or the number exceeds limit.
unsigned long long ToNumber(std::string_view text, unsigned long long limit)
{
    std::size_t index = text.find_first_not_of(" \t");
    unsigned long long value = 0;
    for (; index < text.size() && text[index] >= '0' && text[index] <= '9'; ++index) {
        const auto digit = static_cast<unsigned long long>(text[index] - '0');
        if (value > (limit - digit) / 10)
            return 0;
        value = value * 10 + digit;
    }
    return value;
}

} // namespace

// What users of the DLL link to when they need its address.
const String::size_type String::npos;

String::String(const char* text)
    : m_text(text != nullptr ? text : "")
{
}

String::String(const char* bytes, size_type size)
    : m_text(bytes, size)
{
}

String::String(const unsigned char* bytes, size_type size)
    : m_text(reinterpret_cast<const char*>(bytes), size)
{
}

String::String(size_type count, char character)
    : m_text(count, character)
{
}

String::String(const std::string& text)
    : m_text(text)
{
}

String::String(std::string&& text) noexcept
    : m_text(std::move(text))
{
}

String::String(std::string_view text)
    : m_text(text)
{
}

String& String::operator+=(char character)
{
    m_text += character;
    return *this;
}

String& String::operator+=(const char* text)
{
    if (text != nullptr)
        m_text += text;
    return *this;
}

String& String::operator+=(const String& text)
{
    m_text += text.m_text;
    return *this;
}

String& String::append(const char* bytes, size_type size)
{
    m_text.append(bytes, size);
    return *this;
}

String& String::erase(size_type position, size_type count)
{
    m_text.erase(position, count);
    return *this;
}

String& String::insert(size_type position, const String& text)
{
    m_text.insert(position, text.m_text);
    return *this;
}

String& String::insert(size_type position, size_type count, char character)
{
    m_text.insert(position, count, character);
    return *this;
}

String String::substr(size_type position, size_type count) const
{
    return String(m_text.substr(position, count));
}

String::size_type String::find(const String& text, size_type from) const noexcept
{
    return m_text.find(text.m_text, from);
}

String::size_type String::find(char character, size_type from) const noexcept
{
    return m_text.find(character, from);
}

String::size_type String::rfind(char character, size_type from) const noexcept
{
    return m_text.rfind(character, from);
}

void String::pop_back()
{
    m_text.pop_back();
}

String::size_type String::Find(const String& text, size_type from) const noexcept
{
    return m_text.find(text.m_text, from);
}

String::size_type String::FindI(const String& text, size_type from) const noexcept
{
    if (from > m_text.size())
        return npos;
    if (text.empty())
        return from;
    const auto found = std::search(m_text.begin() + static_cast<std::ptrdiff_t>(from), m_text.end(), text.begin(),
                                   text.end(), [](char left, char right) { return Fold(left) == Fold(right); });
    return found == m_text.end() ? npos : static_cast<size_type>(found - m_text.begin());
}

String::size_type String::FindFirstCharI(const String& set) const noexcept
{
    const auto found = std::find_first_of(m_text.begin(), m_text.end(), set.begin(), set.end(),
                                          [](char left, char right) { return Fold(left) == Fold(right); });
    return found == m_text.end() ? npos : static_cast<size_type>(found - m_text.begin());
}

bool String::StartsWith(const String& text) const noexcept
{
    return view().starts_with(text.view());
}

bool String::StartsWithI(const String& text) const noexcept
{
    return size() >= text.size() && EqualsI(view().substr(0, text.size()), text.view());
}

bool String::EndsWith(const String& text) const noexcept
{
    return view().ends_with(text.view());
}

bool String::MatchesI(const String& other) const noexcept
{
    return EqualsI(view(), other.view());
}

bool String::ApproxMatchesI(const String& other) const noexcept
{
    if (HasWildcard(view()))
        return MatchesPattern(view(), other.view());
    if (HasWildcard(other.view()))
        return MatchesPattern(other.view(), view());
    return MatchesI(other);
}

USHORT String::ToUSHORT() const noexcept
{
    return static_cast<USHORT>(ToNumber(view(), std::numeric_limits<USHORT>::max()));
}

ULONG String::ToULONG() const noexcept
{
    return static_cast<ULONG>(ToNumber(view(), std::numeric_limits<std::uint32_t>::max()));
}

ULONG8 String::ToULONG8() const noexcept
{
    return ToNumber(view(), std::numeric_limits<ULONG8>::max());
}

String String::sToString(unsigned char value)
{
    return String(std::to_string(value));
}

String String::sToString(unsigned short value)
{
    return String(std::to_string(value));
}

String String::sToString(unsigned int value)
{
    return String(std::to_string(value));
}

String String::sToString(unsigned long value)
{
    return String(std::to_string(value));
}

String String::sToString(unsigned long long value)
{
    return String(std::to_string(value));
}

String String::sToString(int value)
{
    return String(std::to_string(value));
}

void String::sToHex(char byte, char& high, char& low) noexcept
{
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    high = DIGITS[value >> 4];
    low = DIGITS[value & 0x0F];
}

bool String::sIs8bitChar(char byte) noexcept
{
    return static_cast<unsigned char>(byte) >= 128;
}

void String::sCpystr(char* dest, const String& text, ULONG size) noexcept
{
    if (size == 0)
        return;
    const size_type length = std::min<size_type>(std::strlen(text.c_str()), size - 1);
    std::memcpy(dest, text.c_str(), length);
    dest[length] = '\0';
}

bool String::sCompareTextCharArrays(const char* left, const char* right) noexcept
{
    return std::strcmp(left, right) == 0;
}

} // namespace kqlib
