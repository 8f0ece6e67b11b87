// CommandSplitter: cuts received bytes into commands. Inside the library only.
#pragma once

#include "net/sockets/NetTCP.h"

#include <cstdint>

namespace kqlib {

/// How a session splits what it receives. A command ends at CR LF, of which neither is part of it; or at each LF. One
/// that reaches the maximum size is handed over at once, as oversized, and what follows is a command of its own.
///
/// The state between two pieces is the caller's: the command under way, and "the last byte was CR" in the buffer.
/// NetTCP's command reception has other rules: there the size counts differently.
///
/// Ownership: a plain value. Threads: one at a time. Errors: std::bad_alloc when the command cannot grow.
class CommandSplitter
{
public:
    /// What Split has found.
    enum class RESULT
    {
        INCOMPLETE, ///< the buffer is used up; the command goes on
        COMMAND,    ///< the command is complete, its end is consumed and taken off
        OVERSIZED   ///< the command has reached the maximum size
    };

    /// In bytes; 1024 at first.
    ///@{
    void SetMaxSize(std::uint32_t size) { m_maxSize = size; }
    std::uint32_t GetMaxSize() const { return m_maxSize; }
    ///@}
    /// On: each LF ends a command, and a CR before it is taken off. Off, at first: CR LF does, and an LF alone is a
    /// character like any other.
    void SetEndIncludesLF(bool on) { m_endIncludesLF = on; }

    /// Moves bytes from the buffer's position on to the end of the command, until there is one of the results.
    RESULT Split(NetTCP::RECVBUF& buffer, String& command) const;
    /// Whether Split, with an empty command, would find one in the buffer: complete or oversized. Looks at no more
    /// bytes than the maximum size.
    bool HoldsWhole(const NetTCP::RECVBUF& buffer) const;

private:
    std::uint32_t m_maxSize = 1024;
    bool m_endIncludesLF = false;
};

} // namespace kqlib
