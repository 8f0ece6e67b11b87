// FtpMirrorReport: what a mirroring does, and its sums.
#pragma once

#include "common/String.h"

#include <functional>

namespace kqlib {

/// Counts what happens and tells it on, one call for each file, folder and failure.
///
/// Ownership: a plain value. Threads: one at a time.
class FtpMirrorReport
{
public:
    enum class WHAT : std::uint8_t
    {
        MOVED,       ///< a file was transferred
        SAME,        ///< a file was there already
        MADE_FOLDER, ///< a folder was made
        LEFT_OUT,    ///< a link, a device, an unfinished file of another transfer
        FAILED,      ///< reason says why
        LAST = FAILED
    };
    using LISTENER = std::function<void(WHAT what, const String& path, const String& reason)>;

    void SetListener(LISTENER listener) { m_listener = std::move(listener); }

    void Note(WHAT what, const String& path, const String& reason = String())
    {
        ++m_counts[static_cast<std::size_t>(what)];
        if (m_listener)
            m_listener(what, path, reason);
    }
    void NoteBytes(ULONG8 bytes) { m_bytes += bytes; }

    ULONG8 GetCount(WHAT what) const { return m_counts[static_cast<std::size_t>(what)]; }
    /// Bytes that went over data connections for files.
    ULONG8 GetBytes() const { return m_bytes; }

private:
    LISTENER m_listener;
    ULONG8 m_counts[static_cast<std::size_t>(WHAT::LAST) + 1] = {};
    ULONG8 m_bytes = 0;
};

} // namespace kqlib
