// FtpPattern: names with wildcards.
#pragma once

#include "common/String.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kqlib {

/// A pattern for one name, not for a path: "*" stands for any characters, "?" for one, "[a-z]" for one of a set,
/// "[!a-z]" or "[^a-z]" for one outside of it, and a backslash takes the special meaning from what follows. A "["
/// without its "]" is itself. A character is one of UTF-8, or a byte that belongs to none.
///
/// A comparison takes at most as many steps as the name has characters, times the length of the pattern, whatever they
/// are.
///
/// Ownership: a plain value. Threads: any number that only compare. Errors: none; every text is a pattern.
class FtpPattern
{
public:
    enum class LETTERS : std::uint8_t
    {
        EXACT,
        IGNORE_CASE ///< of ASCII
    };

    explicit FtpPattern(const String& pattern, LETTERS letters = LETTERS::EXACT);

    bool Matches(const String& name) const;
    /// As shells list names: a first "." must stand in the pattern as itself.
    bool MatchesListed(const String& name) const;

    /// Whether a text means anything else than itself.
    static bool sHasWildcards(const String& text);

private:
    using TEXT = std::string_view;
    using RANGE = std::pair<std::string, std::string>; // first and last character
    struct STEP
    {
        bool isAnyText = false;
        bool isAnyCharacter = false;
        bool isOutside = false; // of the ranges
        std::vector<RANGE> ranges;
    };

    void xCompile(TEXT pattern);
    static bool xsTakeSet(TEXT& pattern, STEP& step);
    static bool xsFits(const STEP& step, TEXT character);

    LETTERS m_letters;
    std::vector<STEP> m_steps;
    bool m_beginsWithDot = false;
};

} // namespace kqlib
