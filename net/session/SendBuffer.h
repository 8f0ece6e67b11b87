// SendBuffer: bytes gathered to be sent together. Inside the library only.
#pragma once

#include "common/RunAllSteps.h"
#include "common/Types.h"

#include <algorithm>
#include <memory>

namespace kqlib {

/// The send buffer of a session. It hands what it holds to a sender, send(data, length), which answers whether all of
/// it was sent.
///
/// Ownership: its bytes. Threads: one at a time. Errors: std::bad_alloc from Make; what a sender throws.
class SendBuffer
{
public:
    /// Makes room for capacity bytes. A buffer of that size stays as it is; one of another size loses what it held.
    void Make(ULONG capacity);
    /// Drops what it holds and keeps the room.
    void Discard() { m_fill = 0; }
    /// There is room for any bytes.
    bool IsMade() const { return m_capacity > 0; }

    /// Takes bytes. When they do not fit, the buffer is filled up and sent whole, as often as needed. False: a sender
    /// said no; the buffer is still full then, and the rest of the bytes was not taken. Make comes first.
    template <class SEND> bool Add(const unsigned char* data, ULONG length, const SEND& send)
    {
        while (length > m_capacity - m_fill) {
            const ULONG room = m_capacity - m_fill;
            std::copy_n(data, room, m_bytes.get() + m_fill);
            m_fill = m_capacity;
            data += room;
            length -= room;
            if (!send(m_bytes.get(), m_fill))
                return false;
            m_fill = 0;
        }
        std::copy_n(data, length, m_bytes.get() + m_fill);
        m_fill += length;
        return true;
    }

    /// Sends what it holds. It is empty afterwards, whatever the sender said or threw. True: nothing to send, or sent.
    template <class SEND> bool Purge(const SEND& send)
    {
        if (m_fill == 0)
            return true;
        bool sent = false;
        RunAllSteps([&] { sent = send(m_bytes.get(), m_fill); }, [&] { m_fill = 0; });
        return sent;
    }

private:
    std::unique_ptr<unsigned char[]> m_bytes;
    ULONG m_capacity = 0;
    ULONG m_fill = 0;
};

} // namespace kqlib
