// NetDNSReader: the bounds-checked reader of a DNS message. Inside the library only.
#pragma once

#include "common/String.h"
#include "common/Types.h"
#include "platform/Export.h"

#include <cstdint>

namespace kqlib {

/// Reads numbers, bytes and texts of a message from front to back. Internal; exported for tests and fuzz targets.
///
/// Ownership: borrows the message, which must outlive the reader. Threads: one at a time. Errors: a read that does not
/// lie inside the message is false, and changes neither the position nor the out value.
class KQNET_API NetDNSReader
{
public:
    /// A decoded name that grows longer than this many bytes is refused. 255 are the most that a name may have (RFC
    /// 1035 section 2.3.4); they are not insisted on, kept on purpose. But pointers let a short message unfold without
    /// end.
    static constexpr ULONG LONGEST_NAME = 65536;

    /// At the first of length bytes; message may be null when length is 0.
    NetDNSReader(const BYTE* message, ULONG length);

    /// Both in bytes; the position is at most the length.
    ///@{
    ULONG GetLength() const { return m_length; }
    ULONG GetPosition() const { return m_position; }
    ///@}
    /// Bytes from the position to the end.
    ULONG GetRemaining() const { return m_length - m_position; }

    /// Moves to a place inside the message or to its end.
    [[nodiscard]] bool Seek(ULONG position);
    /// Moves on by count bytes, at most to the end.
    [[nodiscard]] bool Skip(ULONG count);
    /// The byte at the position, which stays.
    [[nodiscard]] bool Peek8(std::uint8_t& value) const;
    /// Two bytes at the position in network order; the position stays.
    [[nodiscard]] bool Peek16(std::uint16_t& value) const;
    /// Numbers in network order.
    ///@{
    [[nodiscard]] bool Read8(std::uint8_t& value);
    [[nodiscard]] bool Read16(std::uint16_t& value);
    [[nodiscard]] bool Read32(std::uint32_t& value);
    ///@}
    /// Appends count bytes to text.
    [[nodiscard]] bool ReadText(ULONG count, String& text);
    /// Decodes a domain name, following compression pointers (RFC 1035 section 4.1.4), and appends it to name without a
    /// dot at its end. The pointers followed so far and the labels since the last of them count together: more than 200
    /// fail, so that a loop of pointers ends. True: the position is behind the name, or behind its first pointer.
    /// False: the position and what was appended mean nothing.
    ///
    /// The root name, one byte 0, is read as a label without text: the name goes on with whatever stands behind it, and
    /// fails when nothing does. Kept on purpose; no byte behind the message is ever read.
    [[nodiscard]] bool ReadName(String& name);
    /// Decodes a domain name as the RFCs have it: labels of at most 63 bytes, 255 in all, no dot and no zero byte
    /// within a label, and pointers that lead towards the front, so that there is no loop. The root name is empty. name
    /// is cleared first. True: the position is behind the name, or behind its first pointer. False: both mean nothing.
    [[nodiscard]] bool ReadStrictName(String& name);

private:
    [[nodiscard]] bool xQNameToDomain(String& name, unsigned depth);

    const BYTE* m_message;
    ULONG m_length;
    ULONG m_position = 0; ///< never past m_length
};

} // namespace kqlib
