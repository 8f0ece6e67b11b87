// FtpText: small questions about texts of peers and of people.
#pragma once

#include "common/String.h"

#include <algorithm>
#include <cstddef>

namespace kqlib {

inline bool IsControlCharacter(char character)
{
    return static_cast<unsigned char>(character) < 32 || character == 127;
}

inline bool HasControlCharacter(const String& text)
{
    return std::any_of(text.begin(), text.end(), IsControlCharacter);
}

/// A text of somebody else for a line of ours: every control character becomes "?".
inline String MakeVisible(String text)
{
    for (String::size_type i = 0; i < text.size(); ++i)
        if (IsControlCharacter(text[i]))
            text[i] = '?';
    return text;
}

/// True for one to maxDigits decimal digits and nothing else.
inline bool IsDecimal(const String& text, std::size_t maxDigits = String::npos)
{
    return !text.empty() && text.size() <= maxDigits &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace kqlib
