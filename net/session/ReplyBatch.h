// ReplyBatch: replies held back until the commands that came with theirs are answered too. Inside the library only.
#pragma once

#include "common/Types.h"

#include <string>
#include <utility>

namespace kqlib {

/// What a session holds back for its main socket while batching is on. It is open while commands that have arrived
/// whole wait for their turn; only then bytes are added to wait for those of the next reply. Taking what it holds
/// closes it until the next command is found.
///
/// Ownership: its bytes. Threads: one at a time. Errors: std::bad_alloc from Add, which then has added nothing.
class ReplyBatch
{
public:
    /// The most that is held back, in bytes: as much as one record of TLS takes.
    static constexpr ULONG CAPACITY = 16384;

    /// Off at first. Turned off it is closed; what it holds stays until it is taken.
    void SetOn(bool on)
    {
        m_on = on;
        m_open = m_open && on;
    }
    /// A command was found. more: another one has arrived whole behind it.
    void NoteCommand(bool more) { m_open = m_on && more; }

    /// As set.
    bool IsOn() const { return m_on; }
    /// Replies are held back: a whole command waits behind the one that was found last.
    bool IsOpen() const { return m_open; }
    /// There is something to take.
    bool HoldsAny() const { return !m_bytes.empty(); }
    /// There is nothing to take and nothing to close.
    bool IsIdle() const { return !m_open && m_bytes.empty(); }

    /// False: there is no room for all of them, and none was added.
    [[nodiscard]] bool Add(const unsigned char* data, ULONG length)
    {
        if (length > CAPACITY - m_bytes.size())
            return false;
        m_bytes.append(reinterpret_cast<const char*>(data), length);
        return true;
    }
    /// Hands out what it holds, and is closed and empty afterwards.
    [[nodiscard]] std::string Take()
    {
        m_open = false;
        return std::exchange(m_bytes, std::string());
    }

private:
    bool m_on = false;
    bool m_open = false;
    std::string m_bytes;
};

} // namespace kqlib
