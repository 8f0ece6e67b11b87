// String: the 8-bit text of every interface.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kqlib {

/// A byte string: 8-bit text without an assumed encoding, any byte value included.
///
/// Wraps the standard string; copied, assigned and moved by value. Case-insensitive operations fold the letters A to Z
/// only and know no locale.
///
/// Ownership: owns its bytes. Threads: a plain value, one thread at a time. Errors: nothing fails; only the standard
/// library's allocation and range errors are thrown.
class KQCOMMON_API String
{
public:
    /// Sizes and positions, in bytes.
    using size_type = std::string::size_type;
    /// "Not found" and "to the end". Defined once in the library, not inline: a reference to it must find it there.
    static const size_type npos = std::string::npos;

    /// Empty.
    String() = default;
    /// text: zero-terminated, null reads as empty.
    String(const char* text);
    /// size bytes at bytes, zero bytes included.
    ///@{
    String(const char* bytes, size_type size);
    String(const unsigned char* bytes, size_type size);
    ///@}
    /// count times the character.
    String(size_type count, char character);
    /// All bytes of the text, zero bytes included.
    ///@{
    String(const std::string& text);
    String(std::string&& text) noexcept;
    explicit String(std::string_view text);
    ///@}

    /// As the standard string: an index or position past the end is the caller's error, or std::out_of_range where
    /// the standard string throws it. A null text adds nothing.
    ///@{
    bool empty() const noexcept { return m_text.empty(); }
    size_type size() const noexcept { return m_text.size(); }
    const char* c_str() const noexcept { return m_text.c_str(); }
    const char* data() const noexcept { return m_text.data(); }
    const std::string& str() const noexcept { return m_text; }
    std::string_view view() const noexcept { return m_text; }
    void clear() noexcept { m_text.clear(); }
    void reserve(size_type size) { m_text.reserve(size); }
    char operator[](size_type index) const { return m_text[index]; }
    char& operator[](size_type index) { return m_text[index]; }
    auto begin() const noexcept { return m_text.begin(); }
    auto end() const noexcept { return m_text.end(); }
    String& operator+=(char character);
    String& operator+=(const char* text);
    String& operator+=(const String& text);
    String& append(const char* bytes, size_type size);
    /// Removes count bytes from position on (all by default). Past the end: std::out_of_range.
    String& erase(size_type position = 0, size_type count = npos);
    String& insert(size_type position, const String& text);
    String& insert(size_type position, size_type count, char character);
    /// The count bytes from position on (all by default). Past the end: std::out_of_range.
    String substr(size_type position = 0, size_type count = npos) const;
    size_type find(const String& text, size_type from = 0) const noexcept;
    size_type find(char character, size_type from = 0) const noexcept;
    size_type rfind(char character, size_type from = npos) const noexcept;
    void pop_back();
    ///@}

    // --- searching and matching
    /// First position of text at or after from, npos when absent.
    size_type Find(const String& text, size_type from = 0) const noexcept;
    /// The same without regard to case.
    size_type FindI(const String& text, size_type from = 0) const noexcept;
    /// First position of any character of set, without regard to case; npos when none is there.
    size_type FindFirstCharI(const String& set) const noexcept;
    /// Whether it begins or ends with text; each does with the empty one. I: without regard to case.
    ///@{
    bool StartsWith(const String& text) const noexcept;
    bool StartsWithI(const String& text) const noexcept;
    bool EndsWith(const String& text) const noexcept;
    ///@}
    /// Equality without regard to case.
    bool MatchesI(const String& other) const noexcept;
    /// Wildcard match of the whole texts without regard to case: "*" any run, "?" one character. The side that carries
    /// a wildcard is the pattern; when both do, this object is the pattern and other plain text; when neither does,
    /// equality. Time is bounded by the product of the lengths.
    bool ApproxMatchesI(const String& other) const noexcept;

    // --- numbers
    /// Decimal text to number: leading blanks and TABs are skipped, digits read up to the first other character. No
    /// digit (a sign included), or a number that does not fit the type (ToULONG: 32 bits on every system), gives 0.
    ///@{
    USHORT ToUSHORT() const noexcept;
    ULONG ToULONG() const noexcept;
    ULONG8 ToULONG8() const noexcept;
    ///@}
    /// Decimal text of a number; an unsigned char is a number too.
    ///@{
    static String sToString(unsigned char value);
    static String sToString(unsigned short value);
    static String sToString(unsigned int value);
    static String sToString(unsigned long value);
    static String sToString(unsigned long long value);
    static String sToString(int value);
    ///@}

    // --- bytes
    /// The two upper-case hexadecimal digits of a byte.
    static void sToHex(char byte, char& high, char& low) noexcept;
    /// True for a byte of 128 or more.
    static bool sIs8bitChar(char byte) noexcept;
    /// Copies text into a field of size bytes at dest: at most size - 1 bytes, up to the first zero byte, always
    /// terminated, the rest of the field untouched. size 0 does nothing.
    static void sCpystr(char* dest, const String& text, ULONG size) noexcept;
    /// True when two zero-terminated texts are equal.
    static bool sCompareTextCharArrays(const char* left, const char* right) noexcept;

    /// Equality and order by unsigned byte, and joining; a null text reads as empty.
    ///@{
    friend bool operator==(const String& left, const String& right) noexcept { return left.m_text == right.m_text; }
    friend bool operator==(const String& left, const char* right) { return left.m_text == (right ? right : ""); }
    friend auto operator<=>(const String& left, const String& right) noexcept { return left.m_text <=> right.m_text; }
    friend String operator+(const String& left, const String& right) { return String(left.m_text + right.m_text); }
    friend String operator+(const String& left, const char* right)
    {
        return String(left.m_text + (right ? right : ""));
    }
    friend String operator+(const char* left, const String& right) { return String((left ? left : "") + right.m_text); }
    friend String operator+(const String& left, char right) { return String(left.m_text + right); }
    ///@}

private:
    std::string m_text;
};

} // namespace kqlib
