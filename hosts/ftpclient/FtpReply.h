// FtpReply: what the server answers to a command.
#pragma once

#include "common/STRINGS.h"
#include "common/String.h"

namespace kqlib {

/// One reply, assembled from the lines of the control connection (RFC 959, section 4.2).
///
/// Ownership: a plain value. Threads: one at a time. Errors: by result.
class FtpReply
{
public:
    enum class STATE : std::uint8_t
    {
        INCOMPLETE, ///< more lines belong to it
        COMPLETE,
        WRONG ///< not the line of a reply, or more lines than any reply has
    };

    /// Adds one line, without its end. The first line after a complete reply, or a wrong one, begins a new reply.
    STATE AddLine(const String& line);
    /// Forgets what was added.
    void Reset();

    /// 100 to 599; 0 before the first line.
    unsigned GetCode() const { return m_code; }
    /// The first digit, which says what came of the command.
    unsigned GetClass() const { return m_code / 100; }
    bool IsPreliminary() const { return GetClass() == 1; }
    bool IsSuccess() const { return GetClass() == 2; }
    bool IsIntermediate() const { return GetClass() == 3; }
    /// The command is not known, or not offered; another one may do.
    bool IsNotOffered() const { return GetClass() == 5 && m_code < 505; }

    /// All lines for people, "; " between, without the codes; of a very long reply the beginning.
    String GetWholeText() const;
    /// The last line without the code.
    const String& GetText() const { return m_text; }
    /// The lines between the first and the last one, as they came.
    const STRINGS& GetInnerLines() const { return m_inner; }

private:
    unsigned m_code = 0;
    bool m_isOver = true; // the next line begins a reply
    String m_first;       // the first of several lines, without its code
    String m_text;
    STRINGS m_inner;
};

} // namespace kqlib
