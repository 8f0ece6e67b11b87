// STRINGS: an ordered list of texts that splits one line into items and joins items into one line.
#pragma once

#include "common/String.h"

#include <vector>

namespace kqlib {

/// An ordered list of String; a standard vector with splitting and joining.
///
/// AddByLine appends the items of a line and never clears the list first. Without flags both are true: skipEmpty drops
/// empty items, trim removes blanks, TAB, CR and LF at both ends of each item (before it is tested for being empty).
/// An empty line adds nothing. The line may be an item of the list. There is no quoting.
///
/// Ownership: owns its texts. Threads: a plain value. Errors: none.
class KQCOMMON_API STRINGS : public std::vector<String>
{
public:
    using std::vector<String>::vector;

    /// Splits at "," and ";", or at the separator, or at any character of separators (none: the whole line is one
    /// item).
    ///@{
    void AddByLine(const String& line);
    void AddByLine(const String& line, unsigned char separator);
    void AddByLine(const String& line, const String& separators);
    void AddByLine(const String& line, bool skipEmpty, bool trim);
    void AddByLine(const String& line, unsigned char separator, bool skipEmpty, bool trim);
    void AddByLine(const String& line, const String& separators, bool skipEmpty, bool trim);
    ///@}

    /// Joins the items with "," (or the separator), no blank between; no items give an empty text.
    ///@{
    void GetLine(String& out) const;
    void GetLine(String& out, unsigned char separator) const;
    String GetLine() const;
    String GetLine(unsigned char separator) const;
    ///@}
};

} // namespace kqlib
