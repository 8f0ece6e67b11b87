// FilePath: the text of a path.
#pragma once

#include "common/String.h"

namespace kqlib {

/// A path text. Both "/" and the system's own separator may stand in it.
///
/// Ownership: a plain value. Threads: one at a time. Errors: none.
class KQCOMMON_API FilePath
{
public:
    /// An empty text.
    FilePath() = default;
    /// Any text; nothing is looked up or refused.
    ///@{
    FilePath(const String& text)
        : m_text(text)
    {
    }
    FilePath(const char* text)
        : m_text(text)
    {
    }
    ///@}

    /// The text as it was given; c_str: zero-terminated, valid until the path changes.
    ///@{
    const String& GetText() const { return m_text; }
    const char* c_str() const { return m_text.c_str(); }
    ///@}
    /// No text; file operations fail with such a path, and a folder without text is the current one.
    bool empty() const { return m_text.empty(); }
    /// Appends the text as it is: without a separator, which MakeSafeForFileAppend adds.
    FilePath& operator+=(const String& text)
    {
        m_text += text;
        return *this;
    }
    /// Prepares a folder path for a file name to be appended: with folder true, one separator at the end is added
    /// unless one stands there; an empty path stays empty. With false, nothing is changed.
    void MakeSafeForFileAppend(bool folder);

    /// Equal texts by byte; "a/b" and "a//b" differ.
    friend bool operator==(const FilePath&, const FilePath&) = default;

private:
    String m_text;
};

} // namespace kqlib
